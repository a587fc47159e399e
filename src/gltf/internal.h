// The reader's own parts: checked accessors, animation keys and materials. Only
// src/gltf includes this header: it brings the glTF library's types.
#pragma once

#include "gltf/gltf.h"
#include "platform/platform.h"

#include <array>
#include <cstring>
#include <map>
#include <optional>
#include <tiny_gltf.h>
#include <unordered_set>

namespace tarnvale::gltf {

// The file's model, and where a .glb's buffer 0 lies in the file when the glTF
// library was shown a stand-in for it.
struct Document : tinygltf::Model {
    std::optional<std::string_view> glbBuffer;
    // The bytes of buffer b (which exists).
    std::string_view bufferBytes(size_t b) const {
        if (b == 0 && glbBuffer) return *glbBuffer;
        return {reinterpret_cast<const char*>(buffers[b].data.data()), buffers[b].data.size()};
    }
};

// The chunks of a .glb; hasBinary only for a well-formed binary chunk.
struct GlbChunks {
    std::string_view json, binary;
    bool hasBinary = false;
};
GlbChunks glbChunks(std::string_view bytes);
// Where buffer 0's byteLength stands in JSON text (a plain number), and its value;
// nothing when it has a uri or the text leaves any doubt.
struct BufferZero {
    size_t at = 0, digits = 0;
    uint64_t byteLength = 0;
};
std::optional<BufferZero> glbBufferZero(std::string_view json);
// A .glb to show the glTF library in place of `bytes`, whose buffer 0 holds four
// bytes, and in buffer0 the real one within `bytes`; nothing when the file does
// not allow it, and the library then reads the file itself.
inline constexpr size_t kStandInBytes = 4;
std::optional<std::string> glbStandIn(std::string_view bytes, std::string_view& buffer0);
// The .glb with its JSON chunk replaced by `json` (padded with blanks), every
// other chunk as it was.
std::string glbWithJson(std::string_view bytes, std::string json);

// Where the file uses EXT_meshopt_compression or KHR_draco_mesh_compression:
// its JSON as the glTF library takes it (a fallback buffer, which has no data,
// given four bytes; a Draco primitive's index accessor, which has no buffer
// view, given the compressed one until it is decoded); none when nothing changes.
std::optional<std::string> jsonForLibrary(std::string_view json);
// Decodes every EXT_meshopt_compression buffer view into a buffer of its own and
// points the view there, so that accessors read plain data.
void decodeMeshopt(Document& model);
// Decodes every KHR_draco_mesh_compression primitive into buffers of its own and
// points its accessors there (floats, and 32-bit indices).
void decodeDraco(Document& model);

// The bytes of a buffer view, checked against its buffer; `what` leads the message.
std::string_view bufferViewBytes(const Document& model, int viewIndex, const std::string& what);

// The elements of an accessor, checked against its buffer view and buffer. A
// sparse accessor, or one without a buffer view (zeros), is gathered into
// storage of its own; every index is checked.
class AccessorView {
  public:
    AccessorView(const Document& model, int accessorIndex, const std::string& what);
    size_t count() const { return count_; }
    int components() const { return components_; }
    // Component c of element i as a float (normalised integers scaled to 0..1 or -1..1).
    float component(size_t i, int c) const;
    // Element i of a scalar integer accessor.
    uint32_t index(size_t i) const;
    // Whether components 0 to n - 1 of every element are finite; one pass, for
    // what is checked and not kept.
    bool finite(int n) const;
    // The largest of the first `count` elements of a scalar integer accessor (0 for none).
    uint32_t largestIndex(size_t count) const;
    // each(v) for the first `count` elements of a scalar integer accessor, read
    // straight from their bytes (packed ones many at a time).
    template <typename Each> void eachIndex(size_t count, Each&& each) const {
        auto scan = [&](auto type) {
            auto over = [&](size_t stride) {
                for (size_t i = 0; i < count; ++i) {
                    decltype(type) u;
                    std::memcpy(&u, data_ + i * stride, sizeof u);
                    each(static_cast<uint32_t>(u));
                }
            };
            if (stride_ == sizeof type)
                over(sizeof type);
            else
                over(stride_);
        };
        if (componentType_ == TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE)
            scan(uint8_t{});
        else if (componentType_ == TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT)
            scan(uint16_t{});
        else if (componentType_ == TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT)
            scan(uint32_t{});
        else
            throw SceneError(what_ + ": indices must be unsigned integers");
    }
    int componentType() const { return componentType_; }

