// Small glTF files written by the tests: a JSON document with one embedded
// buffer, saved as .gltf or wrapped as .glb.
#pragma once

#include "support.h"

#include <cstring>
#include <nlohmann/json.hpp>
#include <tuple>

// The glTF library's encoder, built into the reader.
namespace tinygltf {
std::string base64_encode(unsigned char const* bytes, unsigned int length);
}

namespace tarnvale::test {

using json = nlohmann::json;

class GltfBuilder {
  public:
    json doc = {{"asset", {{"version", "2.0"}}}, {"scene", 0}, {"scenes", json::array({json::object()})}};
    std::string bin;

    int floats(const std::vector<float>& v, const char* type) {
        return accessor(v.data(), v.size() * 4, 5126, countOf(v.size(), type), type);
    }
    int indices(const std::vector<uint16_t>& v) {
        return accessor(v.data(), v.size() * 2, 5123, v.size(), "SCALAR");
    }
    int indices(const std::vector<uint32_t>& v) {
        return accessor(v.data(), v.size() * 4, 5125, v.size(), "SCALAR");
    }
    // Unsigned bytes, normalised or not (joints and weights of skins).
    int bytes(const std::vector<uint8_t>& v, const char* type, bool normalized) {
        int a = accessor(v.data(), v.size(), 5121, countOf(v.size(), type), type);
        if (normalized) doc["accessors"][a]["normalized"] = true;
        return a;
    }
    // An accessor of `count` elements whose values are `base` (none: zeros) with the
    // elements at `at` replaced by `values`.
    int sparse(const std::vector<float>& base, const char* type, size_t count,
               const std::vector<uint16_t>& at, const std::vector<float>& values) {
        int a = base.empty() ? -1 : floats(base, type);
        if (a < 0) {
            doc["accessors"].push_back({{"componentType", 5126}, {"count", count}, {"type", type}});
            a = static_cast<int>(doc["accessors"].size() - 1);
        }
        const int iv = view(at.data(), at.size() * 2), vv = view(values.data(), values.size() * 4);
        doc["accessors"][a]["sparse"] = {{"count", at.size()},
                                         {"indices", {{"bufferView", iv}, {"componentType", 5123}}},
                                         {"values", {{"bufferView", vv}}}};
        return a;
    }
    // An animation of (node, path, times, values, interpolation) channels.
    void animation(
        const std::string& name,
        const std::vector<std::tuple<int, const char*, std::vector<float>, std::vector<float>, const char*>>&
            channels) {
        json a = {{"name", name}, {"samplers", json::array()}, {"channels", json::array()}};
        for (const auto& [node, path, times, values, interpolation] : channels) {
            const char* type = std::string(path) == "rotation" ? "VEC4" : "VEC3";
            a["samplers"].push_back({{"input", floats(times, "SCALAR")},
                                     {"output", floats(values, type)},
                                     {"interpolation", interpolation}});
            a["channels"].push_back(
                {{"sampler", a["samplers"].size() - 1}, {"target", {{"node", node}, {"path", path}}}});
        }
        doc["animations"].push_back(a);
    }
    int node(json n, bool root = true) {
        doc["nodes"].push_back(std::move(n));
        int i = static_cast<int>(doc["nodes"].size() - 1);
        if (root) doc["scenes"][0]["nodes"].push_back(i);
        return i;
    }
    // An image held in the buffer; gives the image index.
    int image(const std::string& bytes, const std::string& name) {
        doc["images"].push_back(
            {{"bufferView", view(bytes.data(), bytes.size())}, {"mimeType", "image/png"}});
        if (!name.empty()) doc["images"].back()["name"] = name;
        return static_cast<int>(doc["images"].size() - 1);
    }
    int bufferView(const std::string& bytes) { return view(bytes.data(), bytes.size()); }
    // A mesh of one triangle list primitive; gives the mesh index.
    template <typename Index = uint16_t>
    int triangles(const std::vector<float>& positions, const std::vector<Index>& idx,
                  json extra = json::object()) {
        json prim = {{"attributes", {{"POSITION", floats(positions, "VEC3")}}}};
        if (!idx.empty()) prim["indices"] = indices(idx);
        prim.update(extra);
        doc["meshes"].push_back({{"primitives", json::array({prim})}});
        return static_cast<int>(doc["meshes"].size() - 1);
    }
    // A .gltf with its buffer in a data: URI, or in the file `binName` beside it.
    std::string saveGltf(const std::string& path, const std::string& binName = "") {
        json d = withBuffer();
        if (!bin.empty())
            d["buffers"][0]["uri"] =
                binName.empty() ? "data:application/octet-stream;base64," + base64(bin) : binName;
        if (!bin.empty() && !binName.empty())
            writeFile(path.substr(0, path.find_last_of('/') + 1) + binName, bin);
        writeFile(path, d.dump());
        return path;
    }
    std::string saveGlb(const std::string& path) {
        std::string j = withBuffer().dump();
        while (j.size() % 4)
            j += ' ';
        std::string b = bin;
        while (b.size() % 4)
            b += '\0';
        std::string out;
        auto u32 = [&out](uint32_t v) { out.append(reinterpret_cast<const char*>(&v), 4); };
        out = "glTF";
        u32(2);
        u32(static_cast<uint32_t>(12 + 8 + j.size() + (b.empty() ? 0 : 8 + b.size())));
        u32(static_cast<uint32_t>(j.size()));
        out += "JSON";
        out += j;
        if (!b.empty()) {
            u32(static_cast<uint32_t>(b.size()));
            out += std::string("BIN\0", 4);
            out += b;
        }
        writeFile(path, out);
        return path;
    }

  private:
    static size_t countOf(size_t n, const std::string& type) {
        return n / (type == "MAT4" ? 16 : type == "VEC4" ? 4 : type == "VEC3" ? 3 : type == "VEC2" ? 2 : 1);
    }
    int view(const void* data, size_t bytes) {
        while (bin.size() % 4)
            bin += '\0';
        doc["bufferViews"].push_back({{"buffer", 0}, {"byteOffset", bin.size()}, {"byteLength", bytes}});
        bin.append(static_cast<const char*>(data), bytes);
        return static_cast<int>(doc["bufferViews"].size() - 1);
    }

  public:
    int accessor(const void* data, size_t bytes, int component, size_t count, const char* type) {
        doc["accessors"].push_back({{"bufferView", view(data, bytes)},
                                    {"componentType", component},
                                    {"count", count},
                                    {"type", type}});
        return static_cast<int>(doc["accessors"].size() - 1);
    }

  private:
    json withBuffer() const {
        json d = doc;
        if (!bin.empty()) d["buffers"] = json::array({{{"byteLength", bin.size()}}});
        return d;
    }

  public:
    static std::string base64(const std::string& s) {
        return tinygltf::base64_encode(reinterpret_cast<const unsigned char*>(s.data()),
                                       static_cast<unsigned>(s.size()));
    }
};

} // namespace tarnvale::test
