// Renders a fixed matrix of effects, formats, parameter values, progress
// values and frame sizes and prints one hash per render. The 32-bit and
// 64-bit builds must print identical lines.
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "host/host.h"
#include "pixel/fxmath.h"

namespace {

uint64_t fnv1a(const reelfx::Picture& p) {
    uint64_t h = 0xcbf29ce484222325ull;
    for (int32_t y = 0; y < p.height; ++y) {
        const uint32_t* r = p.row(y);
        for (int32_t x = 0; x < p.pitch(); ++x) {  // padding included: it must stay untouched
            h ^= r[x];
            h *= 0x100000001b3ull;
        }
    }
    return h;
}

struct Size {
    int32_t w, h, padWords;
};

void renderOne(const reelfx::Module& m, int32_t effect, const reelfx::Picture& src, uint32_t format,
               double progress, int32_t slot, double value, const char* label) {
    reelfx::Instance inst(m, effect, src.width, src.height);
    if (slot >= 0) inst.setParameter(slot, value);
    reelfx::Picture dst(src.width, src.height, src.stride, 0x5A5A5A5A);
    reelfx::RenderOptions o;
    o.progress = progress;
    o.format = format;
    // Render twice: effects with caches or module-wide state must stay stable.
    inst.render(&src, dst, o);
    inst.render(&src, dst, o);
    std::printf("%2d %s %dx%d t=%.3f slot=%d v=%s %016" PRIx64 "\n", effect,
                format == kFourccAyuv ? "AYUV" : "ARGB", src.width, src.height, progress, slot,
                label, fnv1a(dst));
}

// The transcendental functions the effects use, over a spread of arguments.
void printMathDigest() {
    uint64_t h = 0xcbf29ce484222325ull;
    auto mix = [&h](double v) {
        uint64_t b;
        std::memcpy(&b, &v, sizeof b);
        h = (h ^ b) * 0x100000001b3ull;
    };
    for (int i = -200000; i <= 200000; ++i) {
        const double x = i * 0.0137;
        mix(fxSin(x));
        mix(fxCos(x));
        mix(fxAtan(x));
        mix(fxAtan2(x, 3.7 - x));
        mix(fxLog(std::fabs(x) + 1e-3));
        mix(fxPow(std::fabs(x) / 1000.0, static_cast<double>(i % 13)));
        mix(fxPow(2.0, x / 1000.0));
    }
    std::printf("math %016" PRIx64 "\n", h);
}

}  // namespace

int main() {
    printMathDigest();
    reelfx::Module m(reelfx::Module::defaultPath());
    const std::vector<Size> sizes = {{97, 61, 3}, {320, 240, 0}};
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        for (const Size& s : sizes) {
            reelfx::Picture argb = reelfx::makeTestPicture(s.w, s.h, 3, (s.w + s.padWords) * 4);
            const reelfx::Picture src = format == kFourccAyuv ? reelfx::toAyuv(argb) : argb;
            for (int32_t e = 0; e < kEffectCount; ++e) {
                for (double t : {0.0, 0.37, 1.0}) renderOne(m, e, src, format, t, -1, 0.0, "init");
                // Every parameter through its range and beyond.
                reelfx::Instance probe(m, e, s.w, s.h);
                for (const reelfx::ParameterInfo& p : probe.parameters()) {
                    std::vector<std::pair<double, std::string>> values;
                    if (p.kind == kParameterKindChoice) {
                        for (size_t i = 0; i < p.choices.size(); ++i) {
                            values.push_back({static_cast<double>(i), std::to_string(i)});
                        }
                    } else if (p.kind == kParameterKindColour) {
                        values = {{4286611584.0, "0xff808080"}, {1073807104.0, "0x4000ff00"}};
                    } else {
                        values = {{p.minimum, "min"},
                                  {p.maximum, "max"},
                                  {p.minimum + (p.maximum - p.minimum) * 0.3, "0.3"},
                                  {p.minimum + (p.maximum - p.minimum) * 0.77, "0.77"}};
                    }
                    for (const auto& [v, label] : values) {
                        renderOne(m, e, src, format, 0.61, p.index, v, label.c_str());
                    }
                }
            }
        }
    }
    return 0;
}
