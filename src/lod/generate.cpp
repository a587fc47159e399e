// Levels made from a scene that has none: copies of the group whose meshes are
// simplified with meshoptimizer.
#include "lod/lod.h"

#include "platform/names.h"
#include "platform/workers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <map>
#include <meshoptimizer.h>
#include <set>
#include <unordered_map>

namespace tarnvale::lod {

namespace {

using scene::MemoryObject;
using scene::MemoryShape;

// A corner of the source mesh as a vertex of its own: a vertex record (position
// and pair) with one normal. Vertices split where either differs, as the
// compiler's do, so that simplifying keeps every pair and normal it keeps.
struct SplitVertices {
    std::vector<uint32_t> record, normal;           // per vertex
    std::vector<uint32_t> firstOf;                  // per record: its first vertex
    std::unordered_map<uint64_t, uint32_t> otherOf; // (record, normal) of the rest

    explicit SplitVertices(size_t records) : firstOf(records, UINT32_MAX) {}
    uint32_t of(uint32_t r, uint32_t n) {
        uint32_t& first = firstOf.at(r);
        if (first == UINT32_MAX) return first = add(r, n);
        if (normal[first] == n) return first;
        auto [it, added] = otherOf.try_emplace(uint64_t(r) << 32 | n, 0);
        if (added) it->second = add(r, n);
        return it->second;
    }
    uint32_t add(uint32_t r, uint32_t n) {
        record.push_back(r);
        normal.push_back(n);
        return static_cast<uint32_t>(record.size() - 1);
    }
};

// One material's triangles simplified to about `share` of them. Its vertices are
// taken apart first, so that the simplifier's work is in proportion to them and
// not to the whole mesh; its border is kept, where it meets other materials.
std::vector<uint32_t> simplifyPart(const std::vector<uint32_t>& triangles,
                                   const std::vector<float>& positions, std::vector<uint32_t>& localOf,
                                   double share) {
    std::vector<uint32_t> global, local(triangles.size());
    std::vector<float> points;
    for (size_t i = 0; i < triangles.size(); ++i) {
        uint32_t& l = localOf[triangles[i]];
        if (l == UINT32_MAX) {
            l = static_cast<uint32_t>(global.size());
            global.push_back(triangles[i]);
            points.insert(points.end(), &positions[3 * size_t(triangles[i])],
                          &positions[3 * size_t(triangles[i])] + 3);
        }
        local[i] = l;
    }
    const size_t wanted =
        std::max<size_t>(1, static_cast<size_t>(std::lround(triangles.size() / 3 * share))) * 3;
    std::vector<uint32_t> kept(local.size());
    // The error bound is the mesh's whole size: the triangle count decides.
    kept.resize(meshopt_simplify(kept.data(), local.data(), local.size(), points.data(), global.size(),
                                 3 * sizeof(float), wanted, 1.0f, meshopt_SimplifyLockBorder, nullptr));
    for (uint32_t& k : kept)
        k = global[k];
    for (uint32_t g : global)
        localOf[g] = UINT32_MAX;
    return kept;
}

// Whether a node or any below it names a level.
std::optional<std::string> levelWithin(const std::shared_ptr<MemoryObject>& root) {
    std::vector<const MemoryObject*> stack{root.get()};
    while (!stack.empty()) {
        const MemoryObject* node = stack.back();
        stack.pop_back();
        if (platform::isLevelOfDetail(node->shownName())) return node->shownName();
        for (auto it = node->children().rbegin(); it != node->children().rend(); ++it)
            stack.push_back(it->get());
    }
    return std::nullopt;
}

// The distinct polygon meshes below the nodes, in walk order.
std::vector<SGShape*> meshesBelow(const std::vector<std::shared_ptr<MemoryObject>>& content) {
    std::vector<SGShape*> meshes;
    std::set<const SGShape*> seen;
    std::vector<MemoryObject*> stack;
    for (auto it = content.rbegin(); it != content.rend(); ++it)
        stack.push_back(it->get());
    while (!stack.empty()) {
        MemoryObject* node = stack.back();
        stack.pop_back();
        SGShapeListPtr shapes = node->GetShapes();
        for (int32_t i = 0, n = shapes->GetCount(); i < n; ++i)
            if (SGShapePtr s = shapes->GetItem(i);
                s->GetGeometryKind() == kGeometryPolygonMesh && seen.insert(s.get()).second)
                meshes.push_back(s.get());
        for (auto it = node->children().rbegin(); it != node->children().rend(); ++it)
            stack.push_back(it->get());
    }
    return meshes;
}

// Copies of the group's nodes for one level, each with its mesh of that level.
class LevelCopy {
  public:
    using Meshes = std::map<const SGShape*, std::shared_ptr<MemoryShape>>; // the group's mesh -> the level's
    LevelCopy(std::string suffix, const Meshes& meshes) : suffix_(std::move(suffix)), meshes_(meshes) {}

