// "Night Vision" through the exported entry: the default green picture, the
// red/green mix, gain and base, the clamps of all four parameters, intensity
// 0 and 0.5, AYUV frames, a missing source and the active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "pixel/color.h"
#include "support.h"

namespace {

using reelfx::Picture;
using reelfx::RenderOptions;
using reelfx::test::renderEffect;
using reelfx::test::testPicture;
using Params = std::vector<std::pair<std::string, double>>;

constexpr uint32_t kFill = 0x5A5A5A5A;
constexpr char kEffect[] = "Night Vision";

int channel(uint32_t p, int k) {
    return static_cast<int>((p >> (8 * k)) & 0xFF);
}

// Every ARGB pixel of the picture, mapped by `f` from its red, green, alpha.
template <class F>
void expectEachArgb(const Picture& src, const Picture& out, F f) {
    for (int y = 0; y < src.height; ++y) {
        for (int x = 0; x < src.width; ++x) {
            const uint32_t s = src.at(x, y);
            ASSERT_EQ(out.at(x, y), f(channel(s, 2), channel(s, 1), s & 0xFF000000u))
                << x << ", " << y << " from 0x" << std::hex << s;
        }
    }
}

uint32_t green(int level, uint32_t alpha) {
    return alpha | static_cast<uint32_t>(std::clamp(level, 0, 255)) << 8;
}

TEST(NightVision, DefaultsCarryRedAsGreen) {
    const Picture src = testPicture(48, 32, kFourccArgb, 0, 48 * 4 + 8);
    const auto r = renderEffect(kEffect, src);
    expectEachArgb(src, r.target, [](int red, int, uint32_t a) { return green(red, a); });
    EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
}

TEST(NightVision, MixGainAndBase) {
    const Picture src = testPicture(40, 24, kFourccArgb);
    auto render = [&](double m, double k, double z) {
        return renderEffect(kEffect, src,
                            {{"Red/Green Mix", m}, {"Brightness Gain", k}, {"Brightness Base", z}})
            .target;
    };
    // Green alone, and the truncated mean of red and green.
    expectEachArgb(src, render(1.0, 1.0, 0.0), [](int, int g, uint32_t a) { return green(g, a); });
    expectEachArgb(src, render(0.5, 1.0, 0.0),
                   [](int r, int g, uint32_t a) { return green((r + g) / 2, a); });
    // No gain: a flat level of trunc(Z * 255) everywhere (0.5 gives 127).
    expectEachArgb(src, render(0.3, 0.0, 0.5), [](int, int, uint32_t a) { return green(127, a); });
    // Gain 1 reproduces the mixed level whatever the base.
    expectEachArgb(src, render(0.0, 1.0, 0.8), [](int r, int, uint32_t a) { return green(r, a); });
    // Gain 5 on base 0: every level from 51 up saturates.
    expectEachArgb(src, render(0.0, 5.0, 0.0),
                   [](int r, int, uint32_t a) { return green(5 * r, a); });
    // Base 1 with gain 2: 2 * level - 255, so levels up to 127 give 0.
    expectEachArgb(src, render(0.0, 2.0, 1.0),
                   [](int r, int, uint32_t a) { return green(2 * r - 255, a); });
}

TEST(NightVision, ParametersActAsTheNearestBound) {
    const Picture src = testPicture(40, 24, kFourccArgb, 3);
    auto render = [&](double i, double m, double k, double z) {
        return renderEffect(kEffect, src,
                            {{"Intensity", i},
                             {"Red/Green Mix", m},
                             {"Brightness Gain", k},
                             {"Brightness Base", z}})
            .target.words;
    };
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::nan("");
    EXPECT_EQ(render(0.7, 0.4, 7.0, 0.1), render(0.7, 0.4, 5.0, 0.1));  // gain
    EXPECT_EQ(render(0.7, 0.4, inf, 0.1), render(0.7, 0.4, 5.0, 0.1));
    EXPECT_EQ(render(0.7, 0.4, -2.0, 0.1), render(0.7, 0.4, 0.0, 0.1));
    EXPECT_NE(render(0.7, 0.4, 4.0, 0.1), render(0.7, 0.4, 5.0, 0.1));
    EXPECT_EQ(render(1.5, 0.4, 2.0, 0.1), render(1.0, 0.4, 2.0, 0.1));  // intensity
    EXPECT_EQ(render(0.7, 3.0, 2.0, 0.1), render(0.7, 1.0, 2.0, 0.1));  // mix
    EXPECT_EQ(render(0.7, -1.0, 2.0, 0.1), render(0.7, 0.0, 2.0, 0.1));
    EXPECT_EQ(render(0.7, 0.4, 2.0, 9.0), render(0.7, 0.4, 2.0, 1.0));  // base
    EXPECT_EQ(render(0.7, 0.4, 2.0, -inf), render(0.7, 0.4, 2.0, 0.0));
    // NaN counts as the lower bound.
    EXPECT_EQ(render(0.7, nan, nan, nan), render(0.7, 0.0, 0.0, 0.0));
    EXPECT_EQ(render(nan, 0.4, 2.0, 0.1), render(0.0, 0.4, 2.0, 0.1));
}

TEST(NightVision, IntensityZeroCopiesAndHalfMixes) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(30, 20, format, 0, 30 * 4 + 4);
        for (double i : {0.0, -3.0}) {
            const auto r = renderEffect(kEffect, src, {{"Intensity", i}}, {.format = format});
            EXPECT_TRUE(r.target.samePixels(src)) << i;
            EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
        }
        // Half: per channel, the truncated midpoint between source and green.
        const auto full = renderEffect(kEffect, src, {{"Intensity", 1.0}}, {.format = format});
        const auto half = renderEffect(kEffect, src, {{"Intensity", 0.5}}, {.format = format});
        for (int y = 0; y < 20; ++y) {
            for (int x = 0; x < 30; ++x) {
                const uint32_t s = src.at(x, y), q = full.target.at(x, y);
                for (int k = 0; k < 4; ++k) {
                    ASSERT_EQ(channel(half.target.at(x, y), k), (channel(s, k) + channel(q, k)) / 2)
                        << x << ", " << y << " channel " << k;
                }
            }
        }
    }
}

