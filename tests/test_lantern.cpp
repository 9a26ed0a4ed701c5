// "Lantern" through the exported entry: the path of the spot, the start and
// end of the span, the dark values, the spot size and rim band, a literal
// per-pixel model of the beam in both formats, hostile values and the
// pixels outside the active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "pixel/numeric.h"
#include "support.h"

namespace {

using reelfx::Picture;
using reelfx::RenderOptions;
using reelfx::test::paddingUntouched;
using reelfx::test::testPicture;
using reelfx::test::untouchedOutside;

constexpr uint32_t kFill = 0x5A5A5A5A;
using Params = std::vector<std::pair<std::string, double>>;

reelfx::test::RenderResult lantern(const Picture& src, const Params& params, double t,
                                   uint32_t format = kFourccArgb) {
    return reelfx::test::renderEffect("Lantern", src, params, {.progress = t, .format = format});
}

// The source with alpha forced to 255: what lit pixels and the ends of the span show.
Picture opaque(const Picture& src) {
    Picture p = src;
    for (int y = 0; y < p.height; ++y) {
        for (int x = 0; x < p.width; ++x) p.at(x, y) |= 0xFF000000u;
    }
    return p;
}

int countEqual(const Picture& p, uint32_t word) {
    int n = 0;
    for (int y = 0; y < p.height; ++y) {
        for (int x = 0; x < p.width; ++x) n += p.at(x, y) == word;
    }
    return n;
}

// The rendering rule written out pixel by pixel, for parameters inside
// their declared ranges and 0 <= t <= 1.
Picture model(const Picture& src, uint32_t format, double t, double fading, double radius,
              double aa) {
    const int W = src.width, H = src.height;
    double px[12], py[12];
    px[0] = 0.01 * W;
    py[0] = 0.01 * H;
    uint32_t state = 2002;
    double r[22];
    for (double& ri : r) {
        state = state * 1664525u + 1013904223u;
        const uint32_t bits = (state & 0x7FFFFFu) | 0x3F800000u;
        float f;
        std::memcpy(&f, &bits, 4);
        ri = 2 * (f - 1.0 - 0.5);
    }
    for (int k = 1; k <= 11; ++k) {
        px[k] = 0.5 * W * r[2 * k - 2];
        py[k] = 0.5 * H * r[2 * k - 1];
    }
    const int T = truncToInt32(t * 100000.0);
    double x = px[0], y = py[0];
    if (T >= 0 && T < 100000) {
        int k = 0;
        while (T >= (k + 1) * 100000 / 11) ++k;
        const double s = (T - k * 9090.909090909092) * 0.00011;
        x = (1 - s) * px[k] + s * px[k + 1];
        y = (1 - s) * py[k] + s * py[k + 1];
    }
    const int q = std::max(20 - truncToInt32(radius), 1);
    const double spotRadius = static_cast<double>(std::min(W, H)) / q;
    const double Z = (W + H) * 0.1;
    const double c = Z / std::sqrt(x * x + y * y + Z * Z);
    const double inv = 1 / (x * x + y * y);
    const double K = c * (spotRadius * spotRadius) / (Z * Z);
    const double fadeShare = fading * 0.0033333333333333335;
    const double aaLow = 0.5 - aa * 0.005, aaHigh = 1.0 - aaLow;
    const double D = fadeShare * 100000.0, E = (1.0 - fadeShare) * 100000.0;
    int g = 0;
    if (T < D) {
        g = truncToInt32((D - T) * 65536.0 / D);
    } else if (T > E) {
        g = truncToInt32((T - E) * 65536.0 / D);
    }

    Picture out(W, H, src.stride, kFill);
    for (int row = 0; row < H; ++row) {
        for (int col = 0; col < W; ++col) {
            const double dx = col - 0.5 * W, dy = 0.5 * H - row;
            const double u = ((c * (x * x) + y * y) * dx + (c - 1) * x * y * dy) * inv - c * x;
            const double v = ((c * (y * y) + x * x) * dy + (c - 1) * x * y * dx) * inv - c * y;
            const double rho2 = u * u + v * v;
            const double w = (dx * x + dy * y + Z * Z) * K;
            const double e = 2 * (w / rho2 - 1.0) + 0.5;
            const uint32_t p = src.at(col, row);
            int b[4];
            for (int i = 0; i < 4; ++i) b[i] = static_cast<int>((p >> (8 * i)) & 0xFF);
            const int dk = truncToInt32((b[0] + b[1] + b[2] + b[3]) * 0.06666666666666667);
            const bool band = aaLow < e && e < aaHigh;
            const bool lit = rho2 < w;
            uint32_t word = 0xFF000000u;
            if (format == kFourccArgb) {
                for (int i = 0; i < 3; ++i) {
                    int s = lit ? b[i] : dk;
                    if (band) {
                        const int f = truncToInt32(10000.0 * e);
                        const int f2 = truncToInt32(10000.0 * (1.0 - e));
                        s = f * b[i] / 10000 + f2 * dk / 10000;
                    }
                    const int o = (65536 - g) * s / 65536 + g * b[i] / 65536;
                    word |= static_cast<uint32_t>(o) << (8 * i);
                }
            } else {
                int s = lit ? b[2] : dk;
                if (band) {
                    const int f = truncToInt32(65536.0 * e);
                    s = ((f * b[2]) >> 16) + (((65536 - f) * dk) >> 16);
                }
                const int o = ((g * b[2]) >> 16) + (((65536 - g) * s) >> 16);
                word |= (static_cast<uint32_t>(o) << 16) | (p & 0xFFFF);
            }
            out.at(col, row) = word;
        }
    }
    return out;
}

// The path's points as multiples of the width and height, y upwards.
constexpr double kPath[12][2] = {
    {0.01, 0.01},           {-0.382659, -0.337560}, {-0.486568, 0.111302}, {0.057016, 0.449258},
    {-0.209350, -0.028268}, {-0.296697, 0.464996},  {0.102422, 0.043077},  {-0.006177, -0.413759},
    {0.281877, -0.156475},  {-0.397473, -0.238155}, {0.101599, 0.104155},  {-0.029057, -0.080823}};

// A flat picture shows each path point lit and its mirror image through the
// centre dark. Point k is reached at the first time step of segment k (P11
// at the last step of the span).
TEST(Lantern, SpotFollowsThePath) {
    const int W = 320, H = 240;
    const Picture src(W, H, 0, 0xFF30A050u);
    const uint32_t dark = 0xFF242424u;  // (0x30 + 0xA0 + 0x50 + 0xFF) / 15 = 36
    for (int k = 0; k < 12; ++k) {
        const int step = k == 11 ? 99999 : k * 100000 / 11;
        const auto r = lantern(src, {{"Fading", 0.0}, {"Spot Radius", 1.0}, {"AntiAliasing", 0.0}},
                               (step + 0.5) / 100000.0);
        const double x = kPath[k][0] * W, y = kPath[k][1] * H;
        const int col = static_cast<int>(std::lround(0.5 * W + x));
        const int row = static_cast<int>(std::lround(0.5 * H - y));
        EXPECT_EQ(r.target.at(col, row), 0xFF30A050u) << "point " << k;
        if (k > 0) {
            const int mcol = static_cast<int>(std::lround(0.5 * W - x));
            const int mrow = static_cast<int>(std::lround(0.5 * H + y));
            EXPECT_EQ(r.target.at(mcol, mrow), dark) << "mirror of point " << k;
        }
    }
}

TEST(Lantern, StartOfTheSpanIsTheSourceWithOpaqueAlpha) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(101, 67, format, 0, 101 * 4 + 8);
        for (double fading : {30.0, 1.0, 100.0, 250.0}) {
            const auto r = lantern(src, {{"Fading", fading}}, 0.0, format);
            EXPECT_TRUE(r.target.samePixels(opaque(src))) << fading;
            EXPECT_TRUE(paddingUntouched(r.target, kFill));
        }
    }
}

