// Block sampling and line drawing: the brightness key, the block average
// (clamped corners, exclusive upper corner, divisor + 1, 64-bit sums) and
// the clipped Bresenham line, on pictures surrounded by guard words.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "pixel/block.h"

namespace {

constexpr uint32_t kGuard = 0xA5C3E1F7u;

// A picture of w x h words with two guard rows above and below and three
// guard words after every row.
struct Guarded {
    int32_t w, h, pitch;
    std::vector<uint32_t> words;
    Guarded(int32_t width, int32_t height, uint32_t fill)
        : w(width),
          h(height),
          pitch(width + 3),
          words(static_cast<size_t>(pitch) * (height + 4), kGuard) {
        for (int32_t y = 0; y < h; ++y) {
            for (int32_t x = 0; x < w; ++x) at(x, y) = fill;
        }
    }
    uint32_t& at(int32_t x, int32_t y) { return words[static_cast<size_t>(y + 2) * pitch + x]; }
    uint32_t* base() { return &at(0, 0); }
    int32_t stride() const { return pitch * 4; }
    bool guardsIntact() const {
        for (size_t i = 0; i < words.size(); ++i) {
            const int64_t row = static_cast<int64_t>(i / pitch) - 2;
            const int64_t col = static_cast<int64_t>(i % pitch);
            if (!(row >= 0 && row < h && col < w) && words[i] != kGuard) return false;
        }
        return true;
    }
    std::set<std::pair<int32_t, int32_t>> pixelsEqual(uint32_t word) {
        std::set<std::pair<int32_t, int32_t>> s;
        for (int32_t y = 0; y < h; ++y) {
            for (int32_t x = 0; x < w; ++x) {
                if (at(x, y) == word) s.insert({x, y});
            }
        }
        return s;
    }
};

using Points = std::set<std::pair<int32_t, int32_t>>;

TEST(PixelBlock, BrightnessKey) {
    EXPECT_EQ(brightnessKey(0x00000000u), 0);
    EXPECT_EQ(brightnessKey(0x00FFFFFFu), 255);
    EXPECT_EQ(brightnessKey(0xFFFF0000u), 63);                          // 510 >> 3
    EXPECT_EQ(brightnessKey(0x0000FF00u), 159);                         // 1275 >> 3
    EXPECT_EQ(brightnessKey(0x000000FFu), 31);                          // 255 >> 3
    EXPECT_EQ(brightnessKey(0xFF0F0F0Fu), brightnessKey(0x000F0F0Fu));  // alpha ignored
}

TEST(PixelBlock, BlockAverageDivisorAndClamping) {
    Guarded p(6, 5, 0);
    for (int32_t y = 0; y < 5; ++y) {
        for (int32_t x = 0; x < 6; ++x) {
            p.at(x, y) = static_cast<uint32_t>(x * 40 + y) << 24 | 0x00C86432u;  // any alpha
        }
    }
    // 1 x 1: each byte halved; always opaque.
    EXPECT_EQ(blockAverage(p.base(), p.stride(), 6, 5, 2, 1, 3, 2), 0xFF643219u);
    // 4 x 3: 12/13 of the mean (200 -> 184, 100 -> 92, 50 -> 46).
    EXPECT_EQ(blockAverage(p.base(), p.stride(), 6, 5, 0, 0, 4, 3), 0xFFB85C2Eu);
    // Empty after clamping (a cell of a grid finer than the picture, or one
    // starting at the last column): nothing summed, n = 1, opaque black.
    EXPECT_EQ(blockAverage(p.base(), p.stride(), 6, 5, 3, 1, 3, 4), 0xFF000000u);
    EXPECT_EQ(blockAverage(p.base(), p.stride(), 6, 5, 5, 0, 6, 5), 0xFF000000u);
    // Corners beyond the picture are clamped, the upper one to the last
    // column and row, which are left out.
    EXPECT_EQ(blockAverage(p.base(), p.stride(), 6, 5, -9, -9, 99, 99),
              blockAverage(p.base(), p.stride(), 6, 5, 0, 0, 5, 4));
    EXPECT_TRUE(p.guardsIntact());
}

TEST(PixelBlock, WholePictureLeavesOutTheLastColumnAndRow) {
    Guarded p(7, 4, 0xFF101010u);
    for (int32_t y = 0; y < 4; ++y) p.at(6, y) = 0xFFFFFFFFu;
    for (int32_t x = 0; x < 7; ++x) p.at(x, 3) = 0xFFFFFFFFu;
    // 6 x 3 pixels of 16 summed, divided by 6 * 3 + 1 = 19: 288 / 19 = 15.
    EXPECT_EQ(blockAverage(p.base(), p.stride(), 7, 4, 0, 0, 7, 4), 0xFF0F0F0Fu);
}

// Reversed corners are outside what callers pass: opaque black, nothing
// read outside the picture, no overflow for corners at the ends of the
// 32-bit range.
TEST(PixelBlock, ReversedAndExtremeCornersAreSafe) {
    Guarded p(5, 4, 0xFF808080u);
    EXPECT_EQ(blockAverage(p.base(), p.stride(), 5, 4, 4, 0, 1, 3), 0xFF000000u);
    EXPECT_EQ(blockAverage(p.base(), p.stride(), 5, 4, 0, 3, 4, 1), 0xFF000000u);
    EXPECT_EQ(blockAverage(p.base(), p.stride(), 5, 4, 4, 3, 1, 1), 0xFF000000u);
    EXPECT_EQ(blockAverage(p.base(), p.stride(), 5, 4, INT32_MAX, INT32_MAX, INT32_MIN, INT32_MIN),
              0xFF000000u);
    EXPECT_EQ(blockAverage(p.base(), p.stride(), 5, 4, INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX),
              0xFF767676u);  // 12 pixels of 128 over 13
    EXPECT_EQ(blockAverage(p.base(), p.stride(), 5, 4, INT32_MAX, 0, INT32_MIN, 3), 0xFF000000u);
}

// 4200 x 4100 white pixels: 4199 x 4099 of them are summed, 4,388,983,755
// per byte, past 2^32; the average is 255 * 17,211,701 / 17,211,702 = 254.
TEST(PixelBlock, LargeBlocksSumIn64Bits) {
    const int32_t w = 4200, h = 4100;
    std::vector<uint32_t> pic(static_cast<size_t>(w) * h, 0xFFFFFFFFu);
    EXPECT_EQ(blockAverage(pic.data(), w * 4, w, h, 0, 0, w, h), 0xFFFEFEFEu);
}

TEST(PixelBlock, LineCases) {
    Guarded p(8, 6, 0);
    drawLine(p.base(), p.stride(), 8, 6, 3, 2, 3, 2, 1);  // a single point
    EXPECT_EQ(p.pixelsEqual(1), (Points{{3, 2}}));

    drawLine(p.base(), p.stride(), 8, 6, 0, 0, 5, 2, 2);  // x-major
    EXPECT_EQ(p.pixelsEqual(2), (Points{{0, 0}, {1, 0}, {2, 1}, {3, 1}, {4, 2}, {5, 2}}));
    // The other way round the walk starts at (5, 2).
    drawLine(p.base(), p.stride(), 8, 6, 5, 2, 0, 0, 3);
    EXPECT_EQ(p.pixelsEqual(3), (Points{{5, 2}, {4, 2}, {3, 1}, {2, 1}, {1, 0}, {0, 0}}));

    drawLine(p.base(), p.stride(), 8, 6, 1, 0, 3, 5, 4);  // y-major
    EXPECT_EQ(p.pixelsEqual(4), (Points{{1, 0}, {1, 1}, {2, 2}, {2, 3}, {3, 4}, {3, 5}}));
    drawLine(p.base(), p.stride(), 8, 6, 0, 5, 4, 1, 5);  // |dx| = |dy|: a diagonal
    EXPECT_EQ(p.pixelsEqual(5), (Points{{0, 5}, {1, 4}, {2, 3}, {3, 2}, {4, 1}}));
    drawLine(p.base(), p.stride(), 8, 6, 7, 3, 2, 3, 6);  // horizontal, right to left
    EXPECT_EQ(p.pixelsEqual(6), (Points{{2, 3}, {3, 3}, {4, 3}, {5, 3}, {6, 3}, {7, 3}}));
    EXPECT_TRUE(p.guardsIntact());
}

// A line that starts and ends outside the picture is drawn exactly where the
// unclipped line crosses it; nothing outside the picture is written.
TEST(PixelBlock, LinesClipExactlyToThePicture) {
    const int32_t ends[][4] = {{-7, -3, 20, 11}, {25, -4, -6, 12}, {3, -20, 6, 30}, {-50, 2, 60, 3},
                               {4, 4, 4, 40},    {-9, -9, -1, 30}, {12, 0, 30, 5},  {-2, 7, 15, 7}};
    for (const auto& e : ends) {
        // The unclipped line on a big canvas whose window (20, 20) - (31, 29)
        // is the small picture.
        Guarded big(100, 100, 0);
        drawLine(big.base(), big.stride(), 100, 100, e[0] + 20, e[1] + 20, e[2] + 20, e[3] + 20, 9);
        Points want;
        for (const auto& [x, y] : big.pixelsEqual(9)) {
            if (x >= 20 && x < 32 && y >= 20 && y < 30) want.insert({x - 20, y - 20});
        }
        Guarded small(12, 10, 0);
        drawLine(small.base(), small.stride(), 12, 10, e[0], e[1], e[2], e[3], 9);
        EXPECT_EQ(small.pixelsEqual(9), want) << e[0] << "," << e[1] << " " << e[2] << "," << e[3];
        EXPECT_TRUE(small.guardsIntact());
    }
    // Far-away ends, entirely outside: nothing is written.
    Guarded p(6, 4, 0);
    drawLine(p.base(), p.stride(), 6, 4, -100000, -5, 100000, -1, 9);
    drawLine(p.base(), p.stride(), 6, 4, 6, -3, 9, 40, 9);
    EXPECT_TRUE(p.pixelsEqual(9).empty());
    EXPECT_TRUE(p.guardsIntact());
}

TEST(PixelBlock, FillRectStaysInsideItsRectangle) {
    Guarded p(5, 3, 0);
    fillRect(p.base(), p.stride(), 5, 3, 7);
    EXPECT_EQ(p.pixelsEqual(7).size(), 15u);
    fillRect(p.base(), p.stride(), 0, 3, 8);
    fillRect(p.base(), p.stride(), -4, 3, 8);
    fillRect(p.base(), p.stride(), 5, -2, 8);
    EXPECT_TRUE(p.pixelsEqual(8).empty());
    EXPECT_TRUE(p.guardsIntact());
}

}  // namespace
