// "Color Circle Shift" through the exported entry: the turns with known
// results, grey left alone, the clamps of both parameters, the AYUV route
// through ARGB, hostile values, and the active rectangle.
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
constexpr char kEffect[] = "Color Circle Shift";

// A one-row picture of the given ARGB words, in the requested format.
Picture row(const std::vector<uint32_t>& argb, uint32_t format) {
    Picture p(static_cast<int32_t>(argb.size()), 1);
    for (size_t i = 0; i < argb.size(); ++i) {
        p.at(static_cast<int32_t>(i), 0) = format == kFourccAyuv ? argbToAyuv(argb[i]) : argb[i];
    }
    return p;
}

uint32_t shiftOne(uint32_t argb, const Params& params, double progress) {
    return renderEffect(kEffect, row({argb}, kFourccArgb), params, {.progress = progress})
        .target.at(0, 0);
}

TEST(ColorCircleShift, OneThirdTurnCyclesTheChannels) {
    // (0 * Period + 1/3) * 2 pi and (1/3 * 1 + 0) * 2 pi: the same angle.
    const Params byOffset = {{"Offset", 0.3333333333333333}, {"Period", 0.0}};
    const Params byProgress = {{"Offset", 0.0}, {"Period", 1.0}};
    for (const auto& [params, t] : {std::pair{byOffset, 0.0}, std::pair{byProgress, 1.0 / 3.0}}) {
        EXPECT_EQ(shiftOne(0xFF336699u, params, t), 0xFF669933u);
        EXPECT_EQ(shiftOne(0xFFFF0000u, params, t), 0xFF0000FFu);  // red becomes blue
        EXPECT_EQ(shiftOne(0xFF00FF00u, params, t), 0xFFFF0100u);  // green becomes red
        EXPECT_EQ(shiftOne(0x40336699u, params, t), 0x40669933u);  // alpha is carried
    }
}

TEST(ColorCircleShift, HalfTurnOfPureRed) {
    EXPECT_EQ(shiftOne(0xFFFF0000u, {{"Offset", 0.5}, {"Period", 0.0}}, 0.0), 0xFF00A9AAu);
    // The defaults are half a turn at both ends of the effect; at the end
    // the angle is 3 pi, whose rounding moves green and blue by one.
    EXPECT_EQ(shiftOne(0xFFFF0000u, {}, 0.0), 0xFF00A9AAu);
    EXPECT_EQ(shiftOne(0xFFFF0000u, {}, 1.0), 0xFF00AAA9u);
}

TEST(ColorCircleShift, GreyStaysAndWholeTurnsComeBackWithinOne) {
    const std::vector<uint32_t> greys = {0xFF000000u, 0xFFFFFFFFu, 0xFF7F7F7Fu, 0x00404040u};
    for (double offset : {0.0, 0.1, 0.25, 0.5, 0.77, 1.0}) {
        const auto r = renderEffect(kEffect, row(greys, kFourccArgb),
                                    {{"Offset", offset}, {"Period", 3.5}}, {.progress = 0.3});
        for (size_t i = 0; i < greys.size(); ++i) EXPECT_EQ(r.target.words[i], greys[i]) << offset;
    }
    // The defaults at progress 0.5: one whole turn, back up to one step per channel.
    const Picture src = testPicture(64, 40, kFourccArgb);
    const auto r = renderEffect(kEffect, src, {}, {.progress = 0.5});
    for (size_t i = 0; i < src.words.size(); ++i) {
        const uint32_t a = src.words[i], b = r.target.words[i];
        ASSERT_EQ(a >> 24, b >> 24);
        for (int k = 0; k < 3; ++k) {
            const int d =
                static_cast<int>((a >> (8 * k)) & 0xFF) - static_cast<int>((b >> (8 * k)) & 0xFF);
            ASSERT_LE(std::abs(d), 1) << std::hex << a << " -> " << b;
        }
    }
}

TEST(ColorCircleShift, ParametersAreClamped) {
    const Picture src = testPicture(40, 24, kFourccArgb);
    auto render = [&](double offset, double period) {
        return renderEffect(kEffect, src, {{"Offset", offset}, {"Period", period}},
                            {.progress = 0.123})
            .target.words;
    };
    const double inf = std::numeric_limits<double>::infinity();
    // Period: honoured up to 9000, larger acts as 9000, negative as 0.
    EXPECT_NE(render(0.2, 2000.0), render(0.2, 999.0));
    EXPECT_EQ(render(0.2, 1e12), render(0.2, 9000.0));
    EXPECT_EQ(render(0.2, inf), render(0.2, 9000.0));
    EXPECT_EQ(render(0.2, -5.0), render(0.2, 0.0));
    // Offset: 0 to 1; NaN counts as the lower bound of either.
    EXPECT_EQ(render(1.7, 1.0), render(1.0, 1.0));
    EXPECT_EQ(render(-0.4, 1.0), render(0.0, 1.0));
    EXPECT_EQ(render(std::nan(""), 1.0), render(0.0, 1.0));
    EXPECT_EQ(render(0.2, std::nan("")), render(0.2, 0.0));
}

