// "Lantern" through the exported entry: the path of the spot, dark values and
// fades, the spot size, the beam written out for the first path point, the
// values beyond their ranges and the active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "support.h"

namespace {

using reelfx::Picture;
using namespace reelfx::test;

constexpr uint32_t kFill = 0x5A5A5A5A;
constexpr uint32_t kLit = 0xFF30A050u, kDark = 0xFF242424u;  // (0x30 + 0xA0 + 0x50 + 0xFF) / 15
using Params = std::vector<std::pair<std::string, double>>;

Picture lantern(const Picture& src, const Params& params, double t, uint32_t format = kFourccArgb) {
    return renderEffect("Lantern", src, params, {.progress = t, .format = format}).target;
}

int countEqual(const Picture& p, uint32_t word) {
    return static_cast<int>(std::count(p.words.begin(), p.words.end(), word));
}

// A spot of radius 2 (q = 120) lights point k of the path (as multiples of W
// and H, y upwards) at the first time step of segment k, P11 at the last step
// of the span and the midpoint of P5 and P6 halfway through; the mirror image
// of the spot through the centre is dark.
TEST(Lantern, SpotFollowsThePath) {
    const double path[13][2] = {
        {0.01, 0.01},           {-0.382659, -0.337560}, {-0.486568, 0.111302},
        {0.057016, 0.449258},   {-0.209350, -0.028268}, {-0.296697, 0.464996},
        {0.102422, 0.043077},   {-0.006177, -0.413759}, {0.281877, -0.156475},
        {-0.397473, -0.238155}, {0.101599, 0.104155},   {-0.029057, -0.080823},
        {-0.0971375, 0.2540365}};
    const Picture src(320, 240, 0, kLit);
    for (int k = 0; k < 13; ++k) {
        const int step = k == 12 ? 50000 : k == 11 ? 99999 : k * 100000 / 11;
        const Picture r =
            lantern(src, {{"Fading", 0.0}, {"Spot Radius", -100.0}, {"AntiAliasing", 0.0}},
                    (step + 0.5) / 1e5);
        const double x = path[k][0] * 320, y = path[k][1] * 240;
        EXPECT_EQ(r.at(std::lround(160 + x), std::lround(120 - y)), kLit) << k;
        EXPECT_EQ(r.at(std::lround(160 - x), std::lround(120 + y)), kDark) << k;
    }
}

// Far from the spot (pixel (0, 0) of 64 x 48): the dark value, alpha counted
// and set to 255; the fades mix it with the source by g / 65536. "whole": the
// frame shows the same word everywhere (the ends of the span, where g = 65536,
// or 65535 for "Fading" 10, leaving every colour byte one level below).
TEST(Lantern, DarkValuesAndFades) {
    struct Case {
        uint32_t format, source;
        double fading, t;
        uint32_t want;
        bool whole;
    };
    const Case cases[] = {
        {kFourccArgb, 0xFF000000u, 0.0, 0.001, 0xFF111111u, false},  // 17
        {kFourccArgb, 0xFFFFFFFFu, 0.0, 0.001, 0xFF444444u, false},  // 68
        {kFourccArgb, 0x80123456u, 0.0, 0.001, 0xFF121212u, false},  // 0x12 + 0x34 + 0x56 + 0x80
        {kFourccAyuv, 0xFF108080u, 0.0, 0.001, 0xFF238080u, false},  // Y 16 becomes 35
        {kFourccAyuv, 0x40EB1234u, 0.0, 0.001, 0xFF181234u, false},  // 0x34 + 0x12 + 0xEB + 0x40
        {kFourccArgb, 0x7F30A000u, 30.0, 0.0, 0xFF30A000u, true},
        {kFourccAyuv, 0x40508080u, 30.0, 0.0, 0xFF508080u, true},
        {kFourccArgb, 0x7F30A000u, 30.0, 1.0, 0xFF30A000u, true},
        {kFourccArgb, 0x7F30A000u, 10.0, 1.0, 0xFF2F9F00u, true},
        {kFourccAyuv, 0x40508080u, 10.0, 1.0, 0xFF4F8080u, true},
        {kFourccArgb, kLit, 30.0, 0.05, 0xFF2A623Au, false},          // fading in, g = 32768
        {kFourccArgb, kLit, 30.0, 0.975, 0xFF2D8145u, false},         // fading out, g = 49152
        {kFourccAyuv, 0xFF508080u, 30.0, 0.975, 0xFF458080u, false},  // dark Y 39
    };
    for (const Case& c : cases) {
        const Picture r =
            lantern(Picture(64, 48, 0, c.source), {{"Fading", c.fading}}, c.t, c.format);
        EXPECT_EQ(r.at(0, 0), c.want) << std::hex << c.source << " " << c.fading << " " << c.t;
        EXPECT_TRUE(!c.whole || countEqual(r, c.want) == 64 * 48) << std::hex << c.source;
    }
    // Without fades the last frame shows the spot back on the first point.
    const Picture src = testPicture(90, 64, kFourccArgb);
    EXPECT_EQ(lantern(src, {{"Fading", 0.0}}, 1.0).words,
              lantern(src, {{"Fading", 0.0}}, 0.0).words);
}

// 720 x 576 by default: the lit area is nearly a disc of radius 57.6 around
// a spot near P0.
TEST(Lantern, DefaultSpotAt720x576) {
    const double area = 3.141592653589793 * 57.6 * 57.6;
    const Picture big =
        lantern(Picture(720, 576, 0, kLit), {{"Fading", 0.0}, {"AntiAliasing", 0.0}}, 0.001);
    EXPECT_NEAR(countEqual(big, kLit), area, 0.02 * area);
}

// The beam written out for a spot on the first path point (t = 0, no fades):
// the tilt, the lit test, the rim coordinate and the band blends in signed
// 32-bit integers, in both formats, on a picture wider than one strip of
// columns.
TEST(Lantern, BeamAtTheFirstPathPoint) {
    const int W = 300, H = 97;
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(W, H, format, 1, W * 4 + 12);
        // Above 100 the band reaches beyond 0 < e < 1; from 300 and 1200 on
        // it passes e = -1 and e = 6.5, where the band test is otherwise cut short.
        for (auto [radius, aa] : {std::pair{10.0, 50.0},
                                  {17.0, 100.0},
                                  {3.0, 0.0},
                                  {10.0, 101.0},
                                  {17.0, 700.0},
                                  {12.0, 3000.0}}) {
            const Picture r = lantern(
                src, {{"Fading", 0.0}, {"Spot Radius", radius}, {"AntiAliasing", aa}}, 0.0, format);
            EXPECT_TRUE(paddingUntouched(r, kFill));
            const double x = 0.01 * W, y = 0.01 * H, sr = 97.0 / (20 - static_cast<int>(radius));
            const double Z = (W + H) * 0.1, c = Z / std::sqrt(x * x + y * y + Z * Z);
            const double inv = 1 / (x * x + y * y), K = c * (sr * sr) / (Z * Z);
            const double aaLow = 0.5 - aa * 0.005, aaHigh = 1.0 - aaLow;
            for (int row = 0; row < H; ++row) {
                for (int col = 0; col < W; ++col) {
                    const double dx = col - 0.5 * W, dy = 0.5 * H - row;
                    const double u =
                        ((c * (x * x) + y * y) * dx + (c - 1) * x * y * dy) * inv - c * x;
                    const double v =
                        ((c * (y * y) + x * x) * dy + (c - 1) * x * y * dx) * inv - c * y;
                    const double rho2 = u * u + v * v, w = (dx * x + dy * y + Z * Z) * K;
                    const double e = 2 * (w / rho2 - 1.0) + 0.5;
                    const uint32_t p = src.at(col, row);
                    const int dk = static_cast<int>((p & 0xFF) + ((p >> 8) & 0xFF) +
                                                    ((p >> 16) & 0xFF) + (p >> 24)) /
                                   15;
                    uint32_t want =
                        format == kFourccAyuv ? 0xFF000000u | (p & 0xFFFF) : 0xFF000000u;
                    for (int i = format == kFourccAyuv ? 2 : 0; i < 3; ++i) {
                        const int b = static_cast<int>((p >> (8 * i)) & 0xFF);
                        int s = rho2 < w ? b : dk;
                        if (aaLow < e && e < aaHigh && format == kFourccArgb) {
                            s = static_cast<int>(10000.0 * e) * b / 10000 +
                                static_cast<int>(10000.0 * (1.0 - e)) * dk / 10000;
                        } else if (aaLow < e && e < aaHigh) {
                            const int f = static_cast<int>(65536.0 * e);
                            s = ((f * b) >> 16) + (((65536 - f) * dk) >> 16);
                        }
                        // A shaded value outside 0-255 keeps its low byte.
                        want |= static_cast<uint32_t>(s & 0xFF) << (8 * i);
                    }
                    ASSERT_EQ(r.at(col, row), want)
                        << formatName(format) << " " << col << ", " << row << " aa " << aa;
                }
            }
        }
    }
}

