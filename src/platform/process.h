// Processes: the start of a command line and the wait for its end.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarnvale::platform {

// ---- Processes --------------------------------------------------------------------

inline constexpr uint32_t kStillActive = 259;

class Processes {
  public:
    virtual ~Processes() = default;
    // Starts the command line; gives the process id. Fails when it cannot start.
    virtual int64_t start(const std::string& commandLine, int32_t windowStyle) = 0;
    // A handle for querying the process, or 0 when it cannot be opened.
    virtual intptr_t open(int64_t processId, uint32_t access) = 0;
    // The exit code, kStillActive while it runs; false when it cannot be asked.
    virtual bool exitCode(intptr_t handle, uint32_t& code) = 0;
    virtual void sleep(int32_t milliseconds) = 0;
    virtual void close(intptr_t handle) = 0;
};

// Splits a command line by the Windows rules: blanks separate arguments outside
// double quotes; 2n backslashes before a quote give n and a quote that opens or
// closes; 2n+1 give n and a literal quote; other backslashes are literal.
std::vector<std::string> splitCommandLine(std::string_view commandLine);

// The program a command line starts and the rest of the line, as Windows finds
// them: a quoted first word is the program; otherwise each prefix of the line that
// ends before a blank (".exe" added when its file name has no extension), left to
// right, then the whole run of words ahead of the first quote. The first that
// names an existing file wins; none when no candidate does.
std::optional<std::pair<std::string, std::string>>
findProgram(std::string_view commandLine, const std::function<bool(const std::string&)>& isFile);

#ifndef _WIN32
// Arguments of a Windows program run through wine, as wine sees paths: a word that
// names an existing file or folder, alone or as the value of a "/name:" switch,
// becomes "Z:" and its path with "\" (wine's Z: drive is the Unix root).
std::vector<std::string> wineArguments(std::vector<std::string> args,
                                       const std::function<bool(const std::string&)>& exists);

// Starts programs directly, without a shell: the program as findProgram finds it,
// with "\" mapped to "/", and the rest of the line split by the Windows rules. A
// Windows program starts through wine when wine is on the PATH.
class PosixProcesses : public Processes {
  public:
    ~PosixProcesses() override;
    int64_t start(const std::string& commandLine, int32_t windowStyle) override;
    intptr_t open(int64_t processId, uint32_t access) override;
    bool exitCode(intptr_t handle, uint32_t& code) override;
    void sleep(int32_t milliseconds) override;
    void close(intptr_t handle) override;

  private:
    struct Child {
        int64_t pid;
        bool ended = false;
        uint32_t code = 0;
    };
    std::vector<Child> children_;
    void reap(Child& c, bool wait);
};

using SystemProcesses = PosixProcesses;
#endif

} // namespace tarnvale::platform
