#include "app/command.h"

#include "gltf/gltf.h"
#include "platform/platform.h"
#include "shell/shell.h"
#include "texture/texture.h"

#ifdef TARNVALE_WITH_QT
#include "gui/gui.h"
#endif
#ifdef _WIN32
#include "gui/win32.h"
#include <windows.h>
#endif

#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <unistd.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace tarnvale::app {

namespace {

namespace fs = std::filesystem;

// Boxes on standard error that also note how the export ended.
class OutcomeBoxes : public platform::MessageBoxes {
public:
    explicit OutcomeBoxes(platform::MessageBoxes& inner) : inner_(inner) {}
    bool closed = false, failed = false;
    void show(const std::string& text, const std::string& title, platform::BoxIcon icon) override {
        if (before) before();
        if (title == "FSX Export" && icon == platform::BoxIcon::Information) closed = true;
        if (title == "FS10 Export" && icon == platform::BoxIcon::Critical) failed = true;
        inner_.show(text, title, icon);
    }
    std::function<void()> before;

private:
    platform::MessageBoxes& inner_;
};

bool isTerminal(int fd) { return ::isatty(fd) == 1; }

} // namespace

void ProgressLine::report(const std::string& stage, double share) {
    const auto now = Clock::now();
    if (now - start_ < delay_) return;
    if (stage == stage_ && now - last_ < std::chrono::milliseconds(100)) return;
    stage_ = stage;
    last_ = now;
    std::fprintf(out_, "\r\033[K%s: %3d%%", stage.c_str(), static_cast<int>(share * 100 + 0.5));
    std::fflush(out_);
    shown_ = true;
}

void ProgressLine::clear() {
    if (shown_) std::fprintf(out_, "\r\033[K");
    shown_ = false;
}

std::string defaultPluginDir(const char* argv0) {
    std::error_code ec;
#ifdef _WIN32
    (void)argv0;
    std::wstring module(32768, L'\0');
    module.resize(::GetModuleFileNameW(nullptr, module.data(), static_cast<DWORD>(module.size())));
    const fs::path exe(module);
    // Installed on Windows, the data files stand beside the command.
    if (fs::exists(exe.parent_path() / "Tarnvale.X", ec)) return platform::utf8Path(exe.parent_path());
#else
    fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    if (ec) exe = fs::absolute(argv0 ? argv0 : "tarnvale", ec);
#endif
    fs::path installed = exe.parent_path() / TARNVALE_DATA_REL;
    if (fs::exists(installed / "Tarnvale.X", ec)) return platform::utf8Path(fs::weakly_canonical(installed, ec));
    return TARNVALE_SOURCE_DATA_DIR;
}

std::unique_ptr<platform::SettingsStore> settingsStore(const std::string& file) {
#ifdef _WIN32
    if (file.empty()) return std::make_unique<platform::RegistrySettings>();
#endif
    return std::make_unique<platform::IniSettings>(file.empty() ? platform::IniSettings::defaultPath() : file);
}

