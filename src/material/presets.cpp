// The standard presets of the editor's "Standard Materials" page, as data, and the
// user library's files.
#include "material/material.h"

#include <filesystem>
#include <fstream>

namespace tarnvale::material {

const std::vector<PresetCell>& presetCells() {
    // General Material, Propeller, Gloss, Chrome, Tail Number.
    static const std::vector<PresetCell> cells = {
        {"chkFRRef", {"1", nullptr, "1", "1", "1"}},
        {"chkFRSpec", {"1", nullptr, "1", "1", "1"}},
        {"cmdFR", {nullptr, "", "fresnel_ramp.dds", "", nullptr}},
        {"chkSF(0)", {nullptr, nullptr, "1", "1", nullptr}},
        {"chkSF(2)", {nullptr, nullptr, nullptr, "1", nullptr}},
        {"chkSF(4)", {nullptr, nullptr, "1", "1", nullptr}},
        {"sRefScale", {"30", "30", "30", "40", nullptr}},
        {"sSpecPower", {"202", "202", "202", "202", nullptr}},
        {"chkBloom(0)", {"1", "1", "1", "1", "1"}},
        {"slBFloor", {"90", "90", "90", "90", "90"}},
        {"slAmbScale", {"100", "100", "100", "100", "100"}},
        {"chkEP(4)", {nullptr, "1", nullptr, nullptr, nullptr}},
        {"chkAirMat(1)", {nullptr, nullptr, nullptr, nullptr, "1"}},
    };
    return cells;
}

BlendDefault presetBlendDefault(int index) {
    static constexpr BlendDefault kDefaults[kPresetCount] = {BlendDefault::None, BlendDefault::Transparent,
                                                             BlendDefault::Opaque, BlendDefault::Opaque,
                                                             BlendDefault::Transparent};
    return index >= 0 && index < kPresetCount ? kDefaults[index] : BlendDefault::None;
}

std::vector<std::string> listLibraryFiles(const std::string& folder) {
    namespace fs = std::filesystem;
    std::vector<std::string> names;
    std::error_code ec;
    for (fs::directory_iterator it(platform::systemPath(folder), ec), end; !ec && it != end;
         it.increment(ec)) {
        const std::string name = platform::utf8Path(it->path().filename());
        if (name.empty() || name[0] == '.' || !it->is_regular_file(ec)) continue;
        const size_t characters = platform::characterCount(name);
        if (characters < 6) continue;
        if (platform::upperCase(name.substr(platform::characterOffset(name, characters - 6))) == "FSXMAT")
            names.push_back(name);
    }
    return names;
}

std::string readLibraryLine(const std::string& path) {
    std::ifstream in(platform::systemPath(path), std::ios::binary);
    std::string line;
    if (!in || !std::getline(in, line)) return {};
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return windowsTexturePaths(platform::fromWindows1252(line));
}

bool writeLibraryLine(const std::string& path, const std::string& text) {
    std::ofstream out(platform::systemPath(path), std::ios::binary | std::ios::trunc);
    out << platform::toWindows1252(text) << "\r\n";
    out.close();
    return static_cast<bool>(out);
}

} // namespace tarnvale::material
