// The levels an export meets and what each costs to draw.
#include "lod/lod.h"

#include "anim/anim.h"
#include "platform/names.h"
#include "platform/text.h"

#include <charconv>
#include <unordered_map>
#include <unordered_set>

namespace tarnvale::lod {

namespace {

// A frame's draws, one a material by first use.
struct FrameDraws {
    std::vector<Draw> draws;
    std::unordered_map<const SGMaterial*, size_t> drawOf;
    // The index of the material's draw, made when new.
    uint32_t of(const SGObjectPtr& node, const SGMaterialPtr& material) {
        auto [it, added] = drawOf.try_emplace(material.get(), draws.size());
        if (added) draws.push_back({node, material ? material->GetName() : "", 0, 0, material});
        return static_cast<uint32_t>(it->second);
    }
};

// Adds a mesh's triangles per material, and the distinct (vertex record, normal)
// pairs among their corners: a draw's vertices, split where the pair or the
// normal differs. The meshes of one frame share no record, so that they add up.
size_t addMesh(const SGObjectPtr& node, SGShape& mesh, FrameDraws& frame) {
    MeshArrays a;
    mesh.GetMeshArrays(a);
    // Each record's first (draw, normal) in two arrays; a record met with another
    // draw or normal goes to the set. Most records have one: the set stays small.
    std::vector<uint32_t> firstDraw(static_cast<size_t>(a.vertexCount), UINT32_MAX),
        firstNormal(firstDraw.size());
    std::vector<std::unordered_set<uint64_t>> others; // per draw: (record, normal)
    size_t at = 0;
    for (int32_t p = 0, n = mesh.GetPolygonCount(); p < n; ++p) {
        const uint32_t draw = frame.of(node, mesh.FaceMaterial(p));
        Draw& d = frame.draws[draw];
        const auto corners = static_cast<size_t>(a.polygons.at(at++));
        d.triangles += corners > 2 ? corners - 2 : 0;
        for (size_t c = 0; c < corners; ++c, at += 2) {
            const auto record = static_cast<uint32_t>(a.polygons.at(at));
            const auto normal = static_cast<uint32_t>(a.polygons.at(at + 1));
            if (firstDraw.at(record) == UINT32_MAX) {
                firstDraw[record] = draw, firstNormal[record] = normal;
                ++d.vertices;
            } else if (firstDraw[record] != draw || firstNormal[record] != normal) {
                if (others.size() <= draw) others.resize(draw + 1);
                d.vertices += others[draw].insert(uint64_t(record) << 32 | normal).second;
            }
        }
    }
    return static_cast<size_t>(a.vertexCount);
}

void addFrame(const SGObjectPtr& node, Budget& budget, std::unordered_set<const SGMaterial*>& materials,
              const CountsOf& counted) {
    FrameDraws frame;
    if (counted)
        if (std::optional<FrameCounts> counts = counted(node)) {
            budget.vertices += counts->vertices;
            for (const Draw& d : counts->draws) {
                Draw& into = frame.draws[frame.of(node, d.source)];
                into.vertices += d.vertices, into.triangles += d.triangles;
            }
        }
    SGShapeListPtr shapes = node->GetShapes();
    for (int32_t i = 0, n = shapes->GetCount(); i < n; ++i)
        if (SGShapePtr s = shapes->GetItem(i); s->GetGeometryKind() == kGeometryPolygonMesh)
            budget.vertices += addMesh(node, *s, frame);
    for (Draw& d : frame.draws) {
        if (d.triangles == 0) continue;
        materials.insert(d.source.get());
        budget.triangles += d.triangles;
        ++budget.drawCalls;
        budget.draws.push_back(std::move(d));
    }
}

} // namespace

std::optional<int> levelNumber(std::string_view name) {
    const std::string upper = platform::upperCase(name);
    const size_t at = upper.rfind("LOD_");
    if (at == std::string::npos) return std::nullopt;
    int number = 0;
    const char *begin = upper.data() + at + 4, *end = upper.data() + upper.size();
    const auto [stop, error] = std::from_chars(begin, end, number);
    if (error != std::errc() || stop == begin) return std::nullopt;
    return number;
}

std::vector<Level> levelsOf(const SGObjectPtr& group) {
    std::vector<Level> levels;
    const SGObjectPtr parent = group->GetParent();
    if (!platform::isLevelOfDetail(group->GetName()) || !parent) return levels;
    SGNodeListPtr children = parent->GetChildren();
    for (int32_t i = 0, n = children->GetCount(); i < n; ++i) {
        SGObjectPtr child = children->GetItem(i);
        const std::string name = child->GetName();
        if (platform::isLevelOfDetail(name))
            levels.push_back({child, name, levelNumber(name), child->GetNodeValue() != 0});
    }
    return levels;
}

Budget budgetOf(const SGObjectPtr& root, const CountsOf& counted) {
    Budget budget;
    budget.node = root;
    budget.level = root->GetName();
    budget.number = levelNumber(budget.level);
    std::unordered_set<const SGMaterial*> materials;
    std::vector<SGObjectPtr> stack{root};
    while (!stack.empty()) {
        SGObjectPtr node = std::move(stack.back());
        stack.pop_back();
        addFrame(node, budget, materials, counted);
        if (node->GetKeyframes(0, anim::kKeyTimeLimit).size() > anim::kMinKeys) ++budget.animatedParts;
        SGNodeListPtr children = node->GetChildren();
        for (int32_t i = children->GetCount(); i-- > 0;)
            stack.push_back(children->GetItem(i));
    }
    budget.materials = materials.size();
    return budget;
}

std::vector<Budget> budgetsOf(const SGObjectPtr& group, const CountsOf& counted) {
    std::vector<Budget> budgets;
    for (const Level& level : levelsOf(group)) {
        budgets.push_back(budgetOf(level.node, counted));
        budgets.back().shown = level.shown;
    }
    if (budgets.empty()) budgets.push_back(budgetOf(group, counted));
    return budgets;
}

} // namespace tarnvale::lod
