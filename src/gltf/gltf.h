// glTF 2.0 scenes (.gltf and .glb) read into the in-memory scene. The mapping from
// glTF to the scene lives here and nowhere else; the README has it in a table.
#pragma once

#include "scene/scene.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarnvale::gltf {

// A scene file that cannot be read: the message names the reason.
class SceneError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Deeper node trees are refused: the X file nests a frame per level, and its
// hierarchy comment indents each level by two more blanks.
inline constexpr size_t kMaxNodeDepth = 10000;
// JSON nested deeper than this is refused before it is parsed into values.
inline constexpr size_t kMaxJsonDepth = 1000;

struct ReadOptions {
    // Take the keyframes of this animation only; all animations when empty.
    std::optional<std::string> animation;
    // The material field that carries a material's simulator text (the FieldId
    // setting). glTF's alpha mode and double-sidedness are written into it when
    // the material's extras hold no text of that name.
    std::string materialField = "FS10";
    // Samples per second of cubic-spline channels (> 0).
    double sampleRate = 30;
    // Keep the encoded bytes of the images that materials use (for textures).
    bool keepImages = false;
    // Meshes without skins are read and checked in full but only counted, not
    // kept: LoadedScene::outlines has them (for the checker, which needs no more).
    bool outline = false;
};

// A mesh as ReadOptions::outline leaves it on its node.
struct MeshOutline {
    size_t vertices = 0, triangles = 0;
    std::vector<std::shared_ptr<scene::MemoryMaterial>> materials; // distinct, in first use
    // Per primitive with triangles: its material, the vertices its draw takes (its
    // own, or three a triangle where the file gives no normals) and its triangles.
    struct Part {
        std::shared_ptr<scene::MemoryMaterial> material;
        size_t vertices = 0, triangles = 0;
    };
    std::vector<Part> parts;
};

// An image a material uses, as the reader found it: once per image and use (a
// normal map is converted apart from the same image used for colour).
struct SourceImage {
    std::string name;   // the texture name the material holds ("textures\\wing.png")
    std::string origin; // where it comes from, for messages
    std::string file;   // an external image: its path, read when it is needed
    std::shared_ptr<const std::vector<uint8_t>> bytes; // an embedded image: its encoded bytes
    int image = -1;                                    // its glTF index
    bool normalMap = false;
};

struct LoadedScene {
    std::shared_ptr<scene::MemoryScene> scene;
    std::vector<std::string> warnings; // parts of the file that were skipped
    // Extensions the file uses (extensionsUsed) that the reader does not read.
    std::vector<std::string> ignoredExtensions;
    // The file's materials by their glTF index, and `default` when primitives use it.
    std::vector<std::shared_ptr<scene::MemoryMaterial>> materials;
    std::shared_ptr<scene::MemoryMaterial> defaultMaterial;
    // The images the materials use; filled when ReadOptions::keepImages is set.
    std::vector<SourceImage> images;
    // With ReadOptions::outline: the mesh of each node that has one without a skin.
    std::map<const scene::MemoryObject*, MeshOutline> outlines;
};

// Reads a .gltf (external or embedded data) or .glb file. Converts to the
// left-handed frame of the X file: x mirrored, triangle corners reversed (and
// reversed once more on nodes whose world transform mirrors).
LoadedScene readScene(const std::string& path, const ReadOptions& options = {});
// The same of a .gltf document held as text (external files relative to the
// current folder); the root is named `name`.
LoadedScene readSceneText(const std::string& text, const std::string& name, const ReadOptions& options = {});

// Sets the string `key` of the extras of material `materialIndex` to `text` in a
// .gltf or .glb file and, when one is given, the material's specular colour where
// glTF keeps it (KHR_materials_specular: specularColorFactor, specularFactor 1,
// the extension named in extensionsUsed). Everything else is kept: the members
// as they were, in their order, and a .glb's binary chunk byte for byte. The file
// is replaced through a new file beside it, so a failure leaves it as it was; it
// fails with the reason.
void writeMaterialExtra(const std::string& path, int materialIndex, const std::string& key,
                        const std::string& text, const std::optional<Rgb>& specular = std::nullopt);

// Calls `edit` with the string `key` of the extras of the one node named `node`
// (empty when it has none) and sets it to what `edit` gives, removing it when
// that is empty; everything else is kept as writeMaterialExtra keeps it. `edit`
// may throw to leave the file as it was; it fails with the reason.
void editNodeExtra(const std::string& path, const std::string& node, const std::string& key,
                   const std::function<std::string(const std::string&)>& edit);
// The same on a glTF document held as text, which is not written anywhere: for
// an edit whose result `edit` keeps.
void editNodeExtraText(const std::string& gltf, const std::string& node, const std::string& key,
                       const std::function<std::string(const std::string&)>& edit);

// Roughness (0 smooth to 1 rough) as the scene's specular power: 0 for a rough
// surface, else 250 minus the specular exponent 2/r^4 - 2 (capped at 249).
float powerFromRoughness(float roughness);

} // namespace tarnvale::gltf