TEST(Lantern, EndOfTheSpan) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(90, 64, format);
        // The fade-out reaches the source exactly ...
        EXPECT_TRUE(lantern(src, {{"Fading", 30.0}}, 1.0, format).target.samePixels(opaque(src)));
        // ... or, where its two ends round apart, one level below it.
        const Picture last = lantern(src, {{"Fading", 10.0}}, 1.0, format).target;
        for (int y = 0; y < src.height; ++y) {
            for (int x = 0; x < src.width; ++x) {
                const uint32_t p = src.at(x, y);
                uint32_t want = 0xFF000000u;
                for (int i = format == kFourccAyuv ? 2 : 0; i < 3; ++i) {
                    const uint32_t b = (p >> (8 * i)) & 0xFF;
                    want |= (b > 0 ? b - 1 : 0) << (8 * i);
                }
                if (format == kFourccAyuv) want |= p & 0xFFFF;
                ASSERT_EQ(last.at(x, y), want) << x << ", " << y;
            }
        }
        // Without fades the spot is back on the first point.
        EXPECT_EQ(lantern(src, {{"Fading", 0.0}}, 1.0, format).target.words,
                  lantern(src, {{"Fading", 0.0}}, 0.0, format).target.words);
    }
}

// Far from the spot every pixel takes the dark value.
TEST(Lantern, UnlitPixelsInBothFormats) {
    struct Case {
        uint32_t format, source, dark;
    };
    const Case cases[] = {
        {kFourccArgb, 0xFF000000u, 0xFF111111u},  // 17
        {kFourccArgb, 0xFFFFFFFFu, 0xFF444444u},  // 68
        {kFourccArgb, 0xFF123456u, 0xFF1B1B1Bu},  // 17 + (0x12 + 0x34 + 0x56) / 15 = 27
        {kFourccArgb, 0x80000000u, 0xFF080808u},  // alpha counts: 128 / 15
        {kFourccAyuv, 0xFF108080u, 0xFF238080u},  // Y 16 becomes 35
        {kFourccAyuv, 0x40EB1234u, 0xFF181234u},  // (0x34 + 0x12 + 0xEB + 0x40) / 15 = 24
    };
    for (const Case& c : cases) {
        const Picture src(64, 48, 0, c.source);
        const auto r = lantern(src, {{"Fading", 0.0}}, 0.001, c.format);
        EXPECT_EQ(r.target.at(0, 0), c.dark) << std::hex << c.source;
        EXPECT_EQ(r.target.at(63, 47), c.dark) << std::hex << c.source;
        // The spot (radius 4.8) covers a few dozen pixels; the rest is dark.
        EXPECT_GT(countEqual(r.target, c.dark), 64 * 48 - 120) << std::hex << c.source;
    }
}