  private:
    // The bytes of `count` elements behind a buffer view, checked; a stride of 0
    // takes the view's own.
    const unsigned char* viewBytes(const Document& model, int viewIndex, size_t byteOffset, size_t count,
                                   size_t elementSize, size_t& stride) const;
    void gatherSparse(const Document& model, const tinygltf::Accessor& a, size_t elementSize);

    std::string what_;
    const unsigned char* data_ = nullptr;
    std::vector<unsigned char> own_;
    size_t count_ = 0, stride_ = 0;
    int components_ = 0, componentType_ = 0, componentSize_ = 0;
    bool normalized_ = false;
};

// A node's name as the file gives it: its own, or node_N.
std::string nodeName(const tinygltf::Model& model, int index);

// A name as the X file can hold it where it stands as a token: every character
// but ASCII letters, digits, `_`, `-` and the blank (which the export's own
// cleaning turns into `_`) becomes `_`; one that would start with a digit or
// `-` gets a leading `_`.
std::string identifierName(std::string_view utf8);

// An image's name as a material holds it: every character that Windows-1252
// lacks becomes `_` (the X file is written in it), and an extension of other
// than three letters becomes one of three (`.jpeg` as `.jpg`, `.webp` as `.web`,
// none as `.img`), as the texture's DDS name takes the place of the last three.
std::string textureFileName(std::string_view utf8);

// The names of one parent's children, kept apart as the file will read them
// (lower case, blanks as `_`): a name taken already gets `_2`, `_3`, ...
class SiblingNames {
  public:
    std::string take(const std::string& name);

  private:
    std::unordered_set<std::string> used_;
};

// A node's keyframes, left-handed, and its pose where the animation starts: the
// first value of each keyed channel, in glTF's frame.
struct NodeKeys {
    std::vector<KeyRecord> keys;
    std::optional<std::array<double, 3>> translation;
    std::optional<std::array<double, 4>> rotation;
};

// The keyframes of the file's animations per node index: the first animation in
// the file that keys a node's translation (or rotation) gives those keys; splines
// are sampled, steps held, and a channel of two keys gets its midpoint. Warnings
// name what is left out.
std::map<int, NodeKeys> readAnimationKeys(const Document& model, const ReadOptions& options,
                                          std::vector<std::string>& warnings);

// glTF materials as scene materials, one per glTF material, made on first use.
class MaterialMap {
  public:
    MaterialMap(const Document& model, scene::MemoryScene& scene, const ReadOptions& options,
                std::string folder)
        : model_(model), scene_(scene), options_(options), folder_(std::move(folder)) {}
    // The material of that index; the shared `default` one for -1.
    std::shared_ptr<scene::MemoryMaterial> get(int index);
    // All the file's materials by index, and the default one if it was used.
    void collect(LoadedScene& out);

  private:
    std::string textureName(int textureIndex, const std::string& materialName, const char* slot);
    // Notes the image behind a texture name for the textures' export.
    void noteImage(int image, const std::string& name, bool normalMap);
    void readFields(const tinygltf::Value& extras, scene::MemoryMaterial& m);
    void addIntent(const tinygltf::Material& g, const std::shared_ptr<scene::MemoryMaterial>& m);

    const Document& model_;
    scene::MemoryScene& scene_;
    const ReadOptions& options_;
    std::map<int, std::shared_ptr<scene::MemoryMaterial>> materials_;
    std::shared_ptr<scene::MemoryMaterial> default_;
    std::string folder_;
    std::vector<SourceImage> images_;
    std::map<std::pair<int, bool>, size_t> imageIndex_; // (image, normal map) -> images_
};

// The scene of a loaded document, into `out`: its name when the document's
// scene has none, and the folder its external files are in.
void buildScene(const Document& model, LoadedScene& out, const ReadOptions& options,
                const std::string& fallbackName, const std::string& folder);

} // namespace tarnvale::gltf
