// The module against straightforward transcriptions of the effects'
// formulas compiled at -O1 (bench/models), timed in the same run on the same
// noisy picture, both formats, initial parameters. Meant for the i386 build,
// where the module must be well ahead of such a transcription:
//
//   cmake --preset i386 -B build/i386-bench -DREELFX_BENCH=ON -DREELFX_TESTS=OFF
//   cmake --build build/i386-bench --target bench_models && build/i386-bench/bench_models
//
// A small harness of its own (no Google Benchmark, which Debian does not
// ship for i386): rounds alternate module and model, each figure is the
// median over the rounds of the CPU time of this thread, in ms per frame.
// ratio = model / module (above 1: the module is faster). "output" says
// whether the two drew the same words (Color Circle Shift: within 1 per
// channel), a check that the model is the effect it claims to be.
//
//   bench_models [--size WxH] [--rounds N] [--filter TEXT]
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bench/models/models.h"
#include "bench/noisy_picture.h"
#include "host/host.h"

namespace {

double threadCpuMs() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) * 1e-6;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

struct Case {
    const char* effect;
    std::function<void(const models::Frame&)> model;
    bool withinOne = false;  // outputs may differ by 1 per channel
};

const char* compare(const reelfx::Picture& a, const reelfx::Picture& b, bool withinOne) {
    bool exact = true;
    for (size_t i = 0; i < a.words.size(); ++i) {
        if (a.words[i] == b.words[i]) continue;
        exact = false;
        if (!withinOne) return "differs";
        for (int k = 0; k < 32; k += 8) {
            const int d = static_cast<int>((a.words[i] >> k) & 0xFF) -
                          static_cast<int>((b.words[i] >> k) & 0xFF);
            if (d > 1 || d < -1) return "differs";
        }
    }
    return exact ? "same" : "within 1";
}

}  // namespace

int main(int argc, char** argv) {
    int32_t w = 1920, h = 1080, rounds = 7;
    std::string filter;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--size") == 0 && std::sscanf(argv[i + 1], "%dx%d", &w, &h) == 2)
            continue;
        if (std::strcmp(argv[i], "--rounds") == 0) {
            rounds = std::max(1, std::atoi(argv[i + 1]));
            continue;
        }
        if (std::strcmp(argv[i], "--filter") == 0) {
            filter = argv[i + 1];
            continue;
        }
        std::fprintf(stderr, "usage: %s [--size WxH] [--rounds N] [--filter TEXT]\n", argv[0]);
        return 2;
    }
    if (w < 3 || h < 3) {
        std::fprintf(stderr, "the frame must be at least 3x3\n");
        return 2;
    }

    const reelfx::Module module(reelfx::Module::defaultPath());
    const models::PrismMap prismMap = models::buildPrismMap(w, h);
    const double progress = 0.5;
    const std::vector<Case> cases = {
        {"NewsPrint", models::newsPrint},
        {"Multi-Prism Lens", [&](const models::Frame& f) { models::applyPrismMap(f, prismMap); }},
        {"Color Circle Shift",
         [&](const models::Frame& f) { models::colorCircleShift(f, progress); }, true},
        {"Mosaic", models::mosaic},
        {"Flood", models::flood},
        {"Dream", models::dream},
        {"Flip XY", models::flipXY},
        {"Fade To Black", [&](const models::Frame& f) { models::fade(f, 0xFF000000u, progress); }},
        {"Fade To Grey", [&](const models::Frame& f) { models::fade(f, 0xFF808080u, progress); }},
        {"Fade To White", [&](const models::Frame& f) { models::fade(f, 0xFFFFFFFFu, progress); }},
        {"Fade To Sepia", [&](const models::Frame& f) { models::fade(f, 0xFFE5CC99u, progress); }},
        {"Fade To Color", [&](const models::Frame& f) { models::fade(f, 0xFF000000u, progress); }},
        {"Greyscale", [](const models::Frame& f) { models::toneMap(f, 0xFFFFFFFFu); }},
        {"Sepiascale", [](const models::Frame& f) { models::toneMap(f, 0xFFE5CC99u); }},
        {"Colorscale", [](const models::Frame& f) { models::toneMap(f, 0xFFFFFFFFu); }},
        {"Night Vision", models::nightVision},
        {"Binoculars", models::binoculars},
        {"Stained Glass", models::stainedGlass},
        {"Random-Rotate Squares", models::randomRotateSquares},
        {"Lantern", [&](const models::Frame& f) { models::lantern(f, progress); }},
    };

    std::printf(
        "module against -O1 transcriptions: %dx%d, initial parameters, progress %.1f, "
        "median of %d rounds, thread CPU ms per frame\n",
        w, h, progress, rounds);
    std::printf("%-22s %-5s %10s %10s %7s  %s\n", "effect", "fmt", "module ms", "model ms", "ratio",
                "output");
    int status = 0;
    for (const bool ayuv : {false, true}) {
        const uint32_t format = ayuv ? kFourccAyuv : kFourccArgb;
        reelfx::Picture src = noisyPicture(w, h);
        if (ayuv) src = reelfx::toAyuv(src);
        for (const Case& c : cases) {
            if (!filter.empty() && std::string(c.effect).find(filter) == std::string::npos)
                continue;
            const int32_t index = module.findEffect(c.effect);
            if (index < 0) {
                std::fprintf(stderr, "no effect %s\n", c.effect);
                return 1;
            }
            reelfx::Instance inst(module, index, w, h);
            reelfx::RenderOptions o;
            o.format = format;
            o.progress = progress;
            reelfx::Picture ours(w, h), theirs(w, h);
            const models::Frame frame{theirs.data(), src.words.data(), w, h, ayuv};
            if (inst.render(&src, ours, o) != 0) {  // first frame: builds what the instance keeps
                std::fprintf(stderr, "%s refused the frame\n", c.effect);
                return 1;
            }
            c.model(frame);
            const char* output = compare(ours, theirs, c.withinOne);
            if (std::strcmp(output, "differs") == 0) status = 1;
            std::vector<double> moduleMs, modelMs;
            for (int32_t r = 0; r < rounds; ++r) {
                double t = threadCpuMs();
                inst.render(&src, ours, o);
                moduleMs.push_back(threadCpuMs() - t);
                t = threadCpuMs();
                c.model(frame);
                modelMs.push_back(threadCpuMs() - t);
            }
            const double a = median(moduleMs), b = median(modelMs);
            std::printf("%-22s %-5s %10.2f %10.2f %7.2f  %s\n", c.effect, ayuv ? "AYUV" : "ARGB", a,
                        b, a > 0 ? b / a : 0.0, output);
            std::fflush(stdout);
        }
    }
    return status;
}
