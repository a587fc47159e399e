// make_grid_glb OUT.glb TRIANGLES [MATERIALS]: a large scene for end-to-end runs.
#include "glb_writer.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: make_grid_glb OUT.glb TRIANGLES [MATERIALS]\n");
        return 2;
    }
    size_t bytes = tarnvale::bench::writeGridGlb(argv[1], std::strtoull(argv[2], nullptr, 10),
                                                 argc > 3 ? std::atoi(argv[3]) : 20);
    std::printf("%s: %zu bytes\n", argv[1], bytes);
    return 0;
}
