// "Random-Rotate Squares" through the exported entry: the mode sequence of
// the squares, the square size, the black wedges at the right and bottom
// edges, a literal model of the square transform, the same frame for every
// progress, hostile scales, a missing source and the active rectangle.
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

constexpr uint32_t kFill = 0x5A5A5A5A;
constexpr char kEffect[] = "Random-Rotate Squares";
constexpr int kModes[8] = {0, 2, 2, 4, 4, 6, 6, 0};

uint32_t black(uint32_t format) {
    return format == kFourccAyuv ? 0xFF108080u : 0xFF000000u;
}

// Every pixel names its own position; no word equals either black.
Picture positions(int32_t w, int32_t h, int32_t strideBytes = 0) {
    Picture p(w, h, strideBytes);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            p.at(x, y) = 0x80000000u | static_cast<uint32_t>((y + 1) << 12 | (x + 1));
        }
    }
    return p;
}

// Source position of square pixel (j, i) under `mode`, relative to the corner.
std::pair<int, int> sourceOf(int mode, int n, int j, int i) {
    switch (mode) {
        case 0:
            return {j, i};
        case 2:
            return {i, n - 1 - j};
        case 4:
            return {n - 1 - j, n - 1 - i};
        default:
            return {n - 1 - i, j};
    }
}

// The square transform written out pixel by pixel with the listed modes.
Picture modelSquares(const Picture& src, int n, uint32_t fill) {
    Picture dst(src.width, src.height, src.stride, kFill);
    int k = 0;
    for (int y0 = 0; y0 < src.height; y0 += n) {
        for (int x0 = 0; x0 < src.width; x0 += n, ++k) {
            for (int i = 0; i < n; ++i) {
                for (int j = 0; j < n; ++j) {
                    if (x0 + j >= src.width || y0 + i >= src.height) continue;
                    const auto [sx, sy] = sourceOf(kModes[k % 8], n, j, i);
                    const bool inside = x0 + sx < src.width && y0 + sy < src.height;
                    dst.at(x0 + j, y0 + i) = inside ? src.at(x0 + sx, y0 + sy) : fill;
                }
            }
        }
    }
    return dst;
}

// 40^0.45 = 5.26: squares of 5, eight to a row; the sequence of turns runs on
// from the first row into the second.
TEST(RandomRotateSquares, ModeSequenceRunsAcrossRows) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = positions(40, 10);
        const auto r = renderEffect(kEffect, src, {{"Scale", 0.45}}, {.format = format});
        for (int k = 0; k < 16; ++k) {
            const int x0 = (k % 8) * 5, y0 = (k / 8) * 5;
            int found = -1;
            for (int mode : {0, 2, 4, 6}) {
                bool all = true;
                for (int i = 0; i < 5 && all; ++i) {
                    for (int j = 0; j < 5 && all; ++j) {
                        const auto [sx, sy] = sourceOf(mode, 5, j, i);
                        all = r.target.at(x0 + j, y0 + i) == src.at(x0 + sx, y0 + sy);
                    }
                }
                if (all) found = mode;
            }
            EXPECT_EQ(found, kModes[k % 8]) << "square " << k;
        }
    }
}

// 720^0.5 = 26.83: 28 squares per row (the last 18 wide) and 23 rows of
// squares (the last 4 high); turned squares at the edges take black.
TEST(RandomRotateSquares, SquareSizeAndWedgesOnAFullFrame) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = positions(720, 576, 720 * 4 + 16);
        const auto r = renderEffect(kEffect, src, {}, {.format = format});
        EXPECT_EQ(r.target.words, modelSquares(src, 26, black(format)).words);
        // Square 27 of the first row (x 702-719) is a half turn: its columns
        // 702-709 would come from columns 727-720, beyond the right edge.
        for (int y = 0; y < 26; ++y) {
            for (int x = 702; x < 720; ++x) {
                ASSERT_EQ(r.target.at(x, y) == black(format), x < 710) << x << ", " << y;
            }
        }
    }
}

TEST(RandomRotateSquares, WedgesAtTheBottomEdge) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = positions(40, 12, 40 * 4 + 8);
        const auto r = renderEffect(kEffect, src, {{"Scale", 0.45}}, {.format = format});
        // Square 17 at (5, 10), two rows inside the picture, turns a quarter
        // clockwise: its first three columns come from rows 12-14.
        for (int y = 10; y < 12; ++y) {
            for (int x = 5; x < 10; ++x) {
                ASSERT_EQ(r.target.at(x, y) == black(format), x < 8) << x << ", " << y;
            }
        }
        EXPECT_EQ(r.target.words, modelSquares(src, 5, black(format)).words);
        EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
    }
}

