// "NewsPrint": grid size, cell boundaries and mark sizes (white-box), the
// marks through the entry, values beyond their ranges, fine grids, the
// "Dot Shape" choice and plain-paper cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "effects/newsprint.h"
#include "pixel/block.h"
#include "pixel/fxmath.h"
#include "plugin/frame_context.h"
#include "support.h"

namespace {

using reelfx::Picture;
using namespace reelfx::test;
namespace np = newsprint;
using Points = std::set<std::pair<int32_t, int32_t>>;

constexpr uint32_t kFill = 0x5A5A5A5A;
constexpr uint32_t kInk = 0xFF000000u, kPaper = 0xFFFFFFFFu;
constexpr uint32_t kInkAyuv = 0xFF108080u, kPaperAyuv = 0xFFEA8080u;
const double kNan = std::nan("");

// "Dot Shape" 0 = circles, 1 = spirals.
Picture render(const Picture& src, std::vector<std::pair<std::string, double>> params, double shape,
               uint32_t format = kFourccArgb) {
    params.emplace_back("Dot Shape", shape);
    return renderEffect("NewsPrint", src, params, {.format = format}).target;
}

Points pixelsEqual(const Picture& p, uint32_t word) {
    Points s;
    for (int32_t y = 0; y < p.height; ++y) {
        for (int32_t x = 0; x < p.width; ++x) {
            if (p.at(x, y) == word) s.insert({x, y});
        }
    }
    return s;
}

TEST(NewsPrint, GridAndMarkSizes) {
    EXPECT_EQ(np::gridSize(720, 0.54), 166);
    EXPECT_EQ(np::gridSize(720, 0.0), 360);
    EXPECT_EQ(np::gridSize(720, 1.0), 1);
    EXPECT_EQ(np::gridSize(1, 0.54), 1);   // 0 becomes 1
    EXPECT_LT(np::gridSize(720, 1.5), 0);  // an empty grid
    // Below -1 the cells are narrower than a pixel; NaN and values beyond 32
    // bits truncate to INT32_MIN.
    EXPECT_EQ(np::gridSize(100, -1.5), 125);
    EXPECT_EQ(np::gridSize(720, -1e300), 360 + 360 * int64_t{2147483648} / 100);
    EXPECT_EQ(np::gridSize(721, kNan), 360 + 360 * int64_t{2147483648} / 100);

    const float wc = np::cellSize(720, 166), hc = np::cellSize(576, 166);
    EXPECT_EQ(wc, 4.3373494f);
    EXPECT_EQ(hc, 3.4698796f);
    const int32_t cols[] = {0, 4, 8, 13, 17, 21}, rows[] = {0, 3, 6, 10, 13, 17};
    for (int32_t k = 0; k < 6; ++k) {
        EXPECT_EQ(np::cellBoundary(k, wc, 166, 720), cols[k]);
        EXPECT_EQ(np::cellBoundary(k, hc, 166, 576), rows[k]);
    }
    EXPECT_EQ(np::cellBoundary(166, wc, 166, 720), 720);

    const float b = np::brightnessFactor(0.83);
    const float circle = np::circleScale(wc, 1.09), spiral = np::spiralScale(wc, 1.09);
    EXPECT_EQ(circle, 0.018540043f);
    EXPECT_EQ(spiral, 3.3093975f);
    for (const auto& [key, r] : {std::pair{0, 4}, {64, 3}, {128, 2}, {200, 1}, {255, 0}}) {
        EXPECT_EQ(np::circleRadius(key, b, circle), r) << key;
    }
    for (const auto& [key, l] : {std::pair{0, 359}, {64, 359}, {128, 139}}) {
        EXPECT_EQ(np::spiralLength(key, b, spiral), l) << key;
    }
    EXPECT_LT(np::spiralLength(200, b, spiral), 1);
    // "Brightness" 2: no circle from key 128, no spiral from key 64.
    EXPECT_LT(np::circleRadius(128, 2.0f, circle), 1);
    EXPECT_LT(np::spiralLength(64, 2.0f, spiral), 1);
    // No circle where k x B >= 255, also where a negative scale would turn
    // the negative size into a positive radius; spirals have no such rule.
    EXPECT_EQ(np::brightnessFactor(2.5), 2.5f);
    EXPECT_EQ(np::circleRadius(112, 2.5f, -circle), 0);
    EXPECT_EQ(np::circleRadius(255, 1.0f, -circle), 0);
    EXPECT_EQ(np::circleRadius(255, -1.0f, circle), 9);  // 510 x scale
    EXPECT_EQ(np::spiralLength(255, 0.83f, -spiral), 359);
    // A length beyond 32 bits (or NaN) truncates to INT32_MIN: no mark.
    EXPECT_LT(np::spiralLength(0, 0.83f, 1e30f), 1);
    EXPECT_LT(np::spiralLength(0, kNan, spiral), 1);
}

// Values beyond the declared ranges follow the formulas (16 x 16 and 64 x 64
// pictures are one cell; 100 x 20 at "Resolution" -1.5 has 125 cells per
// side, most of them empty).
TEST(NewsPrint, ValuesBeyondTheirRanges) {
    struct Case {
        int32_t w, h;
        uint32_t source;
        double resolution, brightness, contrast, shape;
        int32_t x, y;
        uint32_t want;
    };
    const Case cases[] = {
        {16, 16, 0xFF707070u, 1, 2.5, 1.09, 0, 8, 8, kPaper},  // k x B = 280: no mark
        {16, 16, kPaper, 1, -1, 0.5, 0, 0, 0, kInk},           // 255 + 255 = 510
        {64, 64, kPaper, 1, 0.83, 2.5, 0, 32, 6, kInk},        // radius 27
        {64, 64, kPaper, 1, 0.83, -0.02, 1, 32, 32, kInk},     // negative size x negative scale
        {100, 20, 0xFF808080u, -1.5, 0.83, 1.09, 0, 0, 0, kPaper},
    };
    for (const Case& c : cases) {
        const Picture r = render(
            Picture(c.w, c.h, 0, c.source),
            {{"Resolution", c.resolution}, {"Brightness", c.brightness}, {"Contrast", c.contrast}},
            c.shape);
        EXPECT_EQ(r.at(c.x, c.y), c.want)
            << c.resolution << " " << c.brightness << " " << c.contrast << " " << c.shape;
    }
}

// The halftone written out cell by cell: N from the formula, the boundaries,
// the block average and key, and the mark (midpoint circle of lines, or
// every tenth spiral point).
Picture modelNewsPrint(const Picture& src, double resolution, double brightness, double contrast,
                       bool spirals) {
    const int32_t w = src.width, h = src.height;
    Picture want(w, h, src.stride, kFill);
    for (int32_t y = 0; y < h; ++y) std::fill_n(want.row(y), w, kPaper);
    const int64_t half = w / 2, q = static_cast<int64_t>(resolution * 100.0);
    const int64_t n = std::max<int64_t>(half - half * q / 100, 1);
    const float cw = static_cast<float>(double(w) / double(n));
    const float ch = static_cast<float>(double(h) / double(n));
    const float b = static_cast<float>(brightness);
    const float scale = static_cast<float>(double(cw) * contrast *
                                           (spirals ? double(0.7f) : double(1.0f / 255.0f)));
    auto edge = [n](int64_t k, float size, int32_t extent) {
        return k >= n ? extent : static_cast<int32_t>(double(k) * size);
    };
    // Spiral point 10 x j, j = 0 ... 359.
    std::vector<std::pair<int32_t, int32_t>> dots;
    for (int j = 0; j < 360; ++j) {
        const float rho = static_cast<float>(double(cw) * (10 * j) * double(1.0f / 3600.0f));
        const double theta = 10 * j * double(1.0f / 57.0f);
        dots.emplace_back(int32_t(fxCos(theta) * rho), int32_t(fxSin(theta) * rho));
    }
    for (int64_t r = 0; r < n; ++r) {
        const int32_t top = edge(r, ch, h), bottom = edge(r + 1, ch, h);
        for (int64_t c = r & 1; c < n; c += 2) {
            const int32_t left = edge(c, cw, w), right = edge(c + 1, cw, w);
            const int k = brightnessKey(
                blockAverage(src.words.data(), src.stride, w, h, left, top, right, bottom));
            const int32_t cx = (left + right) >> 1, cy = (top + bottom) >> 1;
            if (spirals) {
                const int l = std::min(static_cast<int>((255.0 - 2 * k * double(b)) * scale), 360);
                for (int j = l - 1; j >= 1; --j) {
                    const int32_t x = cx + dots[j].first, y = cy + dots[j].second;
                    if (x >= 0 && x < w && y >= 0 && y < h) want.at(x, y) = kInk;
                }
                continue;
            }
            if (k * double(b) >= 255.0) continue;
            const int radius = static_cast<int>((255.0 - k * double(b)) * scale);
            for (int32_t x = 0, y = radius, d = 3 - 2 * radius; radius >= 1 && x <= y; ++x) {
                for (const auto& [ax, ay] : {std::pair{x, y}, {x, -y}, {y, x}, {y, -x}}) {
                    drawLine(want.data(), want.stride, w, h, cx + ax, cy + ay, cx - ax, cy + ay,
                             kInk);
                }
                d += d >= 0 ? 4 * (x - y--) + 10 : 4 * x + 6;
            }
        }
    }
    return want;
}

// Grids of up to 1024 cells per side are drawn cell by cell, finer ones by
// groups of cells with equal bounds: both give the cell-by-cell picture, for
// cells wider and narrower than a pixel and for marks beyond a cell (the
// last case: a fine grid with discs of radius 1 to 15, the brighter the
// larger, the costliest kind of grid at 1080p when drawn group by group).
TEST(NewsPrint, FineGridsMatchTheCellByCellModel) {
    const Picture src = testPicture(40, 30, kFourccArgb, 3, 44 * 4);
    // Resolution, Brightness, Contrast of the circles; the spirals get a
    // twentieth of it on the fine grids, which keeps the model's point walk
    // short there.
    const std::tuple<double, double, double> cases[] = {{0.8, 0.83, 1.09},  {0.3, 0.83, 1.09},
                                                        {0.3, 0.83, 6.0},   {-30.0, -0.4, 40.0},
                                                        {-74.0, 0.5, 60.0}, {-74.0, -15.0, 36.3}};
    for (const auto& [resolution, brightness, circleContrast] : cases) {
        for (const bool spirals : {false, true}) {
            const double contrast =
                spirals && resolution < 0 ? circleContrast / 20 : circleContrast;
            const Picture r = render(
                src,
                {{"Resolution", resolution}, {"Brightness", brightness}, {"Contrast", contrast}},
                spirals ? 1.0 : 0.0);
            const Picture want = modelNewsPrint(src, resolution, brightness, contrast, spirals);
            EXPECT_TRUE(r.samePixels(want)) << resolution << " " << contrast << " " << spirals;
        }
    }
}

// Coarse grids give cells of thousands of pixels, whose averages take other
// paths than the small cells' (a cell of 639 x 399 pixels is past 65536, 4
// cells a side hold 16000 each): the same marks as the cell-by-cell model,
// which averages every cell on its own.
TEST(NewsPrint, CoarseGridsMatchTheCellByCellModel) {
    for (const uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(640, 400, format, 5);
        for (const double resolution : {1.0, 0.99, 0.98, 0.9}) {
            for (const bool spirals : {false, true}) {
                const double contrast = spirals ? 0.2 : 1.09;
                const Picture r = renderEffect("NewsPrint", src,
                                               {{"Resolution", resolution},
                                                {"Contrast", contrast},
                                                {"Dot Shape", spirals ? 1.0 : 0.0}},
                                               {.format = format})
                                      .target;
                Picture want = modelNewsPrint(src, resolution, 0.83, contrast, spirals);
                if (format == kFourccAyuv) {
                    for (int32_t y = 0; y < want.height; ++y) {
                        for (int32_t x = 0; x < want.width; ++x) {
                            uint32_t& w = want.at(x, y);
                            w = w == kInk ? kInkAyuv : kPaperAyuv;
                        }
                    }
                }
                EXPECT_TRUE(r.samePixels(want)) << resolution << " " << spirals << " " << format;
            }
        }
    }
}

// On white every cell of 4 x 3 to 5 x 4 pixels averages to a key of 226 to
// 242: a circle of radius 1, a plus of five pixels at the cell's centre.
TEST(NewsPrint, WhitePictureGetsOnePlusPerMarkedCellInBothFormats) {
    const Points ink = pixelsEqual(render(Picture(720, 576, 0, kPaper), {}, 0.0), kInk);
    EXPECT_EQ(ink.size(), 166u * 83u * 5u);  // 83 marked cells a row, no overlaps
    // Cell rows 0-2, 3-5, 6-9; marked columns 0-3, 8-12, 17-20 in even rows,
    // 4-7, 13-16 in odd rows; the last column (715-719) in odd rows only.
    for (const auto& [x, y] :
         {std::pair{2, 1}, {10, 1}, {19, 1}, {6, 4}, {15, 4}, {2, 8}, {717, 4}}) {
        for (const auto& [dx, dy] : {std::pair{0, 0}, {1, 0}, {-1, 0}, {0, 1}, {0, -1}}) {
            EXPECT_TRUE(ink.count({x + dx, y + dy})) << x << ", " << y;
        }
    }
    for (const auto& unmarked : {std::pair{6, 1}, {2, 4}, {717, 1}})
        EXPECT_FALSE(ink.count(unmarked));
    // The same words as AYUV pixels give the same marks.
    EXPECT_EQ(pixelsEqual(render(Picture(720, 576, 0, kPaper), {}, 0.0, kFourccAyuv), kInkAyuv),
              ink);
    // 720 x 200 at N = 360: empty cell rows average to opaque black and get
    // the largest mark, so even white fills with ink there.
    EXPECT_GT(
        pixelsEqual(render(Picture(720, 200, 0, kPaper), {{"Resolution", 0.0}}, 0.0), kInk).size(),
        50000u);
}

// One cell over the whole picture ("Resolution" 1), centre (32, 24): the
// filled circle by the midpoint rule with horizontal lines (radii 21 and 38
// show a wrong step of the rule; 128 covers the picture).
TEST(NewsPrint, OneCellCircleMatchesTheLineDrawing) {
    const Picture black(64, 48, 64 * 4 + 12, kInk);
    for (const auto& [contrast, radius] : {std::pair{0.33, 21}, {0.6, 38}, {2.0, 128}}) {
        ASSERT_EQ(np::circleRadius(0, 0.83f, np::circleScale(64.0f, contrast)), radius);
        Picture want(64, 48, black.stride, kFill);
        for (int32_t y = 0; y < 48; ++y) std::fill_n(want.row(y), 64, kPaper);
        for (int32_t x = 0, y = radius, d = 3 - 2 * radius; x <= y; ++x) {
            for (const auto& [ax, ay] : {std::pair{x, y}, {x, -y}, {y, x}, {y, -x}}) {
                drawLine(want.data(), want.stride, 64, 48, 32 + ax, 24 + ay, 32 - ax, 24 + ay,
                         kInk);
            }
            d += d >= 0 ? 4 * (x - y--) + 10 : 4 * x + 6;
        }
        const Picture r = render(black, {{"Resolution", 1.0}, {"Contrast", contrast}}, 0.0);
        EXPECT_EQ(r.words, want.words) << contrast;
    }
}

TEST(NewsPrint, SpiralGrowsWithDarknessAndDotShapeExactlyOne) {
    // One cell 200 wide centred at (100, 100): key 0 gives 359 points (the
    // outer turns leave the picture), every tenth point of the table:
    // radius 200 x i x (1/3600 in single precision), rounded to single
    // precision; angle i x (1/57 in single precision); offsets truncated.
    Points spiral;
    for (int i = 10; i <= 3590; i += 10) {
        const float rho = static_cast<float>(200.0 * i * double(1.0f / 3600.0f));
        const double theta = i * double(1.0f / 57.0f);
        const int32_t x = 100 + int32_t(fxCos(theta) * rho), y = 100 + int32_t(fxSin(theta) * rho);
        if (x >= 0 && x < 200 && y >= 0 && y < 200) spiral.insert({x, y});
    }
    EXPECT_EQ(pixelsEqual(render(Picture(200, 200, 0, kInk), {{"Resolution", 1.0}}, 1.0), kInk),
              spiral);
    // Key 153: the first 154 points only.
    const Points light =
        pixelsEqual(render(Picture(200, 200, 0, 0xFF9A9A9Au), {{"Resolution", 1.0}}, 1.0), kInk);
    EXPECT_EQ(np::spiralLength(153, 0.83f, np::spiralScale(200.0f, 1.09)), 154);
    EXPECT_TRUE(light.size() > 100u && light.size() <= 154u);
    for (const auto& p : light) EXPECT_TRUE(spiral.count(p));

    // Exactly 1.0 (and a new instance) draws spirals, anything else circles.
    const Picture src = testPicture(160, 120, kFourccArgb);
    const Picture spirals = render(src, {}, 1.0), circles = render(src, {}, 0.0);
    EXPECT_FALSE(spirals.samePixels(circles));
    EXPECT_TRUE(renderEffect("NewsPrint", src).target.samePixels(spirals));
    for (double shape : {0.999, 1.0000000000000002, 2.0, kNan}) {
        EXPECT_TRUE(render(src, {}, shape).samePixels(circles)) << shape;
    }
}

// "Contrast" 0 (or below, or NaN), "Resolution" above 1 (an empty grid) or
// beyond 32 bits (cells far too small for a mark) and "Brightness" 2 on
// white leave plain paper, as does a missing source.
TEST(NewsPrint, PlainPaper) {
    const Picture src = testPicture(120, 90, kFourccArgb, 0, 120 * 4 + 8);
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const uint32_t paper = format == kFourccAyuv ? kPaperAyuv : kPaper;
        const Picture plain(120, 90, 0, paper);
        for (double shape : {0.0, 1.0}) {
            for (double contrast : {0.0, -1.0, kNan}) {
                EXPECT_TRUE(
                    render(Picture(120, 90, 0, kInk), {{"Contrast", contrast}}, shape, format)
                        .samePixels(plain))
                    << contrast;
            }
            for (double resolution : {1.5, 1e300}) {
                EXPECT_TRUE(
                    render(src, {{"Resolution", resolution}}, shape, format).samePixels(plain));
            }
            EXPECT_TRUE(render(plain, {{"Brightness", 2.0}}, shape, format).samePixels(plain));
        }
        Picture none(7, 3, 40, kFill);
        reelfx::Instance inst(module(), effectIndex("NewsPrint"), 7, 3);
        ASSERT_EQ(inst.render(nullptr, none, {.format = format}), 0);
        EXPECT_TRUE(untouchedOutside(none, 0, 0, 7, 3, kFill));
        EXPECT_TRUE(none.samePixels(Picture(7, 3, 0, paper)));
    }
}

// One cell 20000 wide: a circle of radius 40000 clipped to two rows, and
// one of radius about 2^31 that covers the picture.
TEST(NewsPrint, HugeMarksAreClipped) {
    for (const double contrast : {2.0, 1.07e5}) {
        const Picture wide = render(Picture(20000, 2, 20000 * 4 + 8, kInk),
                                    {{"Resolution", 1.0}, {"Contrast", contrast}}, 0.0);
        EXPECT_TRUE(wide.samePixels(Picture(20000, 2, 0, kInk))) << contrast;
        EXPECT_TRUE(paddingUntouched(wide, kFill));
    }
}

}  // namespace
