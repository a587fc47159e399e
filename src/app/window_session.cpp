// The windows of this build, behind one function: Qt in this process (the
// tarnvale-qt helper), the helper started from the plain command, Win32, or none.
#include "app/command.h"

#include "shell/shell.h"

#ifdef TARNVALE_WITH_QT
#include "gui/gui.h"
#endif
#ifdef _WIN32
#include "gui/win32.h"
#endif

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace tarnvale::app {

namespace {

namespace fs = std::filesystem;

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
int runHelper(const WindowedRun& run) {
    std::vector<char*> args(run.argv, run.argv + run.argc);
    std::string option = "--plugin-dir", folder = run.pluginDir;
    if (!run.pluginDirGiven) args.insert(args.end(), {option.data(), folder.data()});
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

int runInWindows([[maybe_unused]] const WindowedRun& run, [[maybe_unused]] const MaterialOptions& material,
                 const ExportOptions* exportOptions) {
    if (!windowsPossible(exportOptions ? "export --gui" : "material edit")) return kUnreadable;
#if defined(TARNVALE_WITH_QT)
    int argc = run.argc; // the application keeps it for its life
    gui::QtSession session(argc, run.argv);
    if (exportOptions) {
        gui::QtMessageBoxes boxes;
        gui::QtExportDialogs dialogs(exportOptions->name);
        return runExport(*exportOptions, {&boxes, &dialogs});
    }
    gui::QtFormWindow window;
    gui::QtDialogBoxes boxes;
    return runMaterialEdit(material, window, boxes);
#elif defined(TARNVALE_QT_HELPER)
    return runHelper(run);
#elif defined(_WIN32)
    if (exportOptions) {
        // Boxes stay the system's own: the console's are real windows here.
        gui::Win32ExportDialogs dialogs(exportOptions->name);
        return runExport(*exportOptions, {nullptr, &dialogs});
    }
    gui::Win32FormWindow window;
    gui::Win32DialogBoxes boxes;
    return runMaterialEdit(material, window, boxes);
#else
    return kUnreadable;
#endif
}

} // namespace tarnvale::app