// In AYUV the level comes from the pixel's ARGB form and the green pixel is
// converted back; a tiny intensity already converts every pixel.
TEST(NightVision, AyuvFrames) {
    const Picture src = testPicture(33, 17, kFourccAyuv, 1);
    const auto r = renderEffect(kEffect, src, {}, {.format = kFourccAyuv});
    for (int y = 0; y < 17; ++y) {
        for (int x = 0; x < 33; ++x) {
            const uint32_t p = ayuvToArgb(src.at(x, y));
            ASSERT_EQ(r.target.at(x, y), argbToAyuv(green(channel(p, 2), p & 0xFF000000u)));
        }
    }
    // Gain 0 makes the green pixel black (Y 0x10): a tiny intensity moves Y
    // toward it by almost nothing, and the truncation takes it one step down.
    const Picture grey(4, 1, 0, 0xFF7E8080u);
    const auto faint = renderEffect(kEffect, grey, {{"Intensity", 1e-9}, {"Brightness Gain", 0.0}},
                                    {.format = kFourccAyuv});
    EXPECT_EQ(faint.target.at(0, 0), 0xFF7D8080u);
    const auto strong =
        renderEffect(kEffect, grey, {{"Brightness Gain", 0.0}}, {.format = kFourccAyuv});
    EXPECT_EQ(strong.target.at(0, 0), argbToAyuv(0xFF000000u));
}

// Each pixel depends on its own source pixel alone, alpha included: a
// picture of many colours and alphas gives, pixel for pixel, what the same
// pixel gives rendered on its own.
TEST(NightVision, EachPixelOnItsOwn) {
    const Params params = {{"Intensity", 0.6},
                           {"Red/Green Mix", 0.35},
                           {"Brightness Gain", 1.9},
                           {"Brightness Base", 0.2}};
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(160, 120, format, 5);
        const RenderOptions o{.progress = 0.7, .format = format};
        const auto whole = renderEffect(kEffect, src, params, o);
        for (int i = 0; i < 300; ++i) {
            const int x = (i * 37) % 160, y = (i * 53) % 120;
            const Picture one(1, 1, 0, src.at(x, y));
            ASSERT_EQ(whole.target.at(x, y), renderEffect(kEffect, one, params, o).target.at(0, 0))
                << x << ", " << y;
        }
    }
}

TEST(NightVision, MissingSourceFillsWhite) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        Picture target(6, 4, 6 * 4 + 8, kFill);
        reelfx::Instance inst(reelfx::test::module(), reelfx::test::effectIndex(kEffect), 6, 4);
        ASSERT_EQ(inst.render(nullptr, target, {.format = format}), 0);
        EXPECT_TRUE(reelfx::test::untouchedOutside(target, 0, 0, 6, 4, kFill));
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 6; ++x) ASSERT_EQ(target.at(x, y), opaqueWhite(format));
        }
    }
}

// A 4:3 picture pillarboxed in a 16:9 frame and a 16:9 picture letterboxed
// in a 4:3 frame: the active rectangle holds exactly what the effect makes of
// that rectangle alone, the bars stay black, the padding keeps its words.
TEST(NightVision, WorksInsideTheActiveRectangle) {
    struct Fit {
        int32_t w, h;
        double display, picture;
        int32_t x0, y0, aw, ah;
    };
    const Fit fits[] = {{128, 72, 16.0 / 9.0, 4.0 / 3.0, 16, 0, 96, 72},
                        {120, 90, 4.0 / 3.0, 16.0 / 9.0, 0, 11, 120, 67}};
    const Params params = {{"Intensity", 0.8}, {"Red/Green Mix", 0.3}, {"Brightness Gain", 1.7}};
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const uint32_t bar = format == kFourccAyuv ? 0xFF0F8080u : 0xFF000000u;
        for (const Fit& f : fits) {
            const Picture frame = testPicture(f.w, f.h, format, 2, f.w * 4 + 8);
            Picture active(f.aw, f.ah);
            for (int y = 0; y < f.ah; ++y) {
                std::copy_n(frame.row(f.y0 + y) + f.x0, f.aw, active.row(y));
            }
            const auto whole = renderEffect(kEffect, frame, params,
                                            {.format = format,
                                             .displayAspect = f.display,
                                             .aspectFitting = true,
                                             .pictureAspect = f.picture});
            const auto alone = renderEffect(kEffect, active, params, {.format = format});
            for (int y = 0; y < f.h; ++y) {
                for (int x = 0; x < f.w; ++x) {
                    const bool in = x >= f.x0 && x < f.x0 + f.aw && y >= f.y0 && y < f.y0 + f.ah;
                    const uint32_t want = in ? alone.target.at(x - f.x0, y - f.y0) : bar;
                    ASSERT_EQ(whole.target.at(x, y), want) << x << ", " << y;
                }
            }
            EXPECT_TRUE(reelfx::test::paddingUntouched(whole.target, kFill));
        }
    }
}

}  // namespace
