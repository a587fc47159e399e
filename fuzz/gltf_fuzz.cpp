// Fuzzes the glTF reader, and the X writers on whatever scene it reads: no input
// may crash either; a bad file is a SceneError, a failing export a Failure.
#include "gltf/gltf.h"
#include "platform/doubles.h"
#include "xfile/xfile.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

std::string tempPath(const char* name) {
    return (std::filesystem::temp_directory_path() /
            (std::string("tarnvale-fuzz-") + std::to_string(::getpid()) + name))
        .string();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarnvale;
    static const std::string scenePath = tempPath(".glb");
    static const std::string templatePath = tempPath(".X");
    static const std::string outPath = tempPath(".x");
    {
        std::ofstream(templatePath, std::ios::binary) << "xof 0303txt 0032\r\n#hierarchy#\r\n#scene#\r\n";
        std::ofstream out(scenePath, std::ios::binary);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    gltf::LoadedScene loaded;
    try {
        gltf::ReadOptions options;
        options.keepImages = true; // embedded images are taken from their buffer views
        loaded = gltf::readScene(scenePath, options);
    } catch (const gltf::SceneError&) {
        return 0;
    }
    SGScenePtr graph = loaded.scene;
    SGObjectPtr group = loaded.scene->root();
    xfile::ObjectBonesCollection bones;
    int32_t materialField = loaded.scene->fields().addMaterial("FS10");
    int32_t attachField = loaded.scene->fields().addObject("FS10att");
    std::string status, name = "fuzz", guid = "G";
    platform::FixedClock clock;
    xfile::XFileContext ctx{templatePath,  group,       graph,
                            name,          guid,        bones,
                            materialField, attachField, [&](const std::string& t) { status += t; },
                            clock};
    std::string out = outPath;
    try {
        xfile::XFileExporter(ctx).pExportFSX(out, group);
    } catch (const Failure&) {
    }
    return 0;
}