int runExport(const ExportOptions& o) {
    const auto settingsOwner = settingsStore(o.settings);
    platform::SettingsStore& settings = *settingsOwner;
    gltf::ReadOptions readOptions;
    readOptions.animation = o.animation;
    readOptions.sampleRate = o.sampleRate;
    readOptions.keepImages = !o.textures.empty();
    // The field that the export reads a material's simulator text from.
    readOptions.materialField = shell::fieldIdSetting(settings);
    gltf::LoadedScene loaded;
    try {
        loaded = gltf::readScene(o.scene, readOptions);
    } catch (const gltf::SceneError& e) {
        std::fprintf(stderr, "tarnvale: cannot read %s: %s\n", o.scene.c_str(), e.what());
        return kUnreadable;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tarnvale: cannot read %s: %s\n", o.scene.c_str(), e.what());
        return kUnreadable;
    }
    // The reader's scratch (the file, its JSON, its buffers) is freed by now; hand
    // those pages back before the export needs its own.
#ifdef __GLIBC__
    ::malloc_trim(0);
#endif
    if (!o.quiet)
        for (const auto& w : loaded.warnings) std::fprintf(stderr, "tarnvale: %s: %s\n", o.scene.c_str(), w.c_str());

    std::shared_ptr<scene::MemoryObject> group = loaded.scene->root();
    if (o.group) {
        group = loaded.scene->root()->findByName(*o.group);
        if (!group) {
            std::fprintf(stderr, "tarnvale: %s has no node named \"%s\"\n", o.scene.c_str(), o.group->c_str());
            return kUnreadable;
        }
        // A bone outside what is exported has no frame in the file to follow. A
        // level of detail is exported with its siblings: their parent bounds it.
        auto bounds = group;
        if (platform::upperCase(*o.group).find("LOD_") != std::string::npos)
            if (auto parent = std::dynamic_pointer_cast<scene::MemoryObject>(group->GetParent())) bounds = parent;
        const scene::BonesLeftOut left = scene::keepBonesWithin(*bounds);
        if (!left.bones.empty() && !o.quiet) {
            std::string names;
            for (const std::string& n : left.bones) names += (names.empty() ? "" : ", ") + n;
            std::fprintf(stderr, "tarnvale: %s: skins below %s use joints outside it (%s); their weights are left out, "
                                 "and %zu vertices that keep other joints have those scaled to the sum they had\n",
                         o.scene.c_str(), o.group->c_str(), names.c_str(), left.vertices);
        }
    }

    std::unique_ptr<platform::Registry> registry = std::make_unique<platform::RegFileRegistry>();
    if (!o.registry.empty()) registry = std::make_unique<platform::RegFileRegistry>(o.registry);
#ifdef _WIN32
    else registry = std::make_unique<platform::WindowsRegistry>();
#endif
    // A person at the terminal acknowledges each box with Enter, as a dialog is
    // closed; --yes and runs without a terminal do not wait.
    const bool person = isTerminal(STDIN_FILENO) && isTerminal(STDERR_FILENO);
#ifdef _WIN32
    // On Windows a person there closes real boxes; --gui shows them as well.
    platform::WindowsBoxes console((person && !o.yes) || o.gui);
#else
    platform::ConsoleBoxes console(stderr, person && !o.yes);
#endif
    shell::ConsoleExportDialogs consoleDialogs(person && !o.yes, o.name);
    platform::MessageBoxes* shownBoxes = &console;
    shell::ExportDialogs* dialogs = &consoleDialogs;
#ifdef TARNVALE_WITH_QT
    gui::QtMessageBoxes windowBoxes;
    gui::QtExportDialogs windowDialogs(o.name);
    if (o.gui) {
        shownBoxes = &windowBoxes;
        dialogs = &windowDialogs;
    }
#endif
#ifdef _WIN32
    gui::Win32ExportDialogs windowDialogs(o.name);
    if (o.gui) dialogs = &windowDialogs;
#endif
    OutcomeBoxes boxes(*shownBoxes);
    platform::RandomGuids guids;
    platform::SystemClock clock;
    platform::SystemProcesses processes;
    ProgressLine progress(stderr);
    const bool showProgress = !o.quiet && isTerminal(STDERR_FILENO);
    boxes.before = [&] { progress.clear(); };

    shell::PlatformServices services{settings, *registry, boxes,      guids, clock, processes, *dialogs,
                                     o.pluginDir, showProgress ? &progress : nullptr};
    auto plugin = shell::createTarnvale(services);
    plugin->PluginImportExport_Export(o.output, group, loaded.scene, 0, {}, {}, "");
    progress.clear();
    if (boxes.failed) return kFailed;
    if (!boxes.closed) return kCancelled;
    return o.textures.empty() ? kExported : writeTextures(o, loaded.images);
}

int writeTextures(const ExportOptions& o, const std::vector<gltf::SourceImage>& images) {
    std::string xText;
    if (std::FILE* f = platform::openFile(o.output, "rb")) {
        char buffer[1 << 16];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) xText.append(buffer, n);
        std::fclose(f);
    }
    std::error_code ec;
    fs::create_directories(platform::systemPath(o.textures), ec);
    if (!platform::folderWritable(o.textures)) {
        std::fprintf(stderr, "tarnvale: textures: cannot write into %s\n", o.textures.c_str());
        return kFailed;
    }
    texture::Options options;
    options.folder = o.textures;
    options.sceneFolder = platform::utf8Path(platform::systemPath(o.scene).parent_path());
    const auto outcomes = texture::writeTextures(texture::ddsNamesOf(xText), images, options);
    bool failed = false, skipped = false;
    for (const texture::Outcome& t : outcomes) {
        if (t.kind == texture::Outcome::Written) continue;
        const bool fails = t.kind == texture::Outcome::Failed;
        std::fprintf(stderr, "tarnvale: texture %s %s: %s\n", t.name.c_str(), fails ? "failed" : "skipped",
                     t.reason.c_str());
        (fails ? failed : skipped) = true;
    }
    if (!o.quiet)
        for (const texture::Outcome& t : outcomes)
            if (t.kind == texture::Outcome::Written) std::printf("%s\n", t.line.c_str());
    return failed || (skipped && o.strict) ? kFailed : kExported;
}

namespace {

// Whether windows can be shown here; says why not, and what works without them.
bool windowsPossible(const char* what) {
#if defined(_WIN32)
    (void)what;
    return true;
#elif defined(TARNVALE_WITH_QT)
    if (gui::displayAvailable()) return true;
    std::fprintf(stderr, "tarnvale: %s needs a display, and there is none (no DISPLAY or WAYLAND_DISPLAY); "
                         "material show and material apply work without one\n", what);
#else
    std::fprintf(stderr, "tarnvale: this tarnvale was built without windows, so %s cannot run; "
                         "material show and material apply work without them\n", what);
#endif
    return false;
}

} // namespace

