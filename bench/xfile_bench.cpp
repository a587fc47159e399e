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

// An exporter over a scene, with a template that holds the frames alone.
struct SceneExport {
    std::string templateFile = std::filesystem::temp_directory_path() / "tarnvale-bench-template.X";
    SGScenePtr graph;
    SGObjectPtr group;
    xfile::ObjectBonesCollection bones;
    int32_t materialField, attach;
    std::string status, name = "bench", guid = "G";
    platform::FixedClock clock;
    xfile::XFileContext ctx;

    SceneExport(const SceneExport&) = delete;
    SceneExport(const std::shared_ptr<scene::MemoryScene>& s, int32_t field)
        : graph(s), group(s->root()), materialField(field), attach(s->fields().addObject("FS10att")),
          ctx{templateFile,  group,  graph,
              name,          guid,   bones,
              materialField, attach, [this](const std::string& t) { status += t; },
              clock} {
        // ctx refers to the members above: the object stays where it is made.
        if (!std::filesystem::exists(templateFile))
            std::ofstream(templateFile) << "xof 0303txt 0032\r\n#scene#\r\n";
    }
    // Writes the X file to `path` and gives the bytes written.
    size_t write(const std::string& path) {
        std::string out = path;
        xfile::XFileExporter(ctx).pExportFSX(out, group);
        return std::filesystem::file_size(path);
    }
};

void measure(benchmark::State& state, const std::shared_ptr<scene::MemoryScene>& s, int32_t field) {
    SceneExport e(s, field);
    const std::string path = (std::filesystem::temp_directory_path() / "tarnvale-bench.x").string();
    size_t bytes = 0;
    for (auto _ : state)
        bytes = e.write(path);
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
    state.counters["triangles"] = static_cast<double>(state.range(0));
    std::filesystem::remove(path);
}

void run(benchmark::State& state, GridOptions o) {
    o.triangles = static_cast<size_t>(state.range(0));
    int32_t field = 0;
    auto s = makeGridScene(o, &field);
    measure(state, s, field);
}

void BM_WriteTwentyMaterials(benchmark::State& state) {
    run(state, {0, 20, false, false, false});
}
void BM_WriteOneMaterial(benchmark::State& state) {
    run(state, {0, 1, false, false, false});
}
void BM_WriteThousandAlternating(benchmark::State& state) {
    run(state, {0, 1000, true, false, false});
}
// Shared vertices: a cockpit corner's mirrored pair needs a vertex record of its own
// at most positions, so this file is about a third larger than the one-material one.
void BM_WriteCockpitEveryOther(benchmark::State& state) {
    run(state, {0, 2, false, true, false});
}
// The same file without the flip: the cockpit polygons already stand at the end
// with v mirrored, and no material is marked any more. What the case above takes
// beyond this one is the flip.
void BM_WriteCockpitPreflipped(benchmark::State& state) {
    int32_t field = 0;
    auto s = makeGridScene({static_cast<size_t>(state.range(0)), 2, false, true, false}, &field);
    SGShapePtr grid = s->root()->children()[0]->GetShape();
    SceneExport flip(s, field);
    xfile::XFileExporter(flip.ctx).pFlipTextureV(grid);
    for (int32_t i = 0; i < grid->GetPolygonCount(); ++i)
        std::static_pointer_cast<scene::MemoryMaterial>(grid->GetPolygon(i).GetMaterial())->fields.clear();
    measure(state, s, field);
}
// Each triangle with its own vertices: the same output size as the one-material case.
void BM_WriteOneMaterialOwnVertices(benchmark::State& state) {
    run(state, {0, 1, false, false, true});
}
void BM_WriteCockpitEveryOtherOwnVertices(benchmark::State& state) {
    run(state, {0, 2, false, true, true});
}

// A skinned grid, four bones on every vertex, against the same grid unskinned.
void BM_WriteSkinned(benchmark::State& state) {
    run(state, {0, 1, false, false, false, 4});
}
void BM_WriteUnskinned(benchmark::State& state) {
    run(state, {0, 1, false, false, false, 0});
}

BENCHMARK(BM_WriteSkinned)->Arg(500000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteUnskinned)->Arg(500000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteTwentyMaterials)->Arg(1000000)->Arg(4000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteOneMaterial)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteThousandAlternating)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteCockpitEveryOther)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteCockpitPreflipped)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteOneMaterialOwnVertices)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteCockpitEveryOtherOwnVertices)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FormatNumber(benchmark::State& state) {
    std::vector<float> values(1 << 16);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = std::sin(float(i)) * 1000.0f;
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