// "AntiAliasing" 101 blends with factors beyond 0-1 on a white picture: a
// shaded value of 256 is stored as 0 (its low byte) and the dark side of the
// band goes below the dark grey.
TEST(Lantern, AntiAliasingBeyond100Extrapolates) {
    const Picture r =
        lantern(Picture(400, 300, 0, 0xFFFFFFFFu),
                {{"Fading", 0.0}, {"Spot Radius", 10.0}, {"AntiAliasing", 101.0}}, 0.14);
    EXPECT_EQ(r.at(14, 122), 0xFF434343u);
    EXPECT_EQ(r.at(61, 136), 0xFF000000u);
}

// Values outside their ranges, as the formulas take them: "AntiAliasing" 0
// leaves no band, 100 a band of blends, below 0 (aaLow above aaHigh) and
// NaN no band either. Progress before the span (and NaN) renders its start,
// after it its end; "Fading" NaN or negative gives no fades, infinite the
// source throughout. q = 20 - trunc("Spot Radius"), at least 1; beyond 32
// bits the value truncates to INT32_MIN and q wraps below 1: the largest
// spot.
TEST(Lantern, OutOfRangeValuesFollowTheFormulas) {
    const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
    const Picture flat(200, 150, 0, kLit);
    auto band = [&](double aa) {
        return lantern(flat, {{"Fading", 0.0}, {"AntiAliasing", aa}}, 0.3).words;
    };
    const Picture sharp = lantern(flat, {{"Fading", 0.0}, {"AntiAliasing", 0.0}}, 0.3);
    EXPECT_EQ(countEqual(sharp, kLit) + countEqual(sharp, kDark), 200 * 150);
    const Picture soft = lantern(flat, {{"Fading", 0.0}, {"AntiAliasing", 100.0}}, 0.3);
    EXPECT_GT(200 * 150 - countEqual(soft, kLit) - countEqual(soft, kDark), 100);
    EXPECT_EQ(band(-1.0), sharp.words);
    EXPECT_EQ(band(nan), sharp.words);
    const Picture src = testPicture(80, 60, kFourccArgb, 2);
    auto at = [&](const Params& p, double t) { return lantern(src, p, t).words; };
    for (double t : {nan, -inf, -1.0})
        EXPECT_EQ(at({{"Fading", 0.0}}, t), at({{"Fading", 0.0}}, 0.0)) << t;
    for (double t : {inf, 2.0})
        EXPECT_EQ(at({{"Fading", 0.0}}, t), at({{"Fading", 0.0}}, 1.0)) << t;
    EXPECT_EQ(at({}, 2.0), at({}, 1.0));
    for (double f : {nan, -30.0})
        EXPECT_EQ(at({{"Fading", f}}, 0.02), at({{"Fading", 0.0}}, 0.02)) << f;
    EXPECT_EQ(at({{"Fading", inf}}, 0.5), at({{"Fading", 30.0}}, 0.0));
    const double radii[][2] = {{10.9, 10.0}, {19.0, 20.0}, {nan, 20.0}, {inf, 20.0}, {-3e9, 20.0}};
    for (const auto& q : radii) {
        EXPECT_EQ(at({{"Spot Radius", q[0]}}, 0.4), at({{"Spot Radius", q[1]}}, 0.4)) << q[0];
    }
    EXPECT_NE(at({{"Spot Radius", 11.0}}, 0.4), at({{"Spot Radius", 10.0}}, 0.4));
    EXPECT_NE(at({{"Spot Radius", -5.0}}, 0.4), at({{"Spot Radius", 0.0}}, 0.4));
}

}  // namespace
