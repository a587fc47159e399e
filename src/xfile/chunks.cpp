// Long runs of numbers of a Mesh block, formatted on the helper threads while the
// writer goes on: each chunk into a text of its own, which the file takes in its
// place, so that the file reads byte for byte as one thread writes it and no
// writer seeks.
#include "xfile/xfile.h"

#include <algorithm>

namespace tarnvale::xfile {

void writeInChunks(TextSink& file, platform::Workers* workers, size_t count, ChunkFormat format) {
    const size_t grain = chunkItems(workers);
    const size_t chunks = (count + grain - 1) / grain;
    if (!workers || workers->count() < 2 || chunks < 2) {
        format(0, count, file);
        return;
    }
    auto shared = std::make_shared<const ChunkFormat>(std::move(format));
    for (size_t c = 0; c < chunks; ++c) {
        auto text = std::make_shared<std::string>();
        const size_t begin = c * grain, end = std::min(count, begin + grain);
        file.writeLater(workers->post([shared, text, begin, end] {
            TextSink part;
            part.openString(*text, 64 * 1024);
            (*shared)(begin, end, part);
            part.close();
        }),
                        text);
    }
}

} // namespace tarnvale::xfile
