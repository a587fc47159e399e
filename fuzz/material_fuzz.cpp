// Fuzzes the material text form and the .FSXMat file: any text is read without a
// crash, and what is read writes a block and a text form that reads back to the
// same text form.
#include "material/material.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using tarnvale::material::FS10Material;
    static const std::string path =
        (std::filesystem::temp_directory_path() / ("tarnvale-fuzz-" + std::to_string(::getpid()) + ".x"))
            .string();
    const std::string text(reinterpret_cast<const char*>(data), size);
    {
        std::FILE* f = std::fopen((path + ".FSXMat").c_str(), "wb");
        std::fwrite(data, 1, size, f);
        std::fclose(f);
        FS10Material fromFile;
        fromFile.loadString(tarnvale::material::readLibraryLine(path + ".FSXMat"));
    }
    FS10Material m;
    m.Power = 100;
    m.loadString(text);
    tarnvale::platform::TextSink sink;
    sink.open(path);
    m.Output(sink);
    sink.close();
    // The text form of what was read reads back to itself: no key is lost. Texts
    // holding ";" cannot travel through it, so those are left out.
    const std::string once = m.toString();
    if (text.find_first_of("\r\n") == std::string::npos) {
        FS10Material again;
        again.Power = 100;
        again.loadString(once);
        bool semicolonInText = false;
        for (const std::string* s :
             {&m.SrcBlend, &m.DstBlend, &m.EmissiveData, &m.AlphaTestFunction, &m.EmissiveTextureFileName,
              &m.ReflectionTextureFileName, &m.FresnelTextureFileName})
            semicolonInText = semicolonInText || s->find(';') != std::string::npos;
        if (!semicolonInText && again.toString() != once) std::abort();
    }
    return 0;
}
