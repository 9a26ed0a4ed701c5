// "Color Circle Shift" through the exported entry: turns with known results,
// grey left alone, the clamps of both parameters, each pixel computed alone
// (in AYUV by way of ARGB), a missing source, the active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "pixel/color.h"
#include "support.h"

namespace {

using reelfx::Picture;
using reelfx::test::renderEffect;
using reelfx::test::testPicture;
using W = std::vector<uint32_t>;

constexpr uint32_t kFill = 0x5A5A5A5A;
constexpr char kEffect[] = "Color Circle Shift";
const std::vector<std::pair<std::string, double>> kParams = {{"Offset", 0.21}, {"Period", 1.3}};

W shift(W argb, double offset, double period, double t) {
    Picture p(static_cast<int32_t>(argb.size()), 1);
    p.words = std::move(argb);
    return renderEffect(kEffect, p, {{"Offset", offset}, {"Period", period}}, {.progress = t})
        .target.words;
}

TEST(ColorCircleShift, KnownTurns) {
    const W colours = {0xFF336699u, 0xFFFF0000u, 0xFF00FF00u, 0x40336699u};
    // A third of a turn by "Offset" alone or by progress x "Period": red takes
    // green's value, green blue's, blue red's; alpha is carried.
    const W third = {0xFF669933u, 0xFF0000FFu, 0xFFFF0100u, 0x40669933u};
    EXPECT_EQ(shift(colours, 0.3333333333333333, 0.0, 0.0), third);
    EXPECT_EQ(shift(colours, 0.0, 1.0, 1.0 / 3.0), third);
    // Half a turn; the defaults (0.5, 1.0) give it at both ends, where the
    // angle 3 pi rounds green and blue the other way.
    EXPECT_EQ(shift({0xFFFF0000u}, 0.5, 0.0, 0.0), W{0xFF00A9AAu});
    EXPECT_EQ(shift({0xFFFF0000u}, 0.5, 1.0, 1.0), W{0xFF00AAA9u});
    // Grey stays for every angle, alpha included.
    const W greys = {0xFF000000u, 0xFFFFFFFFu, 0xFF7F7F7Fu, 0x00404040u};
    for (double offset : {0.1, 0.25, 0.77, 1.0}) EXPECT_EQ(shift(greys, offset, 3.5, 0.3), greys);
    // A whole turn (the defaults at progress 0.5) comes back within one step.
    const Picture src = testPicture(64, 40, kFourccArgb);
    const W back = renderEffect(kEffect, src, {}, {.progress = 0.5}).target.words;
    for (size_t i = 0; i < back.size(); ++i) {
        for (int k = 0; k < 32; k += 8) {
            ASSERT_LE(std::abs(int(src.words[i] >> k & 0xFF) - int(back[i] >> k & 0xFF)),
                      k < 24 ? 1 : 0);
        }
    }
}

// "Period" is honoured up to 9000, larger acts as 9000, negative as 0;
// "Offset" is held to 0 ... 1; a NaN counts as the lower bound of either.
// A NaN angle (infinite progress) leaves every colour channel 0.
TEST(ColorCircleShift, ParametersAreClamped) {
    const W src = {0xFF336699u, 0x80FF0000u, 0xFF12E0A0u, 0xFF808080u};
    EXPECT_NE(shift(src, 0.2, 2000.0, 0.123), shift(src, 0.2, 999.0, 0.123));
    const struct {
        double offset, period, sameOffset, samePeriod;
    } cases[] = {{0.2, 1e12, 0.2, 9000.0}, {0.2, INFINITY, 0.2, 9000.0}, {0.2, -5.0, 0.2, 0.0},
                 {1.7, 1.0, 1.0, 1.0},     {-0.4, 1.0, 0.0, 1.0},        {NAN, 1.0, 0.0, 1.0},
                 {0.2, NAN, 0.2, 0.0}};
    for (const auto& c : cases) {
        EXPECT_EQ(shift(src, c.offset, c.period, 0.123),
                  shift(src, c.sameOffset, c.samePeriod, 0.123))
            << c.offset << " " << c.period;
    }
    EXPECT_EQ(shift(src, 0.2, 1.0, INFINITY),
              (W{0xFF000000u, 0x80000000u, 0xFF000000u, 0xFF000000u}));
}

// A picture of many colours gives, pixel for pixel, what each pixel gives
// on its own; in AYUV each pixel goes to ARGB, is turned and comes back.
TEST(ColorCircleShift, EachPixelAloneAndAyuvThroughArgb) {
    const Picture yuv = testPicture(160, 120, kFourccAyuv, 5);
    const Picture rgb = reelfx::toArgb(yuv);
    const W ry =
        renderEffect(kEffect, yuv, kParams, {.progress = 0.7, .format = kFourccAyuv}).target.words;
    const W ra = renderEffect(kEffect, rgb, kParams, {.progress = 0.7}).target.words;
    for (size_t i = 0; i < ra.size(); ++i) ASSERT_EQ(ry[i], argbToAyuv(ra[i])) << i;
    for (size_t i = 0; i < ra.size(); i += 97) {
        const Picture one(1, 1, 0, rgb.words[i]);
        ASSERT_EQ(ra[i], renderEffect(kEffect, one, kParams, {.progress = 0.7}).target.words[0])
            << i;
    }
}

}  // namespace
