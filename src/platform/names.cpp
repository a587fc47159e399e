// Node names as the files write them, and the level-of-detail word.
#include "platform/names.h"

#include "platform/text.h"

#include <algorithm>
#include <vector>

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

size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t up = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = up;
        }
    }
    return row[b.size()];
}

} // namespace tarnvale::platform
