// Fuzzes the model definition: whatever it holds, the export matches the
// animated part against its Animation nodes or stops in the failure box.
#include "harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static tarnvale::fuzz::Export rig;
    tarnvale::fuzz::writeFile(rig.plugin + "/modeldef.xml", data, size);
    rig.run();
    return 0;
}
