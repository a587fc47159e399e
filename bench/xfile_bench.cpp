// The X writers on large meshes: throughput, and the cost of many materials and
// of cockpit polygons against the one-material case.
#include "generator.h"
#include "platform/doubles.h"
#include "xfile/xfile.h"

#include <benchmark/benchmark.h>
#include <filesystem>
#include <fstream>

namespace tarnvale::bench {
namespace {

// Writes the scene's frames to `path` and gives the bytes written.
size_t writeScene(const std::shared_ptr<scene::MemoryScene>& s, int32_t materialField, const std::string& path) {
    std::string templateFile = std::filesystem::temp_directory_path() / "tarnvale-bench-template.X";
    if (!std::filesystem::exists(templateFile)) std::ofstream(templateFile) << "xof 0303txt 0032\r\n#scene#\r\n";
    SGScenePtr graph = s;
    SGObjectPtr group = s->root();
    xfile::ObjectBonesCollection bones;
    int32_t attach = s->fields().addObject("FS10att");
    std::string status, name = "bench", guid = "G";
    platform::FixedClock clock;
    xfile::XFileContext ctx{templateFile, group, graph, name, guid, bones, materialField, attach,
                            [&](const std::string& t) { status += t; }, clock};
    std::string out = path;
    xfile::XFileExporter(ctx).pExportFSX(out, group);
    return std::filesystem::file_size(path);
}

void run(benchmark::State& state, GridOptions o) {
    o.triangles = static_cast<size_t>(state.range(0));
    int32_t field = 0;
    auto s = makeGridScene(o, &field);
    const std::string path = (std::filesystem::temp_directory_path() / "tarnvale-bench.x").string();
    size_t bytes = 0;
    for (auto _ : state) bytes = writeScene(s, field, path);
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
    state.counters["triangles"] = static_cast<double>(o.triangles);
    std::filesystem::remove(path);
}

void BM_WriteTwentyMaterials(benchmark::State& state) { run(state, {0, 20, false, false, false}); }
void BM_WriteOneMaterial(benchmark::State& state) { run(state, {0, 1, false, false, false}); }
void BM_WriteThousandAlternating(benchmark::State& state) { run(state, {0, 1000, true, false, false}); }
// Shared vertices: a cockpit corner's mirrored pair needs a vertex record of its own
// at most positions, so this file is about a third larger than the one-material one.
void BM_WriteCockpitEveryOther(benchmark::State& state) { run(state, {0, 2, false, true, false}); }
// Each triangle with its own vertices: the same output size as the one-material case.
void BM_WriteOneMaterialOwnVertices(benchmark::State& state) { run(state, {0, 1, false, false, true}); }
void BM_WriteCockpitEveryOtherOwnVertices(benchmark::State& state) { run(state, {0, 2, false, true, true}); }

BENCHMARK(BM_WriteTwentyMaterials)->Arg(1000000)->Arg(4000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteOneMaterial)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteThousandAlternating)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteCockpitEveryOther)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteOneMaterialOwnVertices)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteCockpitEveryOtherOwnVertices)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FormatNumber(benchmark::State& state) {
    std::vector<float> values(1 << 16);
    for (size_t i = 0; i < values.size(); ++i) values[i] = std::sin(float(i)) * 1000.0f;
    char buf[64];
    size_t bytes = 0;
    for (auto _ : state)
        for (float v : values) {
            char* e = xfile::formatNumberTo(v, buf);
            bytes += static_cast<size_t>(e - buf);
            benchmark::DoNotOptimize(buf);
        }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(BM_FormatNumber);

} // namespace
} // namespace tarnvale::bench
