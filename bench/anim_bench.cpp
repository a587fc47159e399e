// The XANIM walk on many animated parts: linear in keys.
#include "anim/anim.h"
#include "scene/scene.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <filesystem>

namespace tarnvale::bench {
namespace {

void BM_AnimWalk(benchmark::State& state) {
    const auto parts = static_cast<int>(state.range(0));
    const auto keysPerPart = static_cast<int>(state.range(1));
    auto s = scene::MemoryScene::create("bench");
    for (int p = 0; p < parts; ++p) {
        auto node = s->root()->addChild("part_" + std::to_string(p % 50) + "_" + std::to_string(p));
        std::vector<KeyRecord> keys;
        // Four rotation keys to a position key.
        for (int k = 0; k < keysPerPart; ++k) {
            float a = 0.01f * k;
            if (k % 5 == 4)
                keys.push_back({0, float(k), 0, float(k), 1, 2, 0, 0});
            else
                keys.push_back({0, float(k), 2, std::sin(a), 0, 0, std::cos(a), 0});
        }
        node->setKeyframes(std::move(keys));
    }
    platform::XmlDocument modelDef;
    std::string defs = "<ModelInfo>";
    for (int d = 0; d < 50; ++d)
        defs += "<Animation name=\"part_" + std::to_string(d) + "_\" length=\"100\"/>";
    defs += "<Animation name=\"NonRandomAmbient\"/></ModelInfo>";
    modelDef.loadText(defs);
    const std::string out = (std::filesystem::temp_directory_path() / "tarnvale-bench.x").string();
    for (auto _ : state) {
        std::shared_ptr<platform::XmlDocument> xmlAnim;
        std::vector<platform::XmlElement> nl = modelDef.select("ModelInfo/Animation");
        bool has = false;
        int32_t limit = 999999;
        anim::XAnimContext ctx{xmlAnim, nl, has, limit};
        std::string path = out;
        SGObjectPtr group = s->root();
        anim::XAnimExporter(ctx).pExportXAnim(path, group);
    }
    state.counters["keys"] = double(parts) * keysPerPart;
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * parts * keysPerPart);
    std::filesystem::remove(out + "anim");
}
BENCHMARK(BM_AnimWalk)
    ->Args({10000, 200})
    ->Args({10000, 50})
    ->Args({2500, 200})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace
} // namespace tarnvale::bench
