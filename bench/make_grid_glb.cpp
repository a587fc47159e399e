// make_grid_glb OUT.glb TRIANGLES [MATERIALS [NODES [animated]]]: a large scene
// for end-to-end runs.
#include "glb_writer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
    const unsigned long long triangles = argc >= 3 ? std::strtoull(argv[2], nullptr, 10) : 0;
    const int materials = argc > 3 ? std::atoi(argv[3]) : 20, nodes = argc > 4 ? std::atoi(argv[4]) : 1;
    const bool animated = argc > 5 && std::string(argv[5]) == "animated";
    // Each material and node needs a band of two triangles at least.
    if (argc < 3 || materials < 1 || nodes < 1 ||
        triangles < 2ull * static_cast<unsigned long long>(std::max(materials, nodes))) {
        std::fprintf(stderr,
                     "usage: make_grid_glb OUT.glb TRIANGLES [MATERIALS [NODES [animated]]], with at least "
                     "one material and node and two triangles for each\n");
        return 2;
    }
    size_t bytes = tarnvale::bench::writeGridGlb(argv[1], triangles, materials, nodes, animated);
    std::printf("%s: %zu bytes\n", argv[1], bytes);
    return 0;
}
