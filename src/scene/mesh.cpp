// Polygon meshes: compact flat arrays, shared between the shapes that merged them
// until one of them changes.
#include "scene/scene.h"

#include <algorithm>
#include <string>
#include <unordered_map>

namespace tarnvale::scene {

namespace {

[[noreturn]] void failIndex(const char* what, int64_t index) {
    throw Failure(err::kSubscript,
                  std::string("Subscript out of range: ") + what + " " + std::to_string(index));
}

} // namespace

// ---- MeshData ----------------------------------------------------------------------

void MeshData::makeFull() {
    if (!uniform) return;
    full.resize(single.size());
    for (size_t c = 0; c < single.size(); ++c) {
        const auto i = static_cast<int32_t>(single[c]);
        full[c] = {i, i, i};
    }
    single.clear();
    uniform = false;
}

void MeshData::makeGeneral() {
    if (!triangles) return;
    start.resize(polygonCount() + 1);
    for (size_t p = 0; p < start.size(); ++p)
        start[p] = static_cast<uint32_t>(3 * p);
    triangles = false;
}

uint32_t MeshData::slotFor(const SGMaterialPtr& m) {
    if (!m) return kNoMaterial;
    if (m.get() == lastMaterial_) return lastSlot_;
    auto [it, added] = slotOf_.try_emplace(m.get(), static_cast<uint32_t>(materials.size()));
    if (added) materials.push_back(m);
    lastMaterial_ = m.get();
    lastSlot_ = it->second;
    return it->second;
}

MeshData MeshData::without(std::span<const uint32_t> gone) const {
    MeshData m;
    m.uniform = uniform;
    m.triangles = triangles;
    m.materials = materials;
    m.slotOf_ = slotOf_;
    m.weights = weights; // the positions stay, and so do their weights
    m.bones = bones;
    size_t goneCorners = 0;
    for (uint32_t p : gone)
        goneCorners += last(p) - first(p);
    const size_t keptPolygons = polygonCount() - gone.size(), keptCorners = cornerCount() - goneCorners;
    if (uniform)
        m.single.reserve(keptCorners);
    else
        m.full.reserve(keptCorners);
    m.material.reserve(keptPolygons);
    if (!triangles) {
        m.start.reserve(keptPolygons + 1);
        m.start.push_back(0);
    }
    size_t next = 0;
    for (size_t p = 0; p < polygonCount(); ++p) {
        if (next < gone.size() && gone[next] == p) {
            ++next;
            continue;
        }
        if (uniform)
            for (uint32_t c = first(p); c < last(p); ++c)
                m.single.push_back(single[c]);
        else
            m.full.insert(m.full.end(), full.begin() + first(p), full.begin() + last(p));
        if (!triangles) m.start.push_back(static_cast<uint32_t>(m.cornerCount()));
        m.material.push_back(material[p]);
    }
    return m;
}

// ---- MemoryShape: pieces --------------------------------------------------------------

MeshData& MemoryShape::own() {
    if (pieces_.size() == 1 && pieces_[0].data.use_count() == 1)
        return const_cast<MeshData&>(*pieces_[0].data); // made here as non-const, and held alone
    auto merged = std::make_shared<MeshData>();
    // A single piece has bases 0: a plain copy.
    if (pieces_.size() == 1)
        *merged = *pieces_[0].data;
    else
        concatenatePieces(*merged);
    pieces_.assign(1, Piece{merged});
    lastPiece_ = 0;
    return *merged;
}

void MemoryShape::concatenatePieces(MeshData& m) {
    bool sameBases = true;
    size_t positions = 0, normals = 0, uvs = 0, corners = 0, polygons = 0;
    for (const Piece& q : pieces_) {
        m.uniform = m.uniform && q.data->uniform;
        m.triangles = m.triangles && q.data->triangles;
        sameBases = sameBases && q.vertexBase == q.normalBase && q.vertexBase == q.uvBase;
        positions += q.data->positions.size();
        normals += q.data->normals.size();
        uvs += q.data->uvs.size();
        corners += q.data->cornerCount();
        polygons += q.data->polygonCount();
    }
    m.uniform = m.uniform && sameBases;
    m.positions.reserve(positions);
    m.normals.reserve(normals);
    m.uvs.reserve(uvs);
    if (m.uniform)
        m.single.reserve(corners);
    else
        m.full.reserve(corners);
    m.material.reserve(polygons);
    if (!m.triangles) {
        m.start.reserve(polygons + 1);
        m.start.push_back(0);
    }
    for (const Piece& q : pieces_) {
        const MeshData& d = *q.data;
        m.positions.insert(m.positions.end(), d.positions.begin(), d.positions.end());
        m.normals.insert(m.normals.end(), d.normals.begin(), d.normals.end());
        m.uvs.insert(m.uvs.end(), d.uvs.begin(), d.uvs.end());
        const auto cornerBase = static_cast<uint32_t>(m.cornerCount());
        if (m.uniform) {
            for (size_t c = 0; c < d.single.size(); ++c)
                m.single.push_back(d.single[c] + static_cast<uint32_t>(q.vertexBase));
        } else {
            for (size_t c = 0; c < d.cornerCount(); ++c) {
                Corner k = d.corner(c);
                m.full.push_back({k.vertex + q.vertexBase, k.normal + q.normalBase, k.uv + q.uvBase});
            }
        }
        if (!m.triangles)
            for (size_t p = 0; p < d.polygonCount(); ++p)
                m.start.push_back(d.last(p) + cornerBase);
        std::unordered_map<const SGObject*, uint32_t> boneSlot;
        for (size_t b = 0; b < m.bones.size(); ++b)
            boneSlot.emplace(m.bones[b].lock().get(), static_cast<uint32_t>(b));
        for (const MeshData::Weight& w : d.weights) {
            const auto bone = d.bones[w.bone].lock();
            auto [it, added] = boneSlot.try_emplace(bone.get(), static_cast<uint32_t>(m.bones.size()));
            if (added) m.bones.push_back(bone);
            m.weights.push_back({w.vertex + static_cast<uint32_t>(q.vertexBase), it->second, w.weight});
        }
        std::vector<uint32_t> slotMap(d.materials.size());
        for (size_t i = 0; i < d.materials.size(); ++i)
            slotMap[i] = m.slotFor(d.materials[i]);
        for (size_t p = 0; p < d.material.size(); ++p) {
            const uint32_t slot = d.material[p];
            m.material.push_back(slot == MeshData::kNoMaterial ? slot : slotMap[slot]);
        }
    }
}

MemoryShape::Piece& MemoryShape::addEditPiece() {
    pieces_.push_back({std::make_shared<MeshData>(), vertexCount(), normalCount(), uvCount(),
                       static_cast<uint32_t>(polygonCount())});
    return pieces_.back();
}

void MemoryShape::unshare(Piece& piece) {
    piece.data = std::make_shared<MeshData>(*piece.data);
}

MemoryShape::Located MemoryShape::locateAmongPieces(int32_t face) {
    if (face < 0 || pieces_.empty()) failIndex("polygon", face);
    const auto f = static_cast<uint32_t>(face);
    auto it = std::upper_bound(pieces_.begin(), pieces_.end(), f,
                               [](uint32_t v, const Piece& q) { return v < q.polygonBase; });
    // The last piece that starts at or before the face; empty pieces are skipped back over.
    while (it != pieces_.begin()) {
        --it;
        if (f - it->polygonBase < it->data->polygonCount()) {
            lastPiece_ = static_cast<size_t>(it - pieces_.begin());
            return {&*it, f - it->polygonBase};
        }
        if (f >= it->polygonBase + it->data->polygonCount()) break;
    }
    failIndex("polygon", face);
}

Uv MemoryShape::pairAt(const Piece& piece, int32_t local) const {
    const MeshData& d = *piece.data;
    if (local >= 0 && static_cast<size_t>(local) < d.uvs.size()) return d.uvs[static_cast<size_t>(local)];
    // A pair of another piece: the last one that starts at or before it and holds pairs.
    const int64_t index = int64_t{local} + piece.uvBase;
    auto it = std::upper_bound(pieces_.begin(), pieces_.end(), index,
                               [](int64_t v, const Piece& q) { return v < q.uvBase; });
    while (it != pieces_.begin()) {
        --it;
        if (it->data->uvs.empty()) continue;
        const int64_t at = index - it->uvBase;
        if (at < static_cast<int64_t>(it->data->uvs.size())) return it->data->uvs[static_cast<size_t>(at)];
        break;
    }
    failIndex("texture pair", index);
}

int32_t MemoryShape::vertexCount() const {
    if (pieces_.empty()) return 0;
    return pieces_.back().vertexBase + static_cast<int32_t>(pieces_.back().data->positions.size());
}

int32_t MemoryShape::normalCount() const {
    if (pieces_.empty()) return 0;
    return pieces_.back().normalBase + static_cast<int32_t>(pieces_.back().data->normals.size());
}

int32_t MemoryShape::uvCount() const {
    if (pieces_.empty()) return 0;
    return pieces_.back().uvBase + static_cast<int32_t>(pieces_.back().data->uvs.size());
}

int32_t MemoryShape::polygonCount() const {
    if (pieces_.empty()) return 0;
    return static_cast<int32_t>(pieces_.back().polygonBase + pieces_.back().data->polygonCount());
}

void MemoryShape::MergeShape(const SGShapePtr& other) {
    auto* src = dynamic_cast<MemoryShape*>(other.get());
    if (!src) throw Failure(err::kInvalidCall, "MergeShape: the shape is not of this scene");
    if (src == this) throw Failure(err::kInvalidCall, "MergeShape: a shape cannot be merged into itself");
    const int32_t vBase = vertexCount(), nBase = normalCount(), tBase = uvCount();
    const auto pBase = static_cast<uint32_t>(polygonCount());
    for (const Piece& q : src->pieces_)
        pieces_.push_back(
            {q.data, vBase + q.vertexBase, nBase + q.normalBase, tBase + q.uvBase, pBase + q.polygonBase});
}

// ---- MemoryShape: building and changing ----------------------------------------------

void MemoryShape::reserve(size_t polygons, size_t corners) {
    MeshData& d = own();
    d.material.reserve(d.material.size() + polygons);
    if (!d.triangles) d.start.reserve(d.start.size() + polygons);
    if (d.uniform)
        d.single.reserve(d.single.size() + corners);
    else
        d.full.reserve(d.full.size() + corners);
}

void MemoryShape::checkCorner(const MeshData& d, int32_t vertex, int32_t normal, int32_t uv) const {
    if (vertex < 0 || static_cast<size_t>(vertex) >= d.positions.size()) failIndex("vertex", vertex);
    if (normal < 0 || static_cast<size_t>(normal) >= d.normals.size()) failIndex("normal", normal);
    if (uv < 0 || static_cast<size_t>(uv) >= d.uvs.size()) failIndex("texture pair", uv);
}

void MemoryShape::addPolygon(const SGMaterialPtr& material, std::span<const Corner> corners) {
    MeshData& d = own();
    bool uniform = true;
    for (const Corner& c : corners) {
        checkCorner(d, c.vertex, c.normal, c.uv);
        uniform = uniform && c.vertex == c.normal && c.vertex == c.uv;
    }
    if (d.uniform && !uniform) d.makeFull();
    if (d.triangles && corners.size() != 3) d.makeGeneral();
    if (d.uniform) {
        for (const Corner& c : corners)
            d.single.push_back(static_cast<uint32_t>(c.vertex));
    } else {
        d.full.insert(d.full.end(), corners.begin(), corners.end());
    }
    if (!d.triangles) d.start.push_back(static_cast<uint32_t>(d.cornerCount()));
    d.material.push_back(d.slotFor(material));
}

void MemoryShape::setWeights(const std::vector<VertexWeight>& weights) {
    MeshData& d = own();
    d.weights.clear();
    d.bones.clear();
    std::unordered_map<const SGObject*, uint32_t> slot;
    for (const VertexWeight& w : weights) {
        if (w.vertex < 0 || static_cast<size_t>(w.vertex) >= d.positions.size())
            failIndex("vertex", w.vertex);
        auto [it, added] = slot.try_emplace(w.bone.get(), static_cast<uint32_t>(d.bones.size()));
        if (added) d.bones.push_back(w.bone);
        d.weights.push_back({static_cast<uint32_t>(w.vertex), it->second, w.weight});
    }
}

std::vector<VertexWeight> MemoryShape::GetVertexWeights() {
    std::vector<VertexWeight> out;
    for (const Piece& q : pieces_) {
        // Each bone is locked once, not once per weight.
        std::vector<SGObjectPtr> bones;
        for (const auto& bone : q.data->bones)
            bones.push_back(bone.lock());
        out.reserve(out.size() + q.data->weights.size());
        for (const MeshData::Weight& w : q.data->weights)
            out.push_back({static_cast<int32_t>(w.vertex) + q.vertexBase, bones[w.bone], w.weight});
    }
    return out;
}

SGFace MemoryShape::GetPolygon(int32_t position) {
    locate(position);
    return SGFace(this, position);
}

SGFace MemoryShape::AddPolygon() {
    Piece& piece = editPiece();
    MeshData& d = changeable(piece);
    d.makeGeneral();
    d.start.push_back(d.start.back());
    d.material.push_back(MeshData::kNoMaterial);
    return SGFace(this, static_cast<int32_t>(piece.polygonBase + d.polygonCount() - 1));
}

void MemoryShape::DeletePolygons(const std::vector<int32_t>& positions) {
    const int32_t count = polygonCount();
    for (size_t i = 0; i < positions.size(); ++i) {
        if (positions[i] < 0 || positions[i] >= count) failIndex("polygon", positions[i]);
        if (i > 0 && positions[i] <= positions[i - 1])
            throw Failure(err::kInvalidCall, "Polygon positions to delete must be ascending");
    }
    // Only the pieces that lose polygons are rebuilt; a shared one keeps its arrays
    // for the other shapes.
    size_t next = 0;
    uint32_t polygonBase = 0;
    std::vector<uint32_t> gone;
    for (Piece& q : pieces_) {
        const size_t held = q.data->polygonCount();
        gone.clear();
        while (next < positions.size() && static_cast<uint32_t>(positions[next]) - q.polygonBase < held)
            gone.push_back(static_cast<uint32_t>(positions[next++]) - q.polygonBase);
        if (!gone.empty()) {
            auto kept = std::make_shared<MeshData>(q.data->without(gone));
            if (q.data.use_count() == 1) {
                auto& d = const_cast<MeshData&>(*q.data); // held alone: its geometry moves over
                kept->positions = std::move(d.positions);
                kept->normals = std::move(d.normals);
                kept->uvs = std::move(d.uvs);
            } else {
                kept->positions = q.data->positions;
                kept->normals = q.data->normals;
                kept->uvs = q.data->uvs;
            }
            q.data = std::move(kept);
        }
        q.polygonBase = polygonBase;
        polygonBase += static_cast<uint32_t>(q.data->polygonCount());
    }
    lastPiece_ = 0;
}

int32_t MemoryShape::AddUV(float u, float v) {
    Piece& piece = editPiece();
    MeshData& d = changeable(piece);
    d.uvs.push_back({u, v});
    return piece.uvBase + static_cast<int32_t>(d.uvs.size() - 1);
}

void MemoryShape::FaceSetMaterial(int32_t face, const SGMaterialPtr& material) {
    Located l = locate(face);
    MeshData& d = changeable(*l.piece);
    d.material.set(l.local, d.slotFor(material));
}

void MemoryShape::FaceAddCorner(int32_t face, int32_t vertex, int32_t normal, int32_t uv) {
    if (vertex < 0 || vertex >= vertexCount()) failIndex("vertex", vertex);
    if (normal < 0 || normal >= normalCount()) failIndex("normal", normal);
    if (uv < 0 || uv >= uvCount()) failIndex("texture pair", uv);
    Located l = locate(face);
    Piece& q = *l.piece;
    MeshData& d = changeable(q);
    const Corner k{vertex - q.vertexBase, normal - q.normalBase, uv - q.uvBase};
    d.makeGeneral();
    if (d.uniform && !(k.vertex >= 0 && k.vertex == k.normal && k.vertex == k.uv)) d.makeFull();
    // Corners of a polygon are contiguous: appending to the piece's last polygon is
    // cheap, to an earlier one shifts the later corners of the piece.
    const uint32_t at = d.start[l.local + 1];
    if (d.uniform)
        d.single.insert(at, static_cast<uint32_t>(k.vertex));
    else
        d.full.insert(d.full.begin() + at, k);
    for (size_t p = l.local + 1; p < d.start.size(); ++p)
        ++d.start[p];
}

// ---- MemoryShape: reading -------------------------------------------------------------

namespace {

// Pairs are the same when their numbers are equal: (u, -0.0) is (u, 0.0).
bool samePair(const MeshVertex& record, Uv pair) {
    return record.u == pair.u && record.v == pair.v;
}

// The vertex records beyond one per position: a chain per position, so that the
// search stays near the corner's own data.
class ExtraRecords {
  public:
    explicit ExtraRecords(size_t positions) : positions_(positions) {}

