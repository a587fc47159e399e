// The export run: the scene read, the group found, the checks first when asked,
// the plug-in's export with the boxes and dialogs of this run, then the textures.
#include "app/command.h"

#include "gltf/gltf.h"
#include "lod/lod.h"
#include "platform/names.h"
#include "platform/platform.h"
#include "shell/shell.h"
#include "texture/texture.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace tarnvale::app {

namespace {

namespace fs = std::filesystem;

bool isTerminal(int fd) {
    return ::isatty(fd) == 1;
}

// Boxes that first clear the progress line, so that a box never stands behind it.
class ClearingBoxes : public platform::MessageBoxes {
  public:
    ClearingBoxes(platform::MessageBoxes& inner, ProgressLine& line) : inner_(inner), line_(line) {}
    void show(const std::string& text, const std::string& title, platform::BoxIcon icon) override {
        line_.clear();
        inner_.show(text, title, icon);
    }

  private:
    platform::MessageBoxes& inner_;
    ProgressLine& line_;
};

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
    // The checks of --check look at the images as `check` does.
    readOptions.keepImages = !o.textures.empty() || o.check;
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

// With --generate-lods, the levels made from the group: the first level, which
// the export takes; none (said why) when the numbers or the scene do not allow it.
std::shared_ptr<scene::MemoryObject> madeLevels(const ExportOptions& o, gltf::LoadedScene& loaded,
                                                const std::shared_ptr<scene::MemoryObject>& group,
                                                platform::Workers& workers, Voice say) {
    lod::Generation generation;
    generation.share = o.lodShare;
    if (auto why = lod::parseLevelNumbers(o.generateLods, generation.numbers)) {
        // Named as where it was typed: the add-on's Generate levels, or the option.
        say("error", (o.jsonReport ? "Generate levels " : "--generate-lods ") + o.generateLods + ": " + *why);
        return nullptr;
    }
    try {
        return lod::generateLevels(*loaded.scene, group, generation, &workers);
    } catch (const std::exception& e) {
        say("error", "cannot make levels of detail of " + o.scene + ": " + e.what());
        return nullptr;
    }
}

// The checks of --check: findings reported, and whether an error stops the export.
bool checkPasses(const ExportOptions& o, platform::SettingsStore& settings, gltf::LoadedScene& loaded,
                 const std::shared_ptr<scene::MemoryObject>& group, const scene::BonesLeftOut& left,
                 JsonReport* report, Voice say) {
    const std::vector<check::Finding> findings = checkForExport(o, settings, loaded, group, left);
    size_t errors = 0;
    for (const check::Finding& f : findings) {
        errors += f.severity == check::Severity::Error;
        if (report) report->finding(checkJson({}, {f})["findings"][0]);
    }
    if (!report && !findings.empty()) std::fputs(checkText(o.scene, findings).c_str(), stderr);
    if (errors == 0) return true;
    say("error", "the check found " + std::to_string(errors) + (errors == 1 ? " error" : " errors") +
                     ", so nothing was exported");
    return false;
}

int exitCodeOf(shell::ExportOutcome outcome) {
    switch (outcome) {
    case shell::ExportOutcome::Completed:
        return kExported;
    case shell::ExportOutcome::Failed:
        return kFailed;
    case shell::ExportOutcome::Cancelled:
    case shell::ExportOutcome::NotRun:
        break;
    }
    return kCancelled;
}

// The export of the group through the plug-in, with the boxes, dialogs and
// progress of this run; gives the exit code.
int exportGroup(const ExportOptions& o, platform::SettingsStore& settings, gltf::LoadedScene& loaded,
                const std::shared_ptr<scene::MemoryObject>& group, const ExportWindows& windows,
                platform::Workers& workers, JsonReport* report) {
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
    if (windows.boxes) shownBoxes = windows.boxes;
    ProgressLine progressLine(stderr);
    ClearingBoxes boxes(*shownBoxes, progressLine);
    platform::RandomGuids guids;
    platform::SystemClock clock;
    platform::SystemProcesses processes;
    platform::Progress* progress = report ? static_cast<platform::Progress*>(report) : nullptr;
    if (!report && !o.quiet && isTerminal(STDERR_FILENO)) progress = &progressLine;

    shell::PlatformServices services{settings,
                                     *registry,
                                     boxes,
                                     guids,
                                     clock,
                                     processes,
                                     windows.dialogs ? *windows.dialogs : consoleDialogs,
                                     o.pluginDir,
                                     progress,
                                     !o.noTool,
                                     &workers};
    auto plugin = shell::createTarnvale(services);
    plugin->PluginImportExport_Export(o.output, group, loaded.scene, 0, {}, {}, "");
    progressLine.clear();
    const int code = exitCodeOf(plugin->outcome());
    if (code != kExported || o.textures.empty()) return code;
    return writeTextures(o, plugin->ddsNames, loaded.images, &workers, report);
}

} // namespace

