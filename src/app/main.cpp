// The tarnvale command: reads a glTF scene and exports it as the host would.
#include "app/command.h"

#ifdef _WIN32
#include <windows.h>
// shellapi.h wants windows.h ahead of it.
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
    for (int i = 0; i < argc; ++i)
        args.push_back(tarnvale::platform::narrow(wide[i]));
    ::LocalFree(wide);
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    return tarnvale::app::run(argc, argv.data());
}
#else
#ifdef __GLIBC__
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

namespace {

// The export allocates and frees arrays of tens of megabytes: kept in the heap
// and used again, not mapped and zeroed anew by the system each time. The heap
// grows in one step of 256 MB of address space (memory only where it is used),
// and that space is asked for in huge pages, which the system then faults in
// 2 MB at a time rather than 4 KB: a scene's arrays are filled once from start
// to end, and the faults were a fifth of the export's time.
void prepareHeap() {
    constexpr int kStep = 256 << 20;
    ::mallopt(M_MMAP_THRESHOLD, kStep);
    ::mallopt(M_TRIM_THRESHOLD, 2 * kStep);
    ::mallopt(M_TOP_PAD, kStep);
    constexpr std::uintptr_t kHuge = std::uintptr_t(2) << 20;
    const auto before = reinterpret_cast<std::uintptr_t>(::sbrk(0));
    void* volatile block = std::malloc(kHuge); // more than the heap has: it grows by the step
    std::free(block);
    const auto after = reinterpret_cast<std::uintptr_t>(::sbrk(0));
    const std::uintptr_t begin = (before + kHuge - 1) & ~(kHuge - 1), end = after & ~(kHuge - 1);
    if (end > begin) ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

} // namespace
#endif

int main(int argc, char** argv) {
#ifdef __GLIBC__
    prepareHeap();
#endif
    return tarnvale::app::run(argc, argv);
}
#endif
