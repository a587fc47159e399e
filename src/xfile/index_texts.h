// The index texts of a mesh's triangle lists: a speed-up of the mesh writer,
// kept apart so that its one rule (the same text as plainNumber) is tested.
#pragma once

#include "platform/number_text.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

namespace tarnvale::xfile {

// The text of every index a mesh's triangle lists name, made once per mesh: a
// vertex stands in some six triangles, and both lists name it. Each text is held
// in one word, its digits from the lowest byte, zeros above them.
class IndexTexts {
  public:
    // Up to this many indices; those above are formatted where they stand.
    static constexpr int32_t kMaxIndices = 1 << 21;
    // The texts of indices below count (at most `limit`).
    explicit IndexTexts(int32_t count, int32_t limit = kMaxIndices)
        : texts_(static_cast<size_t>(std::clamp(count, 0, limit))) {
        char digits[24];
        for (size_t i = 0; i < texts_.size(); ++i) {
            const char* end = platform::plainNumberTo(static_cast<int64_t>(i), digits);
            std::memcpy(&texts_[i], digits, static_cast<size_t>(end - digits));
        }
    }
    // Writes the index as plainNumber does (up to 8 bytes for a known one, up to
    // kMaxNumberText for any other); gives the end.
    char* write(int32_t v, char* out) const {
        if (static_cast<uint32_t>(v) >= texts_.size()) return platform::plainNumberTo(v, out);
        const uint64_t text = texts_[static_cast<uint32_t>(v)];
        std::memcpy(out, &text, 8);
        return out + (71 - std::countl_zero(text)) / 8;
    }

  private:
    std::vector<uint64_t> texts_;
};

} // namespace tarnvale::xfile
