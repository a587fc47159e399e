// Node names as the files write them, and the level-of-detail word.
#include "platform/names.h"

#include "platform/text.h"

namespace tarnvale::platform {

std::string pCleanName(std::string_view name) {
    std::string out = lowerCase(name);
    for (char& c : out)
        if (c == ' ' || c == '?') c = '_';
    return out;
}

bool isLevelOfDetail(std::string_view name) {
    // Upper case, then "LOD_": no letter of the code page but l, o and d
    // themselves turns into L, O or D, so comparing without case is the same.
    return containsNoCase(name, "LOD_");
}

} // namespace tarnvale::platform
