// The command line: the commands and their options, the plug-in folder, and the
// dispatch to each command's runner.
#include "app/command.h"

#include "platform/platform.h"

#ifdef _WIN32
#include <windows.h>
#endif

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>

namespace tarnvale::app {

namespace fs = std::filesystem;

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
    exp->add_option("--generate-lods", o.generateLods,
                    "Make levels of detail of these screen sizes from the scene, largest first (100,50,25): "
                    "the first is the scene as it is, each further one a simplified copy");
    exp->add_option("--lod-share", o.lodShare,
                    "With --generate-lods: the share of the triangles of the level before that each "
                    "further level keeps (default 0.5)")
        ->check(CLI::Range(0.01, 1.0));
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

struct PartCommands {
    CLI::App *show, *set, *list;
};

PartCommands addPartCommands(CLI::App& app, PartOptions& p) {
    CLI::App* part = app.add_subcommand(
        "part", "Show and set the part data of a scene's nodes, and list the parts it can name");
    part->require_subcommand(1);
    PartCommands c{
        part->add_subcommand("show", "Each node's part data as its elements"),
        part->add_subcommand("set", "Set or remove one element of a node's part data in the scene file"),
        part->add_subcommand("list", "The model definition's parts that part data can name")};
    for (CLI::App* one : {c.show, c.set}) {
        one->add_option("SCENE", p.scene, "The scene: a .gltf or .glb file");
        one->add_option("--node", p.node, one == c.show ? "This node only (by name)" : "The node, by name");
        one->add_flag("--json", p.json, "The part data as JSON on standard output");
        one->add_option("--settings", p.settings,
                        "Settings file (default: $XDG_CONFIG_HOME/tarnvale/settings.ini)");
    }
    c.show->callback([&p] {
        if (p.scene.empty() == !p.fromStdin)
            throw CLI::ValidationError("SCENE", "give a scene file or --stdin");
    });
    c.show->add_flag("--stdin", p.fromStdin,
                     "The scene as a glTF document on standard input, instead of SCENE");
    c.set->add_flag(
        "--stdin", p.fromStdin,
        "The scene as a glTF document on standard input, instead of SCENE; prints the new text as JSON");
    CLI::Option* edits[] = {
        c.set->add_option("--visibility", p.visibility, "Shown as this part of the model definition says"),
        c.set->add_option("--mouse-rect", p.mouseRect, "Clicked as this part of the model definition says"),
        c.set->add_option("--effect", p.effect, "An attach point with this effect (no file extension)"),
        c.set->add_option("--library-object", p.libraryObject,
                          "An attach point with this library object's GUID"),
        c.set->add_option("--platform", p.platform, "A platform of this surface type (CONCRETE, GRASS, ...)"),
        c.set->add_flag("--no-crash", p.noCrash, "The node takes no part in crashes"),
        c.set->add_option("--remove", p.remove, "Remove the element of this kind")
            ->check(CLI::IsMember({"visibility", "mouse-rect", "attach-point", "effect", "library-object",
                                   "platform", "no-crash"}))};
    c.set->add_option("--params", p.params, "With --effect: its parameters (DAY=1, NIGHT=1)")
        ->needs(edits[2]);
    c.set->add_option("--scale", p.scale, "With --library-object: its scale (default 1.0)")->needs(edits[3]);
    c.set->callback([&p, edits] {
        if (p.scene.empty() == !p.fromStdin)
            throw CLI::ValidationError("SCENE", "give a scene file or --stdin");
        if (!p.node) throw CLI::ValidationError("--node", "is required");
        if (std::count_if(std::begin(edits), std::end(edits),
                          [](CLI::Option* e) { return e->count() > 0; }) != 1)
            throw CLI::ValidationError("set", "give one of --visibility, --mouse-rect, --effect, "
                                              "--library-object, --platform, --no-crash, --remove");
    });
    c.list->add_flag("--json", p.json, "The parts as JSON on standard output");
    c.list->add_option("--settings", p.settings,
                       "Settings file (default: $XDG_CONFIG_HOME/tarnvale/settings.ini)");
    for (CLI::App* one : {c.show, c.set, c.list}) {
        one->add_option("--plugin-dir", p.pluginDir, "Folder of Tarnvale.X and modeldef.xml");
        one->add_option("--registry", p.registry, "Registry stand-in in the .reg syntax (default: none)");
    }
    return c;
}

// Every command with its options, and where the parse puts them.
struct CommandLine {
    CLI::App app{"tarnvale: exports a 3D scene (glTF 2.0) as the source files of a flight-simulator model"};
    ExportOptions exportOptions;
    MaterialOptions materialOptions;
    CheckOptions checkOptions;
    PartOptions partOptions;
    std::string sidecarOf, blender = "blender";
    CLI::App *exportCommand = nullptr, *check = nullptr, *sidecar = nullptr, *install = nullptr;
    MaterialCommands material{};
    PartCommands part{};

