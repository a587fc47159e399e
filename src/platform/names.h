// Rules on the names of nodes that the X file, the XANIM file, the checker and
// the command share.
#pragma once

#include <string>
#include <string_view>

namespace tarnvale::platform {

// A name as the X and XANIM files write it: lower case (Windows-1252's letters),
// every blank and every "?" replaced by "_". Nothing else changes.
std::string pCleanName(std::string_view name);
// Whether a node is a level of detail: "LOD_" anywhere in its name, in any case.
bool isLevelOfDetail(std::string_view name);
// The fewest insertions, deletions and replacements of bytes that make a into b:
// how near a mistyped name is to the one meant.
size_t editDistance(std::string_view a, std::string_view b);

} // namespace tarnvale::platform
