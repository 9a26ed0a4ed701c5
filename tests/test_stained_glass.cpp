// "Stained Glass" through the exported entry: the default cell grid, seeds,
// the candidate order and tie rule, opaque output, grids coarser than two
// cells or finer than the picture, both formats and the active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "plugin/frame_context.h"
#include "support.h"

namespace {

using reelfx::Picture;
using namespace reelfx::test;
using Edges = std::vector<int>;

constexpr uint32_t kFill = 0x5A5A5A5A;

// The block average: upper corner clamped to the last column and row and
// left out, divisor the pixel count + 1.
uint32_t average(const Picture& p, int x0, int y0, int x1, int y1) {
    x1 = std::min(x1, p.width - 1);
    y1 = std::min(y1, p.height - 1);
    uint32_t out = 0xFF000000u;
    for (int b = 0; b < 24; b += 8) {
        int64_t s = 0;
        for (int y = y0; y < y1; ++y) {
            for (int x = x0; x < x1; ++x) s += p.at(x, y) >> b & 0xFF;
        }
        out |= static_cast<uint32_t>(s / (int64_t{x1 - x0} * (y1 - y0) + 1)) << b;
    }
    return out;
}

// The panes pixel by pixel from given cell boundaries: seed = first pixel
// of the smallest key, nine clamped candidates, ties to the later one.
Picture modelGlass(const Picture& src, const Edges& col, const Edges& row) {
    const int g = static_cast<int>(col.size()) - 1;
    std::vector<int> sx(g * g), sy(g * g);
    std::vector<uint32_t> colour(g * g);
    for (int i = 0, best = 1000; i < g * g; ++i, best = 1000) {
        colour[i] = average(src, col[i % g], row[i / g], col[i % g + 1], row[i / g + 1]);
        for (int y = row[i / g]; y < row[i / g + 1]; ++y) {
            for (int x = col[i % g]; x < col[i % g + 1]; ++x) {
                const uint32_t p = src.at(x, y);
                const int k = int((2 * (p >> 16 & 0xFF) + 5 * (p >> 8 & 0xFF) + (p & 0xFF)) >> 3);
                if (k < best) best = k, sx[i] = x, sy[i] = y;
            }
        }
    }
    const int dr[9] = {0, -1, -1, -1, 1, 1, 1, 0, 0}, dc[9] = {0, -1, 1, 0, -1, 1, 0, -1, 1};
    Picture dst(src.width, src.height, src.stride, kFill);
    for (int r = 0; r < g; ++r) {
        for (int c = 0; c < g; ++c) {
            for (int y = row[r]; y < row[r + 1]; ++y) {
                for (int x = col[c]; x < col[c + 1]; ++x) {
                    int best = -1, pick = 0;
                    for (int k = 0; k < 9; ++k) {
                        const int i =
                            std::clamp(r + dr[k], 0, g - 1) * g + std::clamp(c + dc[k], 0, g - 1);
                        const int d = (x - sx[i]) * (x - sx[i]) + (y - sy[i]) * (y - sy[i]);
                        if (best < 0 || d <= best) best = d, pick = i;
                    }
                    dst.at(x, y) = colour[pick];
                }
            }
        }
    }
    return dst;
}

// 38.4 in single precision (38.4000015) puts row boundary 5 at 192, not 191.
const Edges kCols = {0, 48, 96, 144, 192, 240, 288, 336, 384, 432, 480, 528, 576, 624, 672, 720};
const Edges kRows = {0, 38, 76, 115, 153, 192, 230, 268, 307, 345, 384, 422, 460, 499, 537, 576};

TEST(StainedGlass, DefaultGridOn720x576) {
    // Flat cells, each seeded at its top-left pixel; the alpha varies and
    // does not reach the output.
    Picture flat(720, 576);
    for (int r = 0; r < 15; ++r) {
        for (int y = kRows[r]; y < kRows[r + 1]; ++y) {
            for (int x = 0; x < 720; ++x) {
                const int c = x / 48;
                flat.at(x, y) = uint32_t((r * 15 + c) * 17 % 256) << 24 |
                                (((r + c) & 1 ? 0xF0E0D0u : 0x102030u) ^ (r & 1 ? 0x00C000u : 0));
            }
        }
    }
    const auto r = renderEffect("Stained Glass", flat);
    EXPECT_EQ(r.target.words, modelGlass(flat, kCols, kRows).words);
    auto colourOf = [&](int row, int col) {
        return average(flat, kCols[col], kRows[row], kCols[col + 1], kRows[row + 1]);
    };
    // (264, 19) is as far from its own seed as from those of right, lower
    // right and down: the last tied candidate, right, wins; at (263, 19) the
    // cell itself ties with down, which comes later. In the last column
    // "right" is the cell itself again and takes the tie.
    EXPECT_EQ(r.target.at(264, 19), colourOf(0, 6));
    EXPECT_EQ(r.target.at(263, 19), colourOf(1, 5));
    EXPECT_EQ(r.target.at(696, 19), colourOf(0, 14));

    const Picture pic = testPicture(720, 576, kFourccArgb, 2);
    const auto t = renderEffect("Stained Glass", pic);
    EXPECT_EQ(t.target.words, modelGlass(pic, kCols, kRows).words);
    for (uint32_t w : t.target.words) ASSERT_EQ(w >> 24, 0xFFu);
}

// G = 2: four cells whose candidate lists are clamped duplicates, the same
// words in both formats. Detail only in the last column and row: the block
// averages leave it out and every pane is black.
TEST(StainedGlass, TwoCellsBothFormatsAndTheLastColumnAndRow) {
    const Picture pic = testPicture(97, 61, kFourccArgb);
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        EXPECT_EQ(renderEffect("Stained Glass", pic, {{"Intensity", 2.0}}, {.format = format})
                      .target.words,
                  modelGlass(pic, {0, 48, 97}, {0, 30, 61}).words);
    }
    Picture edge(40, 30, 0, 0xFF000000u);
    for (int y = 0; y < 30; ++y) edge.at(39, y) = edge.at(y, 29) = ~0u;
    const auto r = renderEffect("Stained Glass", edge, {{"Intensity", 5.0}});
    EXPECT_TRUE(r.target.samePixels(Picture(40, 30, 0, 0xFF000000u)));
}

