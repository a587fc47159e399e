// Node transforms into the X file's row-vector matrices, mirrored in x, and the
// placing of skinned vertices at the skin's rest.
#include "gltf/builder.h"

#include <array>
#include <cmath>

namespace tarnvale::gltf {

Matrix16 composeTrs(const std::vector<double>& t, const std::vector<double>& r,
                    const std::vector<double>& s) {
    double x = r.size() == 4 ? r[0] : 0, y = r.size() == 4 ? r[1] : 0, z = r.size() == 4 ? r[2] : 0,
           w = r.size() == 4 ? r[3] : 1;
    double R[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
                      {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
                      {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}};
    double sc[3] = {s.size() == 3 ? s[0] : 1, s.size() == 3 ? s[1] : 1, s.size() == 3 ? s[2] : 1};
    Matrix16 m{};
    // Row vectors: row c of the X matrix is column c of the glTF matrix.
    for (int c = 0; c < 3; ++c)
        for (int rr = 0; rr < 3; ++rr)
            m[c * 4 + rr] = static_cast<float>(R[rr][c] * sc[c]);
    for (int i = 0; i < 3; ++i)
        m[12 + i] = static_cast<float>(t.size() == 3 ? t[i] : 0);
    m[15] = 1;
    return m;
}

Matrix16 mirrorX(Matrix16 m) {
    for (int i : {1, 2, 3, 4, 8, 12})
        m[i] = -m[i];
    return m;
}

void placeSkinnedVertices(MemoryShape& shape, const std::vector<VertexWeight>& weights,
                          const std::vector<size_t>& jointOf, const std::vector<Matrix16>& toNode,
                          const std::vector<int32_t>& normalVertex) {
    if (toNode.empty()) return;
    const size_t n = shape.positions().size();
    std::vector<std::array<double, 12>> blend(n, std::array<double, 12>{});
    std::vector<double> total(n, 0);
    for (size_t k = 0; k < weights.size(); ++k) {
        const auto v = static_cast<size_t>(weights[k].vertex);
        const Matrix16& m = toNode[jointOf[k]];
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 3; ++c)
                blend[v][r * 3 + c] += weights[k].weight * m[r * 4 + c];
        total[v] += weights[k].weight;
    }
    for (size_t v = 0; v < n; ++v)
        if (total[v] == 0)
            for (int r = 0; r < 4; ++r)
                for (int c = 0; c < 3; ++c)
                    blend[v][r * 3 + c] = toNode[0][r * 4 + c];
    for (size_t v = 0; v < n; ++v) {
        Vec3& p = shape.positions()[v];
        const auto& b = blend[v];
        p = {static_cast<float>(p.x * b[0] + p.y * b[3] + p.z * b[6] + b[9]),
             static_cast<float>(p.x * b[1] + p.y * b[4] + p.z * b[7] + b[10]),
             static_cast<float>(p.x * b[2] + p.y * b[5] + p.z * b[8] + b[11])};
    }
    for (size_t i = 0; i < shape.normals().size() && i < normalVertex.size(); ++i) {
        const auto& b = blend[static_cast<size_t>(normalVertex[i])];
        // Cofactors over the determinant: the inverse transpose, for row vectors.
        const double cof[9] = {
            b[4] * b[8] - b[5] * b[7], b[5] * b[6] - b[3] * b[8], b[3] * b[7] - b[4] * b[6],
            b[2] * b[7] - b[1] * b[8], b[0] * b[8] - b[2] * b[6], b[1] * b[6] - b[0] * b[7],
            b[1] * b[5] - b[2] * b[4], b[2] * b[3] - b[0] * b[5], b[0] * b[4] - b[1] * b[3]};
        const double det = b[0] * cof[0] + b[1] * cof[1] + b[2] * cof[2];
        Vec3& nm = shape.normals()[i];
        double x = (nm.x * cof[0] + nm.y * cof[3] + nm.z * cof[6]) / det,
               y = (nm.x * cof[1] + nm.y * cof[4] + nm.z * cof[7]) / det,
               z = (nm.x * cof[2] + nm.y * cof[5] + nm.z * cof[8]) / det;
        const double len = std::sqrt(x * x + y * y + z * z);
        if (len > 0 && std::isfinite(len))
            nm = {static_cast<float>(x / len), static_cast<float>(y / len), static_cast<float>(z / len)};
    }
}

} // namespace tarnvale::gltf
