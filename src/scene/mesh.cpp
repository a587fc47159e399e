// Polygon meshes in flat arrays: corners of all polygons in one array, a start
// offset per polygon, a material slot per polygon.
#include "scene/scene.h"

#include <algorithm>
#include <bit>
#include <string>

namespace tarnvale::scene {

namespace {

[[noreturn]] void failIndex(const char* what, int64_t index) {
    throw Failure(err::kSubscript, std::string("Subscript out of range: ") + what + " " + std::to_string(index));
}

} // namespace

void MemoryShape::reserve(size_t polygons, size_t corners) {
    polyStart_.reserve(polyStart_.size() + polygons);
    polyMaterial_.reserve(polyMaterial_.size() + polygons);
    corners_.reserve(corners_.size() + corners);
}

void MemoryShape::checkCorner(int32_t vertex, int32_t normal, int32_t uv) const {
    if (vertex < 0 || static_cast<size_t>(vertex) >= positions_.size()) failIndex("vertex", vertex);
    if (normal < 0 || static_cast<size_t>(normal) >= normals_.size()) failIndex("normal", normal);
    if (uv < 0 || static_cast<size_t>(uv) >= uvs_.size()) failIndex("texture pair", uv);
}

uint32_t MemoryShape::materialSlot(const SGMaterialPtr& material) {
    if (!material) return kNoMaterial;
    // Polygons come in runs of one material: the last answer is the likely one.
    if (material.get() == lastMaterial_) return lastSlot_;
    auto [it, added] = materialIndex_.try_emplace(material.get(), static_cast<uint32_t>(materials_.size()));
    if (added) materials_.push_back(material);
    lastMaterial_ = material.get();
    lastSlot_ = it->second;
    return it->second;
}

void MemoryShape::addPolygon(const SGMaterialPtr& material, std::span<const Corner> corners) {
    for (const Corner& c : corners) checkCorner(c.vertex, c.normal, c.uv);
    corners_.insert(corners_.end(), corners.begin(), corners.end());
    polyStart_.push_back(static_cast<uint32_t>(corners_.size()));
    polyMaterial_.push_back(materialSlot(material));
}

void MemoryShape::checkFace(int32_t face) const {
    if (face < 0 || static_cast<size_t>(face) >= polyMaterial_.size()) failIndex("polygon", face);
}

const MemoryShape::Corner& MemoryShape::corner(int32_t face, int32_t c) const {
    checkFace(face);
    uint32_t count = polyStart_[face + 1] - polyStart_[face];
    if (c < 0 || static_cast<uint32_t>(c) >= count) failIndex("corner", c);
    return corners_[polyStart_[face] + c];
}

SGFace MemoryShape::GetPolygon(int32_t position) {
    checkFace(position);
    return SGFace(this, position);
}

SGFace MemoryShape::AddPolygon() {
    polyStart_.push_back(polyStart_.back());
    polyMaterial_.push_back(kNoMaterial);
    return SGFace(this, static_cast<int32_t>(polyMaterial_.size() - 1));
}

void MemoryShape::DeletePolygons(const std::vector<int32_t>& positions) {
    int32_t count = GetPolygonCount();
    for (size_t i = 0; i < positions.size(); ++i) {
        if (positions[i] < 0 || positions[i] >= count) failIndex("polygon", positions[i]);
        if (i > 0 && positions[i] <= positions[i - 1])
            throw Failure(err::kInvalidCall, "Polygon positions to delete must be ascending");
    }
    // One compaction pass over polygons and corners.
    size_t next = 0, keptPolys = 0, keptCorners = 0;
    std::vector<uint32_t> newStart{0};
    newStart.reserve(polyStart_.size() - positions.size());
    for (int32_t p = 0; p < count; ++p) {
        if (next < positions.size() && positions[next] == p) {
            ++next;
            continue;
        }
        for (uint32_t c = polyStart_[p]; c < polyStart_[p + 1]; ++c) corners_[keptCorners++] = corners_[c];
        polyMaterial_[keptPolys++] = polyMaterial_[p];
        newStart.push_back(static_cast<uint32_t>(keptCorners));
    }
    corners_.resize(keptCorners);
    polyMaterial_.resize(keptPolys);
    polyStart_ = std::move(newStart);
}

int32_t MemoryShape::AddUV(float u, float v) {
    uvs_.push_back({u, v});
    return static_cast<int32_t>(uvs_.size() - 1);
}

void MemoryShape::MergeShape(const SGShapePtr& other) {
    auto* src = dynamic_cast<MemoryShape*>(other.get());
    if (!src) throw Failure(err::kInvalidCall, "MergeShape: the shape is not of this scene");
    if (src == this) throw Failure(err::kInvalidCall, "MergeShape: a shape cannot be merged into itself");
    const auto vBase = static_cast<int32_t>(positions_.size());
    const auto nBase = static_cast<int32_t>(normals_.size());
    const auto tBase = static_cast<int32_t>(uvs_.size());
    positions_.insert(positions_.end(), src->positions_.begin(), src->positions_.end());
    normals_.insert(normals_.end(), src->normals_.begin(), src->normals_.end());
    uvs_.insert(uvs_.end(), src->uvs_.begin(), src->uvs_.end());

    const auto cBase = static_cast<uint32_t>(corners_.size());
    corners_.reserve(corners_.size() + src->corners_.size());
    for (const Corner& c : src->corners_) corners_.push_back({c.vertex + vBase, c.normal + nBase, c.uv + tBase});

    std::vector<uint32_t> slotMap(src->materials_.size());
    for (size_t i = 0; i < src->materials_.size(); ++i) slotMap[i] = materialSlot(src->materials_[i]);
    polyStart_.reserve(polyStart_.size() + src->polyMaterial_.size());
    polyMaterial_.reserve(polyMaterial_.size() + src->polyMaterial_.size());
    for (size_t p = 0; p < src->polyMaterial_.size(); ++p) {
        polyStart_.push_back(src->polyStart_[p + 1] + cBase);
        uint32_t slot = src->polyMaterial_[p];
        polyMaterial_.push_back(slot == kNoMaterial ? kNoMaterial : slotMap[slot]);
    }
}

void MemoryShape::GetMeshArrays(MeshArrays& out) {
    // Each position gets the pair of its first corner; a corner with another pair
    // gets a record of its own, appended, shared by all corners with that
    // (position, pair) combination. A position's further records form a chain, so
    // that the search stays near the corner's own data.
    const size_t nPos = positions_.size();
    out.vertices.resize(nPos);
    for (size_t i = 0; i < nPos; ++i) out.vertices[i] = {positions_[i].x, positions_[i].y, positions_[i].z, 0, 0};
    std::vector<uint8_t> claimed(nPos, 0);
    std::vector<int32_t> firstExtra; // per position: its first further record, -1 if none
    std::vector<int32_t> nextExtra;  // per further record: the next of the same position

    out.polygons.clear();
    out.polygons.reserve(polyMaterial_.size() + 2 * corners_.size());
    for (size_t p = 0; p < polyMaterial_.size(); ++p) {
        out.polygons.push_back(static_cast<int32_t>(polyStart_[p + 1] - polyStart_[p]));
        for (uint32_t c = polyStart_[p]; c < polyStart_[p + 1]; ++c) {
            const Corner& k = corners_[c];
            const Uv t = uvs_[k.uv];
            const uint32_t u = std::bit_cast<uint32_t>(t.u), v = std::bit_cast<uint32_t>(t.v);
            int32_t record = k.vertex;
            MeshVertex& own = out.vertices[k.vertex];
            if (!claimed[k.vertex]) {
                claimed[k.vertex] = 1;
                own.u = t.u;
                own.v = t.v;
            } else if (std::bit_cast<uint32_t>(own.u) != u || std::bit_cast<uint32_t>(own.v) != v) {
                if (firstExtra.empty()) firstExtra.assign(nPos, -1);
                int32_t r = firstExtra[k.vertex], last = -1;
                while (r >= 0 && (std::bit_cast<uint32_t>(out.vertices[r].u) != u ||
                                  std::bit_cast<uint32_t>(out.vertices[r].v) != v)) {
                    last = r;
                    r = nextExtra[r - nPos];
                }
                if (r < 0) {
                    r = static_cast<int32_t>(out.vertices.size());
                    const Vec3& q = positions_[k.vertex];
                    out.vertices.push_back({q.x, q.y, q.z, t.u, t.v});
                    nextExtra.push_back(-1);
                    if (last < 0) firstExtra[k.vertex] = r;
                    else nextExtra[last - nPos] = r;
                }
                record = r;
            }
            out.polygons.push_back(record);
            out.polygons.push_back(k.normal);
        }
    }
    out.vertexCount = static_cast<int32_t>(out.vertices.size());
    out.normals.resize(normals_.size());
    for (size_t i = 0; i < normals_.size(); ++i) out.normals[i] = {normals_[i].x, normals_[i].y, normals_[i].z};
    out.normalCount = static_cast<int32_t>(normals_.size());
    out.extra = static_cast<int32_t>(out.polygons.size());
}

int32_t MemoryShape::FaceCornerCount(int32_t face) {
    checkFace(face);
    return static_cast<int32_t>(polyStart_[face + 1] - polyStart_[face]);
}

const SGMaterialPtr& MemoryShape::FaceMaterial(int32_t face) {
    static const SGMaterialPtr kNone;
    checkFace(face);
    uint32_t slot = polyMaterial_[face];
    return slot == kNoMaterial ? kNone : materials_[slot];
}

void MemoryShape::FaceSetMaterial(int32_t face, const SGMaterialPtr& material) {
    checkFace(face);
    polyMaterial_[face] = materialSlot(material);
}

Uv MemoryShape::FaceCornerUV(int32_t face, int32_t c) { return uvs_[corner(face, c).uv]; }
int32_t MemoryShape::FaceCornerVertex(int32_t face, int32_t c) { return corner(face, c).vertex; }
int32_t MemoryShape::FaceCornerNormal(int32_t face, int32_t c) { return corner(face, c).normal; }

void MemoryShape::FaceAddCorner(int32_t face, int32_t vertex, int32_t normal, int32_t uv) {
    checkFace(face);
    checkCorner(vertex, normal, uv);
    // Corners of a polygon are contiguous: appending to the last polygon is cheap,
    // to an earlier one shifts the later corners.
    uint32_t at = polyStart_[face + 1];
    corners_.insert(corners_.begin() + at, Corner{vertex, normal, uv});
    for (size_t p = face + 1; p < polyStart_.size(); ++p) ++polyStart_[p];
}

} // namespace tarnvale::scene
