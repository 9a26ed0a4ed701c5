// "NewsPrint": grid size, cell boundaries and mark sizes (white-box), the
// marks through the entry, the "Dot Shape" choice, plain-paper cases and
// safety (hostile values, tiny and very wide pictures, border bars, padding).
#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <utility>

#include "effects/newsprint.h"
#include "pixel/block.h"
#include "pixel/fxmath.h"
#include "plugin/frame_context.h"
#include "support.h"

namespace {

using reelfx::Picture;
using reelfx::test::flatPicture;
using reelfx::test::renderEffect;
using reelfx::test::testPicture;
namespace np = newsprint;

constexpr uint32_t kFill = 0x5A5A5A5A;
constexpr uint32_t kInk = 0xFF000000u;
constexpr uint32_t kPaper = 0xFFFFFFFFu;
constexpr uint32_t kInkAyuv = 0xFF108080u;
constexpr uint32_t kPaperAyuv = 0xFFEA8080u;
const double kNan = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

// "Dot Shape" 0 = circles, 1 = spirals.
reelfx::test::RenderResult render(const Picture& src,
                                  std::vector<std::pair<std::string, double>> params, double shape,
                                  uint32_t format = kFourccArgb) {
    params.emplace_back("Dot Shape", shape);
    return renderEffect("NewsPrint", src, params, {.format = format});
}

std::set<std::pair<int32_t, int32_t>> pixelsEqual(const Picture& p, uint32_t word) {
    std::set<std::pair<int32_t, int32_t>> s;
    for (int32_t y = 0; y < p.height; ++y) {
        for (int32_t x = 0; x < p.width; ++x) {
            if (p.at(x, y) == word) s.insert({x, y});
        }
    }
    return s;
}

bool plain(const Picture& p, uint32_t word) {
    return pixelsEqual(p, word).size() == static_cast<size_t>(p.width) * p.height;
}

TEST(NewsPrint, GridAndMarkSizes) {
    EXPECT_EQ(np::gridSize(720, 0.54), 166);
    EXPECT_EQ(np::gridSize(720, 0.0), 360);
    EXPECT_EQ(np::gridSize(720, 1.0), 1);
    EXPECT_EQ(np::gridSize(1, 0.54), 1);   // 0 becomes 1
    EXPECT_LT(np::gridSize(720, 1.5), 0);  // an empty grid
    EXPECT_LT(np::gridSize(720, kInf), 0);
    // Below -1 (and NaN) cells stop at one pixel: N never exceeds the width.
    EXPECT_EQ(np::gridSize(720, -1e300), 720);
    EXPECT_EQ(np::gridSize(721, kNan), 720);

    const float wc = np::cellSize(720, 166);
    const float hc = np::cellSize(576, 166);
    EXPECT_EQ(wc, 4.3373494f);
    EXPECT_EQ(hc, 3.4698796f);
    const int32_t cols[] = {0, 4, 8, 13, 17, 21};
    const int32_t rows[] = {0, 3, 6, 10, 13, 17};
    for (int32_t k = 0; k < 6; ++k) {
        EXPECT_EQ(np::cellBoundary(k, wc, 166, 720), cols[k]);
        EXPECT_EQ(np::cellBoundary(k, hc, 166, 576), rows[k]);
    }
    EXPECT_EQ(np::cellBoundary(166, wc, 166, 720), 720);

    const float b = np::brightnessFactor(0.83);
    const float circle = np::circleScale(wc, 1.09);
    const float spiral = np::spiralScale(wc, 1.09);
    EXPECT_EQ(circle, 0.018540043f);
    EXPECT_EQ(spiral, 3.3093975f);
    const std::pair<int32_t, int32_t> radii[] = {{0, 4}, {64, 3}, {128, 2}, {200, 1}, {255, 0}};
    for (const auto& [key, r] : radii) EXPECT_EQ(np::circleRadius(key, b, circle), r) << key;
    const std::pair<int32_t, int32_t> lengths[] = {{0, 359}, {64, 359}, {128, 139}};
    for (const auto& [key, l] : lengths) EXPECT_EQ(np::spiralLength(key, b, spiral), l) << key;
    EXPECT_LT(np::spiralLength(200, b, spiral), 1);
    // "Brightness" 2: no circle from key 128, no spiral from key 64.
    EXPECT_LT(np::circleRadius(128, 2.0f, circle), 1);
    EXPECT_LT(np::spiralLength(64, 2.0f, spiral), 1);
    // "Brightness" and "Contrast" work in 0 ... 2, NaN as 0.
    EXPECT_EQ(np::brightnessFactor(-5.0), 0.0f);
    EXPECT_EQ(np::brightnessFactor(kNan), 0.0f);
    EXPECT_EQ(np::contrastFactor(1e300), 2.0);
}

// On white every cell of 4 x 3 to 5 x 4 pixels averages to a key of 226 to
// 242: a circle of radius 1, a plus of five pixels at the cell's centre.
TEST(NewsPrint, WhitePictureGetsOnePlusPerMarkedCell) {
    const auto r = render(flatPicture(720, 576, kPaper), {}, 0.0);
    const auto ink = pixelsEqual(r.target, kInk);
    EXPECT_EQ(ink.size(), 166u * 83u * 5u);  // 83 marked cells a row, no overlaps
    // Cell rows 0-2, 3-5, 6-9; marked columns 0-3, 8-12, 17-20 in even rows,
    // 4-7, 13-16 in odd rows; the last column (715-719) in odd rows only.
    const std::pair<int32_t, int32_t> centres[] = {{2, 1},  {10, 1}, {19, 1},  {6, 4},
                                                   {15, 4}, {2, 8},  {717, 4}, {713, 1}};
    for (const auto& [x, y] : centres) {
        for (const auto& [dx, dy] : {std::pair{0, 0}, {1, 0}, {-1, 0}, {0, 1}, {0, -1}}) {
            EXPECT_TRUE(ink.count({x + dx, y + dy})) << x << ", " << y;
        }
        EXPECT_FALSE(ink.count({x + 1, y + 1})) << x << ", " << y;
    }
    for (const auto& unmarked : {std::pair{6, 1}, {2, 4}, {717, 1}}) {
        EXPECT_FALSE(ink.count(unmarked));
    }
    // The same words as AYUV pixels give the same marks.
    const auto y = render(flatPicture(720, 576, kPaper), {}, 0.0, kFourccAyuv);
    EXPECT_EQ(pixelsEqual(y.target, kInkAyuv), ink);
}

// The filled circle exactly as described: horizontal lines, midpoint rule.
Picture lineDrawnCircle(int32_t w, int32_t h, int32_t stride, int32_t cx, int32_t cy, int32_t r) {
    Picture p(w, h, stride, kFill);
    for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) p.at(x, y) = kPaper;
    }
    for (int32_t x = 0, y = r, d = 3 - 2 * r; x <= y; ++x) {
        drawLine(p.data(), stride, w, h, cx + x, cy + y, cx - x, cy + y, kInk);
        drawLine(p.data(), stride, w, h, cx + x, cy - y, cx - x, cy - y, kInk);
        drawLine(p.data(), stride, w, h, cx + y, cy + x, cx - y, cy + x, kInk);
        drawLine(p.data(), stride, w, h, cx + y, cy - x, cx - y, cy - x, kInk);
        if (d >= 0) {
            d += 4 * (x - y) + 10;
            --y;
        } else {
            d += 4 * x + 6;
        }
    }
    return p;
}

