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
int main(int argc, char** argv) { return tarnvale::app::run(argc, argv); }
#endif
