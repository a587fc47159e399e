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
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <unistd.h>

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

bool isTerminal(int fd) {
    return ::isatty(fd) == 1;
}

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
    if (fs::exists(installed / "Tarnvale.X", ec))
        return platform::utf8Path(fs::weakly_canonical(installed, ec));
    return TARNVALE_SOURCE_DATA_DIR;
}

std::unique_ptr<platform::SettingsStore> settingsStore(const std::string& file) {
#ifdef _WIN32
    if (file.empty()) return std::make_unique<platform::RegistrySettings>();
#endif
    return std::make_unique<platform::IniSettings>(file.empty() ? platform::IniSettings::defaultPath()
                                                                : file);
}

namespace {

// What the command tells its user beside the boxes: on standard error, and in
// the report when there is one.
struct Voice {
    JsonReport* report;
    void operator()(const char* kind, const std::string& text) const {
        std::fprintf(stderr, "tarnvale: %s\n", text.c_str());
        if (report) report->note(kind, text);
    }
};

std::optional<gltf::LoadedScene> readForExport(const ExportOptions& o, platform::SettingsStore& settings,
                                               Voice say) {
    gltf::ReadOptions readOptions;
    readOptions.animation = o.animation;
    readOptions.sampleRate = o.sampleRate;
    readOptions.keepImages = !o.textures.empty();
    // The field that the export reads a material's simulator text from.
    readOptions.materialField = shell::fieldIdSetting(settings);
    std::optional<gltf::LoadedScene> loaded;
    try {
        loaded = gltf::readScene(o.scene, readOptions);
    } catch (const std::exception& e) {
        say("error", "cannot read " + o.scene + ": " + e.what());
        return std::nullopt;
    }
    if (!o.quiet)
        for (const auto& w : loaded->warnings)
            say("warning", o.scene + ": " + w);
    return loaded;
}

// The node to export; none (said why) when --group names no node.
std::shared_ptr<scene::MemoryObject> exportedGroup(const ExportOptions& o, gltf::LoadedScene& loaded,
                                                   scene::BonesLeftOut& left, Voice say) {
    auto group = findGroup(loaded, o.group, left);
    if (!group) {
        say("error", o.scene + " has no node named \"" + o.group.value_or("") + "\"");
        return nullptr;
    }
    if (!left.bones.empty() && !o.quiet) {
        std::string names;
        for (const std::string& n : left.bones)
            names += (names.empty() ? "" : ", ") + n;
        say("warning", o.scene + ": skins below " + o.group.value_or("") + " use joints outside it (" +
                           names + "); their weights are left out, and " + std::to_string(left.vertices) +
                           " vertices that keep other joints have those scaled to the sum they had");
    }
    return group;
}

// The export of the group through the plug-in, with the boxes, dialogs and
// progress of this run; gives the exit code.
int exportGroup(const ExportOptions& o, platform::SettingsStore& settings, gltf::LoadedScene& loaded,
                const std::shared_ptr<scene::MemoryObject>& group, JsonReport* report) {
    std::unique_ptr<platform::Registry> registry = registryFor(o.registry);
    // A person at the terminal acknowledges each box with Enter, as a dialog is
    // closed; --yes, a report and runs without a terminal do not wait.
    const bool person = isTerminal(STDIN_FILENO) && isTerminal(STDERR_FILENO) && !o.yes && !report;
#ifdef _WIN32
    // On Windows a person there closes real boxes; --gui shows them as well.
    platform::WindowsBoxes console(person || o.gui);
#else
    platform::ConsoleBoxes console(stderr, person);
#endif
    shell::ConsoleExportDialogs consoleDialogs(person, o.name);
    platform::MessageBoxes* shownBoxes = report ? static_cast<platform::MessageBoxes*>(report) : &console;
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
    ProgressLine progressLine(stderr);
    platform::Progress* progress = report ? static_cast<platform::Progress*>(report) : nullptr;
    if (!report && !o.quiet && isTerminal(STDERR_FILENO)) progress = &progressLine;
    boxes.before = [&] { progressLine.clear(); };

    platform::Workers workers(o.threads);
    shell::PlatformServices services{settings, *registry,   boxes,    guids,     clock,   processes,
                                     *dialogs, o.pluginDir, progress, !o.noTool, &workers};
    auto plugin = shell::createTarnvale(services);
    plugin->PluginImportExport_Export(o.output, group, loaded.scene, 0, {}, {}, "");
    progressLine.clear();
    if (boxes.failed) return kFailed;
    if (!boxes.closed) return kCancelled;
    return o.textures.empty() ? kExported : writeTextures(o, loaded.images, report);
}

} // namespace

