// make_grid_glb OUT.glb TRIANGLES [MATERIALS]: a large scene for end-to-end runs.
#include "glb_writer.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    const unsigned long long triangles = argc >= 3 ? std::strtoull(argv[2], nullptr, 10) : 0;
    const int materials = argc > 3 ? std::atoi(argv[3]) : 20;
    // Each material needs a triangle at least.
    if (argc < 3 || materials < 1 || triangles < static_cast<unsigned long long>(materials)) {
        std::fprintf(stderr, "usage: make_grid_glb OUT.glb TRIANGLES [MATERIALS], "
                             "with at least one material and a triangle per material\n");
        return 2;
    }
    size_t bytes = tarnvale::bench::writeGridGlb(argv[1], triangles, materials);
    std::printf("%s: %zu bytes\n", argv[1], bytes);
    return 0;
}
