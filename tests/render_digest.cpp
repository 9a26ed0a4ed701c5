// Renders a fixed set of scenarios of every effect through the exported entry
// and prints one line per rendered frame: effect name first, then format,
// frame, fitting, progress and parameters, then a hash of the whole target
// (padding included).
//
//   render_digest            every effect and a digest of the math functions;
//                            the 32-bit and 64-bit builds must print the same
//                            lines (scripts/cross-build-check.sh)
//   render_digest --golden   the renders whose pixels are fixed exactly
//                            (Color Circle Shift may move by 1 per channel and
//                            is checked against its formula instead), compared
//                            with tests/golden/renders.txt by the golden_renders
//                            test in both builds
//
// Regenerate the golden hashes after a change meant to alter pixels:
//   build/native/render_digest --golden > tests/golden/renders.txt
// and read `git diff --stat`/`git diff` (one line per render, effect first).
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "effects/effects.h"
#include "host/host.h"
#include "pixel/fxmath.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

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

// The source pictures belong to this program, so that a change to the host's
// test picture leaves the hashes alone: colour bars, gradients, one-pixel
// detail and noise in horizontal bands, alpha varying over the picture, the
// content moving with `frame`. Padding words are 0xA5A5A5A5.
reelfx::Picture sourcePicture(int32_t w, int32_t h, int32_t frame, int32_t strideBytes) {
    static constexpr uint32_t kBars[8] = {0xFFFFFF, 0xFFFF00, 0x00FFFF, 0x00FF00,
                                          0xFF00FF, 0xFF0000, 0x0000FF, 0x000000};
    reelfx::Picture p(w, h, strideBytes, 0xA5A5A5A5);
    uint32_t seed = 0x2545F491u + static_cast<uint32_t>(frame) * 7919u;
    const int32_t band = h < 4 ? 1 : h / 4;
    for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) {
            const int32_t xs = (x + frame * 3) % w;  // content drifts left
            uint32_t c;
            switch (y / band) {
                case 0: c = kBars[(static_cast<int64_t>(xs) * 8 / w) % 8]; break;
                case 1:
                    c = static_cast<uint32_t>(xs * 255 / w) << 16 |
                        static_cast<uint32_t>(y * 255 / h) << 8 |
                        static_cast<uint32_t>(255 - xs * 255 / w);
                    break;
                case 2: c = ((xs + y) & 1) ? 0xE0E0E0 : 0x202020; break;
                default:
                    seed = seed * 1664525u + 1013904223u;
                    c = seed >> 8;
                    break;
            }
            const uint32_t alpha = 255 - static_cast<uint32_t>((x * 7 + y * 3) % 96);
            p.at(x, y) = (c & 0xFFFFFF) | alpha << 24;
        }
    }
    return p;
}

struct Size {
    int32_t w, h, padWords;
};

struct Fit {
    const char* label;
    reelfx::RenderOptions options;  // progress and format are set per render
};

struct Setting {
    int32_t slot;
    double value;
};

struct Scenario {
    int32_t effect;
    uint32_t format;
    Size size;
    const Fit* fit;
    std::vector<Setting> settings;
    std::vector<double> progress;  // one frame per value, all on the same instance
    bool source = true;
    bool twice = false;  // render each frame twice: caches must not change the result
};

class Digest {
public:
    explicit Digest(const reelfx::Module& m) : m_(m) {
        for (const reelfx::EffectInfo& e : m.catalogue()) names_.push_back(e.name);
    }

    void run(const Scenario& s) {
        const int32_t stride = (s.size.w + s.size.padWords) * 4;
        reelfx::Instance inst(m_, s.effect, s.size.w, s.size.h);
        const std::vector<reelfx::ParameterInfo> params = inst.parameters();
        std::string what;
        for (const Setting& set : s.settings) {
            inst.setParameter(set.slot, set.value);
            char v[64];
            std::snprintf(v, sizeof v, "%.9g", set.value);
            what += ' ';
            what += paramName(params, set.slot);
            what += '=';
            what += v;
        }
        if (s.settings.empty()) what = " initial";
        int32_t frame = 0;
        for (double t : s.progress) {
            reelfx::Picture argb = sourcePicture(s.size.w, s.size.h, frame++, stride);
            const reelfx::Picture src = s.format == kFourccAyuv ? reelfx::toAyuv(argb) : argb;
            reelfx::Picture dst(s.size.w, s.size.h, stride, 0x5A5A5A5A);
            reelfx::RenderOptions o = s.fit->options;
            o.progress = t;
            o.format = s.format;
            inst.render(s.source ? &src : nullptr, dst, o);
            if (s.twice) inst.render(s.source ? &src : nullptr, dst, o);
            std::printf("%s | %s %dx%d+%d %s%s t=%.3f%s | %016" PRIx64 "\n",
                        names_[static_cast<size_t>(s.effect)].c_str(),
                        s.format == kFourccAyuv ? "AYUV" : "ARGB", s.size.w, s.size.h,
                        s.size.padWords, s.fit->label, s.source ? "" : " nosource", t, what.c_str(),
                        fnv1a(dst));
        }
    }

private:
    static std::string paramName(const std::vector<reelfx::ParameterInfo>& params, int32_t slot) {
        for (const reelfx::ParameterInfo& p : params) {
            if (p.index == slot) {
                std::string quoted(1, '"');
                quoted += p.name;
                quoted += '"';
                return quoted;
            }
        }
        return "slot" + std::to_string(slot);
    }