// The default spot on a 720 x 576 frame near the start: spot radius 57.6
// around a point just off the centre, nearly round.
TEST(Lantern, DefaultSpotSize) {
    const Picture src(720, 576, 0, 0xFF30A050u);
    const auto r = lantern(src, {{"Fading", 0.0}, {"AntiAliasing", 0.0}}, 0.001);
    // At T = 100 the spot has moved 0.011 of the way from P0 towards P1.
    const double x = 0.989 * 0.01 * 720 + 0.011 * kPath[1][0] * 720;
    const double y = 0.989 * 0.01 * 576 + 0.011 * kPath[1][1] * 576;
    for (int a = 0; a < 16; ++a) {
        const double ca = std::cos(a * 0.39269908169872414), sa = std::sin(a * 0.39269908169872414);
        for (double d : {0.0, 30.0, 55.0}) {
            const int col = static_cast<int>(std::lround(360 + x + d * ca));
            const int row = static_cast<int>(std::lround(288 - y - d * sa));
            EXPECT_EQ(r.target.at(col, row), 0xFF30A050u) << a << " " << d;
        }
        const int col = static_cast<int>(std::lround(360 + x + 60 * ca));
        const int row = static_cast<int>(std::lround(288 - y - 60 * sa));
        EXPECT_EQ(r.target.at(col, row), 0xFF242424u) << a;
    }
    const double area = 3.141592653589793 * 57.6 * 57.6;
    EXPECT_NEAR(countEqual(r.target, 0xFF30A050u), area, 0.02 * area);
}

