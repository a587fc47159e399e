// Fuzzes fs10attach.xml, which may name the registry value that locates the
// model definition: any file gives a location, the default one or the value's.
#include "harness.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarnvale;
    static platform::RegFileRegistry registry = [] {
        platform::RegFileRegistry r;
        r.parse("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Sim]\r\n\"Defs\"=\"C:\\\\Sim\\\\\"\r\n\"Count\"=dword:"
                "0000002a\r\n");
        return r;
    }();
    static const std::string plugin = fuzz::folder() + "/attach/plugins";
    static const bool made = std::filesystem::create_directories(plugin) || true;
    (void)made;
    fuzz::writeFile(plugin + "/fs10attach.xml", data, size);
    const std::string location = shell::modelDefinitionLocation(registry, plugin);
    if (location.empty()) std::abort();
    return 0;
}
