// What the fuzz targets share: a folder of the process's own, and a whole export
// of a small animated scene through the main class, as the command runs it.
#pragma once

#include "gltf/gltf.h"
#include "platform/doubles.h"
#include "platform/platform.h"
#include "shell/shell.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace tarnvale::fuzz {

namespace fs = std::filesystem;

inline std::string folder() {
    static const std::string path = [] {
        fs::path p = fs::temp_directory_path() / ("tarnvale-fuzz-" + std::to_string(::getpid()));
        fs::create_directories(p);
        return p.string();
    }();
    return path;
}

inline void writeFile(const std::string& path, const uint8_t* data, size_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// One triangle on a node named after an animation of the sample model
// definition, moved over two keys.
inline const char* const kScene = R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],
"nodes":[{"name":"l_aileron","mesh":0}],"meshes":[{"primitives":[{"attributes":{"POSITION":0}}]}],
"animations":[{"channels":[{"sampler":0,"target":{"node":0,"path":"translation"}}],
  "samplers":[{"input":1,"output":2}]}],
"accessors":[{"bufferView":0,"componentType":5126,"count":3,"type":"VEC3","min":[0,0,0],"max":[1,1,0]},
  {"bufferView":1,"componentType":5126,"count":2,"type":"SCALAR","min":[0],"max":[1]},
  {"bufferView":2,"componentType":5126,"count":2,"type":"VEC3"}],
"bufferViews":[{"buffer":0,"byteLength":36},{"buffer":0,"byteOffset":36,"byteLength":8},
  {"buffer":0,"byteOffset":44,"byteLength":24}],
"buffers":[{"byteLength":68,"uri":"data:application/octet-stream;base64,AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAAAAAAAAAAgD8AAAAAAAAAAAAAAAAAAAAAAAAAQAAAAAA="}]})";

// A plug-in folder with the default template and model definition; a target
// puts its input in place of one of the files before it exports.
struct Export {
    platform::MapSettings settings;
    platform::RegFileRegistry registry;
    platform::RecordingBoxes boxes;
    platform::FixedGuids guids;
    platform::FixedClock clock;
    struct NoProcesses : platform::Processes {
        int64_t start(const std::string&, int32_t) override { return 0; }
        intptr_t open(int64_t, uint32_t) override { return 0; }
        bool exitCode(intptr_t, uint32_t&) override { return false; }
        void sleep(int32_t) override {}
        void close(intptr_t) override {}
    } processes;
    shell::ConsoleExportDialogs dialogs{false, std::nullopt};
    std::string plugin = folder() + "/plugin";
    std::string output = folder() + "/model.x";

    Export() {
        fs::create_directories(plugin);
        for (const char* file : {"Tarnvale.X", "modeldef.xml"})
            fs::copy_file(std::string(TARNVALE_DATA_DIR "/") + file, plugin + "/" + file,
                          fs::copy_options::overwrite_existing);
    }
    // Exports the scene; every failure must end in a box, never in an exception.
    void run() {
        boxes.shown.clear();
        guids.next = {{0x0123ABCD, 0x0A0B, 0x4C0D, {1, 2, 3, 4, 5, 6, 7, 8}}};
        gltf::LoadedScene loaded = gltf::readSceneText(kScene, "Root");
        shell::PlatformServices services{settings, registry, boxes,   guids, clock,  processes,
                                         dialogs,  plugin,   nullptr, false, nullptr};
        shell::createTarnvale(services)->PluginImportExport_Export(output, loaded.scene->root(), loaded.scene,
                                                                   0, {}, {}, "");
    }
};

} // namespace tarnvale::fuzz