TEST(RandomRotateSquares, MatchesTheLiteralModel) {
    const Picture src = testPicture(53, 37, kFourccArgb, 1, 53 * 4 + 4);
    for (double scale : {0.25, 0.5, 0.62, 0.8, 0.93}) {
        const int n = static_cast<int>(std::pow(53.0, scale));
        const auto r = renderEffect(kEffect, src, {{"Scale", scale}});
        EXPECT_EQ(r.target.words, modelSquares(src, n, 0xFF000000u).words) << scale;
    }
}

TEST(RandomRotateSquares, ScaleEnds) {
    const Picture src = testPicture(45, 20, kFourccArgb, 0, 45 * 4 + 8);
    const double inf = std::numeric_limits<double>::infinity();
    // Single-pixel squares are a copy; NaN counts as the lower bound.
    for (double scale : {0.0, -1.0, -inf, std::nan("")}) {
        EXPECT_TRUE(renderEffect(kEffect, src, {{"Scale", scale}}).target.samePixels(src)) << scale;
    }
    const auto one = renderEffect(kEffect, src, {{"Scale", 1.0}}).target.words;
    EXPECT_EQ(renderEffect(kEffect, src, {{"Scale", 7.0}}).target.words, one);
    EXPECT_EQ(renderEffect(kEffect, src, {{"Scale", inf}}).target.words, one);
    // At "Scale" 1 a 720-wide picture is one square, copied unchanged; a
    // 704-wide one lands on 703 and its last column, turned a quarter
    // clockwise, takes nothing but black.
    const Picture wide = positions(720, 30);
    EXPECT_TRUE(renderEffect(kEffect, wide, {{"Scale", 1.0}}).target.samePixels(wide));
    const Picture narrow = positions(704, 30);
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const auto r = renderEffect(kEffect, narrow, {{"Scale", 1.0}}, {.format = format});
        for (int y = 0; y < 30; ++y) {
            ASSERT_TRUE(std::equal(narrow.row(y), narrow.row(y) + 703, r.target.row(y))) << y;
            ASSERT_EQ(r.target.at(703, y), black(format)) << y;
        }
    }
}

TEST(RandomRotateSquares, EveryFrameIsTheSame) {
    const Picture src = testPicture(64, 48, kFourccAyuv);
    const auto first = renderEffect(kEffect, src, {}, {.format = kFourccAyuv});
    for (double t : {0.37, 1.0, -4.0, std::nan("")}) {
        const auto r = renderEffect(kEffect, src, {}, {.progress = t, .format = kFourccAyuv});
        EXPECT_EQ(r.target.words, first.target.words) << t;
    }
    // One instance rendering frame after frame restarts the turns every time.
    reelfx::Instance inst(reelfx::test::module(), reelfx::test::effectIndex(kEffect), 64, 48);
    for (double t : {0.0, 0.5, 0.99}) {
        Picture target(64, 48, 0, kFill);
        inst.render(&src, target, {.progress = t, .format = kFourccAyuv});
        EXPECT_EQ(target.words, first.target.words) << t;
    }
}

TEST(RandomRotateSquares, MissingSourceFillsWhite) {
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
// in a 4:3 frame: the grid starts at the active rectangle's corner, turned
// squares take black rather than bar or neighbouring pixels, the bars stay
// black, the padding keeps its words.
TEST(RandomRotateSquares, WorksInsideTheActiveRectangle) {
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
            const Picture frame = positions(f.w, f.h, f.w * 4 + 8);
            Picture active(f.aw, f.ah);
            for (int y = 0; y < f.ah; ++y) {
                std::copy_n(frame.row(f.y0 + y) + f.x0, f.aw, active.row(y));
            }
            const double scale = 0.7;  // 96^0.7 = 24.4, 120^0.7 = 28.5
            const Picture want =
                modelSquares(active, static_cast<int>(std::pow(f.aw, scale)), black(format));
            const auto r = renderEffect(kEffect, frame, {{"Scale", scale}},
                                        {.format = format,
                                         .displayAspect = f.display,
                                         .aspectFitting = true,
                                         .pictureAspect = f.picture});
            for (int y = 0; y < f.h; ++y) {
                for (int x = 0; x < f.w; ++x) {
                    const bool in = x >= f.x0 && x < f.x0 + f.aw && y >= f.y0 && y < f.y0 + f.ah;
                    ASSERT_EQ(r.target.at(x, y), in ? want.at(x - f.x0, y - f.y0) : bar)
                        << x << ", " << y;
                }
            }
            EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
        }
    }
}

}  // namespace
