// "Stained Glass" through the exported entry: the default cell grid, seeds,
// the candidate order and tie rule, opaque output, grids coarser than two
// cells or finer than the picture, both formats and the border bars.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "plugin/frame_context.h"
#include "support.h"

namespace {

using reelfx::Picture;
using reelfx::RenderOptions;
using reelfx::test::renderEffect;
using reelfx::test::testPicture;

constexpr uint32_t kFill = 0x5A5A5A5A;

int key(uint32_t p) {
    return static_cast<int>((2 * ((p >> 16) & 0xFF) + 5 * ((p >> 8) & 0xFF) + (p & 0xFF)) >> 3);
}

// Block average as the pixel toolkit documents it: upper corner clamped to
// the last column and row and excluded, divisor = pixel count + 1.
uint32_t average(const Picture& p, int x0, int y0, int x1, int y1) {
    x1 = std::min(x1, p.width - 1);
    y1 = std::min(y1, p.height - 1);
    const int64_t n = static_cast<int64_t>(x1 - x0) * (y1 - y0) + 1;
    int64_t s[3] = {0, 0, 0};
    for (int y = y0; y < y1; ++y) {
        for (int x = x0; x < x1; ++x) {
            for (int b = 0; b < 3; ++b) s[b] += (p.at(x, y) >> (8 * b)) & 0xFF;
        }
    }
    return 0xFF000000u | static_cast<uint32_t>(s[2] / n) << 16 |
           static_cast<uint32_t>(s[1] / n) << 8 | static_cast<uint32_t>(s[0] / n);
}

std::vector<int> edges(int count, int size) {
    const float cell = static_cast<float>(static_cast<double>(size) / count);
    std::vector<int> e;
    for (int k = 0; k < count; ++k) e.push_back(static_cast<int>(k * static_cast<double>(cell)));
    e.push_back(size);
    return e;
}

// The panes written out pixel by pixel from given cell boundaries.
Picture modelGlass(const Picture& src, const std::vector<int>& col, const std::vector<int>& row) {
    const int g = static_cast<int>(col.size()) - 1;
    std::vector<int> sx(g * g), sy(g * g);
    std::vector<uint32_t> colour(g * g);
    for (int r = 0; r < g; ++r) {
        for (int c = 0; c < g; ++c) {
            int best = 1000;
            for (int y = row[r]; y < row[r + 1]; ++y) {
                for (int x = col[c]; x < col[c + 1]; ++x) {
                    if (key(src.at(x, y)) < best)
                        best = key(src.at(x, y)), sx[r * g + c] = x, sy[r * g + c] = y;
                }
            }
            colour[r * g + c] = average(src, col[c], row[r], col[c + 1], row[r + 1]);
        }
    }
    const int dr[9] = {0, -1, -1, -1, 1, 1, 1, 0, 0};
    const int dc[9] = {0, -1, 1, 0, -1, 1, 0, -1, 1};
    Picture dst(src.width, src.height, src.stride, kFill);
    for (int r = 0; r < g; ++r) {
        for (int c = 0; c < g; ++c) {
            for (int y = row[r]; y < row[r + 1]; ++y) {
                for (int x = col[c]; x < col[c + 1]; ++x) {
                    int best = -1, pick = 0;
                    for (int k = 0; k < 9; ++k) {
                        const int rr = std::clamp(r + dr[k], 0, g - 1);
                        const int cc = std::clamp(c + dc[k], 0, g - 1);
                        // A cell without pixels has no seed and takes no part.
                        if (row[rr + 1] == row[rr] || col[cc + 1] == col[cc]) continue;
                        const int i = rr * g + cc;
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

const std::vector<int> kCols720 = {0,   48,  96,  144, 192, 240, 288, 336,
                                   384, 432, 480, 528, 576, 624, 672, 720};
const std::vector<int> kRows576 = {0,   38,  76,  115, 153, 192, 230, 268,
                                   307, 345, 384, 422, 460, 499, 537, 576};

// Flat cells with strongly different neighbours; alpha varies and must not
// reach the output.
Picture flatCells720() {
    Picture p(720, 576);
    for (int r = 0; r < 15; ++r) {
        for (int c = 0; c < 15; ++c) {
            const uint32_t word = static_cast<uint32_t>((r * 15 + c) * 17 % 256) << 24 |
                                  ((r + c) & 1 ? 0xF00000u : 0x100000u) |
                                  (r & 1 ? 0xE000u : 0x2000u) | (c & 1 ? 0xD0u : 0x30u);
            for (int y = kRows576[r]; y < kRows576[r + 1]; ++y) {
                for (int x = kCols720[c]; x < kCols720[c + 1]; ++x) p.at(x, y) = word;
            }
        }
    }
    return p;
}

TEST(StainedGlass, DefaultGridOn720x576) {
    ASSERT_EQ(edges(15, 720), kCols720);
    ASSERT_EQ(edges(15, 576), kRows576);  // 38.4 in single precision is 38.4000015

    const Picture flat = flatCells720();
    const auto r = renderEffect("Stained Glass", flat);
    EXPECT_EQ(r.target.words, modelGlass(flat, kCols720, kRows576).words);
    auto colourOf = [&](int row, int col) {
        return average(flat, kCols720[col], kRows576[row], kCols720[col + 1], kRows576[row + 1]);
    };
    // Flat cells are seeded at their top-left pixel. The middle of cell
    // (0, 5) is as far from its own seed as from those of right, lower
    // right and down: the last of the tied candidates, right, wins.
    EXPECT_EQ(r.target.at(240, 0), colourOf(0, 5));
    EXPECT_EQ(r.target.at(241, 1), colourOf(0, 5));
    EXPECT_EQ(r.target.at(264, 19), colourOf(0, 6));
    EXPECT_EQ(r.target.at(263, 18), colourOf(0, 5));
    EXPECT_EQ(r.target.at(263, 19), colourOf(1, 5));  // tied with "down", which comes later
    // In the last column "right" is the cell itself again, so the same tie
    // goes back to it (duplicates take part).
    EXPECT_EQ(r.target.at(696, 19), colourOf(0, 14));

    const Picture pic = testPicture(720, 576, kFourccArgb, 2);
    const auto t = renderEffect("Stained Glass", pic);
    EXPECT_EQ(t.target.words, modelGlass(pic, kCols720, kRows576).words);
    for (uint32_t w : t.target.words) ASSERT_EQ(w >> 24, 0xFFu);
}

// 100 / 6 in single precision is 16.6666660: three cells end at column 49,
// where the exact width would give 50.
TEST(StainedGlass, CellWidthIsSinglePrecision) {
    const std::vector<int> cols = {0, 16, 33, 49, 66, 83, 100};
    ASSERT_EQ(edges(6, 100), cols);
    const Picture src = testPicture(100, 60, kFourccArgb, 5);
    const auto r = renderEffect("Stained Glass", src, {{"Intensity", 6.0}});
    EXPECT_EQ(r.target.words, modelGlass(src, cols, {0, 10, 20, 30, 40, 50, 60}).words);
}

// Two equally dark pixels in a cell: the first in scan order is the seed.
TEST(StainedGlass, DarkestPixelSeedsTheCellFirstInScanOrder) {
    Picture src(8, 8, 0, 0xFFC0C0C0u);
    src.at(3, 1) = 0xFF101010u;  // cell (0, 0): first of the two
    src.at(0, 2) = 0xFF101010u;
    src.at(6, 6) = 0xFF202020u;  // cell (1, 1)
    const auto r = renderEffect("Stained Glass", src, {{"Intensity", 2.0}});
    EXPECT_EQ(r.target.words, modelGlass(src, {0, 4, 8}, {0, 4, 8}).words);
    const uint32_t cell00 = average(src, 0, 0, 4, 4);
    const uint32_t cell01 = average(src, 4, 0, 8, 4);
    EXPECT_EQ(r.target.at(3, 1), cell00);
    // (3, 2) lies 1 from the seed (3, 1); had (0, 2) been chosen, cell
    // (0, 1)'s seed (4, 0) would be nearer.
    EXPECT_EQ(r.target.at(3, 2), cell00);
    EXPECT_EQ(r.target.at(5, 1), cell01);
}

// Detail only in the last column and row: the block averages leave them
// out, so every pane is black.
TEST(StainedGlass, LastColumnAndRowDoNotColourThePanes) {
    Picture src(40, 30, 0, 0xFF000000u);
    for (int y = 0; y < 30; ++y) src.at(39, y) = 0xFFFFFFFFu;
    for (int x = 0; x < 40; ++x) src.at(x, 29) = 0xFFFFFFFFu;
    for (double g : {2.0, 5.0}) {
        const auto r = renderEffect("Stained Glass", src, {{"Intensity", g}});
        for (uint32_t w : r.target.words) ASSERT_EQ(w, 0xFF000000u) << g;
    }
}

TEST(StainedGlass, SameWordsInBothFormats) {
    const Picture src = testPicture(97, 61, kFourccArgb);
    for (double g : {2.0, 15.0, 40.0}) {
        const auto a =
            renderEffect("Stained Glass", src, {{"Intensity", g}}, {.format = kFourccArgb});
        const auto y =
            renderEffect("Stained Glass", src, {{"Intensity", g}}, {.format = kFourccAyuv});
        EXPECT_EQ(a.target.words, y.target.words);
        EXPECT_EQ(
            a.target.words,
            modelGlass(src, edges(static_cast<int>(g), 97), edges(static_cast<int>(g), 61)).words);
    }
}

// Below two cells per side the grid is one cell: the picture takes its
// average colour. Values beyond the 32-bit range truncate to INT32_MIN like
// NaN does, and land here too.
TEST(StainedGlass, FewerThanTwoCellsGiveOnePane) {
    const Picture src = testPicture(33, 21, kFourccArgb, 0, 33 * 4 + 4);
    const uint32_t whole = average(src, 0, 0, 33, 21);
    const double inf = std::numeric_limits<double>::infinity();
    for (double g : {1.99, 1.0, 0.0, -7.0, -1e300, std::nan(""), -inf, inf, 1e300}) {
        const auto r = renderEffect("Stained Glass", src, {{"Intensity", g}});
        for (int y = 0; y < 21; ++y) {
            for (int x = 0; x < 33; ++x) ASSERT_EQ(r.target.at(x, y), whole) << g;
        }
        EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
    }
}

// A grid finer than the picture has cells without pixels: they get no seed
// and take no part as candidates, while the other cells keep the pane rule.
TEST(StainedGlass, CellsWithoutPixelsTakeNoPart) {
    const Picture src = testPicture(64, 48, kFourccArgb, 1);
    for (int g : {49, 57, 64}) {  // within the declared range: rows only, then both
        const auto r = renderEffect("Stained Glass", src, {{"Intensity", double(g)}});
        EXPECT_EQ(r.target.words, modelGlass(src, edges(g, 64), edges(g, 48)).words) << g;
    }
    // 64 / 80 = 0.8: column cells 0 and 1 both start at 0, so cell 0 is
    // empty; an empty row or column never colours a pixel black.
    ASSERT_EQ(edges(80, 64)[1], 0);
    const Picture white(64, 48, 0, 0xFFFFFFFFu);
    const auto w = renderEffect("Stained Glass", white, {{"Intensity", 80.0}});
    EXPECT_EQ(w.target.words, modelGlass(white, edges(80, 64), edges(80, 48)).words);
    EXPECT_EQ(w.target.at(0, 0), 0xFF7F7F7Fu);

    // From the longer side on, every cell holding a pixel holds exactly one,
    // which is its own seed: each pixel becomes its one-pixel block average
    // (bytes halved; opaque black in the last column and row).
    const auto longest = renderEffect("Stained Glass", src, {{"Intensity", 64.0}});
    for (int y = 0; y < 48; ++y) {
        for (int x = 0; x < 64; ++x) {
            ASSERT_EQ(longest.target.at(x, y), average(src, x, y, x + 1, y + 1)) << x << ", " << y;
        }
    }
    for (double g : {65.0, 100.0, 1e9, 2147483647.0}) {
        const auto r = renderEffect("Stained Glass", src, {{"Intensity", g}});
        EXPECT_EQ(r.target.words, longest.target.words) << g;
    }
    // One row or column: every cell's clamped block is empty.
    for (auto [w, h] : {std::pair{1, 1}, std::pair{5, 1}, std::pair{1, 4}}) {
        const Picture tiny = testPicture(w, h, kFourccArgb, 0, w * 4 + 8);
        for (double g : {2.0, 100.0}) {
            const auto r = renderEffect("Stained Glass", tiny, {{"Intensity", g}});
            EXPECT_TRUE(reelfx::test::untouchedOutside(r.target, 0, 0, w, h, kFill));
            for (int y = 0; y < h; ++y) {
                for (int x = 0; x < w; ++x) EXPECT_EQ(r.target.at(x, y), 0xFF000000u);
            }
        }
    }
}

TEST(StainedGlass, MissingSourceFillsWhite) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        Picture target(9, 4, 9 * 4 + 12, kFill);
        reelfx::Instance inst(reelfx::test::module(), reelfx::test::effectIndex("Stained Glass"), 9,
                              4);
        ASSERT_EQ(inst.render(nullptr, target, {.format = format}), 0);
        const uint32_t white = format == kFourccAyuv ? 0xFFEA8080u : 0xFFFFFFFFu;
        EXPECT_TRUE(reelfx::test::untouchedOutside(target, 0, 0, 9, 4, kFill));
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 9; ++x) ASSERT_EQ(target.at(x, y), white);
        }
    }
}

// A 4:3 picture in a 16:9 frame: the grid covers the 96 x 72 active
// rectangle only, the bars stay black and the padding keeps its words.
TEST(StainedGlass, WorksInsideTheActiveRectangle) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture frame = testPicture(128, 72, format, 0, 128 * 4 + 8);
        Picture active(96, 72);
        for (int y = 0; y < 72; ++y) std::copy_n(frame.row(y) + 16, 96, active.row(y));
        RenderOptions o{
            .displayAspect = 16.0 / 9.0, .aspectFitting = true, .pictureAspect = 4.0 / 3.0};
        o.format = format;
        const uint32_t black = format == kFourccAyuv ? kBorderAyuv : kBorderArgb;
        const auto r = renderEffect("Stained Glass", frame, {}, o);
        const Picture want = modelGlass(active, edges(15, 96), edges(15, 72));
        for (int y = 0; y < 72; ++y) {
            for (int x = 0; x < 128; ++x) {
                const uint32_t w = (x < 16 || x >= 112) ? black : want.at(x - 16, y);
                ASSERT_EQ(r.target.at(x, y), w) << x << ", " << y;
            }
        }
        EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
    }
}

}  // namespace
