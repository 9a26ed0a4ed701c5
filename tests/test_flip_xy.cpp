// "Flip XY" through the exported entry: the four mirror images against the
// position table, flipping twice, the truncation and clamping of the two
// switches, degenerate pictures, a missing source and the active rectangle.
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
constexpr char kEffect[] = "Flip XY";

// Source pixel (x, y) lands at the position of the table for (fx, fy).
Picture modelFlip(const Picture& src, bool fx, bool fy) {
    Picture dst(src.width, src.height, src.stride, kFill);
    for (int y = 0; y < src.height; ++y) {
        for (int x = 0; x < src.width; ++x) {
            dst.at(fy ? src.width - 1 - x : x, fx ? src.height - 1 - y : y) = src.at(x, y);
        }
    }
    return dst;
}

Params switches(double fx, double fy) {
    return {{"Flip X Axis", fx}, {"Flip Y Axis", fy}};
}

TEST(FlipXY, FollowsThePositionTableInBothFormats) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(37, 21, format, 1, 37 * 4 + 12);
        for (int fx = 0; fx < 2; ++fx) {
            for (int fy = 0; fy < 2; ++fy) {
                const auto r = renderEffect(kEffect, src, switches(fx, fy), {.format = format});
                EXPECT_EQ(r.target.words, modelFlip(src, fx, fy).words) << fx << fy;
            }
        }
        // The initial values ("No", "Yes") give the left-right mirror image.
        const auto r = renderEffect(kEffect, src, {}, {.format = format});
        EXPECT_EQ(r.target.words, modelFlip(src, false, true).words);
    }
}

TEST(FlipXY, FlippingTwiceRestoresThePicture) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(64, 33, format, 0, 64 * 4 + 4);
        for (int fx = 0; fx < 2; ++fx) {
            for (int fy = 0; fy < 2; ++fy) {
                const auto once = renderEffect(kEffect, src, switches(fx, fy), {.format = format});
                const auto twice =
                    renderEffect(kEffect, once.target, switches(fx, fy), {.format = format});
                EXPECT_TRUE(twice.target.samePixels(src)) << fx << fy;
                EXPECT_TRUE(reelfx::test::paddingUntouched(twice.target, kFill));
            }
        }
    }
}

// The dispatch truncates to 64 bits and keeps the low 32; the renderer then
// takes anything below 1 as off and anything from 1 up as on.
TEST(FlipXY, SwitchesAreTruncatedThenClamped) {
    const Picture src = testPicture(12, 7, kFourccArgb);
    const Picture mirrored = modelFlip(src, true, true);
    const double inf = std::numeric_limits<double>::infinity();
    struct Case {
        double value;
        bool on;
    };
    const Case cases[] = {{0.9, false},         {1.5, true},           {-1.0, false},
                          {-0.5, false},        {2.0, true},           {7.0, true},
                          {4294967297.0, true}, {2147483648.0, false}, {std::nan(""), false},
                          {inf, false},         {1e300, false}};
    for (const Case& c : cases) {
        const auto r = renderEffect(kEffect, src, switches(c.value, c.value));
        EXPECT_EQ(r.target.words, (c.on ? mirrored : modelFlip(src, false, false)).words)
            << c.value;
    }
}

TEST(FlipXY, SingleRowsAndColumns) {
    const Picture column = testPicture(1, 9, kFourccArgb);
    const Picture line = testPicture(9, 1, kFourccArgb);
    // A single column is unchanged by the left-right mirror, a single row upside down.
    EXPECT_TRUE(renderEffect(kEffect, column, switches(0, 1)).target.samePixels(column));
    EXPECT_TRUE(renderEffect(kEffect, line, switches(1, 0)).target.samePixels(line));
    EXPECT_EQ(renderEffect(kEffect, column, switches(1, 1)).target.words,
              modelFlip(column, true, false).words);
    EXPECT_EQ(renderEffect(kEffect, line, switches(1, 1)).target.words,
              modelFlip(line, false, true).words);
}

TEST(FlipXY, MissingSourceFillsWhite) {
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
// in a 4:3 frame: the mirror is taken within the active rectangle, the bars
// stay black, the padding keeps its words.
TEST(FlipXY, WorksInsideTheActiveRectangle) {
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
            const auto r = renderEffect(kEffect, frame, switches(1, 1),
                                        {.format = format,
                                         .displayAspect = f.display,
                                         .aspectFitting = true,
                                         .pictureAspect = f.picture});
            for (int y = 0; y < f.h; ++y) {
                for (int x = 0; x < f.w; ++x) {
                    const bool in = x >= f.x0 && x < f.x0 + f.aw && y >= f.y0 && y < f.y0 + f.ah;
                    const uint32_t want =
                        in ? frame.at(2 * f.x0 + f.aw - 1 - x, 2 * f.y0 + f.ah - 1 - y) : bar;
                    ASSERT_EQ(r.target.at(x, y), want) << x << ", " << y;
                }
            }
            EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
        }
    }
}

}  // namespace
