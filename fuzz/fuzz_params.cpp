// libFuzzer target for the reelfx tool's command-line values: effect names,
// parameter settings with keyframes, colours, numbers, spans, aspects, frame
// rates and sizes, parsed against parameter lists shaped like the module's.
//
// Every mistake must come back as a UsageError (anything else escaping is a
// finding), and what is accepted must hold what the tool goes on to rely on:
// values inside the declared range and of the parameter's kind, keyframes in
// increasing progress within 0..1, interpolated values that stay between
// their keys and keep their kind, ratios and rates that are positive and
// finite, sizes within bounds, and numbers and colours that read back as
// they were written.
#include <string>

#include "fuzz/fuzz_support.h"
#include "tools/params.h"

namespace {

using reelfx::ParameterInfo;
using reelfx::tool::ParameterSetting;

ParameterInfo real(int32_t slot, const char* name, double lo, double hi, double v) {
    return {slot, name, kParameterKindReal, v, lo, hi, v, {}};
}
ParameterInfo whole(int32_t slot, const char* name, double lo, double hi) {
    return {slot, name, kParameterKindWhole, 0, lo, hi, 0, {}};
}
ParameterInfo choice(int32_t slot, const char* name, std::vector<std::string> choices, double v) {
    constexpr double kMax = std::numeric_limits<double>::max();
    return {slot, name, kParameterKindChoice, v, -kMax, kMax, 0, std::move(choices)};
}
ParameterInfo colour(int32_t slot, const char* name, double v) {
    constexpr double kMax = std::numeric_limits<double>::max();
    return {slot, name, kParameterKindColour, v, -kMax, kMax, v, {}};
}

const std::vector<std::vector<ParameterInfo>>& parameterLists() {
    static const std::vector<std::vector<ParameterInfo>> lists = {
        {real(0, "Intensity", 0, 1, 0.9), real(1, "Noise", 0, 1, 0),
         real(2, "X Position", -1, 1, 0), real(3, "Y Position", -1, 1, 0),
         real(4, "X Size", 0, 1, 0.5), real(5, "Y Size", 0, 1, 0.5),
         choice(6, "Shape", {"Round", "Squared"}, 1)},
        {choice(0, "Direction", {"Color To Video", "Video To Color"}, 1),
         colour(1, "Color", 4278190080.0)},
        {whole(0, "Top (Pixel)", 0, 576), whole(1, "Right (Pixel)", 0, 720),
         whole(2, "Bottom (Pixel)", 0, 576), whole(3, "Left (Pixel)", 0, 720),
         choice(4, "Mode", {"Crop only", "Crop & Re-Center"}, 0)},
        {real(0, "Fading", 0, 100, 30), real(1, "Spot Radius", 1, 20, 10),
         real(2, "AntiAliasing", 0, 100, 50)},
        {whole(0, "Prism Count", 2, 20), real(1, "Center Radius", 0, 1, 0.5),
         real(2, "Prism Refraction", 0, 1, 0.75)},
        {choice(0, "Flip X Axis", {"No", "Yes"}, 0), choice(1, "Flip Y Axis", {"No", "Yes"}, 1)},
    };
    return lists;
}

const std::vector<reelfx::EffectInfo>& catalogue() {
    static const std::vector<reelfx::EffectInfo> effects = [] {
        const char* names[] = {"Aged Film",
                               "Incognito",
                               "Mosaic",
                               "NewsPrint",
                               "Fade To Black",
                               "Fade To Grey",
                               "Fade To White",
                               "Fade To Sepia",
                               "Fade To Color",
                               "Multi-Prism Lens",
                               "Random-Rotate Squares",
                               "Binoculars",
                               "Night Vision",
                               "Dream",
                               "Crop",
                               "Crop Scale To Fit",
                               "Crop Scale To Fill",
                               "Greyscale",
                               "Sepiascale",
                               "Colorscale",
                               "Color Circle Shift",
                               "Flip XY",
                               "Flood",
                               "Stained Glass",
                               "Lantern"};
        std::vector<reelfx::EffectInfo> out;
        for (int32_t i = 0; i < 25; ++i) out.push_back({i, names[i], "Video Effect", ""});
        return out;
    }();
    return effects;
}

bool isWhole(double v) { return std::isfinite(v) && v == std::trunc(v); }

// A value accepted for `p` is of its kind and inside its range.
void expectValueOf(const ParameterInfo& p, double v) {
    FUZZ_EXPECT(std::isfinite(v));
    switch (p.kind) {
        case kParameterKindChoice:
            FUZZ_EXPECT(isWhole(v) && v >= 0 && v < static_cast<double>(p.choices.size()));
            break;
        case kParameterKindColour: FUZZ_EXPECT(isWhole(v) && v >= 0 && v <= 4294967295.0); break;
        case kParameterKindWhole:
            FUZZ_EXPECT(isWhole(v) && v >= p.minimum && v <= p.maximum);
            break;
        default: FUZZ_EXPECT(v >= p.minimum && v <= p.maximum); break;
    }
}

void expectSetting(const std::vector<ParameterInfo>& params, const ParameterSetting& s,
                   FuzzedDataProvider& in) {
    FUZZ_EXPECT(s.slot >= 0 && static_cast<size_t>(s.slot) < params.size(), s.slot);
    const ParameterInfo& p = params[static_cast<size_t>(s.slot)];
    FUZZ_EXPECT(s.kind == p.kind && s.name == p.name && !s.keys.empty());
    double lo = s.keys[0].value;
    double hi = lo;
    for (size_t k = 0; k < s.keys.size(); ++k) {
        FUZZ_EXPECT(s.keys[k].progress >= 0.0 && s.keys[k].progress <= 1.0);
        FUZZ_EXPECT(k == 0 || s.keys[k].progress > s.keys[k - 1].progress, static_cast<long>(k));
        expectValueOf(p, s.keys[k].value);
        lo = std::min(lo, s.keys[k].value);
        hi = std::max(hi, s.keys[k].value);
    }
    for (int i = 0; i < 4; ++i) {
        const double t = i == 0 ? fuzz::pickDouble(in) : in.ConsumeProbability<double>();
        const double v = reelfx::tool::valueAt(s, t);
        expectValueOf(p, v);
        if (p.kind == kParameterKindChoice) {
            FUZZ_EXPECT(std::any_of(s.keys.begin(), s.keys.end(),
                                    [v](const auto& key) { return key.value == v; }));
        } else if (p.kind != kParameterKindColour) {
            FUZZ_EXPECT(v >= lo && v <= hi);
        }
    }
}

template <typename F>
void usage(F&& f) {
    try {
        f();
    } catch (const reelfx::tool::UsageError& e) {
        FUZZ_EXPECT(e.what()[0] != '\0');
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace tool = reelfx::tool;
    FuzzedDataProvider in(data, size);
    const int which = in.ConsumeIntegralInRange<int>(0, 11);
    const auto& lists = parameterLists();
    const auto& params = lists[in.ConsumeIntegralInRange<size_t>(0, lists.size() - 1)];
    const std::string text = in.ConsumeRandomLengthString(256);
    switch (which) {
        case 0:
            usage([&] { expectSetting(params, tool::parseSetting("Effect", params, text), in); });
            break;
        case 1:
            usage([&] {
                std::vector<std::string> all{text};
                while (in.remaining_bytes() > 0 && all.size() < 8)
                    all.push_back(in.ConsumeRandomLengthString(64));
                const auto settings = tool::parseSettings("Effect", params, all);
                FUZZ_EXPECT(settings.size() == all.size());
                for (size_t i = 0; i < settings.size(); ++i) {
                    for (size_t j = 0; j < i; ++j)
                        FUZZ_EXPECT(settings[i].slot != settings[j].slot);
                    expectSetting(params, settings[i], in);
                }
            });
            break;
        case 2: {
            const ParameterInfo& p =
                params[in.ConsumeIntegralInRange<size_t>(0, params.size() - 1)];
            usage([&] { expectValueOf(p, tool::parseValue(p, text)); });
            const std::string shown = tool::describeValue(p, fuzz::pickDouble(in));
            FUZZ_EXPECT(!shown.empty());
            break;
        }
        case 3: {
            if (const auto c = tool::parseColour(text)) {
                FUZZ_EXPECT(tool::parseColour(tool::formatColour(*c)) == *c, static_cast<long>(*c));
            }
            const uint32_t c = in.ConsumeIntegral<uint32_t>();
            FUZZ_EXPECT(tool::parseColour(tool::formatColour(c)) == c, static_cast<long>(c));
            FUZZ_EXPECT(tool::parseColour(std::to_string(c)) == c, static_cast<long>(c));
            break;
        }
        case 4: {
            if (const auto v = tool::parseNumber(text)) FUZZ_EXPECT(std::isfinite(*v));
            const double v = fuzz::pickDouble(in);
            if (std::isfinite(v)) FUZZ_EXPECT(tool::parseNumber(tool::formatNumber(v)) == v);
            break;
        }
        case 5:
            usage([&] {
                const auto s = tool::parseSpan(text);
                FUZZ_EXPECT(s.start >= 0 && s.start < s.end);
            });
            break;
        case 6:
            usage([&] {
                const double a = tool::parseAspect(text, "--display-aspect");
                FUZZ_EXPECT(std::isfinite(a) && a > 0);
            });
            usage([&] {
                const auto a = tool::parsePictureAspect(text);
                FUZZ_EXPECT(a.preset == 0 || a.preset == 2 || a.preset == 3, a.preset);
                FUZZ_EXPECT(std::isfinite(a.aspect) && a.aspect > 0);
            });
            break;
        case 7:
            usage([&] {
                const auto r = tool::parseFrameRate(text);
                FUZZ_EXPECT(r.num >= 1 && r.den >= 1, r.num, r.den);
                FUZZ_EXPECT(r.value() > 0 && r.value() <= 1000, r.num, r.den);
            });
            break;
        case 8:
            usage([&] {
                const auto s = tool::parseSize(text);
                FUZZ_EXPECT(s.width >= 1 && s.width <= 16384 && s.height >= 1 && s.height <= 16384,
                            s.width, s.height);
            });
            break;
        case 9:
            usage([&] {
                const int32_t i = tool::findEffect(catalogue(), text);
                FUZZ_EXPECT(i >= 0 && i < 25, i);
            });
            break;
        default: {
            const std::string n = tool::normalizeName(text);
            FUZZ_EXPECT(std::all_of(n.begin(), n.end(), [](char c) {
                return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
            }));
            std::vector<std::string> names;
            for (const auto& e : catalogue()) names.push_back(e.name);
            const size_t limit = in.ConsumeIntegralInRange<size_t>(0, 8);
            const auto near = tool::nearestNames(text, names, limit);
            FUZZ_EXPECT(near.size() <= limit);
            for (const auto& name : near) {
                FUZZ_EXPECT(std::find(names.begin(), names.end(), name) != names.end());
            }
            break;
        }
    }
    return 0;
}