    // The record of (vertex, pair), appended to `vertices` (and the position it
    // repeats to `repeated`) when it is new.
    int32_t recordFor(std::vector<MeshVertex>& vertices, std::vector<int32_t>& repeated, int32_t vertex,
                      Uv pair) {
        if (first_.empty()) first_.assign(positions_, -1);
        int32_t r = first_[vertex], last = -1;
        while (r >= 0 && !samePair(vertices[r], pair)) {
            last = r;
            r = next_[r - positions_];
        }
        if (r >= 0) return r;
        r = static_cast<int32_t>(vertices.size());
        const MeshVertex base = vertices[vertex];
        vertices.push_back({base.x, base.y, base.z, pair.u, pair.v});
        repeated.push_back(vertex);
        next_.push_back(-1);
        if (last < 0)
            first_[vertex] = r;
        else
            next_[last - positions_] = r;
        return r;
    }

  private:
    size_t positions_;
    std::vector<int32_t> first_; // per position: its first further record, -1 if none
    std::vector<int32_t> next_;  // per further record: the next of the same position
};

} // namespace

int32_t MemoryShape::FaceCornerCount(int32_t face) {
    Located l = locate(face);
    return static_cast<int32_t>(l.piece->data->last(l.local) - l.piece->data->first(l.local));
}

const SGMaterialPtr& MemoryShape::FaceMaterial(int32_t face) {
    static const SGMaterialPtr kNone;
    Located l = locate(face);
    const uint32_t slot = l.piece->data->material[l.local];
    return slot == MeshData::kNoMaterial ? kNone : l.piece->data->materials[slot];
}

MemoryShape::Corner MemoryShape::cornerOf(int32_t face, int32_t c, const Piece*& piece) {
    Located l = locate(face);
    piece = l.piece;
    const MeshData& d = *l.piece->data;
    const uint32_t count = d.last(l.local) - d.first(l.local);
    if (c < 0 || static_cast<uint32_t>(c) >= count) failIndex("corner", c);
    return d.corner(d.first(l.local) + static_cast<uint32_t>(c));
}

Uv MemoryShape::FaceCornerUV(int32_t face, int32_t c) {
    const Piece* piece = nullptr;
    const Corner k = cornerOf(face, c, piece);
    return pairAt(*piece, k.uv);
}

int32_t MemoryShape::FaceCornerVertex(int32_t face, int32_t c) {
    const Piece* piece = nullptr;
    const Corner k = cornerOf(face, c, piece);
    return k.vertex + piece->vertexBase;
}

int32_t MemoryShape::FaceCornerNormal(int32_t face, int32_t c) {
    const Piece* piece = nullptr;
    const Corner k = cornerOf(face, c, piece);
    return k.normal + piece->normalBase;
}

void MemoryShape::GetMeshArrays(MeshArrays& out) {
    // Each position gets the pair of its first corner; a corner with another pair
    // gets a record of its own, appended, shared by all corners with that
    // (position, pair) combination.
    const auto nPos = static_cast<size_t>(vertexCount());
    out.vertices.resize(nPos);
    out.normals.clear();
    out.repeated.clear();
    size_t cornersTotal = 0;
    for (const Piece& q : pieces_) {
        const MeshData& d = *q.data;
        for (size_t i = 0; i < d.positions.size(); ++i)
            out.vertices[q.vertexBase + i] = {d.positions[i].x, d.positions[i].y, d.positions[i].z, 0, 0};
        for (const Vec3& n : d.normals)
            out.normals.push_back({n.x, n.y, n.z});
        cornersTotal += d.cornerCount();
    }
    std::vector<uint8_t> claimed(nPos, 0);
    ExtraRecords extras(nPos);

    out.polygons.clear();
    out.polygons.reserve(static_cast<size_t>(polygonCount()) + 2 * cornersTotal);
    for (const Piece& q : pieces_) {
        const MeshData& d = *q.data;
        for (size_t p = 0; p < d.polygonCount(); ++p) {
            out.polygons.push_back(static_cast<int32_t>(d.last(p) - d.first(p)));
            for (uint32_t c = d.first(p); c < d.last(p); ++c) {
                const Corner k = d.corner(c);
                const int32_t vertex = k.vertex + q.vertexBase;
                const Uv t = pairAt(q, k.uv);
                int32_t record = vertex;
                MeshVertex& own = out.vertices[vertex];
                if (!claimed[vertex]) {
                    claimed[vertex] = 1;
                    own.u = t.u;
                    own.v = t.v;
                } else if (!samePair(own, t)) {
                    record = extras.recordFor(out.vertices, out.repeated, vertex, t);
                }
                out.polygons.push_back(record);
                out.polygons.push_back(k.normal + q.normalBase);
            }
        }
    }
    out.vertexCount = static_cast<int32_t>(out.vertices.size());
    out.normalCount = static_cast<int32_t>(out.normals.size());
    out.extra = static_cast<int32_t>(out.polygons.size());
}

} // namespace tarnvale::scene