// q = 20 - trunc("Spot Radius"), at least 1; the spot radius is min(W, H) / q.
TEST(Lantern, SpotRadiusMapping) {
    const Picture src(360, 288, 0, 0xFF30A050u);
    auto lit = [&](double radius) {
        return lantern(src, {{"Fading", 0.0}, {"AntiAliasing", 0.0}, {"Spot Radius", radius}}, 0.0)
            .target;
    };
    const Picture q10 = lit(10.0);
    EXPECT_EQ(lit(10.9).words, q10.words);
    EXPECT_NE(lit(11.0).words, q10.words);
    EXPECT_EQ(lit(19.0).words, lit(20.0).words);
    EXPECT_EQ(lit(20.0).words, lit(1e9).words);
    for (auto [radius, q] : {std::pair{1.0, 19}, {10.0, 10}, {0.5, 20}, {-5.0, 25}, {15.0, 5}}) {
        const double area = 3.141592653589793 * (288.0 / q) * (288.0 / q);
        EXPECT_NEAR(countEqual(lit(radius), 0xFF30A050u), area, 0.03 * area) << radius;
    }
}

TEST(Lantern, AntiAliasingBand) {
    const Picture src(200, 150, 0, 0xFF30A050u);
    const Params hard = {{"Fading", 0.0}, {"AntiAliasing", 0.0}};
    const Picture sharp = lantern(src, hard, 0.3).target;
    // No band: every pixel is the source or the dark value.
    EXPECT_EQ(countEqual(sharp, 0xFF30A050u) + countEqual(sharp, 0xFF242424u), 200 * 150);
    // A full band: blended pixels lie between the two, channel by channel.
    const Picture soft = lantern(src, {{"Fading", 0.0}, {"AntiAliasing", 100.0}}, 0.3).target;
    int blended = 0;
    for (uint32_t p : soft.words) {
        if (p == 0xFF30A050u || p == 0xFF242424u) continue;
        ++blended;
        EXPECT_EQ(p >> 24, 0xFFu);
        for (int i = 0; i < 3; ++i) {
            const uint32_t v = (p >> (8 * i)) & 0xFF, b = (0xFF30A050u >> (8 * i)) & 0xFF;
            EXPECT_GE(v + 1, std::min(b, 0x24u));
            EXPECT_LE(v, std::max(b, 0x24u));
        }
    }
    EXPECT_GT(blended, 100);
    // Out of range: above 100 acts as 100; below 0 and NaN leave no band.
    EXPECT_EQ(lantern(src, {{"Fading", 0.0}, {"AntiAliasing", 1e9}}, 0.3).target.words, soft.words);
    for (double aa : {-1.0, -1e300, std::nan("")}) {
        EXPECT_EQ(lantern(src, {{"Fading", 0.0}, {"AntiAliasing", aa}}, 0.3).target.words,
                  sharp.words)
            << aa;
    }
}

// Spots across the path, fades in and out, soft and hard rims, in both
// formats on pictures wider than one strip of columns, with padded rows.
TEST(Lantern, MatchesThePixelRule) {
    struct Case {
        double t, fading, radius, aa;
    };
    const Case cases[] = {
        {0.0, 0.0, 10.0, 50.0},     {0.05, 30.0, 10.0, 50.0}, {0.3, 30.0, 3.0, 100.0},
        {0.5, 0.0, 17.5, 0.0},      {0.77, 60.0, 12.0, 25.0}, {0.97, 30.0, 8.0, 75.0},
        {0.999, 100.0, 1.0, 100.0}, {1.0, 0.0, 10.0, 50.0},   {0.6363, 10.0, 19.0, 50.0}};
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        for (auto [w, h] : {std::pair{150, 90}, {67, 45}, {129, 200}}) {
            const Picture src = testPicture(w, h, format, 1, w * 4 + 12);
            for (const Case& c : cases) {
                const auto r = lantern(
                    src, {{"Fading", c.fading}, {"Spot Radius", c.radius}, {"AntiAliasing", c.aa}},
                    c.t, format);
                const Picture want = model(src, format, c.t, c.fading, c.radius, c.aa);
                ASSERT_EQ(r.target.words, want.words)
                    << reelfx::test::formatName(format) << " " << w << "x" << h << " t " << c.t;
            }
        }
    }
}

