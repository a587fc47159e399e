// The same scene as other tools write it (tests/data/variants, made once by
// scripts/make_variants.py with gltfpack and gltf-transform): each exports the
// plain file's triangles, where glTF puts them, with their normals and pairs, or
// is refused with the extension named.
#include "gltf/gltf_builder.h"
#include "xfile/x_reader.h"

#include <cmath>

namespace tarnvale::test {
namespace {

// Each vertex of every triangle in the X file: its place in the world, its normal
// there and its pair.
struct Corner {
    std::array<double, 3> at, normal;
    std::array<double, 2> uv;
};

// A normal into the world: by the cofactors of the frame's axes (the inverse
// transpose times the determinant), made unit.
std::array<double, 3> normalIn(const std::array<double, 16>& w, const std::array<double, 3>& n) {
    auto at = [&](int r, int c) { return w[static_cast<size_t>(4 * (r % 3) + c % 3)]; };
    std::array<double, 3> out{};
    for (int c = 0; c < 3; ++c)
        for (int r = 0; r < 3; ++r)
            out[c] += n[r] * (at(r + 1, c + 1) * at(r + 2, c + 2) - at(r + 1, c + 2) * at(r + 2, c + 1));
    const double length = std::hypot(out[0], out[1], out[2]);
    return {out[0] / length, out[1] / length, out[2] / length};
}

void corners(const XFrame& f, const std::array<double, 16>& parent, std::vector<Corner>& out,
             size_t& triangles) {
    const auto world = worldOf(f, parent);
    for (const XMesh& m : f.meshes)
        for (size_t t = 0; t < m.faces.size(); ++t) {
            triangles += m.faces[t].size() - 2;
            for (size_t k = 0; k < m.faces[t].size(); ++k) {
                const int v = m.faces[t][k];
                out.push_back({through(m.positions.at(v), world),
                               normalIn(world, m.normals.at(m.normalFaces.at(t).at(k))),
                               m.uvs.empty() ? std::array<double, 2>{} : m.uvs.at(v)});
            }
        }
    for (const XFrame& c : f.children)
        corners(c, world, out, triangles);
}

std::pair<std::vector<Corner>, size_t> exported(const std::string& scene, TempDir& d) {
    const RunResult r = tarnvale("export " + scene + " -o " + d.file("v.x") + " --yes --no-tool -q", d);
    EXPECT_EQ(r.code, 0) << scene << "\n" << r.err;
    std::vector<Corner> out;
    size_t triangles = 0;
    int faces = 0, wrong = 0;
    for (const XFrame& f : XReader(readFile(d.file("v.x"))).frames()) {
        corners(f, kIdentity, out, triangles);
        countFacesAgainstNormals(f, kIdentity, faces, wrong);
    }
    EXPECT_EQ(wrong, 0) << scene << ": triangles facing away from their normals";
    return {out, triangles};
}

// The largest distance from a corner of `a` to the nearest of `b` that has its pair
// (within the quantization of pairs, 1/4096) and its normal (within 3 degrees), as
// places, pairs and normals go together.
double farthest(const std::vector<Corner>& a, const std::vector<Corner>& b) {
    double worst = 0;
    for (const Corner& p : a) {
        double best = INFINITY;
        for (const Corner& q : b)
            if (std::hypot(p.uv[0] - q.uv[0], p.uv[1] - q.uv[1]) < 1e-3 &&
                p.normal[0] * q.normal[0] + p.normal[1] * q.normal[1] + p.normal[2] * q.normal[2] > 0.9986)
                best = std::min(best, std::hypot(p.at[0] - q.at[0], p.at[1] - q.at[1], p.at[2] - q.at[2]));
        worst = std::max(worst, best);
    }
    return worst;
}

TEST(Variants, OtherToolsFilesExportThePlainFilesTrianglesOrNameWhatTheyNeed) {
    TempDir d;
    const std::string folder = sourcePath("tests/data/variants/");
    const auto [plain, triangles] = exported(folder + "plain.gltf", d);
    ASSERT_EQ(triangles, 60u);
    // A required extension nobody implements, in the plain file.
    json unknown = json::parse(readFile(folder + "plain.gltf"));
    unknown["extensionsUsed"] = unknown["extensionsRequired"] = {"EXT_unknown_thing"};
    writeFile(d.file("unknown.gltf"), unknown.dump());
    struct Row {
        std::string file;
        const char* says; // standard error of a refused file; none for one taken
    };
    const Row rows[] = {
        {folder + "quantized.glb", nullptr}, // KHR_mesh_quantization, pairs placed by KHR_texture_transform
        {folder + "meshopt.glb", nullptr},   // EXT_meshopt_compression
        {folder + "instanced.glb", nullptr}, // EXT_mesh_gpu_instancing
        {folder + "draco.glb", nullptr},     // KHR_draco_mesh_compression
        {d.file("unknown.gltf"), "requires EXT_unknown_thing, which Tarnvale cannot read"},
    };
    for (const Row& r : rows) {
        if (r.says) {
            const RunResult refused =
                tarnvale("export " + r.file + " -o " + d.file("no.x") + " --yes --no-tool", d);
            EXPECT_EQ(refused.code, 2) << r.file;
            EXPECT_NE(refused.err.find(r.says), std::string::npos) << refused.err;
            EXPECT_FALSE(fs::exists(d.file("no.x")));
            continue;
        }
        const auto [variant, count] = exported(r.file, d);
        EXPECT_EQ(count, triangles) << r.file;
        // 14-bit positions over a 4 m hull: a quarter of a millimetre a step.
        EXPECT_LT(farthest(variant, plain), 1e-3) << r.file;
        EXPECT_LT(farthest(plain, variant), 1e-3) << r.file;
    }
}

} // namespace
} // namespace tarnvale::test
