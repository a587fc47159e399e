// A glTF file into memory: mapped or read, its JSON depth checked, a .glb shown
// to the glTF library with its binary chunk left where it lies.
#define TINYGLTF_IMPLEMENTATION
#define TINYGLTF_NO_STB_IMAGE
#define TINYGLTF_NO_STB_IMAGE_WRITE
#define TINYGLTF_NO_EXTERNAL_IMAGE
#define TINYGLTF_NO_INCLUDE_STB_IMAGE
#define TINYGLTF_NO_INCLUDE_STB_IMAGE_WRITE
#include "gltf/internal.h"

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#ifndef _WIN32
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace tarnvale::gltf {

namespace {

// Images are never decoded; the bytes of a data: URI are kept when the textures
// are wanted. Those in a buffer view are taken later, checked against the buffer
// (the library hands them over unchecked).
bool keepImageUndecoded(tinygltf::Image* image, const int, std::string*, std::string*, int, int,
                        const unsigned char* bytes, int size, void* keep) {
    if (*static_cast<const bool*>(keep) && image->bufferView < 0 && bytes && size > 0)
        image->image.assign(bytes, bytes + size);
    return true;
}

// How deep arrays and objects nest in JSON text (strings skipped). The library
// turns extras into values by recursion, so deep nesting is refused first.
size_t jsonDepth(std::string_view text) {
    size_t depth = 0, deepest = 0;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            deepest = std::max(deepest, ++depth);
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return deepest;
}

// A file's bytes: mapped where the system allows, which spares a copy and the
// zeroing of fresh pages (a tenth of a second on a scene of 100 MB); else read
// whole in one call, as a character at a time would take long.
class FileBytes {
  public:
    explicit FileBytes(const std::string& path) {
#ifndef _WIN32
        const int fd = ::open(platform::systemPath(path).c_str(), O_RDONLY | O_CLOEXEC);
        struct stat st {};
        if (fd >= 0 && ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0) {
            void* map = ::mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ,
                               MAP_PRIVATE | MAP_POPULATE, fd, 0);
            if (map != MAP_FAILED) map_ = map, size_ = static_cast<size_t>(st.st_size);
        }
        if (fd >= 0) ::close(fd);
        if (map_) return;
#endif
        std::ifstream in(platform::systemPath(path), std::ios::binary | std::ios::ate);
        if (!in) throw SceneError("cannot open the file");
        const std::streamoff size = in.tellg();
        if (size < 0) throw SceneError("cannot read the file");
        read_.resize(static_cast<size_t>(size));
        in.seekg(0);
        if (!in.read(read_.data(), size)) throw SceneError("cannot read the file");
    }
    ~FileBytes() {
#ifndef _WIN32
        if (map_) ::munmap(map_, size_);
#endif
    }
    FileBytes(const FileBytes&) = delete;
    FileBytes& operator=(const FileBytes&) = delete;
    std::string_view view() const {
        return map_ ? std::string_view(static_cast<const char*>(map_), size_) : read_;
    }

  private:
    std::string read_;
    void* map_ = nullptr;
    size_t size_ = 0;
};

// A file that requires an extension this reader does not implement is refused,
// as glTF asks of every reader: what it would leave out, it would get wrong.
constexpr std::string_view kImplemented[] = {
    "KHR_node_visibility",        "KHR_materials_specular",  "KHR_materials_emissive_strength",
    "KHR_texture_transform",      "EXT_mesh_gpu_instancing", "KHR_mesh_quantization",
    "EXT_meshopt_compression",
#ifdef TARNVALE_HAVE_DRACO
    "KHR_draco_mesh_compression",
#endif
};

bool implemented(const std::string& name) {
    return std::find(std::begin(kImplemented), std::end(kImplemented), name) != std::end(kImplemented);
}

void refuseUnreadExtensions(std::string_view json) {
    if (json.find("extensionsRequired") == std::string_view::npos) return;
    const auto doc = nlohmann::json::parse(json, nullptr, false);
    // What is not JSON, the library refuses with its own words.
    if (doc.is_discarded() || !doc.is_object() || !doc.contains("extensionsRequired") ||
        !doc["extensionsRequired"].is_array())
        return;
    std::vector<std::string> required;
    for (const auto& name : doc["extensionsRequired"])
        if (name.is_string()) required.push_back(name.get<std::string>());
    // What to run first for the extensions users meet most.
    static constexpr std::pair<std::string_view, std::string_view> kAdvice[] = {
        {"KHR_draco_mesh_compression", "decompress it first (npx @gltf-transform/cli copy IN.glb OUT.glb)"}};
    for (const std::string& name : required) {
        if (implemented(name)) continue;
        std::string why = "it requires " + name + ", which Tarnvale cannot read";
        for (const auto& [extension, advice] : kAdvice)
            if (extension == name) why += ": " + std::string(advice);
        throw SceneError(why);
    }
}

// What the file uses and the reader leaves out (what it requires is refused).
std::vector<std::string> ignoredExtensions(const Document& model) {
    std::vector<std::string> out;
    for (const std::string& name : model.extensionsUsed)
        if (!implemented(name) && std::find(out.begin(), out.end(), name) == out.end()) out.push_back(name);
    return out;
}

std::optional<std::string> jsonForLibrary(std::string_view json) {
    constexpr const char* kMeshopt = "EXT_meshopt_compression";
    constexpr const char* kDraco = "KHR_draco_mesh_compression";
    if (json.find(kMeshopt) == std::string_view::npos && json.find(kDraco) == std::string_view::npos)
        return std::nullopt;
    auto doc = nlohmann::ordered_json::parse(json, nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) return std::nullopt;
    auto has = [](const nlohmann::ordered_json& o, const char* extension) {
        return o.is_object() && o.contains("extensions") && o["extensions"].is_object() &&
               o["extensions"].contains(extension);
    };
    bool changed = false;
    if (doc.contains("buffers") && doc["buffers"].is_array())
        for (auto& b : doc["buffers"])
            if (has(b, kMeshopt) && !b.contains("uri")) {
                // Never read: every view of it is decoded from another buffer.
                b["uri"] = "data:application/octet-stream;base64,AAAAAA==";
                b["byteLength"] = 4;
                changed = true;
            }
    if (doc.contains("meshes") && doc["meshes"].is_array() && doc.contains("accessors") &&
        doc["accessors"].is_array())
        for (auto& mesh : doc["meshes"]) {
            if (!mesh.is_object() || !mesh.contains("primitives") || !mesh["primitives"].is_array()) continue;
            for (auto& prim : mesh["primitives"]) {
                if (!has(prim, kDraco) || !prim.contains("indices") || !prim["indices"].is_number_unsigned())
                    continue;
                const size_t index = prim["indices"].get<size_t>();
                if (index >= doc["accessors"].size()) continue; // the library says so
                auto& accessor = doc["accessors"][index];
                const auto& view = prim["extensions"][kDraco]["bufferView"];
                if (accessor.is_object() && !accessor.contains("bufferView") && view.is_number_unsigned()) {
                    accessor["bufferView"] = view;
                    changed = true;
                }
            }
        }
    if (!changed) return std::nullopt;
    return doc.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

// A .gltf or .glb held in memory; external files are looked for in `folder`. A
// .glb's buffer 0 may stay in `bytes`, which must then outlive the document.
Document loadModel(std::string_view bytes, const std::string& folder, std::vector<std::string>& warnings,
                   bool keepImages) {
    if (bytes.size() > UINT32_MAX) throw SceneError("the file is larger than 4 GiB");
    const std::string_view original = bytes;
    const bool binary = bytes.size() >= 4 && bytes.compare(0, 4, "glTF") == 0;
    const std::string_view json = binary ? glbChunks(bytes).json : bytes;
    if (jsonDepth(json) > kMaxJsonDepth)
        throw SceneError("its JSON nests deeper than " + std::to_string(kMaxJsonDepth) + " levels");
    // Before anything is read: what the file requires is implemented, or it is refused.
    refuseUnreadExtensions(json);

    tinygltf::TinyGLTF loader;
    loader.SetImageLoader(keepImageUndecoded, &keepImages);
    Document model;
    std::string_view buffer0;
    const std::optional<std::string> standIn = binary ? glbStandIn(bytes, buffer0) : std::nullopt;
    if (standIn) {
        bytes = *standIn;
        model.glbBuffer = buffer0;
    }
    std::string withFallbacks;
    if (auto patched = jsonForLibrary(binary ? glbChunks(bytes).json : bytes))
        bytes = withFallbacks = binary ? glbWithJson(bytes, std::move(*patched)) : std::move(*patched);
    std::string err, warn;
    bool ok = false;
    try {
        const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
        ok = binary ? loader.LoadBinaryFromMemory(&model, &err, &warn, data,
                                                  static_cast<unsigned>(bytes.size()), folder)
                    : loader.LoadASCIIFromString(&model, &err, &warn, bytes.data(),
                                                 static_cast<unsigned>(bytes.size()), folder);
    } catch (const std::exception& e) {
        err = e.what();
        ok = false;
    }
    if (!ok) {
        while (!err.empty() && (err.back() == '\n' || err.back() == ' '))
            err.pop_back();
        for (char& c : err)
            if (c == '\n') c = ';';
        // The library saw the stand-in's four bytes; the user's file has its own.
        const std::string seen = "binary size = " + std::to_string(kStandInBytes);
        if (const size_t at = err.find(seen); standIn && at != std::string::npos)
            err.replace(at, seen.size(),
                        "binary size = " + std::to_string(glbChunks(original).binary.size()));
        throw SceneError(err.empty() ? "not a glTF 2.0 file" : err);
    }
    if (!warn.empty()) warnings.push_back(warn);
    decodeMeshopt(model);
    decodeDraco(model);
    return model;
}

} // namespace

LoadedScene readScene(const std::string& path, const ReadOptions& options) {
    LoadedScene out;
    const std::string folder = platform::utf8Path(platform::systemPath(path).parent_path());
    const FileBytes bytes(path);
    const Document model = loadModel(bytes.view(), folder, out.warnings, options.keepImages);
    buildScene(model, out, options, platform::utf8Path(platform::systemPath(path).stem()), folder);
    out.ignoredExtensions = ignoredExtensions(model);
    return out;
}

LoadedScene readSceneText(const std::string& text, const std::string& name, const ReadOptions& options) {
    LoadedScene out;
    const Document model = loadModel(text, ".", out.warnings, options.keepImages);
    buildScene(model, out, options, name, ".");
    out.ignoredExtensions = ignoredExtensions(model);
    return out;
}

} // namespace tarnvale::gltf