int run(int argc, char** argv) {
    CLI::App app{"tarnvale: exports a 3D scene (glTF 2.0) as the source files of a flight-simulator model"};
    app.set_version_flag("--version", std::string("tarnvale ") + TARNVALE_VERSION);
    app.require_subcommand(1);
    // Options are written alike everywhere; "/name" is a path, not a switch.
    app.allow_windows_style_options(false);
    ExportOptions o;
    CLI::App* exp = app.add_subcommand("export", "Write OUT.x, OUT.xanim and OUT.config, then run the SDK's tool");
    exp->add_option("SCENE", o.scene, "The scene: a .gltf or .glb file")->required();
    exp->add_option("-o,--output", o.output, "The X file to write")->required();
    exp->add_option("--group", o.group, "Export the node of this name (default: the whole scene)");
    exp->add_option("--name", o.name, "The model's friendly name (default: as kept in the sidecar)");
    exp->add_option("--animation", o.animation, "Take the keyframes of this glTF animation only");
    exp->add_option("--sample-rate", o.sampleRate, "Samples per second of cubic-spline animation (default 30)")
        ->check(CLI::Range(0.001, 1000.0));
    exp->add_flag("-y,--yes", o.yes, "Do not ask: answer the export dialog with OK");
    exp->add_flag("-q,--quiet", o.quiet, "Show no progress and no reader warnings");
    exp->add_flag("--gui", o.gui, "Show the export dialog and the message boxes as windows");
    exp->add_option("--plugin-dir", o.pluginDir, "Folder of Tarnvale.X, modeldef.xml and the tool");
    exp->add_option("--settings", o.settings, "Settings file (default: $XDG_CONFIG_HOME/tarnvale/settings.ini)");
    exp->add_option("--registry", o.registry, "Registry stand-in in the .reg syntax (default: none)");
    exp->add_option("--textures", o.textures, "Write every DDS texture the X file names into this folder");
    exp->add_flag("--strict", o.strict, "With --textures: a texture that is skipped fails the run");

    MaterialOptions m;
    CLI::App* mat = app.add_subcommand("material", "Show, edit and apply the simulator materials of a scene");
    mat->require_subcommand(1);
    CLI::App* show = mat->add_subcommand("show", "Each material's text form and the FS10Material block it writes");
    CLI::App* edit = mat->add_subcommand("edit", "Edit a material in the editor; OK writes it into the scene file");
    CLI::App* apply = mat->add_subcommand("apply", "Apply a saved .FSXMat material to a material of the scene");
    CLI::App* library = mat->add_subcommand("library", "List the library's saved materials");
    for (CLI::App* c : {show, edit, apply}) c->add_option("SCENE", m.scene, "The scene: a .gltf or .glb file")->required();
    show->add_option("--material", m.material, "This material only (by name)");
    edit->add_option("--material", m.material, "The material, by name")->required();
    apply->add_option("--material", m.material, "The material, by name")->required();
    apply->add_option("--from", m.from, "The .FSXMat file")->required();
    for (CLI::App* c : {show, edit, apply, library}) {
        c->add_option("--plugin-dir", m.pluginDir, "Folder of the data files and the material library");
        c->add_option("--settings", m.settings, "Settings file (default: $XDG_CONFIG_HOME/tarnvale/settings.ini)");
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int code = app.exit(e);
        return code == 0 ? 0 : kUnreadable;
    }
    std::string& pluginDir = exp->parsed() ? o.pluginDir : m.pluginDir;
    std::error_code ec;
    if (!pluginDir.empty() && !fs::is_directory(platform::systemPath(pluginDir), ec)) {
        std::fprintf(stderr, "tarnvale: the plug-in folder %s does not exist\n", pluginDir.c_str());
        return kUnreadable;
    }
    if (pluginDir.empty()) pluginDir = defaultPluginDir(argc > 0 ? argv[0] : nullptr);
    while (pluginDir.size() > 1 && pluginDir.back() == '/') pluginDir.pop_back();
    if (show->parsed()) return runMaterialShow(m, stdout);
    if (apply->parsed()) return runMaterialApply(m);
    if (library->parsed()) return runMaterialLibrary(m, stdout);
    if (edit->parsed() || (exp->parsed() && o.gui)) {
        if (!windowsPossible(edit->parsed() ? "material edit" : "export --gui")) return kUnreadable;
#ifdef TARNVALE_WITH_QT
        gui::QtSession session(argc, argv);
        if (exp->parsed()) return runExport(o);
        gui::QtFormWindow window;
        gui::QtDialogBoxes boxes;
        return runMaterialEdit(m, window, boxes);
#elif defined(_WIN32)
        if (exp->parsed()) return runExport(o);
        gui::Win32FormWindow window;
        gui::Win32DialogBoxes boxes;
        return runMaterialEdit(m, window, boxes);
#endif
    }
    return runExport(o);
}

} // namespace tarnvale::app
