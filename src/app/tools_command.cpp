// The commands a program around tarnvale asks for: the sidecar's name and GUID,
// and the installation of the Blender add-on.
#include "app/command.h"

#include "shell/shell.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>
#ifdef _WIN32
#include <windows.h>
#endif

namespace tarnvale::app {

namespace {

namespace fs = std::filesystem;

// This command's own file, for the add-on to run.
std::string selfPath() {
#ifdef _WIN32
    std::wstring module(32768, L'\0');
    module.resize(::GetModuleFileNameW(nullptr, module.data(), static_cast<DWORD>(module.size())));
    return platform::narrow(module);
#else
    std::error_code ec;
    return platform::utf8Path(fs::read_symlink("/proc/self/exe", ec));
#endif
}

// A program named without a folder, looked for on the PATH as a shell would.
std::string programOnPath(const std::string& name) {
    if (name.find_first_of("/\\") != std::string::npos) return name;
    const char* path = std::getenv("PATH");
#ifdef _WIN32
    const char separator = ';';
    const std::string suffix = name.find('.') == std::string::npos ? ".exe" : "";
#else
    const char separator = ':';
    const std::string suffix;
#endif
    for (std::string rest = path ? path : ""; !rest.empty();) {
        const size_t end = std::min(rest.find(separator), rest.size());
        const std::string candidate = rest.substr(0, end) + "/" + name + suffix;
        if (!rest.substr(0, end).empty() && platform::fileExists(candidate)) return candidate;
        rest.erase(0, end + 1);
    }
    return name;
}

std::string quoted(const std::string& s) {
    return "\"" + s + "\"";
}

// A Python string literal: JSON's string form is one.
std::string pythonText(const std::string& s) {
    return nlohmann::json(s).dump();
}

} // namespace

int runSidecar(const std::string& xFile, std::FILE* out) {
    nlohmann::json found = {{"name", nullptr}, {"guid", nullptr}};
    platform::XmlDocument doc;
    if (doc.load(shell::sidecarPath(xFile)))
        for (const auto& [element, key] : {std::pair{"FriendlyName", "name"}, {"GUID", "guid"}})
            if (platform::XmlElement e = doc.documentElement().child(element)) found[key] = e.text();
    std::fprintf(out, "%s\n", found.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    return kExported;
}

int runBlenderInstall(const std::string& pluginDir, const std::string& blender) {
    std::string addon = pluginDir + "/blender/tarnvale";
    if (!platform::fileExists(addon + "/__init__.py"))
        addon = std::string(TARNVALE_SOURCE_DATA_DIR) + "/../blender/tarnvale";
    if (!platform::fileExists(addon + "/__init__.py")) {
        std::fprintf(stderr, "tarnvale: the Blender add-on is not installed beside this tarnvale\n");
        return kUnreadable;
    }
    const std::string program = programOnPath(blender);
    if (!platform::fileExists(program)) {
        std::fprintf(stderr,
                     "tarnvale: there is no Blender named %s here: install Blender, or give its program "
                     "with --blender PATH\n",
                     blender.c_str());
        return kUnreadable;
    }
    // Blender itself knows its add-on folder: a script of ours copies the add-on
    // there (saying so when it replaces an older copy), enables it with this
    // command as its tarnvale, and keeps that.
    const std::string script = platform::utf8Path(
        fs::temp_directory_path() / ("tarnvale-install-" + std::to_string(std::random_device()()) + ".py"));
    std::FILE* f = platform::openFile(script, "wb");
    if (!f) {
        std::fprintf(stderr, "tarnvale: cannot write %s\n", script.c_str());
        return kFailed;
    }
    std::fprintf(
        f,
        "import bpy, os, shutil\n"
        "target = os.path.join(bpy.utils.user_resource('SCRIPTS', path='addons', create=True), 'tarnvale')\n"
        "older = os.path.isdir(target)\n"
        "shutil.rmtree(target, ignore_errors=True)\n"
        "shutil.copytree(%s, target, ignore=shutil.ignore_patterns('__pycache__'))\n"
        "bpy.utils.refresh_script_paths()\n"
        "bpy.ops.preferences.addon_refresh()\n"
        "bpy.ops.preferences.addon_enable(module='tarnvale')\n"
        "bpy.context.preferences.addons['tarnvale'].preferences.command = %s\n"
        "bpy.ops.wm.save_userpref()\n"
        "print('tarnvale: the Blender add-on is in ' + target + ', enabled' +\n"
        "      (', in place of the older copy there' if older else ''))\n",
        pythonText(addon).c_str(), pythonText(selfPath()).c_str());
    std::fclose(f);
    platform::SystemProcesses processes;
    uint32_t code = 1;
    try {
        const std::string line = quoted(program) + " -b --python-exit-code 1 --python " + quoted(script);
        const intptr_t process = processes.open(processes.start(line, 0), 0);
        while (processes.exitCode(process, code) && code == platform::kStillActive)
            processes.sleep(50);
    } catch (const Failure& e) {
        std::fprintf(stderr, "tarnvale: cannot run Blender (%s): %s\n", blender.c_str(),
                     e.description().c_str());
    }
    std::error_code ec;
    fs::remove(platform::systemPath(script), ec);
    if (code != 0) std::fprintf(stderr, "tarnvale: Blender could not install the add-on\n");
    return code == 0 ? kExported : kFailed;
}

} // namespace tarnvale::app
