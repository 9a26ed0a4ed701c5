// "Color Circle Shift" through the exported entry: turns with known results,
// grey left alone, the clamps of both parameters, each pixel computed alone
// (in AYUV by way of ARGB), a missing source, the active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "pixel/color.h"
#include "pixel/fxmath.h"
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

// Channels 0-2 of two equally long pictures differ by at most one and
// alpha not at all.
::testing::AssertionResult withinOneStep(const W& got, const W& want) {
    if (got.size() != want.size()) return ::testing::AssertionFailure() << "sizes differ";
    for (size_t i = 0; i < got.size(); ++i) {
        for (int k = 0; k < 32; k += 8) {
            const int d = std::abs(int(got[i] >> k & 0xFF) - int(want[i] >> k & 0xFF));
            if (d > (k < 24 ? 1 : 0)) {
                return ::testing::AssertionFailure()
                       << "pixel " << i << ": " << std::hex << got[i] << " against " << want[i];
            }
        }
    }
    return ::testing::AssertionSuccess();
}

// The turn written out per pixel: polar angle by arctangent, turned, back by
// cosine and sine, in double precision with the module's math functions
// (their reduction of angles beyond 2^30 differs from the C library's).
uint32_t modelTurn(uint32_t p, double theta) {
    const double c2 = 0.7071067811865476, c6 = 0.408248290463863, k = -0.816496580927726;
    const int R = p >> 16 & 0xFF, G = p >> 8 & 0xFF, B = p & 0xFF;
    const double m = (R + G + B) * 0.3333333333333333;
    const double b = B - m, g = G - m, r = R - m;
    const double u = (b - g) * c2, v = ((b + g) - (r + r)) * c6;
    const double X = (u + v) * c2, Y = (v - u) * c2;
    const double rho = std::sqrt(Y * Y + X * X);
    double phi = X != 0.0 ? fxAtan(Y / X) : (Y >= 0.0 ? 1.5707963267948966 : -1.5707963267948966);
    if (X < 0.0) phi += 3.141592653589793;
    phi += theta;
    const double X2 = fxCos(phi) * rho, Y2 = fxSin(phi) * rho;
    const double u2 = (X2 - Y2) * c2, v2 = (Y2 + X2) * c2;
    const double a = u2 * c2, w = v2 * c6;
    auto channel = [&](double z) {
        return static_cast<uint32_t>(std::clamp(int(int(z) + m), 0, 255));
    };
    return (p & 0xFF000000u) | channel(v2 * k) << 16 | channel(w - a) << 8 | channel(w + a);
}

TEST(ColorCircleShift, KnownTurns) {
    const W colours = {0xFF336699u, 0xFFFF0000u, 0xFF00FF00u, 0x40336699u};
    // A third of a turn by "Offset" alone or by progress x "Period": red takes
    // green's value, green blue's, blue red's; alpha is carried. Green comes
    // to 0xFFFF0100 by the truncations, within one step of pure red.
    const W third = {0xFF669933u, 0xFF0000FFu, 0xFFFF0100u, 0x40669933u};
    EXPECT_TRUE(withinOneStep(shift(colours, 0.3333333333333333, 0.0, 0.0), third));
    EXPECT_TRUE(withinOneStep(shift(colours, 0.0, 1.0, 1.0 / 3.0), third));
    // Half a turn, by "Offset" and at the end of the defaults' span.
    EXPECT_TRUE(withinOneStep(shift({0xFFFF0000u}, 0.5, 0.0, 0.0), W{0xFF00A9AAu}));
    EXPECT_TRUE(withinOneStep(shift({0xFFFF0000u}, 0.5, 1.0, 1.0), W{0xFF00AAA9u}));
    // Grey stays for every angle, alpha included.
    const W greys = {0xFF000000u, 0xFFFFFFFFu, 0xFF7F7F7Fu, 0x00404040u};
    for (double offset : {0.1, 0.25, 0.77, 1.0}) EXPECT_EQ(shift(greys, offset, 3.5, 0.3), greys);
    // A whole turn (the defaults at progress 0.5) comes back within one step.
    const Picture src = testPicture(64, 40, kFourccArgb);
    EXPECT_TRUE(
        withinOneStep(renderEffect(kEffect, src, {}, {.progress = 0.5}).target.words, src.words));
}

// Pictures with a colour of their own in every pixel, in both formats and at
// several angles, agree with the per-pixel model within one step per
// channel (in AYUV by way of ARGB and back). Progress far beyond the
// effect's span gives angles that swamp every colour's own polar angle.
TEST(ColorCircleShift, NoisyPicturesFollowTheModel) {
    Picture noisy(97, 61);
    uint32_t seed = 12345;
    for (uint32_t& word : noisy.words) word = seed = seed * 1664525u + 1013904223u;
    const struct {
        double progress, offset;
    } angles[] = {{0.37, 0.0}, {0.37, 0.13}, {0.37, 0.5},   {0.37, 0.9},
                  {-3.1, 0.4}, {6.8e4, 0.2}, {4.1e11, 0.7}, {-2.9e14, 0.3}};
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        for (const auto [progress, offset] : angles) {
            const double theta = ((progress * 2.5) + offset) * 6.283185307179586;
            W want(noisy.words.size());
            for (size_t i = 0; i < want.size(); ++i) {
                want[i] = format == kFourccAyuv
                              ? argbToAyuv(modelTurn(ayuvToArgb(noisy.words[i]), theta))
                              : modelTurn(noisy.words[i], theta);
            }
            const W got = renderEffect(kEffect, noisy, {{"Offset", offset}, {"Period", 2.5}},
                                       {.progress = progress, .format = format})
                              .target.words;
            EXPECT_TRUE(withinOneStep(got, want))
                << reelfx::test::formatName(format) << " progress " << progress << " offset "
                << offset;
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