    void copy(const std::shared_ptr<MemoryObject>& source, MemoryObject& into) {
        std::vector<std::pair<MemoryObject*, MemoryObject*>> stack{{source.get(), &into}};
        while (!stack.empty()) {
            auto [from, parent] = stack.back();
            stack.pop_back();
            auto made = parent->addCopyOf(*from, from->GetName() + suffix_);
            copies_[from] = made;
            SGShapeListPtr shapes = from->GetShapes();
            for (int32_t i = 0, n = shapes->GetCount(); i < n; ++i) {
                SGShapePtr shape = shapes->GetItem(i);
                const auto mesh = meshes_.find(shape.get());
                made->addShapeLast(mesh == meshes_.end() ? shape
                                                         : mesh->second); // bones and the like: shared
            }
            for (auto it = from->children().rbegin(); it != from->children().rend(); ++it)
                stack.push_back({it->get(), made.get()});
        }
    }
    // The level's skins follow its own bones: a weight's bone, a node of the group
    // or of the level before (`originalOf` knows those), becomes this level's copy
    // of it; a bone outside the group stays the one it was.
    void rebindSkins(std::map<const SGObject*, const MemoryObject*>& originalOf) {
        for (auto& [source, shape] : meshes_) {
            std::vector<VertexWeight> weights = shape->GetVertexWeights();
            if (weights.empty()) continue;
            for (VertexWeight& w : weights) {
                const auto original = originalOf.find(w.bone.get());
                const auto* node = original != originalOf.end()
                                       ? original->second
                                       : dynamic_cast<const MemoryObject*>(w.bone.get());
                if (auto it = copies_.find(node); it != copies_.end()) w.bone = it->second;
            }
            shape->setWeights(weights);
        }
        for (const auto& [original, copy] : copies_)
            originalOf[copy.get()] = original;
    }

