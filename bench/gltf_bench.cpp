// Loading large glTF scenes: time linear in size, peak memory reported.
#include "glb_writer.h"
#include "gltf/gltf.h"

#include <benchmark/benchmark.h>
#include <filesystem>
#include <sys/resource.h>

namespace tarnvale::bench {
namespace {

void BM_LoadGlb(benchmark::State& state) {
    const auto triangles = static_cast<size_t>(state.range(0));
    const std::string path = (std::filesystem::temp_directory_path() / "tarnvale-bench-load.glb").string();
    const size_t bytes = writeGridGlb(path, triangles, 20);
    for (auto _ : state) {
        auto loaded = gltf::readScene(path);
        benchmark::DoNotOptimize(loaded.scene);
    }
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
    state.counters["glb_MB"] = bytes / 1e6;
    state.counters["peak_RSS_MB"] = usage.ru_maxrss / 1e3;
    std::filesystem::remove(path);
}
BENCHMARK(BM_LoadGlb)
    ->Arg(1000000)
    ->Arg(4000000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3);

} // namespace
} // namespace tarnvale::bench
