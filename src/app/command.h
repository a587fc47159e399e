// The command line: parsing, the export run and its exit codes.
#pragma once

#include "check/check.h"
#include "editor/editor.h"
#include "gltf/gltf.h"
#include "platform/platform.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace tarnvale::shell {
class ExportDialogs;
}

namespace tarnvale::app {

enum ExitCode : int {
    kExported = 0,   // the export reached its closing box
    kFailed = 1,     // it ended in the failure box
    kUnreadable = 2, // usage error, or a scene that cannot be read
    kCancelled = 3,  // the export dialog was cancelled
};

// The report of --report json for a program that runs the command: one JSON
// object a line, flushed as it is written. {"stage": S, "share": 0.42} as the
// export goes on (each new stage, each further percent); {"box": {"title": T,
// "text": X, "icon": "plain"|"information"|"critical"}} for each message box,
// lines parted by LF; {"warning": T}, {"error": T} and {"texture": T} for what
// the command says beside the boxes; {"finding": F} for each finding of --check,
// F as in the findings of `check --json`; last {"result": {"code": N, "files": [...]}}
// with the exit code and the files written.
class JsonReport : public platform::Progress, public platform::MessageBoxes {
  public:
    explicit JsonReport(std::FILE* out) : out_(out) {}
    void report(const std::string& stage, double share) override;
    void show(const std::string& text, const std::string& title, platform::BoxIcon icon) override;
    // A line of the given kind: "warning", "error", "texture".
    void note(const char* kind, const std::string& text);
    void finding(const nlohmann::json& finding);
    void budget(const nlohmann::json& level);
    void result(int code, const std::vector<std::string>& files);

  private:
    void write(const nlohmann::json& object);
    std::FILE* out_;
    std::string stage_;
    double share_ = 0;
};

struct ExportOptions {
    std::string scene;
    std::string output;
    std::optional<std::string> group;
    std::optional<std::string> name;
    std::optional<std::string> animation;
    double sampleRate = 30;
    bool yes = false;
    bool quiet = false;
    bool gui = false;
    std::string pluginDir;
    std::string settings;
    std::string registry;
    std::string textures;     // the folder the DDS files go to; none when empty
    bool strict = false;      // a texture skipped fails the run
    bool jsonReport = false;  // --report json on standard output; asks nothing
    bool noTool = false;      // the SDK's tool is not run
    unsigned threads = 0;     // threads that write the X file; 0: one a core
    bool check = false;       // the checks first; an error stops the export
    std::string generateLods; // "100,50,25": levels made from the group before the export
    double lodShare = 0.5;    // of the triangles of the level before, in each made level
};

// What `check` reads: the scene and the plug-in folder as the export would.
struct CheckOptions {
    std::string scene;
    std::optional<std::string> group;
    std::optional<std::string> animation;
    double sampleRate = 30;
    std::string pluginDir;
    std::string settings;
    std::string registry;
    bool textures = false; // the export would convert the images (--textures)
    bool strict = false;   // and a texture it skips fails it (--strict)
    bool json = false;
    // A level with more is over its budget (a warning); none: no limit.
    std::optional<size_t> maxTriangles, maxDrawCalls;
};

// The report of `check --json`, one object:
// {"scene": S, "group": G or null, "counts": {"error": N, "warning": N, "info": N},
//  "findings": [{"kind": K, "severity": "error"|"warning"|"info", "node": N or null,
//  "frame": F or null, "material": M or null, "message": T}, ...],
//  "levels": [L, ...]}
// with the node and material as the modeller named them and the frame as the X
// file names it, L as budgetJson gives each level (or the group alone where it
// has none); {"scene": S, "error": T} when the scene cannot be read.
nlohmann::json checkJson(const CheckOptions& options, const std::vector<check::Finding>& findings,
                         const std::vector<lod::Budget>& budgets = {});
// A level's budget: {"level": NAME, "number": N or null, "shown": B, "triangles": N,
// "vertices": N, "materials": N, "drawCalls": N, "animatedParts": N, "largestDraw":
// N (the vertices of its largest draw)}.
nlohmann::json budgetJson(const lod::Budget& budget);
// The findings as text, grouped by the node or material they concern, then the
// levels' budgets as a table.
std::string checkText(const std::string& scene, const std::vector<check::Finding>& findings,
                      const std::vector<lod::Budget>& budgets = {});
// Checks the scene; exit 0 with no error found, 1 with errors, 2 unreadable.
int runCheck(const CheckOptions& options, std::FILE* out);
// The checks of an export run on the scene it read: the findings.
std::vector<check::Finding> checkForExport(const ExportOptions& options, platform::SettingsStore& settings,
                                           gltf::LoadedScene& loaded,
                                           const std::shared_ptr<scene::MemoryObject>& group,
                                           const scene::BonesLeftOut& left,
                                           std::vector<lod::Budget>* budgets = nullptr);

// The node named `group` (the root when none is given), or none; the skins below
// it keep only joints within it (a level of detail: within its parent), and
// `left` tells what they lost.
std::shared_ptr<scene::MemoryObject>
findGroup(gltf::LoadedScene& loaded, const std::optional<std::string>& group, scene::BonesLeftOut& left);
// The registry: the .reg stand-in given, else the system's (none off Windows).
std::unique_ptr<platform::Registry> registryFor(const std::string& regFile);

// Progress on a terminal line: shown once the export has run for `delay`, at most
// ten times a second per stage, as "stage: NN%"; clear() removes the line.
class ProgressLine : public platform::Progress {
  public:
    using Clock = std::chrono::steady_clock;
    explicit ProgressLine(std::FILE* out, Clock::duration delay = std::chrono::seconds(1))
        : out_(out), delay_(delay) {}
    void report(const std::string& stage, double share) override;
    void clear();