    CommandLine() {
        app.set_version_flag("--version", std::string("tarnvale ") + TARNVALE_VERSION);
        app.require_subcommand(1);
        // Options are written alike everywhere; "/name" is a path, not a switch.
        app.allow_windows_style_options(false);
        exportCommand = addExportCommand(app, exportOptions);
        material = addMaterialCommands(app, materialOptions);
        part = addPartCommands(app, partOptions);
        CheckOptions& c = checkOptions;
        check = app.add_subcommand("check", "Find what would make the export or the SDK's compiler fail, or "
                                            "build a model other than meant, before anything is written");
        check->add_option("SCENE", c.scene, "The scene: a .gltf or .glb file")->required();
        check->add_option("--group", c.group,
                          "Check the export of the node of this name (default: the whole scene)");
        addReadOptions(check, c);
        check->add_flag("--textures", c.textures, "The export will convert the images (export --textures)");
        check->add_flag("--strict", c.strict, "With --textures: an image the export would skip is an error");
        check->add_flag("--json", c.json, "The report as one JSON object on standard output");
        check->add_option("--max-triangles", c.maxTriangles,
                          "A level with more triangles is over its budget");
        check->add_option("--max-draw-calls", c.maxDrawCalls,
                          "A level with more draw calls (frames with a mesh, times their materials) is over "
                          "its budget");
        sidecar = app.add_subcommand("sidecar", "The friendly name and GUID kept beside an X file, as JSON");
        sidecar->add_option("X_FILE", sidecarOf, "The X file")->required();
        CLI::App* blenderCommand = app.add_subcommand("blender", "Tarnvale in Blender");
        blenderCommand->require_subcommand(1);
        install =
            blenderCommand->add_subcommand("install", "Copy the add-on into your Blender and enable it");
        install->add_option("--blender", blender,
                            "The Blender to install into (default: blender on the PATH)");
    }
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    // The plug-in folder option of the command that was given.
    std::string& pluginDir() {
        return exportCommand->parsed()                                            ? exportOptions.pluginDir
               : check->parsed()                                                  ? checkOptions.pluginDir
               : part.show->parsed() || part.set->parsed() || part.list->parsed() ? partOptions.pluginDir
                                                                                  : materialOptions.pluginDir;
    }
};

// Settles the plug-in folder: the one given must exist; none given, the default
// one; no trailing separator. Gives an exit code when it cannot.
std::optional<int> settlePluginDir(std::string& pluginDir, const char* argv0) {
    std::error_code ec;
    if (!pluginDir.empty() && !fs::is_directory(platform::systemPath(pluginDir), ec)) {
        std::fprintf(stderr, "tarnvale: the plug-in folder %s does not exist\n", pluginDir.c_str());
        return kUnreadable;
    }
    if (pluginDir.empty()) pluginDir = defaultPluginDir(argv0);
    while (pluginDir.size() > 1 && pluginDir.back() == '/')
        pluginDir.pop_back();
    return std::nullopt;
}

int dispatch(CommandLine& c, const WindowedRun& windowed) {
    if (c.install->parsed()) return runBlenderInstall(c.pluginDir(), c.blender);
    if (c.check->parsed()) return runCheck(c.checkOptions, stdout);
    if (c.part.show->parsed()) return runPartShow(c.partOptions, stdout);
    if (c.part.set->parsed()) return runPartSet(c.partOptions, stdout);
    if (c.part.list->parsed()) return runPartList(c.partOptions, stdout);
    const MaterialCommands& m = c.material;
    if (m.show->parsed()) return runMaterialShow(c.materialOptions, stdout);
    if (m.apply->parsed()) return runMaterialApply(c.materialOptions);
    if (m.save->parsed()) return runMaterialSave(c.materialOptions);
    if (m.library->parsed()) return runMaterialLibrary(c.materialOptions, stdout);
    if (m.edit->parsed()) return runInWindows(windowed, c.materialOptions, nullptr);
    if (c.exportOptions.gui) return runInWindows(windowed, c.materialOptions, &c.exportOptions);
    return runExport(c.exportOptions);
}

} // namespace

int run(int argc, char** argv) {
    CommandLine c;
    try {
        c.app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int code = c.app.exit(e);
        return code == 0 ? 0 : kUnreadable;
    }
    if (c.sidecar->parsed()) return runSidecar(c.sidecarOf, stdout);
    std::string& pluginDir = c.pluginDir();
    const bool pluginDirGiven = !pluginDir.empty();
    if (auto code = settlePluginDir(pluginDir, argc > 0 ? argv[0] : nullptr)) return *code;
    return dispatch(c, {argc, argv, pluginDirGiven, pluginDir});
}

} // namespace tarnvale::app