TEST(NewsPrint, OneCellCircleMatchesTheLineDrawing) {
    // "Resolution" 1: one cell over the whole picture, centre (32, 24).
    const Picture black = flatPicture(64, 48, kInk, 64 * 4 + 12);
    for (const auto& [contrast, radius] : {std::pair{0.3, 19}, {0.6, 38}, {2.0, 128}}) {
        EXPECT_EQ(np::circleRadius(0, 0.83f, np::circleScale(64.0f, contrast)), radius);
        const auto r = render(black, {{"Resolution", 1.0}, {"Contrast", contrast}}, 0.0);
        EXPECT_TRUE(r.target.samePixels(lineDrawnCircle(64, 48, black.stride, 32, 24, radius)));
        EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
    }
}

TEST(NewsPrint, SpiralGrowsWithDarknessAndDotShapeExactlyOne) {
    // One cell 200 wide centred at (100, 100): key 0 gives 359 points (the
    // outer turns leave the picture), key 153 the first 154 of them.
    const auto dark = render(flatPicture(200, 200, 0xFF000000u), {{"Resolution", 1.0}}, 1.0);
    const auto light = render(flatPicture(200, 200, 0xFF9A9A9Au), {{"Resolution", 1.0}}, 1.0);
    const auto inkDark = pixelsEqual(dark.target, kInk);
    const auto inkLight = pixelsEqual(light.target, kInk);
    EXPECT_EQ(np::spiralLength(153, 0.83f, np::spiralScale(200.0f, 1.09)), 154);
    // Every tenth spiral point from the table's formula: radius 200 x i x
    // (1/3600 in single precision), rounded to single precision; angle i x
    // (1/57 in single precision); offsets truncated.
    std::set<std::pair<int32_t, int32_t>> spiral;
    for (int j = 1; j <= 359; ++j) {
        const int i = 10 * j;
        const float rho = static_cast<float>(200.0 * i * static_cast<double>(1.0f / 3600.0f));
        const double theta = i * static_cast<double>(1.0f / 57.0f);
        const int32_t x = 100 + static_cast<int32_t>(fxCos(theta) * rho);
        const int32_t y = 100 + static_cast<int32_t>(fxSin(theta) * rho);
        if (x >= 0 && x < 200 && y >= 0 && y < 200) spiral.insert({x, y});
    }
    EXPECT_EQ(inkDark, spiral);
    EXPECT_LE(inkDark.size(), 359u);
    EXPECT_GT(inkDark.size(), 150u);
    EXPECT_LE(inkLight.size(), 154u);
    EXPECT_GT(inkLight.size(), 100u);
    for (const auto& p : inkLight) EXPECT_TRUE(inkDark.count(p));

    // Exactly 1.0 (and a new instance) draws spirals, anything else circles.
    const Picture src = testPicture(160, 120, kFourccArgb);
    const auto spirals = render(src, {}, 1.0);
    const auto circles = render(src, {}, 0.0);
    EXPECT_FALSE(spirals.target.samePixels(circles.target));
    EXPECT_TRUE(renderEffect("NewsPrint", src).target.samePixels(spirals.target));
    for (double shape : {0.999, 1.0000000000000002, 2.0, kNan}) {
        EXPECT_TRUE(render(src, {}, shape).target.samePixels(circles.target)) << shape;
    }
    EXPECT_GT(
        pixelsEqual(render(flatPicture(200, 200, 0xFF000000u), {{"Resolution", 1.0}}, 0.999).target,
                    kInk)
            .size(),
        30000u);
}

