// "Binoculars" through the exported entry.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "pixel/color.h"
#include "support.h"

namespace {

using namespace reelfx::test;
using reelfx::Picture;

constexpr uint32_t kFill = 0x5A5A5A5A;

// The mask written out for every pixel, with both square roots each time
// (the renderer skips them well inside and well outside the openings).
double maskAt(int32_t w, int32_t h, double rf, double df, int32_t x, int32_t y) {
    const double r = std::sqrt((((w * w + h * h) * rf) * rf) * 0.25), d = r * df;
    const int32_t cx = w >> 1, dy = y - (h >> 1);
    return std::max(r - std::sqrt((x - (cx - d)) * (x - (cx - d)) + dy * dy),
                    r - std::sqrt((x - (cx + d)) * (x - (cx + d)) + dy * dy));
}

Picture model(const Picture& src, double rf, double df, uint32_t bg) {
    Picture dst(src.width, src.height, src.stride, kFill);
    for (int i = 0; i < src.width * src.height; ++i) {
        const int x = i % src.width, y = i / src.width;
        dst.at(x, y) = mixPixelEnds(bg, src.at(x, y), maskAt(src.width, src.height, rf, df, x, y));
    }
    return dst;
}

Picture render(const Picture& src, double radius, double distance, double colour = 0.0,
               uint32_t format = kFourccArgb) {
    return renderEffect("Binoculars", src,
                        {{"Radius", radius}, {"Distance", distance}, {"Background Color", colour}},
                        {.format = format})
        .target;
}

// Radius 1, distance 0 on 720 x 576: the circle passes through (0, 0), which
// is pure background; (1, 0) and (0, 1) are mixed, (719, 575) pure source.
TEST(Binoculars, FullSizeCircle) {
    const Picture src = testPicture(720, 576, kFourccArgb);
    const Picture out = render(src, 1.0, 0.0);
    EXPECT_EQ(maskAt(720, 576, 1.0, 0.0, 0, 0), 0.0);
    EXPECT_NEAR(maskAt(720, 576, 1.0, 0.0, 1, 0), 0.78, 0.01);
    EXPECT_NEAR(maskAt(720, 576, 1.0, 0.0, 0, 1), 0.62, 0.01);
    EXPECT_NEAR(maskAt(720, 576, 1.0, 0.0, 719, 575), 1.41, 0.01);
    EXPECT_EQ(out.at(0, 0), 0xFF000000u);
    EXPECT_NE(out.at(1, 0), src.at(1, 0));
    EXPECT_EQ(out.at(719, 575), src.at(719, 575));
    EXPECT_EQ(out.words, model(src, 1.0, 0.0, 0xFF000000u).words);
}

// Values out of range act as the nearest bound, NaN as the lower one.
TEST(Binoculars, MaskAndClamps) {
    const double cases[][4] = {{0.5, 0.3, 0.5, 0.3},       {0.2, 1.0, 0.2, 1.0},
                               {0.9, 0.6, 0.9, 0.6},       {0.33, 0.77, 0.33, 0.77},
                               {3.0, -INFINITY, 1.0, 0.0}, {INFINITY, 1e300, 1.0, 1.0},
                               {NAN, 0.2, 0.0, 0.2},       {0.4, NAN, 0.4, 0.0}};
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(83, 47, format, 1, 83 * 4 + 8);
        for (const auto& c : cases) {
            EXPECT_EQ(render(src, c[0], c[1], 4278255360.0, format).words,
                      model(src, c[2], c[3], argbToFrame(0xFF00FF00u, format)).words)
                << c[0] << " " << c[1];
        }
    }
}

TEST(Binoculars, OpeningsAndBackground) {
    const Picture src = testPicture(64, 40, kFourccArgb);
    // Radius 0: nothing but background; the default colour is opaque black.
    EXPECT_EQ(render(src, 0.0, 0.3).words, Picture(64, 40, 0, 0xFF000000u).words);
    EXPECT_EQ(render(src, 0.0, 0.3, 0.0, kFourccAyuv).words, Picture(64, 40, 0, 0xFF108080u).words);
    // A background with alpha 0x00 or 0x80 is painted opaque.
    EXPECT_EQ(render(src, 0.0, 0.0, 16711680.0).at(5, 5), 0xFFFF0000u);
    EXPECT_EQ(render(src, 0.0, 0.0, 2164195328.0).at(5, 5), 0xFFFF0000u);
    // Distance 1: the circles touch at the middle, which is pure background,
    // while their centres are pure source.
    const Picture touch = render(src, 0.4, 1.0, 4294967295.0);
    const int d = static_cast<int>(std::sqrt((64 * 64 + 40 * 40) * 0.4 * 0.4 * 0.25));
    EXPECT_EQ(touch.at(32, 20), 0xFFFFFFFFu);
    EXPECT_EQ(touch.at(32 - d, 20), src.at(32 - d, 20));
    EXPECT_EQ(touch.at(32 + d, 20), src.at(32 + d, 20));
}

}  // namespace