// In AYUV every pixel goes to ARGB, is turned there and comes back.
TEST(ColorCircleShift, AyuvGoesThroughArgb) {
    const Picture yuv = testPicture(50, 30, kFourccAyuv, 0, 50 * 4 + 12);
    const Picture rgb = reelfx::toArgb(yuv);
    const Params params = {{"Offset", 0.15}, {"Period", 2.0}};
    const auto ry = renderEffect(kEffect, yuv, params, {.progress = 0.6, .format = kFourccAyuv});
    const auto ra = renderEffect(kEffect, rgb, params, {.progress = 0.6});
    for (int y = 0; y < 30; ++y) {
        for (int x = 0; x < 50; ++x) {
            ASSERT_EQ(ry.target.at(x, y), argbToAyuv(ra.target.at(x, y))) << x << ", " << y;
        }
    }
    EXPECT_TRUE(reelfx::test::paddingUntouched(ry.target, kFill));
}

TEST(ColorCircleShift, HostileProgressStaysInside) {
    const double inf = std::numeric_limits<double>::infinity();
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(9, 5, format, 0, 9 * 4 + 8);
        for (double t : {std::nan(""), inf, -inf, 1e300, -1e300}) {
            for (double period : {0.0, 1.0, 9000.0}) {
                const auto r = renderEffect(kEffect, src, {{"Period", period}},
                                            {.progress = t, .format = format});
                ASSERT_TRUE(reelfx::test::paddingUntouched(r.target, kFill)) << t;
                if (std::isfinite(t * period)) continue;
                // A NaN angle: every colour channel comes out as 0, alpha stays.
                for (int y = 0; y < 5; ++y) {
                    for (int x = 0; x < 9; ++x) {
                        const uint32_t want = argbToFrame(src.at(x, y) & 0xFF000000u, format);
                        ASSERT_EQ(r.target.at(x, y), want) << t << " " << period;
                    }
                }
            }
        }
    }
}

// Each pixel depends on its own source pixel alone, alpha included: a
// picture of many colours and alphas gives, pixel for pixel, what the same
// pixel gives rendered on its own.
TEST(ColorCircleShift, EachPixelOnItsOwn) {
    const Params params = {{"Offset", 0.21}, {"Period", 1.3}};
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

TEST(ColorCircleShift, MissingSourceFillsWhite) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        Picture target(7, 3, 7 * 4 + 8, kFill);
        reelfx::Instance inst(reelfx::test::module(), reelfx::test::effectIndex(kEffect), 7, 3);
        ASSERT_EQ(inst.render(nullptr, target, {.format = format}), 0);
        EXPECT_TRUE(reelfx::test::untouchedOutside(target, 0, 0, 7, 3, kFill));
        for (int y = 0; y < 3; ++y) {
            for (int x = 0; x < 7; ++x) ASSERT_EQ(target.at(x, y), opaqueWhite(format));
        }
    }
}

// A 4:3 picture pillarboxed in a 16:9 frame and a 16:9 picture letterboxed
// in a 4:3 frame: the active rectangle holds exactly what the effect makes of
// that rectangle alone, the bars stay black, the padding keeps its words.
TEST(ColorCircleShift, WorksInsideTheActiveRectangle) {
    struct Fit {
        int32_t w, h;
        double display, picture;
        int32_t x0, y0, aw, ah;
    };
    const Fit fits[] = {{128, 72, 16.0 / 9.0, 4.0 / 3.0, 16, 0, 96, 72},
                        {120, 90, 4.0 / 3.0, 16.0 / 9.0, 0, 11, 120, 67}};
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const uint32_t bar = format == kFourccAyuv ? 0xFF0F8080u : 0xFF000000u;
        for (const Fit& f : fits) {
            const Picture frame = testPicture(f.w, f.h, format, 2, f.w * 4 + 8);
            Picture active(f.aw, f.ah);
            for (int y = 0; y < f.ah; ++y) {
                std::copy_n(frame.row(f.y0 + y) + f.x0, f.aw, active.row(y));
            }
            const Params params = {{"Offset", 0.3}, {"Period", 1.5}};
            const auto whole = renderEffect(kEffect, frame, params,
                                            {.progress = 0.4,
                                             .format = format,
                                             .displayAspect = f.display,
                                             .aspectFitting = true,
                                             .pictureAspect = f.picture});
            const auto alone =
                renderEffect(kEffect, active, params, {.progress = 0.4, .format = format});
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