std::shared_ptr<scene::MemoryObject>
findGroup(gltf::LoadedScene& loaded, const std::optional<std::string>& name, scene::BonesLeftOut& left) {
    if (!name) return loaded.scene->root();
    auto group = loaded.scene->root()->findByName(*name);
    if (!group) return nullptr;
    // A bone outside what is exported has no frame in the file to follow. A
    // level of detail is exported with its siblings: their parent bounds it.
    auto bounds = group;
    if (platform::upperCase(*name).find("LOD_") != std::string::npos)
        if (auto parent = std::dynamic_pointer_cast<scene::MemoryObject>(group->GetParent())) bounds = parent;
    left = scene::keepBonesWithin(*bounds);
    return group;
}

std::unique_ptr<platform::Registry> registryFor(const std::string& regFile) {
    if (!regFile.empty()) return std::make_unique<platform::RegFileRegistry>(regFile);
#ifdef _WIN32
    return std::make_unique<platform::WindowsRegistry>();
#else
    return std::make_unique<platform::RegFileRegistry>();
#endif
}

int runExport(const ExportOptions& o) {
    const auto settings = settingsStore(o.settings);
    JsonReport json(stdout);
    JsonReport* report = o.jsonReport ? &json : nullptr;
    const Voice say{report};
    int code = kUnreadable;
    scene::BonesLeftOut left;
    if (std::optional<gltf::LoadedScene> loaded = readForExport(o, *settings, say))
        if (auto group = exportedGroup(o, *loaded, left, say)) {
            code = kExported;
            if (o.check) {
                const std::vector<check::Finding> findings =
                    checkForExport(o, *settings, *loaded, group, left);
                size_t errors = 0;
                for (const check::Finding& f : findings) {
                    errors += f.severity == check::Severity::Error;
                    if (report) report->finding(checkJson({}, {f})["findings"][0]);
                }
                if (!report && !findings.empty()) std::fputs(checkText(o.scene, findings).c_str(), stderr);
                if (errors > 0) {
                    say("error", "the check found " + std::to_string(errors) +
                                     (errors == 1 ? " error" : " errors") + ", so nothing was exported");
                    code = kFailed;
                }
            }
            if (code == kExported) code = exportGroup(o, *settings, *loaded, group, report);
        }
    if (report) {
        std::vector<std::string> files;
        for (const std::string& file : {o.output, o.output + "anim", shell::sidecarPath(o.output)})
            if (code != kUnreadable && code != kCancelled && platform::fileExists(file))
                files.push_back(file);
        report->result(code, files);
    }
    return code;
}

int writeTextures(const ExportOptions& o, const std::vector<gltf::SourceImage>& images, JsonReport* report) {
    const Voice say{report};
    std::string xText;
    if (std::FILE* f = platform::openFile(o.output, "rb")) {
        char buffer[1 << 16];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;)
            xText.append(buffer, n);
        std::fclose(f);
    }
    std::error_code ec;
    fs::create_directories(platform::systemPath(o.textures), ec);
    if (!platform::folderWritable(o.textures)) {
        say("error", "textures: cannot write into " + o.textures);
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
        say(fails ? "error" : "warning",
            "texture " + t.name + (fails ? " failed: " : " skipped: ") + t.reason);
        (fails ? failed : skipped) = true;
    }
    for (const texture::Outcome& t : outcomes) {
        if (o.quiet || t.kind != texture::Outcome::Written) continue;
        if (report)
            report->note("texture", t.line);
        else
            std::printf("%s\n", t.line.c_str());
    }
    return failed || (skipped && o.strict) ? kFailed : kExported;
}

