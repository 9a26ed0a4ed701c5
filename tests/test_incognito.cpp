// "Incognito" through the exported entry: the default block grid and the
// ellipse, fine grids, empty and clipped regions, noise replayed from
// the C library's generator, and the active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <tuple>
#include <vector>

#include "plugin/frame_context.h"
#include "support.h"

namespace {

using reelfx::Picture;
using namespace reelfx::test;

constexpr uint32_t kFill = 0x5A5A5A5A;

// Block edges of the default region on 720 x 576 (27.692308 x 22.153847).
const std::vector<int> kCols = {180, 207, 235, 263, 290, 318, 346,
                                373, 401, 429, 456, 484, 512, 540};
const std::vector<int> kRows = {144, 166, 188, 210, 232, 254, 276,
                                299, 321, 343, 365, 387, 409, 432};

// The module's noise draws: rand() reduced to 0 ... 32767.
int draw() {
    return static_cast<int>(static_cast<unsigned>(std::rand()) /
                            ((static_cast<unsigned>(RAND_MAX) + 1u) / 32768u));
}

// The block colour: channel sums over [x0, x1) x [y0, y1) divided by the
// pixel count + 1, b2 lowered by d2 and b1, b0 by d10, clamped, opaque.
uint32_t block(const Picture& p, int x0, int y0, int x1, int y1, int d2 = 0, int d10 = 0) {
    uint32_t out = 0xFF000000u;
    for (int b = 0; b < 3; ++b) {
        int64_t s = 0;
        for (int y = y0; y < y1; ++y) {
            for (int x = x0; x < x1; ++x) s += (p.at(x, y) >> (8 * b)) & 0xFF;
        }
        const int v =
            static_cast<int>(s / (int64_t{x1 - x0} * (y1 - y0) + 1)) - (b == 2 ? d2 : d10);
        out |= static_cast<uint32_t>(std::clamp(v, 0, 255)) << (8 * b);
    }
    return out;
}

// The expected 720 x 576 output with the default region: block (r, c)
// coloured by paint(r, c), only where inside(x, y).
template <class Paint, class Inside>
Picture expected720(const Picture& src, Paint paint, Inside inside) {
    Picture want = src;
    for (int r = 0; r < 13; ++r) {
        for (int c = 0; c < 13; ++c) {
            const uint32_t colour = paint(r, c);
            for (int y = kRows[r]; y < kRows[r + 1]; ++y) {
                for (int x = kCols[c]; x < kCols[c + 1]; ++x) {
                    if (inside(x, y)) want.at(x, y) = colour;
                }
            }
        }
    }
    return want;
}

// The grid written out for noise 0: n = 128 - (128 q) / 100 blocks per side
// over the region, every block (r, c) clamped, averaged and painted, in the
// ellipse for "Shape" 0.
Picture modelGrid(const Picture& src, double intensity, double xSize, double ySize, int shape) {
    const int w = src.width, h = src.height;
    const int64_t q = static_cast<int64_t>(intensity * 100.0);
    const int64_t n = 128 - (128 * q) / 100;
    const int rw = static_cast<int>(w * xSize), rh = static_cast<int>(h * ySize);
    const int cx = w >> 1, cy = h >> 1;
    const double ox = static_cast<float>(cx - (rw >> 1)), oy = static_cast<float>(cy - (rh >> 1));
    const double a = std::max(rw >> 1, 1), b = std::max(rh >> 1, 1);
    const double bw = static_cast<float>(double(rw) / double(n));
    const double bh = static_cast<float>(double(rh) / double(n));
    Picture want = src;
    // Far too many blocks to walk: each is under a pixel, so every pixel
    // from the first block's edge to the last one's is a block of its own.
    const bool pixels = n > 100000;
    const int64_t rows = pixels ? h : n, cols = pixels ? w : n;
    for (int64_t r = 0; r < rows; ++r) {
        int y0 = std::max(static_cast<int>(r * bh + oy), 0);
        int y1 = std::min(static_cast<int>((r + 1) * bh + oy), h);
        if (pixels) {
            y0 = static_cast<int>(r);
            y1 = r >= static_cast<int>(oy) && r < static_cast<int>(n * bh + oy) ? y0 + 1 : y0;
        }
        for (int64_t c = 0; c < cols && y0 < y1; ++c) {
            int x0 = std::max(static_cast<int>(c * bw + ox), 0);
            int x1 = std::min(static_cast<int>((c + 1) * bw + ox), w);
            if (pixels) {
                x0 = static_cast<int>(c);
                x1 = c >= static_cast<int>(ox) && c < static_cast<int>(n * bw + ox) ? x0 + 1 : x0;
            }
            if (x0 >= x1) continue;
            const uint32_t colour = block(src, x0, y0, x1, y1);
            for (int y = y0; y < y1; ++y) {
                for (int x = x0; x < x1; ++x) {
                    const double dx = x - cx, dy = y - cy;
                    if (shape != 0 || dy * dy / (b * b) + dx * dx / (a * a) < 1.0) {
                        want.at(x, y) = colour;
                    }
                }
            }
        }
    }
    return want;
}

// Grids finer than 128 follow the formula: "Intensity" -1 gives 256
// one-pixel blocks per side (a flat 0x80 picture becomes 0x40 all over),
// -7 gives 1024 blocks of 2.5 pixels over a region wider than the picture.
// Beyond 1024 only the blocks inside the picture are visited, with the same
// pixels: 2688 blocks of 2.4 pixels, and 1.28e8 blocks of a sub-pixel size
// (whose last edge, n times the rounded block size, ends a pixel short).
TEST(Incognito, FineGridsFollowTheFormula) {
    const Picture flat(256, 256, 0, 0xFF808080u);
    const auto one =
        renderEffect("Incognito", flat, {{"Intensity", -1.0}, {"X Size", 1.0}, {"Y Size", 1.0}});
    EXPECT_EQ(std::count(one.target.words.begin(), one.target.words.end(), 0xFF404040u), 256 * 256);
    const Picture src = testPicture(64, 48, kFourccArgb);
    const std::tuple<double, double, double, int> cases[] = {{0.0, 0.5, 0.5, 1},
                                                             {-7.0, 40.0, 0.7, 0},
                                                             {-20.0, 100.0, 0.3, 0},
                                                             {-20.0, 0.9, 0.6, 1},
                                                             {-1e6, 0.5, 0.5, 0}};
    for (const auto& [intensity, xSize, ySize, shape] : cases) {
        const auto r = renderEffect("Incognito", src,
                                    {{"Intensity", intensity},
                                     {"X Size", xSize},
                                     {"Y Size", ySize},
                                     {"Shape", double(shape)}});
        EXPECT_EQ(r.target.words, modelGrid(src, intensity, xSize, ySize, shape).words)
            << intensity << " " << xSize << " " << ySize << " " << shape;
    }
}

// Nothing to paint: the output is the source and the generator still
// advances by three draws per block, 3 x 13 x 13 (none when "Intensity" above 1 asks for
// fewer than one block). "X Position" 0.5 pixelates only the left half.
TEST(Incognito, EmptyAndClippedRegions) {
    const Picture src = testPicture(90, 70, kFourccArgb, 0, 90 * 4 + 4);
    const double inf = std::numeric_limits<double>::infinity();
    const std::tuple<const char*, double, int> cases[] = {{"X Size", 0.0, 507},
                                                          {"Y Size", std::nan(""), 507},
                                                          {"X Position", 1.0, 507},
                                                          {"Y Position", -inf, 507},
                                                          {"Intensity", 1.01, 0}};
    for (const auto& [name, value, draws] : cases) {
        std::srand(12345);
        const auto r = renderEffect("Incognito", src, {{name, value}, {"Noise", 1.0}});
        const int next = std::rand();
        std::srand(12345);
        for (int i = 0; i < draws; ++i) std::rand();
        EXPECT_EQ(next, std::rand()) << name << " " << value;
        EXPECT_TRUE(r.target.samePixels(src)) << name << " " << value;
    }
    // Region 45 x 35 centred on the right edge: columns 68 to 89 change.
    const auto half = renderEffect("Incognito", src, {{"X Position", 0.5}, {"Intensity", 1.0}});
    for (int x = 0; x < 90; ++x) {
        EXPECT_EQ(half.target.at(x, 35) != src.at(x, 35), x >= 68) << x;
    }
    EXPECT_EQ(half.target.at(89, 35), block(src, 68, 18, 90, 53));
}

// The default region on 720 x 576, "Round" in ARGB and "Squared" in AYUV,
// with the noise replayed from the same generator sequence: three draws per
// block, the first one used; AYUV shifts the luma only, ARGB all three. The
// seed hands some block the top draw 32767 first: times 1/32767 in single
// precision that is just below 1, so its noise is trunc(-49.99...) = -49
// (the exact reciprocal would give -50).
TEST(Incognito, DefaultGridEllipseAndNoise) {
    auto topDraw = [](unsigned seed) {
        std::srand(seed);
        for (int i = 0; i < 3 * 13 * 13; ++i) {
            if (draw() == 32767 && i % 3 == 0) return true;
        }
        return false;
    };
    unsigned seed = 1;
    while (!topDraw(seed)) ++seed;
    auto ellipse = [](int x, int y) {  // strictly inside: points on it keep the source
        const double dx = x - 360, dy = y - 288;
        return dy * dy / (144.0 * 144.0) + dx * dx / (180.0 * 180.0) < 1.0;
    };
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const bool round = format == kFourccArgb;
        const Picture src = testPicture(720, 576, format, 4, 720 * 4 + 8);
        std::srand(seed);
        const auto r = renderEffect(
            "Incognito", src, {{"Noise", 1.0}, {"Shape", round ? 0.0 : 1.0}}, {.format = format});
        std::srand(seed);
        std::vector<int> noise;
        for (int i = 0; i < 13 * 13; ++i, std::rand(), std::rand()) {
            noise.push_back(static_cast<int>((0.5 - draw() * double(3.0518509e-5f)) * 100));
        }
        ASSERT_NE(std::find(noise.begin(), noise.end(), -49), noise.end());
        auto noisy = [&](int row, int col) {
            const int d = noise[row * 13 + col];
            return block(src, kCols[col], kRows[row], kCols[col + 1], kRows[row + 1], d,
                         round ? d : 0);
        };
        const Picture want =
            expected720(src, noisy, [&](int x, int y) { return !round || ellipse(x, y); });
        EXPECT_TRUE(r.target.samePixels(want)) << formatName(format);
        EXPECT_TRUE(paddingUntouched(r.target, kFill));
        EXPECT_EQ(r.target.at(360, 144) == src.at(360, 144), round);
    }
}

}  // namespace
