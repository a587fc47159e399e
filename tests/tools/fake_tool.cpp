// A stand-in for the conversion tool: records the arguments it received, one per
// line, in $FAKE_TOOL_LOG, waits $FAKE_TOOL_DELAY_MS and exits with $FAKE_TOOL_EXIT.
// Built for Windows it also records its command line, as the system passed it,
// in $FAKE_TOOL_LINE_LOG, and takes its arguments from the wide command line.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#ifdef _WIN32
#include "platform/platform.h"

#include <windows.h>
// shellapi.h wants windows.h ahead of it.
#include <shellapi.h>

using tarnvale::platform::narrow;
#endif

int main(int argc, char** argv) {
    std::vector<std::string> args(argv, argv + argc);
#ifdef _WIN32
    int n = 0;
    wchar_t** wide = ::CommandLineToArgvW(::GetCommandLineW(), &n);
    args.clear();
    for (int i = 0; i < n; ++i)
        args.push_back(narrow(wide[i]));
    ::LocalFree(wide);
    if (const char* log = std::getenv("FAKE_TOOL_LINE_LOG"))
        if (std::FILE* f = std::fopen(log, "wb")) {
            std::fprintf(f, "%s", narrow(::GetCommandLineW()).c_str());
            std::fclose(f);
        }
#endif
    if (const char* log = std::getenv("FAKE_TOOL_LOG")) {
        if (std::FILE* f = std::fopen(log, "wb")) {
            for (size_t i = 1; i < args.size(); ++i)
                std::fprintf(f, "%s\n", args[i].c_str());
            std::fclose(f);
        }
    }
    if (const char* d = std::getenv("FAKE_TOOL_DELAY_MS"))
        std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(d)));
    const char* code = std::getenv("FAKE_TOOL_EXIT");
    return code ? std::atoi(code) : 0;
}