TEST(Lantern, HostileValues) {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::nan("");
    const Picture src = testPicture(80, 60, kFourccArgb, 2, 80 * 4 + 4);
    auto at = [&](const Params& p, double t) { return lantern(src, p, t).target.words; };
    // Progress before the start renders the first frame, after the end the last.
    for (double t : {nan, -inf, -1.0, -1e-300}) EXPECT_EQ(at({}, t), at({}, 0.0)) << t;
    for (double t : {inf, 2.0, 1e300}) {
        EXPECT_EQ(at({}, t), at({}, 1.0)) << t;
        EXPECT_EQ(at({{"Fading", 0.0}}, t), at({{"Fading", 0.0}}, 1.0)) << t;
    }
    // "Fading" NaN or negative: no fades; infinite: the source throughout.
    for (double f : {nan, -30.0, -inf}) {
        EXPECT_EQ(at({{"Fading", f}}, 0.02), at({{"Fading", 0.0}}, 0.02)) << f;
    }
    for (double f : {inf, 1e306, 1e300}) {
        EXPECT_TRUE(lantern(src, {{"Fading", f}}, 0.5).target.samePixels(opaque(src))) << f;
    }
    // "Spot Radius" beyond what 32 bits hold wraps to the largest spot.
    for (double s : {nan, inf, -inf, -3e9}) {
        EXPECT_EQ(at({{"Spot Radius", s}}, 0.4), at({{"Spot Radius", 20.0}}, 0.4)) << s;
    }
    // Every combination on tiny pictures: the padding stays the host's and
    // every pixel comes out opaque.
    const double values[] = {nan, inf, -inf, 1e300, -1e300, 2147483648.0, -2147483649.0, 0.0, 50.0};
    for (auto [w, h] : {std::pair{1, 1}, {2, 3}, {7, 1}}) {
        const Picture tiny = testPicture(w, h, kFourccArgb, 0, w * 4 + 8);
        for (double a : values) {
            for (double b : values) {
                for (double t : {nan, 0.5, inf}) {
                    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
                        const auto r =
                            lantern(tiny, {{"Fading", a}, {"Spot Radius", b}, {"AntiAliasing", a}},
                                    t, format);
                        ASSERT_TRUE(paddingUntouched(r.target, kFill)) << a << " " << b;
                        for (int y = 0; y < h; ++y) {
                            for (int x = 0; x < w; ++x) ASSERT_EQ(r.target.at(x, y) >> 24, 0xFFu);
                        }
                    }
                }
            }
        }
    }
}

// A 4:3 picture in a 16:9 frame: the renderer lights the 96 x 72 active
// rectangle as a picture of its own, the bars stay black, the padding the host's.
TEST(Lantern, WorksInsideTheActiveRectangle) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture frame = testPicture(128, 72, format, 0, 128 * 4 + 8);
        Picture active(96, 72);
        for (int y = 0; y < 72; ++y) std::copy_n(frame.row(y) + 16, 96, active.row(y));
        const RenderOptions o{.progress = 0.42,
                              .format = format,
                              .displayAspect = 16.0 / 9.0,
                              .aspectFitting = true,
                              .pictureAspect = 4.0 / 3.0};
        const auto r = reelfx::test::renderEffect("Lantern", frame, {}, o);
        const Picture want = model(active, format, 0.42, 30.0, 10.0, 50.0);
        const uint32_t bar = format == kFourccAyuv ? 0xFF0F8080u : 0xFF000000u;
        for (int y = 0; y < 72; ++y) {
            for (int x = 0; x < 128; ++x) {
                const uint32_t w = (x < 16 || x >= 112) ? bar : want.at(x - 16, y);
                ASSERT_EQ(r.target.at(x, y), w) << x << ", " << y;
            }
        }
        EXPECT_TRUE(paddingUntouched(r.target, kFill));
    }
}

TEST(Lantern, MissingSourceFillsWhite) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        Picture target(9, 4, 9 * 4 + 12, kFill);
        reelfx::Instance inst(reelfx::test::module(), reelfx::test::effectIndex("Lantern"), 9, 4);
        ASSERT_EQ(inst.render(nullptr, target, {.progress = 0.5, .format = format}), 0);
        EXPECT_TRUE(untouchedOutside(target, 0, 0, 9, 4, kFill));
        const uint32_t white = format == kFourccAyuv ? 0xFFEA8080u : 0xFFFFFFFFu;
        EXPECT_EQ(countEqual(target, white), 36);
    }
}

}  // namespace
