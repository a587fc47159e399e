// Large scenes made in code for the benchmarks: a grid of quads split into
// triangles, spread over a number of materials.
#pragma once

#include "scene/scene.h"

#include <cmath>
#include <string>

namespace tarnvale::bench {

struct GridOptions {
    size_t triangles = 1000000;
    int materials = 20;
    // Materials alternate per triangle instead of running in bands.
    bool alternate = false;
    // Every other triangle's material is a virtual cockpit texture.
    bool cockpitEveryOther = false;
    // Each triangle has three vertices of its own instead of sharing the grid's.
    bool ownVertices = false;
    // Bones that act on every vertex of a skinned grid (0: no skin).
    int influences = 0;
};

// One node "grid" under the root, holding one polygon-mesh shape.
inline std::shared_ptr<scene::MemoryScene> makeGridScene(const GridOptions& o,
                                                         int32_t* materialField = nullptr) {
    auto s = scene::MemoryScene::create("bench");
    const int32_t field = s->fields().addMaterial("FS10");
    if (materialField) *materialField = field;
    std::vector<SGMaterialPtr> mats;
    for (int i = 0; i < o.materials; ++i) {
        auto m = std::make_shared<scene::MemoryMaterial>();
        m->name = std::string("m").append(std::to_string(i));
        m->diffuse = {0.1f * (i % 10), 0.5f, 0.25f, i % 7 == 0 ? 0.5f : 1.0f};
        m->power = 20.0f + i;
        if (o.cockpitEveryOther && i % 2 == 1) m->fields[field] = "IsVCTexture=1";
        mats.push_back(m);
    }
    auto shape = std::make_shared<scene::MemoryShape>();
    const size_t quads = o.triangles / 2;
    const size_t side = static_cast<size_t>(std::ceil(std::sqrt(static_cast<double>(quads))));
    const size_t rows = (quads + side - 1) / side;
    auto& pos = shape->positions();
    auto& uvs = shape->uvs();
    pos.reserve((side + 1) * (rows + 1));
    for (size_t y = 0; y <= rows; ++y)
        for (size_t x = 0; x <= side; ++x) {
            pos.push_back({x * 0.37f, std::sin(x * 0.01f + y * 0.02f), y * 0.53f});
            uvs.push_back({x / float(side), y / float(rows)});
        }
    shape->normals().push_back({0, 1, 0});
    shape->reserve(o.triangles, o.triangles * 3);
    size_t made = 0;
    for (size_t q = 0; q < quads && made < o.triangles; ++q) {
        const int32_t x = static_cast<int32_t>(q % side), y = static_cast<int32_t>(q / side);
        const int32_t w = static_cast<int32_t>(side + 1);
        const int32_t a = y * w + x, b = a + 1, c = a + w + 1, d = a + w;
        for (int t = 0; t < 2; ++t, ++made) {
            size_t mi =
                o.alternate || o.cockpitEveryOther ? made % mats.size() : made * mats.size() / o.triangles;
            const scene::MemoryShape::Corner tri[2][3] = {{{a, 0, a}, {b, 0, b}, {c, 0, c}},
                                                          {{a, 0, a}, {c, 0, c}, {d, 0, d}}};
            if (o.ownVertices) {
                scene::MemoryShape::Corner own[3];
                for (int k = 0; k < 3; ++k) {
                    const auto at = static_cast<int32_t>(pos.size());
                    pos.push_back(pos[tri[t][k].vertex]);
                    uvs.push_back(uvs[tri[t][k].uv]);
                    own[k] = {at, 0, at};
                }
                shape->addPolygon(mats[mi], own);
            } else {
                shape->addPolygon(mats[mi], tri[t]);
            }
        }
    }
    auto node = s->root()->addChild("grid");
    node->AddShape(shape);
    if (o.influences > 0) {
        std::vector<SGObjectPtr> bones;
        for (int b = 0; b < 8; ++b)
            bones.push_back(s->root()->addChild("bone_" + std::to_string(b)));
        std::vector<VertexWeight> weights;
        weights.reserve(pos.size() * static_cast<size_t>(o.influences));
        for (size_t v = 0; v < pos.size(); ++v)
            for (int k = 0; k < o.influences; ++k)
                weights.push_back({static_cast<int32_t>(v),
                                   bones[(v + static_cast<size_t>(k)) % bones.size()],
                                   1.0f / static_cast<float>(o.influences)});
        shape->setWeights(weights);
    }
    return s;
}

} // namespace tarnvale::bench