std::unique_ptr<platform::SettingsStore> settingsStore(const std::string& file) {
#ifdef _WIN32
    if (file.empty()) return std::make_unique<platform::RegistrySettings>();
#endif
    return std::make_unique<platform::IniSettings>(file.empty() ? platform::IniSettings::defaultPath()
                                                                : file);
}

std::unique_ptr<platform::Registry> registryFor(const std::string& regFile) {
    if (!regFile.empty()) return std::make_unique<platform::RegFileRegistry>(regFile);
#ifdef _WIN32
    return std::make_unique<platform::WindowsRegistry>();
#else
    return std::make_unique<platform::RegFileRegistry>();
#endif
}

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

std::shared_ptr<scene::MemoryObject>
findGroup(gltf::LoadedScene& loaded, const std::optional<std::string>& name, scene::BonesLeftOut& left) {
    if (!name) return loaded.scene->root();
    auto group = loaded.scene->root()->findByName(*name);
    if (!group) return nullptr;
    // A bone outside what is exported has no frame in the file to follow. A
    // level of detail is exported with its siblings: their parent bounds it.
    auto bounds = group;
    if (platform::isLevelOfDetail(*name))
        if (auto parent = std::dynamic_pointer_cast<scene::MemoryObject>(group->GetParent())) bounds = parent;
    left = scene::keepBonesWithin(*bounds);
    return group;
}

int runExport(const ExportOptions& o, const ExportWindows& windows) {
    const auto settings = settingsStore(o.settings);
    JsonReport json(stdout);
    JsonReport* report = o.jsonReport ? &json : nullptr;
    const Voice say{report};
    int code = kUnreadable;
    scene::BonesLeftOut left;
    std::optional<gltf::LoadedScene> loaded = readForExport(o, *settings, say);
    auto group = loaded ? exportedGroup(o, *loaded, left, say) : nullptr;
    platform::Workers workers(o.threads);
    if (group && !o.generateLods.empty()) group = madeLevels(o, *loaded, group, workers, say);
    if (group) {
        const bool go = !o.check || checkPasses(o, *settings, *loaded, group, left, report, say);
        // What each level costs to draw, for a program that shows it.
        if (report && go)
            for (const lod::Budget& b : lod::budgetsOf(group))
                report->budget(budgetJson(b));
        code = go ? exportGroup(o, *settings, *loaded, group, windows, workers, report) : kFailed;
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

int writeTextures(const ExportOptions& o, const std::vector<std::string>& ddsNames,
                  const std::vector<gltf::SourceImage>& images, platform::Workers* workers,
                  JsonReport* report) {
    const Voice say{report};
    std::error_code ec;
    fs::create_directories(platform::systemPath(o.textures), ec);
    if (!platform::folderWritable(o.textures)) {
        say("error", "textures: cannot write into " + o.textures);
        return kFailed;
    }
    texture::Options options;
    options.folder = o.textures;
    options.sceneFolder = platform::utf8Path(platform::systemPath(o.scene).parent_path());
    const auto outcomes = texture::writeTextures(ddsNames, images, options, workers);
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

} // namespace tarnvale::app
