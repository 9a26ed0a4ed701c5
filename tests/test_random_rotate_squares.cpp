// "Random-Rotate Squares" through the exported entry.
#include <gtest/gtest.h>

#include <cmath>

#include "pixel/color.h"
#include "support.h"

namespace {

using namespace reelfx::test;
using reelfx::Picture;

constexpr uint32_t kFill = 0x5A5A5A5A;
constexpr int kModes[8] = {0, 2, 2, 4, 4, 6, 6, 0};  // the generator's turns from seed 2002

uint32_t black(uint32_t format) { return format == kFourccAyuv ? 0xFF108080u : 0xFF000000u; }

// Every pixel names its own position; no word equals either black.
Picture positions(int32_t w, int32_t h, int32_t strideBytes = 0) {
    Picture p(w, h, strideBytes);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) p.at(x, y) = 0x80000000u | (y + 1) << 12 | (x + 1);
    }
    return p;
}

// The square transform written out pixel by pixel with the modes above, the
// sequence running on across rows of squares; the padding keeps kFill.
Picture model(const Picture& src, int n, uint32_t fill) {
    Picture dst(src.width, src.height, src.stride, kFill);
    int k = 0;
    for (int y0 = 0; y0 < src.height; y0 += n) {
        for (int x0 = 0; x0 < src.width; x0 += n, ++k) {
            for (int i = 0; i < n && y0 + i < src.height; ++i) {
                for (int j = 0; j < n && x0 + j < src.width; ++j) {
                    const int mode = kModes[k % 8], f = n - 1;
                    const int sx = x0 + (mode == 0 ? j : mode == 2 ? i : mode == 4 ? f - j : f - i);
                    const int sy = y0 + (mode == 0 ? i : mode == 2 ? f - j : mode == 4 ? f - i : j);
                    const bool inside = sx < src.width && sy < src.height;
                    dst.at(x0 + j, y0 + i) = inside ? src.at(sx, sy) : fill;
                }
            }
        }
    }
    return dst;
}

Picture render(const Picture& src, double scale, uint32_t format = kFourccArgb) {
    return renderEffect("Random-Rotate Squares", src, {{"Scale", scale}}, {.format = format})
        .target;
}

// 720^0.5 = 26.83: 28 squares per row (the last 18 wide) and 23 rows of
// squares (the last 4 high). 40^0.45 = 5.26: eight squares of 5 per row, the
// third row of squares two pixels high, its turned squares taking black.
TEST(RandomRotateSquares, SquaresTurnsAndWedges) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture full = positions(720, 576, 720 * 4 + 16);
        const Picture out = render(full, 0.5, format);
        EXPECT_EQ(out.words, model(full, 26, black(format)).words);
        // Square 27 (x 702-719) is a half turn: columns 702-709 would come
        // from beyond the right edge.
        for (int x = 702; x < 720; ++x) EXPECT_EQ(out.at(x, 0) == black(format), x < 710) << x;

        const Picture small = positions(40, 12, 40 * 4 + 8);
        const Picture turned = render(small, 0.45, format);
        EXPECT_EQ(turned.words, model(small, 5, black(format)).words);
    }
}

TEST(RandomRotateSquares, ScaleEnds) {
    const Picture src = positions(45, 20, 45 * 4 + 8);
    const double inf = INFINITY, nan = NAN;
    // Single-pixel squares are a copy; NaN counts as the lower bound.
    for (double scale : {0.0, -1.0, -inf, nan}) {
        const Picture out = render(src, scale);
        EXPECT_TRUE(out.samePixels(src) && paddingUntouched(out, kFill)) << scale;
    }
    EXPECT_EQ(render(src, 7.0).words, render(src, 1.0).words);
    EXPECT_EQ(render(src, inf).words, render(src, 1.0).words);
    // At "Scale" 1 a 720-wide picture is one square, copied unchanged; a
    // 704-wide one lands on 703 and its last column, turned a quarter
    // clockwise, takes nothing but black.
    const Picture wide = positions(720, 30), narrow = positions(704, 30);
    EXPECT_TRUE(render(wide, 1.0).samePixels(wide));
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        EXPECT_EQ(render(narrow, 1.0, format).words, model(narrow, 703, black(format)).words);
    }
}

// The generator restarts every frame: one instance renders the same frame
// whatever the progress.
TEST(RandomRotateSquares, EveryFrameIsTheSame) {
    const Picture src = positions(64, 48);
    reelfx::Instance inst(module(), effectIndex("Random-Rotate Squares"), 64, 48);
    for (double t : {0.0, 0.5, 0.99, -4.0, static_cast<double>(NAN)}) {
        Picture target(64, 48, 0, kFill);
        inst.render(&src, target, {.progress = t, .format = kFourccAyuv});
        EXPECT_EQ(target.words, model(src, 8, 0xFF108080u).words) << t;  // 64^0.5
    }
}

}  // namespace
