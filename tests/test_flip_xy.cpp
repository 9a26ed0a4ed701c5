// "Flip XY" through the exported entry.
#include <gtest/gtest.h>

#include <cmath>

#include "pixel/color.h"
#include "support.h"

namespace {

using namespace reelfx::test;
using reelfx::Picture;

constexpr uint32_t kFill = 0x5A5A5A5A;

// Source pixel (x, y) lands at the table's position for (fx, fy); the
// padding keeps kFill.
Picture modelFlip(const Picture& src, bool fx, bool fy) {
    Picture dst(src.width, src.height, src.stride, kFill);
    for (int i = 0; i < src.width * src.height; ++i) {
        const int x = i % src.width, y = i / src.width;
        dst.at(fy ? src.width - 1 - x : x, fx ? src.height - 1 - y : y) = src.at(x, y);
    }
    return dst;
}

Picture flip(const Picture& src, double fx, double fy, uint32_t format = kFourccArgb) {
    return renderEffect("Flip XY", src, {{"Flip X Axis", fx}, {"Flip Y Axis", fy}},
                        {.format = format})
        .target;
}

TEST(FlipXY, PositionTableDefaultsAndFlippingTwice) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(37, 21, format, 1, 37 * 4 + 12);
        for (int f = 0; f < 4; ++f) {
            const Picture once = flip(src, f & 1, f >> 1, format);
            EXPECT_EQ(once.words, modelFlip(src, f & 1, f >> 1).words) << f;
            EXPECT_TRUE(flip(once, f & 1, f >> 1, format).samePixels(src)) << f;
        }
        // The initial values ("No", "Yes") give the left-right mirror image.
        EXPECT_EQ(renderEffect("Flip XY", src, {}, {.format = format}).target.words,
                  modelFlip(src, false, true).words);
    }
}

// Truncated to 64 bits keeping the low 32, then below 1 is off, 1 and up on.
TEST(FlipXY, SwitchesAndSingleRowsOrColumns) {
    const Picture src = testPicture(12, 7, kFourccArgb);
    const std::pair<double, bool> cases[] = {
        {0.9, false},         {1.5, true},           {-1.0, false}, {7.0, true},
        {4294967297.0, true}, {2147483648.0, false}, {NAN, false},  {INFINITY, false}};
    for (const auto& [value, on] : cases) {
        EXPECT_EQ(flip(src, value, value).words, modelFlip(src, on, on).words) << value;
    }
    const Picture column = testPicture(1, 9, kFourccArgb), line = testPicture(9, 1, kFourccArgb);
    EXPECT_TRUE(flip(column, 0, 1).samePixels(column));
    EXPECT_TRUE(flip(line, 1, 0).samePixels(line));
}

// A 16:9 picture letterboxed in a 4:3 frame (active rows 11-77), with and
// without a source: the bars and the padding are kept, a missing source
// paints the active rectangle white.
TEST(FlipXY, ActiveRectangleAndMissingSource) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture frame = testPicture(120, 90, format, 2, 120 * 4 + 8);
        Picture out(120, 90, frame.stride, kFill), white = out;
        reelfx::Instance inst(module(), effectIndex("Flip XY"), 120, 90);
        const reelfx::RenderOptions o{
            .format = format, .displayAspect = 4.0 / 3.0, .aspectFitting = true, .aspectPreset = 3};
        inst.setParameter("Flip X Axis", 1.0);  // a half turn within the rectangle
        ASSERT_EQ(inst.render(&frame, out, o) + inst.render(nullptr, white, o), 0);
        const uint32_t bar = format == kFourccAyuv ? 0xFF0F8080u : 0xFF000000u;
        for (int i = 0; i < 120 * 90; ++i) {
            const bool in = i >= 11 * 120 && i < 78 * 120;
            const uint32_t o = out.at(i % 120, i / 120), w = white.at(i % 120, i / 120);
            const bool turned = in && o == frame.at(119 - i % 120, 88 - i / 120);
            ASSERT_TRUE(in ? turned && w == opaqueWhite(format) : o == bar && w == bar) << i;
        }
        EXPECT_TRUE(paddingUntouched(out, kFill) && paddingUntouched(white, kFill));
    }
}

}  // namespace
