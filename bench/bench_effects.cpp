// Render speed of every effect through the exported entry, in both pixel
// formats and at two frame sizes, next to a plain frame copy.
//
//   build/native/bench_effects --benchmark_filter='Mosaic'
#include <benchmark/benchmark.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "host/host.h"

namespace {

const reelfx::Module& module() {
    static reelfx::Module m(reelfx::Module::defaultPath());
    return m;
}

// Source pictures are made once per size and format.
const reelfx::Picture& source(int32_t w, int32_t h, uint32_t format) {
    static std::map<std::tuple<int32_t, int32_t, uint32_t>, reelfx::Picture> cache;
    auto key = std::make_tuple(w, h, format);
    auto it = cache.find(key);
    if (it == cache.end()) {
        reelfx::Picture p = reelfx::makeTestPicture(w, h);
        if (format == kFourccAyuv) p = reelfx::toAyuv(p);
        it = cache.emplace(key, std::move(p)).first;
    }
    return it->second;
}

void setPixelCounters(benchmark::State& state, int32_t w, int32_t h) {
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w) * h);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(w) * h * 4);
}

void BM_Memcpy(benchmark::State& state) {
    const auto w = static_cast<int32_t>(state.range(0));
    const auto h = static_cast<int32_t>(state.range(1));
    const reelfx::Picture& src = source(w, h, kFourccArgb);
    reelfx::Picture dst(w, h);
    for (auto _ : state) {
        std::memcpy(dst.data(), src.words.data(), src.words.size() * 4);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    setPixelCounters(state, w, h);
}

void BM_Effect(benchmark::State& state, int32_t effect, uint32_t format) {
    const auto w = static_cast<int32_t>(state.range(0));
    const auto h = static_cast<int32_t>(state.range(1));
    const reelfx::Picture& src = source(w, h, format);
    reelfx::Picture dst(w, h);
    reelfx::Instance inst(module(), effect, w, h);
    reelfx::RenderOptions o;
    o.format = format;
    o.progress = 0.5;  // mid-effect: fades and time-driven effects do real work
    for (auto _ : state) {
        inst.render(&src, dst, o);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    setPixelCounters(state, w, h);
}

void sizes(benchmark::internal::Benchmark* b) {
    b->Args({720, 576})->Args({1920, 1080})->Unit(benchmark::kMillisecond);
}

const bool registered = [] {
    benchmark::RegisterBenchmark("Memcpy", BM_Memcpy)->Apply(sizes);
    for (const reelfx::EffectInfo& e : module().catalogue()) {
        for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
            std::string name = e.name + (format == kFourccAyuv ? "/AYUV" : "/ARGB");
            benchmark::RegisterBenchmark(name.c_str(), BM_Effect, e.index, format)->Apply(sizes);
        }
    }
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
