// A stand-in for the conversion tool: records the arguments it received, one per
// line, in $FAKE_TOOL_LOG, waits $FAKE_TOOL_DELAY_MS and exits with $FAKE_TOOL_EXIT.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

int main(int argc, char** argv) {
    if (const char* log = std::getenv("FAKE_TOOL_LOG")) {
        if (std::FILE* f = std::fopen(log, "wb")) {
            for (int i = 1; i < argc; ++i) std::fprintf(f, "%s\n", argv[i]);
            std::fclose(f);
        }
    }
    if (const char* d = std::getenv("FAKE_TOOL_DELAY_MS"))
        std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(d)));
    const char* code = std::getenv("FAKE_TOOL_EXIT");
    return code ? std::atoi(code) : 0;
}
