// Long runs of numbers of a Mesh block, formatted on all threads: each chunk into
// a buffer of its own, the buffers appended in file order, so that the file reads
// byte for byte as one thread writes it and no writer seeks.
#include "xfile/xfile.h"

#include <algorithm>

namespace tarnvale::xfile {

void writeInChunks(TextSink& file, platform::Workers* workers, size_t count,
                   const std::function<void(size_t, size_t, TextSink&)>& format) {
    const size_t grain = chunkItems(workers);
    const size_t chunks = (count + grain - 1) / grain;
    if (!workers || workers->count() < 2 || chunks < 2) {
        format(0, count, file);
        return;
    }
    // A few chunks a thread at a time: the buffers in flight stay small.
    const size_t wave = 4 * size_t(workers->count());
    std::vector<std::string> texts(wave);
    for (size_t first = 0; first < chunks; first += wave) {
        const size_t inWave = std::min(wave, chunks - first);
        workers->forEach(inWave, [&](size_t i) {
            const size_t begin = (first + i) * grain;
            texts[i].clear();
            TextSink part;
            part.openString(texts[i], 64 * 1024);
            format(begin, std::min(count, begin + grain), part);
            part.close();
        });
        for (size_t i = 0; i < inWave; ++i) file.writeRaw(texts[i]);
    }
}

} // namespace tarnvale::xfile
