// The command line: parsing, the export run and its exit codes.
#pragma once

#include <optional>
#include <string>

namespace tarnvale::app {

enum ExitCode : int {
    kExported = 0,   // the export reached its closing box
    kFailed = 1,     // it ended in the failure box
    kUnreadable = 2, // usage error, or a scene that cannot be read
    kCancelled = 3,  // the export dialog was cancelled
};

struct ExportOptions {
    std::string scene;
    std::string output;
    std::optional<std::string> group;
    std::optional<std::string> name;
    std::optional<std::string> animation;
    bool yes = false;
    bool quiet = false;
    std::string pluginDir;
    std::string settings;
    std::string registry;
};

// The folder holding the template and the model definition: the installed data
// folder beside the command, else the source tree's data folder.
std::string defaultPluginDir(const char* argv0);

int runExport(const ExportOptions& options);
int run(int argc, char** argv);

} // namespace tarnvale::app
