// The tarnvale command: reads a glTF scene and exports it as the host would.
#include "app/command.h"

#ifdef _WIN32
#include <windows.h>
#include <shellapi.h>

#include <string>
#include <vector>

// The arguments as UTF-8 from the wide command line: names outside the code page
// reach the program whole. The console shows UTF-8 as such.
int main() {
    ::SetConsoleOutputCP(CP_UTF8);
    int argc = 0;
    wchar_t** wide = ::CommandLineToArgvW(::GetCommandLineW(), &argc);
    std::vector<std::string> args;
    for (int i = 0; i < argc; ++i) args.push_back(tarnvale::platform::narrow(wide[i]));
    ::LocalFree(wide);
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    return tarnvale::app::run(argc, argv.data());
}
#else
#ifdef __GLIBC__
#include <malloc.h>
#endif

int main(int argc, char** argv) {
#ifdef __GLIBC__
    // The export allocates and frees arrays of tens of megabytes: kept in the heap
    // and used again, not mapped and zeroed anew by the system each time.
    ::mallopt(M_MMAP_THRESHOLD, 256 << 20);
    ::mallopt(M_TRIM_THRESHOLD, 256 << 20);
#endif
    return tarnvale::app::run(argc, argv);
}
#endif
