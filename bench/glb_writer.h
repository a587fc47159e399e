// Writes a large .glb of a grid mesh over a number of materials, for the load
// benchmark and the end-to-end comparison.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tarnvale::bench {

// A grid over `materials` materials and `nodes` nodes, each node a mesh of its
// own (one primitive per material it has, a band of the grid each); with
// `animated`, one animation turns every node on three keys. Gives the file's size.
inline size_t writeGridGlb(const std::string& path, size_t triangles, int materials, int nodes = 1,
                           bool animated = false) {
    using nlohmann::json;
    std::string bin;
    json doc = {{"asset", {{"version", "2.0"}}}, {"scene", 0}, {"scenes", {{{"nodes", json::array()}}}}};
    auto addView = [&](const void* data, size_t bytes) {
        while (bin.size() % 4)
            bin += '\0';
        doc["bufferViews"].push_back({{"buffer", 0}, {"byteOffset", bin.size()}, {"byteLength", bytes}});
        bin.append(static_cast<const char*>(data), bytes);
        return doc["bufferViews"].size() - 1;
    };
    auto acc = [&](size_t view, int comp, size_t count, const char* type) {
        doc["accessors"].push_back(
            {{"bufferView", view}, {"componentType", comp}, {"count", count}, {"type", type}});
        return doc["accessors"].size() - 1;
    };
    std::vector<json> prims(static_cast<size_t>(nodes), json::array());
    const int bands = std::max(nodes, materials);
    const size_t perBand = triangles / static_cast<size_t>(bands);
    for (int band = 0; band < bands; ++band) {
        const int m = band % materials;
        const size_t quads = perBand / 2;
        const size_t side = static_cast<size_t>(std::ceil(std::sqrt(double(quads))));
        const size_t rows = (quads + side - 1) / side;
        std::vector<float> pos, nrm, uv;
        for (size_t y = 0; y <= rows; ++y)
            for (size_t x = 0; x <= side; ++x) {
                pos.insert(pos.end(), {x * 0.37f, std::sin(x * 0.01f + y * 0.02f) + band, y * 0.53f});
                nrm.insert(nrm.end(), {0, 1, 0});
                uv.insert(uv.end(), {x / float(side), y / float(rows)});
            }
        std::vector<uint32_t> idx;
        for (size_t q = 0; q < quads; ++q) {
            uint32_t x = uint32_t(q % side), y = uint32_t(q / side), w = uint32_t(side + 1);
            uint32_t a = y * w + x, b = a + 1, c = a + w + 1, d = a + w;
            idx.insert(idx.end(), {a, c, b, a, d, c});
        }
        const size_t n = pos.size() / 3;
        size_t p = acc(addView(pos.data(), pos.size() * 4), 5126, n, "VEC3");
        doc["accessors"][p]["min"] = {0, -1 + band, 0};
        doc["accessors"][p]["max"] = {side * 0.37, 1 + band, rows * 0.53};
        size_t nm = acc(addView(nrm.data(), nrm.size() * 4), 5126, n, "VEC3");
        size_t t = acc(addView(uv.data(), uv.size() * 4), 5126, n, "VEC2");
        size_t i = acc(addView(idx.data(), idx.size() * 4), 5125, idx.size(), "SCALAR");
        prims[static_cast<size_t>(band % nodes)].push_back(
            {{"attributes", {{"POSITION", p}, {"NORMAL", nm}, {"TEXCOORD_0", t}}},
             {"indices", i},
             {"material", m}});
    }
    for (int m = 0; m < materials; ++m)
        doc["materials"].push_back(
            {{"name", "mat" + std::to_string(m)},
             {"pbrMetallicRoughness",
              {{"baseColorFactor", {0.1 * (m % 10), 0.5, 0.3, 1.0}}, {"roughnessFactor", 0.5}}}});
    json channels = json::array(), samplers = json::array();
    const float times[3] = {0, 1, 2},
                turns[12] = {0, 0, 0, 1, 0, 0.5f, 0, 0.8660254f, 0, 0.8660254f, 0, 0.5f};
    for (int k = 0; k < nodes; ++k) {
        doc["meshes"].push_back({{"primitives", prims[static_cast<size_t>(k)]}});
        doc["nodes"].push_back(
            {{"name", nodes == 1 ? std::string("grid") : "part_" + std::to_string(k)}, {"mesh", k}});
        doc["scenes"][0]["nodes"].push_back(k);
        if (!animated) continue;
        samplers.push_back({{"input", acc(addView(times, sizeof times), 5126, 3, "SCALAR")},
                            {"output", acc(addView(turns, sizeof turns), 5126, 3, "VEC4")}});
        channels.push_back({{"sampler", k}, {"target", {{"node", k}, {"path", "rotation"}}}});
    }
    if (animated) doc["animations"] = {{{"name", "spin"}, {"channels", channels}, {"samplers", samplers}}};
    doc["buffers"] = {{{"byteLength", bin.size()}}};
    std::string j = doc.dump();
    while (j.size() % 4)
        j += ' ';
    while (bin.size() % 4)
        bin += '\0';
    std::ofstream out(path, std::ios::binary);
    auto u32 = [&](uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
    out.write("glTF", 4);
    u32(2);
    u32(static_cast<uint32_t>(12 + 8 + j.size() + 8 + bin.size()));
    u32(static_cast<uint32_t>(j.size()));
    out.write("JSON", 4);
    out.write(j.data(), static_cast<std::streamsize>(j.size()));
    u32(static_cast<uint32_t>(bin.size()));
    out.write("BIN\0", 4);
    out.write(bin.data(), static_cast<std::streamsize>(bin.size()));
    return 12 + 8 + j.size() + 8 + bin.size();
}

} // namespace tarnvale::bench
