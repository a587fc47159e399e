// Fuzzes part data: any text reads or says why not; what reads writes back to a
// text that reads the same and writes the same again, or says why it cannot.
#include "partdata/partdata.h"

#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace tarnvale;
    const std::string text(reinterpret_cast<const char*>(data), size);
    partdata::Unreadable why;
    const auto read = partdata::parse(text, &why);
    if (!read) return why.reason().empty() ? (std::abort(), 0) : 0;
    std::string written;
    try {
        written = partdata::write(*read);
    } catch (const std::invalid_argument&) { // a name beyond the code page: said so, not written
        return 0;
    }
    const auto again = partdata::parse(written);
    if (!again || again->elements.size() != read->elements.size() || partdata::write(*again) != written)
        std::abort();
    return 0;
}