  private:
    std::FILE* out_;
    Clock::duration delay_;
    Clock::time_point start_ = Clock::now(), last_{};
    std::string stage_;
    bool shown_ = false;
};

// The folder holding the template and the model definition: the installed data
// folder beside the command, else the source tree's data folder.
std::string defaultPluginDir(const char* argv0);

// The settings store: the file given, else the platform's own (the registry on
// Windows, the settings file elsewhere).
std::unique_ptr<platform::SettingsStore> settingsStore(const std::string& file);

// What the material commands work on.
struct MaterialOptions {
    std::string scene;
    std::optional<std::string> material; // its name; all of them for show
    std::string from;                    // a .FSXMat file for apply
    std::string pluginDir;
    std::string settings;
    // With --stdin the material comes as a glTF document on standard input (its
    // first material), and edit and apply print {"text": T, "specular": [r, g, b]
    // or null} on standard output instead of writing a scene file.
    bool fromStdin = false;
    std::string preset = {}; // a standard preset for apply, by caption or 0 to 4
    std::string to = {};     // the .FSXMat file save writes
};

// What the part data commands work on.
struct PartOptions {
    std::string scene;
    std::optional<std::string> node; // its name in the file; every node with part data for show
    bool json = false;
    // With --stdin the scene comes as a glTF document on standard input (show and
    // set), and set prints {"node": N, "text": T, "elements": [...]} instead of
    // writing a file.
    bool fromStdin = false;
    std::string pluginDir;
    std::string settings;
    std::string registry;
    // The one edit of set.
    std::optional<std::string> visibility, mouseRect, effect, libraryObject, platform, remove;
    std::string params, scale = "1.0";
    bool noCrash = false;
};

// The windows an export shows (--gui): its boxes and its dialog; where one is
// none, the console's stands in.
struct ExportWindows {
    platform::MessageBoxes* boxes = nullptr;
    shell::ExportDialogs* dialogs = nullptr;
};

// Reads the scene, checks it first with --check, exports the group through the
// plug-in and converts the textures with --textures; gives the exit code, from
// how the export ended.
int runExport(const ExportOptions& options, const ExportWindows& windows = {});
// After an export: the DDS files it named (ddsNames) into options.textures, a
// line each on standard output, what was skipped or failed on standard error.
int writeTextures(const ExportOptions& options, const std::vector<std::string>& ddsNames,
                  const std::vector<gltf::SourceImage>& images, platform::Workers* workers = nullptr,
                  JsonReport* report = nullptr);

// The command line as given, and the plug-in folder it settled on: what a run
// in windows needs to start the same command in the helper that shows them.
struct WindowedRun {
    int argc;
    char** argv;
    bool pluginDirGiven;
    std::string pluginDir;
};
// Runs material edit (exportOptions none) or export --gui with the windows of
// this build: Qt here, the Qt helper tarnvale-qt, Win32, or none (then says why
// and gives exit 2).
int runInWindows(const WindowedRun& run, const MaterialOptions& material, const ExportOptions* exportOptions);
// Each material (or one): its name, its field's text, the text form of the record
// the export derives and the FS10Material block it would write.
int runMaterialShow(const MaterialOptions& options, std::FILE* out);
// Opens the editor on the record the export derives; on OK writes its text form
// into the material's field in the scene file. The window and its boxes are given.
int runMaterialEdit(const MaterialOptions& options, editor::FormWindow& window, editor::DialogBoxes& boxes);
// Applies a saved material as the editor's Load and OK would, without a window.
int runMaterialApply(const MaterialOptions& options);
// Saves the material's record as a library file, as the editor's Save does.
int runMaterialSave(const MaterialOptions& options);
// The library folder's .FSXMat files, one a line, after the folder.
int runMaterialLibrary(const MaterialOptions& options, std::FILE* out);
// Each node's part data (or one node's) as its elements: text, or with --json
// {"scene": S, "nodes": [{"node": N, "frame": F, "text": T, "elements": [E...]}
// or, where it cannot be read, {..., "error": reason}]}, E as partElementJson gives.
int runPartShow(const PartOptions& options, std::FILE* out);
// Changes one element of a node's part data in the scene file (or, with --stdin,
// prints the new text); exit 2, the file untouched, when the part data there
// cannot be read or the edit names what the checks would refuse.
int runPartSet(const PartOptions& options, std::FILE* out);
// The model definition's parts and what each has, that part data can name; with
// --json {"modelDef": F, "parts": [{"name": N, "animation": B, "visibility": B,
// "visibleInRange": B, "mouseRect": B}...], "surfaces": [the platforms' types]}.
int runPartList(const PartOptions& options, std::FILE* out);

// The friendly name and GUID kept beside an X file, as {"name": N, "guid": G}
// (null for what it lacks), so that a program can show the export dialog's name.
int runSidecar(const std::string& xFile, std::FILE* out);
// Copies the Blender add-on (the data folder's blender/tarnvale, or the source
// tree's) into the user's Blender add-on folder with `blender`, enables it there
// with this command as its tarnvale, and says where it went.
int runBlenderInstall(const std::string& pluginDir, const std::string& blender);
int run(int argc, char** argv);

} // namespace tarnvale::app
