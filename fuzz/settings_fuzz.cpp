// Fuzzes the settings file and the .reg stand-in of the registry, in UTF-8 and
// UTF-16: any file reads, and a string read ends as the registry's do.
#include "harness.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarnvale;
    static const std::string path = fuzz::folder() + "/settings";
    fuzz::writeFile(path, data, size);
    platform::IniSettings settings(path);
    for (const char* key : {"FieldId", "Template", "AttachId"})
        settings.getSetting("MorvanePlugin", "Tarnvale", key, "default");
    platform::RegFileRegistry registry(path);
    platform::RegValue value;
    for (const char* name : {"", "SdkRootDir", "Count"})
        if (registry.queryValue(platform::kHkeyLocalMachine, "SOFTWARE\\Sim", name, value) &&
            value.type == platform::kRegString && (value.data.empty() || value.data.back() != 0))
            std::abort(); // a string is stored with its NUL
    return 0;
}
