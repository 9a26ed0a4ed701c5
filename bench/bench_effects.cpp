// Render speed of every effect through the exported entry, in both pixel
// formats at 720x576, 1920x1080 and 3840x2160, next to a plain frame copy in
// the same run, plus the heavy end of the parameters whose cost depends on
// them. The picture is camera-like: smooth shading with noise on every pixel,
// so nearly every pixel has a colour of its own.
//
// Names are BM_<Kind>/<Effect>/<ARGB|AYUV>/<576|1080|2160>, e.g.
//   build/native/bench_effects --benchmark_filter='BM_Effect/Dream/'
//   build/native/bench_effects --benchmark_filter='/1080$'
// Time and CPU are per frame in ms (on a shared machine read CPU);
// "x_memcpy" is the frame's CPU time over that of the memcpy of the same
// frame measured earlier in the run.
#include <benchmark/benchmark.h>
#include <time.h>

#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "bench/noisy_picture.h"
#include "host/host.h"

namespace {

struct FrameSize {
    const char* label;
    int32_t w, h;
};
constexpr FrameSize kSizes[] = {{"576", 720, 576}, {"1080", 1920, 1080}, {"2160", 3840, 2160}};

const reelfx::Module& module() {
    static reelfx::Module m(reelfx::Module::defaultPath());
    return m;
}

// Source pictures are made once per size and format.
const reelfx::Picture& source(int32_t w, int32_t h, uint32_t format) {
    static std::map<std::tuple<int32_t, int32_t, uint32_t>, reelfx::Picture> cache;
    const auto key = std::make_tuple(w, h, format);
    auto it = cache.find(key);
    if (it == cache.end()) {
        reelfx::Picture p = noisyPicture(w, h);
        if (format == kFourccAyuv) p = reelfx::toAyuv(p);
        it = cache.emplace(key, std::move(p)).first;
    }
    return it->second;
}

std::map<int32_t, double>& memcpyMs() {
    static std::map<int32_t, double> ms;  // by frame width
    return ms;
}

double threadCpuMs() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) * 1e-6;
}

// Times the loop itself too (CPU time of this thread: the machine may be
// shared), to relate it to the memcpy of the same size.
template <class F>
void timeFrames(benchmark::State& state, int32_t w, int32_t h, bool isMemcpy, F&& frame) {
    const double start = threadCpuMs();
    for (auto _ : state) {
        frame();
        benchmark::ClobberMemory();
    }
    const double ms = (threadCpuMs() - start) / static_cast<double>(state.iterations());
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(w) * h);
    if (isMemcpy) {
        memcpyMs()[w] = ms;
    } else if (const auto copy = memcpyMs().find(w); copy != memcpyMs().end() && copy->second > 0) {
        state.counters["x_memcpy"] = ms / copy->second;
    }
}

void BM_Memcpy(benchmark::State& state, FrameSize s) {
    const reelfx::Picture& src = source(s.w, s.h, kFourccArgb);
    reelfx::Picture dst(s.w, s.h);
    timeFrames(state, s.w, s.h, true, [&] {
        std::memcpy(dst.data(), src.words.data(), src.words.size() * 4);
        benchmark::DoNotOptimize(dst.data());
    });
}

void BM_Effect(benchmark::State& state, int32_t effect, uint32_t format, FrameSize s,
               std::vector<std::pair<std::string, double>> settings) {
    const reelfx::Picture& src = source(s.w, s.h, format);
    reelfx::Picture dst(s.w, s.h);
    reelfx::Instance inst(module(), effect, s.w, s.h);
    for (const auto& [name, value] : settings) inst.setParameter(name, value);
    reelfx::RenderOptions o;
    o.format = format;
    o.progress = 0.5;  // mid-effect: fades and time-driven effects do real work
    timeFrames(state, s.w, s.h, false, [&] {
        inst.render(&src, dst, o);
        benchmark::DoNotOptimize(dst.data());
    });
}

std::string compact(const std::string& name) {
    std::string out;
    for (char c : name) {
        if (c != ' ' && c != '-') out += c;
    }
    return out;
}

// The heavy end of the parameters whose cost depends on them.
struct Heavy {
    const char* effect;
    const char* label;
    std::vector<std::pair<std::string, double>> settings;
};

const bool registered = [] {
    const char* formats[2] = {"ARGB", "AYUV"};
    for (const FrameSize& s : kSizes) {
        benchmark::RegisterBenchmark(("BM_Memcpy/" + std::string(s.label)).c_str(), BM_Memcpy, s)
            ->Unit(benchmark::kMillisecond);
        for (const reelfx::EffectInfo& e : module().catalogue()) {
            for (int f = 0; f < 2; ++f) {
                const std::string name =
                    "BM_Effect/" + compact(e.name) + "/" + formats[f] + "/" + s.label;
                benchmark::RegisterBenchmark(name.c_str(), BM_Effect, e.index,
                                             f ? kFourccAyuv : kFourccArgb, s,
                                             std::vector<std::pair<std::string, double>>{})
                    ->Unit(benchmark::kMillisecond);
            }
        }
    }
    const std::vector<Heavy> heavy = {
        {"Mosaic", "Resolution1", {{"Resolution", 1.0}}},
        {"Mosaic", "Overlap10", {{"Overlap", 10.0}}},
        {"Mosaic", "Resolution1Overlap10", {{"Resolution", 1.0}, {"Overlap", 10.0}}},
        {"Flood", "Intensity100", {{"Intensity", 100.0}}},
        {"Stained Glass", "Intensity100", {{"Intensity", 100.0}}},
        {"Stained Glass", "Intensity2", {{"Intensity", 2.0}}},
        {"Aged Film",
         "Particles100Size100",
         {{"Number of dust particles", 100.0}, {"Average particle size", 100.0}}},
        {"Dream", "Blur1Glare1", {{"Blur Intensity", 1.0}, {"Glare Intensity", 1.0}}},
        {"NewsPrint", "Resolution0", {{"Resolution", 0.0}}},
    };
    for (const Heavy& h : heavy) {
        const int32_t effect = module().findEffect(h.effect);
        for (int f = 0; f < 2; ++f) {
            const std::string name = "BM_Heavy/" + compact(h.effect) + "_" + h.label + "/" +
                                     formats[f] + "/" + kSizes[1].label;
            benchmark::RegisterBenchmark(name.c_str(), BM_Effect, effect,
                                         f ? kFourccAyuv : kFourccArgb, kSizes[1], h.settings)
                ->Unit(benchmark::kMillisecond);
        }
    }
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