  private:
    std::string suffix_;
    const Meshes& meshes_;
    std::map<const MemoryObject*, std::shared_ptr<MemoryObject>> copies_;
};

} // namespace

std::shared_ptr<MemoryShape> simplified(SGShape& shape, double share) {
    MeshArrays a;
    shape.GetMeshArrays(a);
    SplitVertices split(static_cast<size_t>(a.vertexCount));
    std::vector<SGMaterialPtr> materials; // by first use
    std::vector<std::vector<uint32_t>> triangles;
    std::unordered_map<const SGMaterial*, size_t> partOf;
    std::vector<uint32_t> fan;
    size_t at = 0;
    for (int32_t p = 0, n = shape.GetPolygonCount(); p < n; ++p) {
        const SGMaterialPtr& material = shape.FaceMaterial(p);
        auto [it, added] = partOf.try_emplace(material.get(), materials.size());
        if (added) materials.push_back(material), triangles.emplace_back();
        const auto corners = static_cast<size_t>(a.polygons.at(at));
        fan.resize(corners);
        for (size_t c = 0; c < corners; ++c)
            fan[c] = split.of(static_cast<uint32_t>(a.polygons.at(at + 1 + 2 * c)),
                              static_cast<uint32_t>(a.polygons.at(at + 2 + 2 * c)));
        at += 1 + 2 * corners;
        for (size_t c = 2; c < corners; ++c)
            triangles[it->second].insert(triangles[it->second].end(), {fan[0], fan[c - 1], fan[c]});
    }
    std::vector<float> positions;
    positions.reserve(3 * split.record.size());
    for (uint32_t r : split.record)
        positions.insert(positions.end(), {a.vertices[r].x, a.vertices[r].y, a.vertices[r].z});

    // Vertices that differ in their normal alone are one for the simplifier: a
    // flat-shaded mesh has normals of each face's own, and with every edge a seam
    // nothing could go. A texture seam stays apart; meshoptimizer keeps it. Where
    // the normals of one welded vertex differ, each kept triangle gets its own.
    const size_t count = split.record.size();
    std::vector<float> placed(5 * count);
    for (size_t v = 0; v < count; ++v) {
        const MeshVertex& r = a.vertices[split.record[v]];
        std::copy_n(&r.x, 5, &placed[5 * v]);
    }
    // Every vertex once, as a list of whole triangles (the last repeated), as the
    // welder takes them.
    std::vector<uint32_t> all((count + 2) / 3 * 3), weldedTo(all.size());
    for (size_t v = 0; v < all.size(); ++v)
        all[v] = static_cast<uint32_t>(std::min(v, count - 1));
    if (count > 0)
        meshopt_generateShadowIndexBuffer(weldedTo.data(), all.data(), all.size(), placed.data(), count,
                                          5 * sizeof(float), 5 * sizeof(float));
    std::vector<uint8_t> mixed(count, 0);
    for (size_t v = 0; v < count; ++v) {
        const MeshNormal &n = a.normals.at(split.normal[v]), &first = a.normals.at(split.normal[weldedTo[v]]);
        mixed[weldedTo[v]] |= n.x != first.x || n.y != first.y || n.z != first.z;
    }
    // Which way the mesh's corners turn about their normals, from its triangles
    // as they are: a new triangle's normal turns the same way.
    auto across = [&](const uint32_t* t) {
        const float *p = &positions[3 * size_t(t[0])], *q = &positions[3 * size_t(t[1])],
                    *r = &positions[3 * size_t(t[2])];
        const double u[3] = {q[0] - p[0], q[1] - p[1], q[2] - p[2]},
                     e[3] = {r[0] - p[0], r[1] - p[1], r[2] - p[2]};
        return std::array<double, 3>{u[1] * e[2] - u[2] * e[1], u[2] * e[0] - u[0] * e[2],
                                     u[0] * e[1] - u[1] * e[0]};
    };
    double turn = 0;
    for (const std::vector<uint32_t>& part : triangles)
        for (size_t t = 0; t + 2 < part.size(); t += 3) {
            const auto c = across(&part[t]);
            const MeshNormal& n = a.normals.at(split.normal[part[t]]);
            turn += c[0] * n.x + c[1] * n.y + c[2] * n.z;
        }
    for (std::vector<uint32_t>& part : triangles)
        for (uint32_t& v : part)
            v = weldedTo[v];

    // The vertices the kept triangles use, in order of first use.
    auto out = std::make_shared<MemoryShape>();
    std::vector<uint32_t> localOf(split.record.size(), UINT32_MAX), newOf(split.record.size(), UINT32_MAX);
    std::vector<uint32_t> kept;
    auto vertexFor = [&](uint32_t v) {
        if (newOf[v] == UINT32_MAX) {
            newOf[v] = static_cast<uint32_t>(kept.size());
            kept.push_back(v);
            const MeshVertex& r = a.vertices[split.record[v]];
            const MeshNormal& nm = a.normals.at(split.normal[v]);
            out->positions().push_back({r.x, r.y, r.z});
            out->normals().push_back({nm.x, nm.y, nm.z});
            out->uvs().push_back({r.u, r.v});
        }
        return static_cast<int32_t>(newOf[v]);
    };
    // A corner of a welded vertex whose normals differ: a vertex of its own, with
    // the triangle's normal.
    auto flatCorner = [&](uint32_t w, const uint32_t* triangle) {
        const auto c = across(triangle);
        const double length = std::sqrt(c[0] * c[0] + c[1] * c[1] + c[2] * c[2]) * (turn < 0 ? -1 : 1);
        const Vec3 n = length == 0 ? Vec3{0, 0, 0}
                                   : Vec3{float(c[0] / length), float(c[1] / length), float(c[2] / length)};
        const MeshVertex& r = a.vertices[split.record[w]];
        kept.push_back(w);
        out->positions().push_back({r.x, r.y, r.z});
        out->normals().push_back(n);
        out->uvs().push_back({r.u, r.v});
        return static_cast<int32_t>(kept.size() - 1);
    };
    for (size_t m = 0; m < materials.size(); ++m) {
        const std::vector<uint32_t> part = simplifyPart(triangles[m], positions, localOf, share);
        for (size_t t = 0; t + 2 < part.size(); t += 3) {
            MemoryShape::Corner corners[3];
            for (int c = 0; c < 3; ++c) {
                const uint32_t w = part[t + c];
                const int32_t v = mixed[w] ? flatCorner(w, &part[t]) : vertexFor(w);
                corners[c] = {v, v, v};
            }
            out->addPolygon(materials[m], corners);
        }
    }

    // Skin weights follow their vertices: a record beyond the positions is a
    // further pair of an earlier position, whose weights it shares.
    std::vector<VertexWeight> weights = shape.GetVertexWeights();
    if (!weights.empty()) {
        const size_t base = a.vertices.size() - a.repeated.size();
        std::vector<size_t> startOf(base + 1, weights.size());
        for (size_t w = weights.size(); w-- > 0;)
            startOf.at(static_cast<size_t>(weights[w].vertex)) = w;
        for (size_t v = base; v-- > 0;)
            startOf[v] = std::min(startOf[v], startOf[v + 1]);
        std::vector<VertexWeight> moved;
        for (size_t k = 0; k < kept.size(); ++k) {
            const size_t r = split.record[kept[k]];
            const size_t position = r < base ? r : static_cast<size_t>(a.repeated.at(r - base));
            for (size_t w = startOf[position]; w < weights.size() && weights[w].vertex == int32_t(position);
                 ++w)
                moved.push_back({static_cast<int32_t>(k), weights[w].bone, weights[w].weight});
        }
        out->setWeights(moved);
    }
    return out;
}

std::optional<std::string> parseLevelNumbers(std::string_view text, std::vector<int>& numbers) {
    numbers.clear();
    while (true) {
        const size_t comma = text.find(',');
        const std::string_view word = text.substr(0, comma);
        int n = 0;
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), n);
        if (word.empty() || error != std::errc() || end != word.data() + word.size() || n <= 0)
            return "\"" + std::string(word) + "\" is not a positive whole number";
        if (!numbers.empty() && n >= numbers.back())
            return "the numbers must fall, each level smaller than the one before (" +
                   std::to_string(numbers.back()) + " then " + std::to_string(n) + ")";
        numbers.push_back(n);
        if (comma == std::string_view::npos) break;
        text.remove_prefix(comma + 1);
    }
    if (numbers.size() < 2) return "give two levels or more, the largest first (100,50,25)";
    return std::nullopt;
}

