// Starting a command line without a shell, and polling its end.
#include "platform/platform.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>

extern char** environ;

namespace tarnvale::platform {

std::vector<std::string> splitCommandLine(std::string_view s) {
    std::vector<std::string> args;
    size_t i = 0;
    while (true) {
        while (i < s.size() && (s[i] == ' ' || s[i] == '\t')) ++i;
        if (i >= s.size()) break;
        std::string arg;
        bool quoted = false;
        while (i < s.size()) {
            char c = s[i];
            if (!quoted && (c == ' ' || c == '\t')) break;
            if (c == '\\') {
                size_t n = 0;
                while (i < s.size() && s[i] == '\\') ++n, ++i;
                if (i < s.size() && s[i] == '"') {
                    arg.append(n / 2, '\\');
                    if (n % 2) {
                        arg += '"';
                        ++i;
                    }
                } else {
                    arg.append(n, '\\');
                }
                continue;
            }
            if (c == '"') {
                // Inside quotes, "" is a literal quote.
                if (quoted && i + 1 < s.size() && s[i + 1] == '"') {
                    arg += '"';
                    i += 2;
                    continue;
                }
                quoted = !quoted;
                ++i;
                continue;
            }
            arg += c;
            ++i;
        }
        args.push_back(std::move(arg));
    }
    return args;
}

std::optional<std::pair<std::string, std::string>> findProgram(std::string_view line,
                                                               const std::function<bool(const std::string&)>& isFile) {
    size_t start = 0;
    while (start < line.size() && (line[start] == ' ' || line[start] == '\t')) ++start;
    if (start < line.size() && line[start] == '"') {
        const size_t close = line.find('"', start + 1);
        const size_t end = close == std::string_view::npos ? line.size() : close;
        std::string program(line.substr(start + 1, end - start - 1));
        if (!isFile(program)) return std::nullopt;
        return std::make_pair(program, std::string(line.substr(std::min(line.size(), end + 1))));
    }
    auto withExtension = [](std::string candidate) {
        const size_t name = candidate.find_last_of("\\/");
        if (candidate.find('.', name == std::string::npos ? 0 : name) == std::string::npos) candidate += ".exe";
        return candidate;
    };
    const size_t quote = line.find('"', start);
    const std::string_view run = line.substr(start, quote == std::string_view::npos ? std::string_view::npos : quote - start);
    for (size_t at = 1; at <= run.size(); ++at) {
        // A candidate ends before each blank that follows a word, and at the run's end.
        const bool wordEnds = at == run.size() || run[at] == ' ' || run[at] == '\t';
        if (!wordEnds || run[at - 1] == ' ' || run[at - 1] == '\t') continue;
        const std::string candidate = withExtension(std::string(run.substr(0, at)));
        if (isFile(candidate)) return std::make_pair(candidate, std::string(line.substr(start + at)));
    }
    return std::nullopt;
}

PosixProcesses::~PosixProcesses() {
    for (Child& c : children_) reap(c, false);
}

int64_t PosixProcesses::start(const std::string& commandLine, int32_t) {
    auto found = findProgram(commandLine, [](const std::string& path) { return fileExists(path); });
    if (!found) throw Failure(err::kFileNotFound, "File not found: " + commandLine);
    std::vector<std::string> args = splitCommandLine(found->second);
    args.insert(args.begin(), nativePath(found->first));
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    int rc = ::posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ);
    if (rc != 0) throw Failure(err::kFileNotFound, args[0] + ": " + std::strerror(rc));
    children_.push_back({pid});
    return pid;
}

intptr_t PosixProcesses::open(int64_t processId, uint32_t) {
    for (size_t i = 0; i < children_.size(); ++i)
        if (children_[i].pid == processId) return static_cast<intptr_t>(i + 1);
    return 0;
}

void PosixProcesses::reap(Child& c, bool) {
    if (c.ended) return;
    int status = 0;
    pid_t r = ::waitpid(static_cast<pid_t>(c.pid), &status, WNOHANG);
    if (r == static_cast<pid_t>(c.pid)) {
        c.ended = true;
        c.code = WIFEXITED(status) ? static_cast<uint32_t>(WEXITSTATUS(status)) : 1u;
    } else if (r < 0) {
        c.ended = true;
        c.code = 1;
    }
}

bool PosixProcesses::exitCode(intptr_t handle, uint32_t& code) {
    if (handle <= 0 || static_cast<size_t>(handle) > children_.size()) return false;
    Child& c = children_[handle - 1];
    reap(c, false);
    code = c.ended ? c.code : kStillActive;
    return true;
}

void PosixProcesses::sleep(int32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void PosixProcesses::close(intptr_t) {}

} // namespace tarnvale::platform