TEST(NewsPrint, PlainPaper) {
    const Picture src = testPicture(120, 90, kFourccArgb, 0, 120 * 4 + 8);
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const uint32_t paper = format == kFourccAyuv ? kPaperAyuv : kPaper;
        for (double shape : {0.0, 1.0}) {
            // "Contrast" 0 (or below, or NaN): R and L are 0.
            for (double contrast : {0.0, -1.0, kNan}) {
                const auto r =
                    render(flatPicture(120, 90, kInk), {{"Contrast", contrast}}, shape, format);
                EXPECT_TRUE(plain(r.target, paper)) << contrast;
            }
            // A "Resolution" above 1 empties the grid.
            for (double resolution : {1.5, 1e300, kInf}) {
                const auto r = render(src, {{"Resolution", resolution}}, shape, format);
                EXPECT_TRUE(plain(r.target, paper)) << resolution;
            }
            // "Brightness" 2 on white: no marks.
            const auto r =
                render(flatPicture(120, 90, paper), {{"Brightness", 2.0}}, shape, format);
            EXPECT_TRUE(plain(r.target, paper));
        }
        // No source: paper.
        reelfx::Instance inst(reelfx::test::module(), reelfx::test::effectIndex("NewsPrint"), 7, 3);
        Picture dst(7, 3, 40, kFill);
        ASSERT_EQ(inst.render(nullptr, dst, {.format = format}), 0);
        EXPECT_TRUE(plain(dst, paper));
        EXPECT_TRUE(reelfx::test::paddingUntouched(dst, kFill));
    }
}

