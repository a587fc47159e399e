// The textures of a --textures export: four 4096x4096 PNG images (a livery's
// flat paint, gradients and panel noise) decoded, resized, mipmapped and
// compressed, on one thread and on one thread per core.
#include "texture/texture.h"

#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb/stb_image_write.h>

#include <benchmark/benchmark.h>
#include <cmath>
#include <filesystem>
#include <thread>

namespace {

namespace fs = std::filesystem;
using namespace tarnvale;

// Four PNG files made once; each differs so that nothing is shared.
const std::vector<gltf::SourceImage>& images() {
    static std::vector<gltf::SourceImage> made;
    if (!made.empty()) return made;
    const fs::path folder = fs::temp_directory_path() / "tarnvale-texture-bench";
    fs::create_directories(folder);
    constexpr int kSide = 4096;
    std::vector<uint8_t> rgba(static_cast<size_t>(kSide) * kSide * 4);
    for (int n = 0; n < 4; ++n) {
        for (int y = 0; y < kSide; ++y)
            for (int x = 0; x < kSide; ++x) {
                uint8_t* p = &rgba[(static_cast<size_t>(y) * kSide + x) * 4];
                const uint32_t hash = (x * 73856093u) ^ (y * 19349663u) ^ (n * 83492791u);
                const bool stripe = (y / 300 + n) % 5 == 0;
                const int noise = static_cast<int>(hash >> 29); // 0..7: panel grain
                p[0] = static_cast<uint8_t>(stripe ? 190 + noise : 128 + 100 * std::sin(x * 0.002 + n));
                p[1] = static_cast<uint8_t>(stripe ? 30 + noise : 140 + 90 * std::cos(y * 0.003));
                p[2] = static_cast<uint8_t>(stripe ? 25 : 150 + noise * 4);
                p[3] = 255;
            }
        const std::string path = (folder / ("livery" + std::to_string(n) + ".png")).string();
        stbi_write_png(path.c_str(), kSide, kSide, 4, rgba.data(), kSide * 4);
        gltf::SourceImage s;
        s.name = "livery" + std::to_string(n) + ".png";
        s.origin = s.file = path;
        s.image = n;
        made.push_back(s);
    }
    return made;
}

void BM_TexturesFour4096(benchmark::State& state) {
    const auto& sources = images();
    std::vector<std::string> names;
    for (const auto& s : sources)
        names.push_back(texture::ddsName(s.name));
    const fs::path out = fs::temp_directory_path() / "tarnvale-texture-bench-out";
    fs::create_directories(out);
    platform::Workers workers(static_cast<unsigned>(state.range(0)));
    for (auto _ : state) {
        const auto outcomes = texture::writeTextures(names, sources, {out.string(), ""}, &workers);
        for (const auto& o : outcomes)
            if (o.kind != texture::Outcome::Written) state.SkipWithError(o.reason.c_str());
    }
    state.counters["threads"] = workers.count();
}

} // namespace

// 1: one thread; 0: one per core.
BENCHMARK(BM_TexturesFour4096)->Arg(1)->Arg(0)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);
