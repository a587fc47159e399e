// Writing a material's or a node's text back into the scene file, and nothing else.
#include "gltf/gltf.h"
#include "platform/platform.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>

namespace tarnvale::gltf {

namespace {

using Json = nlohmann::ordered_json; // members keep their order

uint32_t word(const std::string& bytes, size_t at) {
    uint32_t v = 0;
    std::memcpy(&v, bytes.data() + at, 4);
    return v;
}

void putWord(std::string& out, uint32_t v) {
    out.append(reinterpret_cast<const char*>(&v), 4);
}

// The JSON chunk of a .glb, checked before anything is read from it.
std::string glbJson(const std::string& bytes) {
    if (bytes.size() < 20) throw SceneError("the .glb has no header");
    if (word(bytes, 12) > bytes.size() - 20) throw SceneError("the .glb's JSON chunk runs past its end");
    if (bytes.compare(16, 4, "JSON") != 0) throw SceneError("the .glb's first chunk is not its JSON");
    return bytes.substr(20, word(bytes, 12));
}

// The .glb with its JSON chunk replaced; every other chunk as it was.
std::string rebuildGlb(const std::string& bytes, std::string json) {
    const uint32_t jsonLength = word(bytes, 12);
    while (json.size() % 4)
        json += ' ';
    const std::string rest = bytes.substr(20 + jsonLength);
    std::string out = bytes.substr(0, 8);
    putWord(out, static_cast<uint32_t>(12 + 8 + json.size() + rest.size()));
    putWord(out, static_cast<uint32_t>(json.size()));
    out += "JSON";
    out += json;
    out += rest;
    return out;
}

void replaceFile(const std::string& path, const std::string& bytes) {
    const int error = platform::replaceFile(path, [&](std::FILE* f) {
        return std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size() ? 0 : errno ? errno : EIO;
    });
    if (error) throw SceneError(std::string("cannot write it: ") + std::strerror(error));
}

std::string readBytes(const std::string& path) {
    std::ifstream in(platform::systemPath(path), std::ios::binary);
    if (!in) throw SceneError("cannot open the file");
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

Json parseDocument(const std::string& text) {
    Json doc = Json::parse(text, nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) throw SceneError("its JSON cannot be read");
    return doc;
}

std::string dump(const Json& doc) {
    return doc.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// The node of that name: the only one the file names so.
Json& namedNode(Json& doc, const std::string& name) {
    Json& nodes = doc["nodes"];
    if (!nodes.is_array()) throw SceneError("it has no nodes");
    Json* found = nullptr;
    std::string names;
    for (Json& node : nodes) {
        if (!node.is_object() || !node["name"].is_string()) continue;
        const std::string n = node["name"].get<std::string>();
        if (n == name && found)
            throw SceneError("two of its nodes are named \"" + name + "\"; name them apart");
        if (n == name) found = &node;
        if (names.size() < 200) names += (names.empty() ? "\"" : ", \"") + n + "\"";
    }
    if (!found)
        throw SceneError("it has no node named \"" + name +
                         "\"; its nodes: " + (names.empty() ? "none" : names));
    return *found;
}

// Sets the node's extra `key` to what `edit` makes of it; removes it when empty.
void editNodeIn(Json& doc, const std::string& node, const std::string& key,
                const std::function<std::string(const std::string&)>& edit) {
    Json& n = namedNode(doc, node);
    Json& extras = n["extras"];
    if (extras.is_null()) extras = Json::object();
    if (!extras.is_object()) throw SceneError("the node's extras are no object");
    const Json& old = extras[key];
    if (!old.is_null() && !old.is_string()) throw SceneError("the node's extras." + key + " is no text");
    const std::string text = edit(old.is_string() ? old.get<std::string>() : std::string());
    if (text.empty())
        extras.erase(key);
    else
        extras[key] = text;
    if (extras.empty()) n.erase("extras");
}

} // namespace

void editNodeExtra(const std::string& path, const std::string& node, const std::string& key,
                   const std::function<std::string(const std::string&)>& edit) {
    const std::string bytes = readBytes(path);
    const bool binary = bytes.compare(0, 4, "glTF") == 0;
    Json doc = parseDocument(binary ? glbJson(bytes) : bytes);
    editNodeIn(doc, node, key, edit);
    const std::string json = dump(doc);
    replaceFile(path, binary ? rebuildGlb(bytes, json) : json);
}

void editNodeExtraText(const std::string& gltf, const std::string& node, const std::string& key,
                       const std::function<std::string(const std::string&)>& edit) {
    Json doc = parseDocument(gltf);
    editNodeIn(doc, node, key, edit);
}

void writeMaterialExtra(const std::string& path, int materialIndex, const std::string& key,
                        const std::string& text, const std::optional<Rgb>& specular) {
    const std::string bytes = readBytes(path);
    const bool binary = bytes.compare(0, 4, "glTF") == 0;
    Json doc = parseDocument(binary ? glbJson(bytes) : bytes);
    Json& materials = doc["materials"];
    if (!materials.is_array() || materialIndex < 0 || static_cast<size_t>(materialIndex) >= materials.size())
        throw SceneError("it has no material " + std::to_string(materialIndex));
    Json& material = materials[static_cast<size_t>(materialIndex)];
    Json& extras = material["extras"];
    if (extras.is_null()) extras = Json::object();
    if (!extras.is_object()) throw SceneError("the material's extras are no object");
    extras[key] = text;
    if (specular) {
        const char* extension = "KHR_materials_specular";
        Json& extensions = material["extensions"];
        if (extensions.is_null()) extensions = Json::object();
        if (!extensions.is_object() ||
            !(extensions[extension].is_null() || extensions[extension].is_object()))
            throw SceneError("the material's extensions are no objects");
        Json& ext = extensions[extension];
        ext["specularColorFactor"] = {specular->r, specular->g, specular->b};
        ext["specularFactor"] = 1;
        Json& used = doc["extensionsUsed"];
        if (used.is_null()) used = Json::array();
        if (!used.is_array()) throw SceneError("its extensionsUsed is no list");
        if (std::find(used.begin(), used.end(), extension) == used.end()) used.push_back(extension);
    }
    const std::string json = dump(doc);
    replaceFile(path, binary ? rebuildGlb(bytes, json) : json);
}

} // namespace tarnvale::gltf
