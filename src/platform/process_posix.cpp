// Starting a command line without a shell, and polling its end.
#include "platform/platform.h"

#include <cerrno>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace tarnvale::platform {

namespace {

// Whether the file is a Windows program: it starts with the "MZ" of its header.
bool isWindowsProgram(const std::string& path) {
    char magic[2] = {};
    std::FILE* f = openFile(path, "rb");
    if (!f) return false;
    const bool read = std::fread(magic, 1, 2, f) == 2;
    std::fclose(f);
    return read && magic[0] == 'M' && magic[1] == 'Z';
}

// The file that runs as `name` by the PATH, or "".
std::string onPath(const char* name) {
    const char* path = std::getenv("PATH");
    if (!path) return "";
    std::string_view rest = path;
    while (true) {
        const size_t colon = rest.find(':');
        std::string folder(rest.substr(0, colon));
        if (folder.empty()) folder = ".";
        const std::string candidate = folder + "/" + name;
        if (::access(candidate.c_str(), X_OK) == 0 && fileExists(candidate)) return candidate;
        if (colon == std::string_view::npos) return "";
        rest.remove_prefix(colon + 1);
    }
}

std::string winePath(const std::string& unixPath) {
    std::string out = "Z:" + unixPath;
    for (char& c : out)
        if (c == '/') c = '\\';
    return out;
}

} // namespace

std::vector<std::string> wineArguments(std::vector<std::string> args,
                                       const std::function<bool(const std::string&)>& exists) {
    for (std::string& arg : args) {
        if (arg.empty()) continue;
        const std::string native = nativePath(arg);
        if (native[0] == '/' && exists(native)) {
            arg = winePath(native);
            continue;
        }
        // A switch with a path for its value: /dict:/home/me/modeldef.xml.
        const size_t colon = native.find(':');
        if (native[0] == '/' && colon != std::string::npos && colon + 1 < native.size() &&
            native[colon + 1] == '/' && exists(native.substr(colon + 1)))
            arg = native.substr(0, colon + 1) + winePath(native.substr(colon + 1));
    }
    return args;
}

PosixProcesses::~PosixProcesses() {
    for (Child& c : children_)
        reap(c, false);
}

int64_t PosixProcesses::start(const std::string& commandLine, int32_t) {
    auto found = findProgram(commandLine, [](const std::string& path) { return fileExists(path); });
    if (!found) throw Failure(err::kFileNotFound, "File not found: " + commandLine);
    std::vector<std::string> args = splitCommandLine(found->second);
    args.insert(args.begin(), nativePath(found->first));
    // The SDK's tool is a Windows program: wine runs it, seeing our paths on Z:.
    if (isWindowsProgram(args[0])) {
        if (const std::string wine = onPath("wine"); !wine.empty()) {
            args = wineArguments(std::move(args), [](const std::string& p) {
                std::error_code ec;
                return std::filesystem::exists(p, ec);
            });
            args[0] = nativePath(found->first); // wine takes the program by its Unix path
            args.insert(args.begin(), wine);
        }
    }
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
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
