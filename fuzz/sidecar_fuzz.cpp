// Fuzzes the sidecar: whatever the .config beside the output holds, the export
// reads it, keeps or replaces it, and the sidecar it leaves reads back with the
// model's name and GUID.
#include "harness.h"
#include "platform/xml.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static tarnvale::fuzz::Export rig;
    const std::string config = tarnvale::fuzz::folder() + "/model.config";
    tarnvale::fuzz::writeFile(config, data, size);
    rig.run();
    const bool completed =
        !rig.boxes.shown.empty() && rig.boxes.shown.back().icon == tarnvale::platform::BoxIcon::Information;
    if (completed) {
        tarnvale::platform::XmlDocument saved;
        if (!saved.load(config) || !saved.documentElement().child("FriendlyName") ||
            !saved.documentElement().child("GUID"))
            std::abort();
    }
    return 0;
}