TEST(NewsPrintSafety, HostileValuesAndOddPictures) {
    const double hostile[] = {kNan, kInf, -kInf, 1e300, -1e300, -1.0, 4294967295.0};
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        for (const auto& [w, h] : {std::pair{1, 1}, {2, 1}, {1, 3}, {5, 3}, {90, 40}}) {
            const Picture src = testPicture(w, h, format, 0, w * 4 + 12);
            for (double shape : {0.0, 1.0}) {
                for (double v : hostile) {
                    for (const char* name : {"Resolution", "Brightness", "Contrast"}) {
                        const auto r = render(src, {{name, v}}, shape, format);
                        ASSERT_TRUE(reelfx::test::paddingUntouched(r.target, kFill)) << name << v;
                    }
                }
            }
        }
    }
    // 720 x 200 at N = 360: many cell rows are empty; their average is
    // opaque black, so even white gets marks.
    const auto rows = render(flatPicture(720, 200, kPaper), {{"Resolution", 0.0}}, 0.0);
    EXPECT_GT(pixelsEqual(rows.target, kInk).size(), 1000u);
    // One cell 20000 wide: a circle of radius 40000 inks a two-row picture;
    // a one-row picture at N = 10000 stays cheap.
    const auto wide = render(flatPicture(20000, 2, kInk, 20000 * 4 + 8),
                             {{"Resolution", 1.0}, {"Contrast", 2.0}}, 0.0);
    EXPECT_TRUE(plain(wide.target, kInk));
    EXPECT_TRUE(reelfx::test::paddingUntouched(wide.target, kFill));
    for (double shape : {0.0, 1.0}) {
        const auto r = render(flatPicture(20000, 1, kPaper, 20000 * 4 + 8),
                              {{"Resolution", 0.0}, {"Contrast", 2.0}}, shape);
        EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
        EXPECT_FALSE(pixelsEqual(r.target, kInk).empty());
    }
}

TEST(NewsPrintSafety, BorderBarsStayBlack) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(320, 240, format, 0, 320 * 4 + 8);
        for (double shape : {0.0, 1.0}) {
            const auto r = renderEffect(
                "NewsPrint", src, {{"Resolution", 1.0}, {"Contrast", 2.0}, {"Dot Shape", shape}},
                {.format = format,
                 .displayAspect = 4.0 / 3.0,
                 .aspectFitting = true,
                 .aspectPreset = 3});
            // 16:9 in a 4:3 frame: rows 30-209 active, black bars around.
            const uint32_t black = format == kFourccAyuv ? kBorderAyuv : kBorderArgb;
            for (int32_t y = 0; y < 240; ++y) {
                if (y >= 30 && y < 210) continue;
                for (int32_t x = 0; x < 320; ++x)
                    ASSERT_EQ(r.target.at(x, y), black) << x << ", " << y;
            }
            EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
            EXPECT_FALSE(pixelsEqual(r.target, format == kFourccAyuv ? kInkAyuv : kInk).empty());
        }
    }
}

}  // namespace