std::shared_ptr<MemoryObject> generateLevels(scene::MemoryScene& scene,
                                             const std::shared_ptr<MemoryObject>& group,
                                             const Generation& generation, platform::Workers* workers) {
    const bool whole = group == scene.root();
    auto parent = whole ? scene.root() : std::dynamic_pointer_cast<MemoryObject>(group->GetParent());
    if (auto level = levelWithin(group))
        throw std::runtime_error("it already holds levels of detail (" + *level +
                                 "): export them as they are, without --generate-lods");
    if (parent && !whole)
        for (const auto& sibling : parent->children())
            if (platform::isLevelOfDetail(sibling->GetName()))
                throw std::runtime_error("it stands beside levels of detail (" + sibling->shownName() +
                                         "): export them as they are, without --generate-lods");
    const std::vector<std::shared_ptr<MemoryObject>> content =
        whole ? group->children() : std::vector<std::shared_ptr<MemoryObject>>{group};
    const std::string base = group->GetName();
    auto first = parent->addChild(base + "_LOD_" + std::to_string(generation.numbers.front()));
    for (const auto& node : content)
        first->adopt(node);
    // Each level's meshes from the level before's, which is quicker than from the
    // group's every time and keeps what the level before kept; the meshes of one
    // level side by side on the workers.
    const std::vector<SGShape*> meshes = meshesBelow(content);
    LevelCopy::Meshes before;
    std::map<const SGObject*, const MemoryObject*> originalOf;
    for (size_t i = 1; i < generation.numbers.size(); ++i) {
        LevelCopy::Meshes made;
        std::vector<std::function<void()>> jobs;
        for (SGShape* mesh : meshes) {
            auto& into = made[mesh];
            SGShape& from = i == 1 ? *mesh : *before.at(mesh);
            jobs.push_back([&into, &from, share = generation.share] { into = simplified(from, share); });
        }
        platform::runAll(workers, std::move(jobs));
        const std::string number = std::to_string(generation.numbers[i]);
        auto level = parent->addChild(base + "_LOD_" + number);
        LevelCopy copy("_lod" + number, made);
        for (const auto& node : content)
            copy.copy(node, *level);
        copy.rebindSkins(originalOf);
        before = std::move(made);
    }
    return first;
}

} // namespace tarnvale::lod
