// glTF 2.0 scenes (.gltf and .glb) read into the in-memory scene. The mapping from
// glTF to the scene lives here and nowhere else; the README has it in a table.
#pragma once

#include "scene/scene.h"

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

struct ReadOptions {
    // Take the keyframes of this animation only; all animations when empty.
    std::optional<std::string> animation;
};

struct LoadedScene {
    std::shared_ptr<scene::MemoryScene> scene;
    std::vector<std::string> warnings; // parts of the file that were skipped
};

// Reads a .gltf (external or embedded data) or .glb file. Converts to the
// left-handed frame of the X file: x mirrored, triangle corners reversed.
LoadedScene readScene(const std::string& path, const ReadOptions& options = {});

// Roughness (0 smooth to 1 rough) as the scene's specular power: 0 for a rough
// surface, else 250 minus the specular exponent 2/r^4 - 2 (capped at 249).
float powerFromRoughness(float roughness);

} // namespace tarnvale::gltf
