// Fuzzes the template expander on any template text: tokens, long lines, no
// line end. The export writes or stops in the failure box.
#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static tarnvale::fuzz::Export rig;
    tarnvale::fuzz::writeFile(rig.plugin + "/Tarnvale.X", data, size);
    rig.run();
    return 0;
}