    const reelfx::Module& m_;
    std::vector<std::string> names_;
};

// Values for one parameter: through its range, beyond it and non-finite.
std::vector<double> sweep(const reelfx::ParameterInfo& p) {
    if (p.kind == kParameterKindChoice) {
        std::vector<double> v;
        for (size_t i = 0; i < p.choices.size(); ++i) v.push_back(static_cast<double>(i));
        const double n = static_cast<double>(p.choices.size());
        v.insert(v.end(), {-1.0, n, 0.5, kNaN, 1e12});
        return v;
    }
    if (p.kind == kParameterKindColour) {
        return {4286611584.0, 1073807104.0, 0.0, 4294967295.0, -1.0, 1e12, kNaN};
    }
    const double lo = p.minimum, hi = p.maximum, span = hi - lo;
    return {lo,
            hi,
            lo + span * 0.3,
            lo + span * 0.77,
            lo - span,
            hi + span,
            hi * 1e6 + 1,
            -1e9,
            kNaN,
            kInf,
            -kInf};
}

// Deterministic values for mixed settings (the same in every build).
struct Lcg {
    uint32_t s;
    double next() {
        s = s * 1664525u + 1013904223u;
        return (s >> 8) * (1.0 / 16777216.0);
    }
};

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

reelfx::RenderOptions fitting(int32_t preset, double pictureAspect, double displayAspect) {
    reelfx::RenderOptions o;
    o.aspectFitting = true;
    o.aspectPreset = preset;
    o.pictureAspect = pictureAspect;
    o.displayAspect = displayAspect;
    return o;
}

}  // namespace

int main(int argc, char** argv) {
    const bool golden = argc > 1 && std::strcmp(argv[1], "--golden") == 0;
    if (!golden) printMathDigest();
    reelfx::Module m(reelfx::Module::defaultPath());
    Digest digest(m);

    static const Fit kFull{"full", {}};
    static const Fit kLetterbox{"letterbox16:9", fitting(3, 0.0, 0.0)};
    static const Fit kPillarbox{"pillarbox4:3", fitting(2, 0.0, 0.0)};
    static const Fit kWide{"fit2.35", fitting(0, 2.35, 0.0)};
    static const Fit kPal{"fit4:3@16:9", fitting(2, 0.0, 16.0 / 9.0)};
    const Size kSweepSize{53, 37, 3};

    for (int32_t e = 0; e < kEffectCount; ++e) {
        if (golden && e == kEffectColorCircleShift) continue;
        reelfx::Instance probe(m, e, kSweepSize.w, kSweepSize.h);
        const std::vector<reelfx::ParameterInfo> params = probe.parameters();
        for (uint32_t f : {kFourccArgb, kFourccAyuv}) {
            // Initial parameters: tiny, odd and padded frames, several frames
            // per instance with changing progress.
            for (const Size& s : std::vector<Size>{{1, 1, 0},
                                                   {2, 3, 1},
                                                   {7, 5, 0},
                                                   {33, 1, 0},
                                                   {1, 33, 1},
                                                   {16, 9, 2},
                                                   {97, 61, 3},
                                                   {320, 240, 0}}) {
                digest.run({e, f, s, &kFull, {}, {0.0, 0.37, 1.0}});
            }
            digest.run({e, f, {720, 576, 0}, &kFull, {}, {0.5}});
            // Rows and columns longer than a 2048-pixel working line.
            digest.run({e, f, {2100, 3, 1}, &kFull, {}, {0.5}});
            digest.run({e, f, {3, 2100, 0}, &kFull, {}, {0.5}});
            digest.run({e, f, {16, 9, 0}, &kFull, {}, {0.5}, false});
            // Letterboxing and pillarboxing.
            digest.run({e, f, {160, 120, 1}, &kLetterbox, {}, {0.2, 0.8}});
            digest.run({e, f, {192, 108, 0}, &kPillarbox, {}, {0.2, 0.8}});
            digest.run({e, f, {131, 97, 2}, &kWide, {}, {0.5}});
            digest.run({e, f, {480, 576, 0}, &kPal, {}, {0.5}});
            // Every parameter through its range, beyond it and non-finite,
            // the others at their initial values.
            for (const reelfx::ParameterInfo& p : params) {
                for (double v : sweep(p)) {
                    digest.run({e, f, kSweepSize, &kFull, {{p.index, v}}, {0.61}, true, true});
                }
            }
            // Every parameter at once, mixed within and a little beyond the
            // ranges, over a few frames.
            Lcg rng{0x9E3779B9u * static_cast<uint32_t>(e + 1) + f};
            for (int mix = 0; mix < 3; ++mix) {
                std::vector<Setting> settings;
                for (const reelfx::ParameterInfo& p : params) {
                    double v;
                    if (p.kind == kParameterKindChoice) {
                        v = std::floor(rng.next() * static_cast<double>(p.choices.size()));
                    } else if (p.kind == kParameterKindColour) {
                        v = std::floor(rng.next() * 4294967296.0);
                    } else {
                        const double span = p.maximum - p.minimum;
                        v = p.minimum - span * 0.1 + rng.next() * span * 1.2;
                        if (p.kind == kParameterKindWhole) v = std::floor(v);
                    }
                    settings.push_back({p.index, v});
                }
                digest.run({e, f, {97, 61, 3}, &kFull, settings, {0.1, 0.55}});
            }
        }
    }
    return 0;
}