// Our readings. Fewer than two cells per side (NaN and values beyond 32 bits
// truncate to INT32_MIN and land here too): one pane of the picture's
// average. Cells without pixels (G beyond the width or height) get no seed
// and take no part: from the longer side on every other cell holds one
// pixel, its own seed, and each pixel becomes its one-pixel block average.
TEST(StainedGlass, CoarseAndFineGrids) {
    const Picture src = testPicture(64, 48, kFourccArgb, 1, 64 * 4 + 4);
    for (double g : {1.99, 0.0, -7.0, std::nan(""), 1e300}) {
        const auto r = renderEffect("Stained Glass", src, {{"Intensity", g}});
        EXPECT_TRUE(r.target.samePixels(Picture(64, 48, 0, average(src, 0, 0, 64, 48)))) << g;
        EXPECT_TRUE(paddingUntouched(r.target, kFill));
    }
    Picture halves(64, 48);
    for (int y = 0; y < 48; ++y) {
        for (int x = 0; x < 64; ++x) halves.at(x, y) = average(src, x, y, x + 1, y + 1);
    }
    for (double g : {64.0, 100.0, 2147483647.0}) {
        EXPECT_TRUE(
            renderEffect("Stained Glass", src, {{"Intensity", g}}).target.samePixels(halves));
    }
    // 64 / 80: column cells 0 and 1 both start at 0; the empty one does not
    // colour (0, 0) black.
    const auto white =
        renderEffect("Stained Glass", Picture(64, 48, 0, ~0u), {{"Intensity", 80.0}});
    EXPECT_EQ(white.target.at(0, 0), 0xFF7F7F7Fu);
}

}  // namespace
