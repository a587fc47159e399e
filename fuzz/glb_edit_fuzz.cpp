// Fuzzes the edit that writes a material's text into a .gltf or .glb: any file
// is either refused with a reason and left byte for byte, or rewritten with the
// text in place and a .glb's chunks after the JSON kept byte for byte.
#include "harness.h"

#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>

namespace {

uint32_t word(const std::string& b, size_t at) {
    uint32_t v = 0;
    std::memcpy(&v, b.data() + at, 4);
    return v;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarnvale;
    static const std::string path = fuzz::folder() + "/edit.glb";
    const std::string before(reinterpret_cast<const char*>(data), size);
    fuzz::writeFile(path, data, size);
    try {
        gltf::writeMaterialExtra(path, 0, "FS10", "Power=5", Rgb{0.5f, 0.25f, 1});
    } catch (const gltf::SceneError&) {
        if (fuzz::readFile(path) != before) std::abort();
        return 0;
    }
    const std::string after = fuzz::readFile(path);
    const bool binary = before.compare(0, 4, "glTF") == 0;
    if (binary && (after.size() < 20 || after.compare(0, 8, before, 0, 8) != 0 ||
                   after.substr(20 + word(after, 12)) != before.substr(20 + word(before, 12))))
        std::abort();
    const auto doc =
        nlohmann::json::parse(binary ? after.substr(20, word(after, 12)) : after, nullptr, false);
    if (doc.is_discarded() || doc["materials"][0]["extras"]["FS10"] != "Power=5") std::abort();
    return 0;
}