namespace {

// Whether a window can be shown: an X or Wayland display, or a Qt platform set
// (offscreen, say) in QT_QPA_PLATFORM.
[[maybe_unused]] bool displayAvailable() {
    for (const char* v : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        if (const char* s = std::getenv(v); s && *s) return true;
    return false;
}

// Whether windows can be shown here; says why not, and what works without them.
bool windowsPossible(const char* what) {
#if defined(_WIN32)
    (void)what;
    return true;
#elif defined(TARNVALE_WITH_QT) || defined(TARNVALE_QT_HELPER)
    if (displayAvailable()) return true;
    std::fprintf(stderr,
                 "tarnvale: %s needs a display, and there is none (no DISPLAY or WAYLAND_DISPLAY); "
                 "material show and material apply work without one\n",
                 what);
#else
    std::fprintf(stderr,
                 "tarnvale: this tarnvale was built without windows, so %s cannot run; "
                 "material show and material apply work without them\n",
                 what);
#endif
    return false;
}

#ifdef TARNVALE_QT_HELPER
// Runs the same command line in tarnvale-qt, the build with windows: beside this
// command in the build folder, in libexec installed. The plug-in folder this
// command found goes with it, as the helper's own place says nothing of it.
// Gives an exit code only when it cannot be started.
int runWithWindows(int argc, char** argv, bool pluginDirGiven, const std::string& pluginDir) {
    std::vector<char*> args(argv, argv + argc);
    std::string option = "--plugin-dir", folder = pluginDir;
    if (!pluginDirGiven) args.insert(args.end(), {option.data(), folder.data()});
    args.push_back(nullptr);
    std::error_code ec;
    const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    for (const fs::path& helper :
         {exe.parent_path() / "tarnvale-qt", exe.parent_path() / TARNVALE_LIBEXEC_REL / "tarnvale-qt"}) {
        if (!fs::exists(helper, ec)) continue;
        ::execv(helper.c_str(), args.data());
        std::fprintf(stderr, "tarnvale: %s cannot be started: %s\n", helper.c_str(), std::strerror(errno));
        return kUnreadable;
    }
    std::fprintf(stderr, "tarnvale: tarnvale-qt, which shows the windows, is not installed beside %s\n",
                 exe.c_str());
    return kUnreadable;
}
#endif

} // namespace

namespace {

// What the export and the check read, and where from: the same options for both.
template <typename Options> void addReadOptions(CLI::App* command, Options& o) {
    command->add_option("--animation", o.animation, "Take the keyframes of this glTF animation only");
    command
        ->add_option("--sample-rate", o.sampleRate,
                     "Samples per second of cubic-spline animation (default 30)")
        ->check(CLI::Range(0.001, 1000.0));
    command->add_option("--plugin-dir", o.pluginDir, "Folder of Tarnvale.X, modeldef.xml and the tool");
    command->add_option("--settings", o.settings,
                        "Settings file (default: $XDG_CONFIG_HOME/tarnvale/settings.ini)");
    command->add_option("--registry", o.registry, "Registry stand-in in the .reg syntax (default: none)");
}

CLI::App* addExportCommand(CLI::App& app, ExportOptions& o) {
    CLI::App* exp =
        app.add_subcommand("export", "Write OUT.x, OUT.xanim and OUT.config, then run the SDK's tool");
    exp->add_option("SCENE", o.scene, "The scene: a .gltf or .glb file")->required();
    exp->add_option("-o,--output", o.output, "The X file to write")->required();
    exp->add_option("--group", o.group, "Export the node of this name (default: the whole scene)");
    exp->add_option("--name", o.name, "The model's friendly name (default: as kept in the sidecar)");
    addReadOptions(exp, o);
    exp->add_flag("-y,--yes", o.yes, "Do not ask: answer the export dialog with OK");
    exp->add_flag("-q,--quiet", o.quiet, "Show no progress and no reader warnings");
    exp->add_flag("--gui", o.gui, "Show the export dialog and the message boxes as windows");
    exp->add_option("--textures", o.textures, "Write every DDS texture the X file names into this folder");
    exp->add_flag("--strict", o.strict, "With --textures: a texture that is skipped fails the run");
    exp->add_flag("--no-tool", o.noTool, "Write the files only: do not run the SDK's tool on them");
    exp->add_flag("--check", o.check,
                  "Run the checks of `tarnvale check` first; an error found stops the export");
    exp->add_option("--threads", o.threads,
                    "Threads that write the X file (default: one a core); the file is the "
                    "same whatever their number");
    exp->add_option_function<std::string>(
           "--report", [&o](const std::string&) { o.jsonReport = true; },
           "json: report stages, boxes and the result as JSON lines on standard "
           "output, asking nothing")
        ->check(CLI::IsMember({"json"}));
    return exp;
}

struct MaterialCommands {
    CLI::App *show, *edit, *apply, *save, *library;
};

MaterialCommands addMaterialCommands(CLI::App& app, MaterialOptions& m) {
    CLI::App* mat = app.add_subcommand("material", "Show, edit and apply the simulator materials of a scene");
    mat->require_subcommand(1);
    MaterialCommands c{
        mat->add_subcommand("show", "Each material's text form and the FS10Material block it writes"),
        mat->add_subcommand("edit", "Edit a material in the editor; OK writes it into the scene file"),
        mat->add_subcommand("apply", "Apply a saved .FSXMat material or a standard preset to a material"),
        mat->add_subcommand("save", "Save a material as a .FSXMat file, as the editor's Save does"),
        mat->add_subcommand("library", "List the library's saved materials")};
    for (CLI::App* one : {c.show, c.edit, c.apply, c.save}) {
        one->add_option("SCENE", m.scene, "The scene: a .gltf or .glb file");
        one->add_flag("--stdin", m.fromStdin,
                      "The material as a glTF document on standard input, instead of SCENE; "
                      "edit and apply print its new text as JSON");
        one->add_option("--material", m.material,
                        one == c.show ? "This material only (by name)" : "The material, by name");
        const bool named = one != c.show; // every command but show works on one material
        one->callback([&m, named] {
            if (m.scene.empty() == !m.fromStdin)
                throw CLI::ValidationError("SCENE", "give a scene file or --stdin");
            if (named && !m.fromStdin && !m.material) throw CLI::ValidationError("--material", "is required");
        });
    }
    c.apply->add_option("--from", m.from, "The .FSXMat file");
    c.apply
        ->add_option("--preset", m.preset,
                     "A standard preset: General Material, Propeller, Gloss, Chrome, "
                     "Tail Number (or 0 to 4)")
        ->excludes("--from");
    c.apply->callback([&m] {
        if (m.scene.empty() == !m.fromStdin)
            throw CLI::ValidationError("SCENE", "give a scene file or --stdin");
        if (!m.fromStdin && !m.material) throw CLI::ValidationError("--material", "is required");
        if (m.from.empty() && m.preset.empty())
            throw CLI::ValidationError("--from", "or --preset is required");
    });
    c.save->add_option("--to", m.to, "The .FSXMat file to write")->required();
    for (CLI::App* one : {c.show, c.edit, c.apply, c.save, c.library}) {
        one->add_option("--plugin-dir", m.pluginDir, "Folder of the data files and the material library");
        one->add_option("--settings", m.settings,
                        "Settings file (default: $XDG_CONFIG_HOME/tarnvale/settings.ini)");
    }
    return c;
}

} // namespace

int run(int argc, char** argv) {
    CLI::App app{"tarnvale: exports a 3D scene (glTF 2.0) as the source files of a flight-simulator model"};
    app.set_version_flag("--version", std::string("tarnvale ") + TARNVALE_VERSION);
    app.require_subcommand(1);
    // Options are written alike everywhere; "/name" is a path, not a switch.
    app.allow_windows_style_options(false);
    ExportOptions o;
    CLI::App* exp = addExportCommand(app, o);
    MaterialOptions m;
    const MaterialCommands mat = addMaterialCommands(app, m);
    CheckOptions c;
    CLI::App* chk =
        app.add_subcommand("check", "Find what would make the export or the SDK's compiler fail, or build "
                                    "a model other than meant, before anything is written");
    chk->add_option("SCENE", c.scene, "The scene: a .gltf or .glb file")->required();
    chk->add_option("--group", c.group,
                    "Check the export of the node of this name (default: the whole scene)");
    addReadOptions(chk, c);
    chk->add_flag("--textures", c.textures, "The export will convert the images (export --textures)");
    chk->add_flag("--json", c.json, "The report as one JSON object on standard output");
    std::string sidecarOf, blender = "blender";
    CLI::App* sidecar =
        app.add_subcommand("sidecar", "The friendly name and GUID kept beside an X file, as JSON");
    sidecar->add_option("X_FILE", sidecarOf, "The X file")->required();
    CLI::App* blenderCommand = app.add_subcommand("blender", "Tarnvale in Blender");
    blenderCommand->require_subcommand(1);
    CLI::App* install =
        blenderCommand->add_subcommand("install", "Copy the add-on into your Blender and enable it");
    install->add_option("--blender", blender, "The Blender to install into (default: blender on the PATH)");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int code = app.exit(e);
        return code == 0 ? 0 : kUnreadable;
    }
    if (sidecar->parsed()) return runSidecar(sidecarOf, stdout);
    std::string& pluginDir = exp->parsed() ? o.pluginDir : chk->parsed() ? c.pluginDir : m.pluginDir;
    std::error_code ec;
    if (!pluginDir.empty() && !fs::is_directory(platform::systemPath(pluginDir), ec)) {
        std::fprintf(stderr, "tarnvale: the plug-in folder %s does not exist\n", pluginDir.c_str());
        return kUnreadable;
    }
    const bool pluginDirGiven = !pluginDir.empty();
    if (!pluginDirGiven) pluginDir = defaultPluginDir(argc > 0 ? argv[0] : nullptr);
    while (pluginDir.size() > 1 && pluginDir.back() == '/')
        pluginDir.pop_back();
    if (install->parsed()) return runBlenderInstall(pluginDir, blender);
    if (chk->parsed()) return runCheck(c, stdout);
    if (mat.show->parsed()) return runMaterialShow(m, stdout);
    if (mat.apply->parsed()) return runMaterialApply(m);
    if (mat.save->parsed()) return runMaterialSave(m);
    if (mat.library->parsed()) return runMaterialLibrary(m, stdout);
    if (mat.edit->parsed() || (exp->parsed() && o.gui)) {
        if (!windowsPossible(mat.edit->parsed() ? "material edit" : "export --gui")) return kUnreadable;
#ifdef TARNVALE_WITH_QT
        gui::QtSession session(argc, argv);
        if (exp->parsed()) return runExport(o);
        gui::QtFormWindow window;
        gui::QtDialogBoxes boxes;
        return runMaterialEdit(m, window, boxes);
#elif defined(TARNVALE_QT_HELPER)
        return runWithWindows(argc, argv, pluginDirGiven, pluginDir);
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
