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

}  // namespace
