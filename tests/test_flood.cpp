// "Flood" through the exported entry: the pass count, flat pictures, a ramp
// draining to the left edge, the neighbour order, the edge rows and columns,
// a literal model of the walk, both formats and the border bars.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "support.h"

namespace {

using reelfx::Picture;
using reelfx::RenderOptions;
using reelfx::test::formatName;
using reelfx::test::renderEffect;
using reelfx::test::testPicture;

constexpr uint32_t kFill = 0x5A5A5A5A;

int key(uint32_t p) {
    return static_cast<int>((2 * ((p >> 16) & 0xFF) + 5 * ((p >> 8) & 0xFF) + (p & 0xFF)) >> 3);
}

// The walk and the passes written out literally: every interior pixel walks
// on its own, every pass runs, the destination's edges are the source's.
Picture modelFlood(const Picture& src, int passes, uint32_t fill) {
    Picture dst(src.width, src.height, src.stride, fill);
    const int w = src.width, h = src.height;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            if (x == 0 || y == 0 || x == w - 1 || y == h - 1) dst.at(x, y) = src.at(x, y);
        }
    }
    Picture work = src;
    for (int pass = 0; pass < passes; ++pass) {
        for (int y = 1; y < h - 1; ++y) {
            for (int x = 1; x < w - 1; ++x) {
                int cx = x, cy = y;
                while (cx != 0 && cy != 0 && cx != w - 1 && cy != h - 1) {
                    int best = key(work.at(cx, cy)), nx = cx, ny = cy;
                    const int around[4][2] = {
                        {cx, cy - 1}, {cx, cy + 1}, {cx - 1, cy}, {cx + 1, cy}};
                    for (const auto& n : around) {
                        if (key(work.at(n[0], n[1])) < best) {
                            best = key(work.at(n[0], n[1]));
                            nx = n[0];
                            ny = n[1];
                        }
                    }
                    if (nx == cx && ny == cy) break;
                    cx = nx;
                    cy = ny;
                    if (best == 0) break;
                }
                dst.at(x, y) = work.at(cx, cy);
            }
        }
        for (int y = 0; y < h; ++y) std::copy_n(dst.row(y), w, work.row(y));
    }
    return dst;
}

// Bright flat picture with one dark pixel: every pass spreads the dark
// colour one step further, so after N passes it covers a diamond of radius N.
TEST(Flood, PassCountFollowsIntensity) {
    const uint32_t bright = 0xFFC0C0C0u, dark = 0x80000010u;  // key 2, alpha 0x80
    Picture src(31, 31, 0, bright);
    src.at(15, 15) = dark;
    const double nan = std::nan("");
    const double cases[][2] = {{0.0, 1},  {1.0, 1}, {0.99, 1},  {2.9, 2},  {5.0, 5},
                               {-4.0, 1}, {nan, 1}, {1e300, 1}, {12.5, 12}};
    for (const auto& c : cases) {
        const int n = static_cast<int>(c[1]);
        const auto r = renderEffect("Flood", src, {{"Intensity", c[0]}});
        for (int y = 0; y < 31; ++y) {
            for (int x = 0; x < 31; ++x) {
                const int d = std::abs(x - 15) + std::abs(y - 15);
                ASSERT_EQ(r.target.at(x, y), d <= n ? dark : bright)
                    << "Intensity " << c[0] << " at " << x << ", " << y;
            }
        }
    }
    // Far more passes than the picture needs: the interior fills up, the edge
    // rows and columns keep the source's colour.
    for (double intensity : {100.0, 1e9}) {
        const auto r = renderEffect("Flood", src, {{"Intensity", intensity}});
        for (int y = 0; y < 31; ++y) {
            for (int x = 0; x < 31; ++x) {
                const bool edge = x == 0 || y == 0 || x == 30 || y == 30;
                ASSERT_EQ(r.target.at(x, y), edge ? bright : dark) << x << ", " << y;
            }
        }
    }
}

// All keys equal, words different: nothing moves and the result is the source.
TEST(Flood, FlatPictureIsCopied) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        Picture src(23, 17, 23 * 4 + 12, kFill);
        for (int y = 0; y < 17; ++y) {
            for (int x = 0; x < 23; ++x) {
                // key 56 for every b < 8; alpha varies.
                src.at(x, y) = (static_cast<uint32_t>(x * 11 + y) << 24) | 0x404000u |
                               static_cast<uint32_t>((x + y) % 8);
            }
        }
        for (double intensity : {1.0, 3.0}) {
            const auto r =
                renderEffect("Flood", src, {{"Intensity", intensity}}, {.format = format});
            EXPECT_TRUE(r.target.samePixels(src)) << formatName(format) << " " << intensity;
            EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
        }
    }
}

// Keys fall by 5 from each column to the next towards the left and are equal
// down each column: every interior pixel runs to column 0 of its own row.
TEST(Flood, RampDrainsToTheLeftEdge) {
    Picture src(30, 9);
    for (int y = 0; y < 9; ++y) {
        for (int x = 0; x < 30; ++x) {
            src.at(x, y) = (static_cast<uint32_t>(y * 29 + 3) << 24) |
                           (static_cast<uint32_t>(8 + 8 * x) << 8) | static_cast<uint32_t>(y % 8);
        }
    }
    ASSERT_EQ(key(src.at(0, 4)), 5);
    ASSERT_EQ(key(src.at(29, 7)), 150);
    const auto r = renderEffect("Flood", src, {{"Intensity", 1.0}});
    for (int y = 0; y < 9; ++y) {
        for (int x = 0; x < 30; ++x) {
            const bool edge = x == 0 || y == 0 || x == 29 || y == 8;
            ASSERT_EQ(r.target.at(x, y), edge ? src.at(x, y) : src.at(0, y)) << x << ", " << y;
        }
    }
}

// Among equally dark neighbours the first of above, below, left, right wins;
// a strictly darker one wins whatever its place.
TEST(Flood, NeighbourOrderBreaksTies) {
    const uint32_t grey = 0xFF808080u;
    const uint32_t a = 0xFF303030u, b = 0x7F303030u, darker = 0xFF202020u;  // a and b: same key
    struct Case {
        int ax, ay, bx, by;  // a goes first in the order, b second
        uint32_t bWord;
        bool bWins;
    };
    const Case cases[] = {
        {2, 1, 1, 2, b, false},      // above before left
        {2, 3, 1, 2, b, false},      // below before left
        {1, 2, 3, 2, b, false},      // left before right
        {2, 1, 2, 3, b, false},      // above before below
        {2, 1, 1, 2, darker, true},  // a darker left beats above
        {2, 1, 3, 2, darker, true},  // a darker right beats above
    };
    for (const Case& c : cases) {
        Picture src(5, 5, 0, grey);
        src.at(c.ax, c.ay) = a;
        src.at(c.bx, c.by) = c.bWord;
        const auto r = renderEffect("Flood", src, {{"Intensity", 1.0}});
        EXPECT_EQ(r.target.at(2, 2), c.bWins ? c.bWord : a)
            << "a (" << c.ax << ", " << c.ay << ") b (" << c.bx << ", " << c.by << ")";
    }
}

// The destination's edges are the source's whatever the target held, so a
// dark target edge never flows in from the second pass on; a dark source
// edge is a drain like any other pixel.
TEST(Flood, EdgesComeFromTheSource) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture flat(12, 8, 12 * 4 + 8, 0xFF909090u);
        for (uint32_t targetFill : {0x00000000u, 0xFFFFFFFFu}) {
            const auto r =
                renderEffect("Flood", flat, {{"Intensity", 4.0}}, {.format = format}, targetFill);
            EXPECT_TRUE(r.target.samePixels(flat)) << formatName(format);
            EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, targetFill));
        }
        Picture src = flat;
        src.at(0, 3) = 0xFF101010u;
        const auto r = renderEffect("Flood", src, {{"Intensity", 2.0}}, {.format = format}, 0);
        EXPECT_EQ(r.target.at(0, 3), 0xFF101010u);
        EXPECT_EQ(r.target.at(1, 3), 0xFF101010u);  // first pass
        EXPECT_EQ(r.target.at(2, 3), 0xFF101010u);  // second pass
        EXPECT_EQ(r.target.at(1, 2), 0xFF101010u);
        EXPECT_EQ(r.target.at(3, 3), 0xFF909090u);
        EXPECT_EQ(r.target.at(0, 2), 0xFF909090u);  // edges are never written
    }
    // Pictures without interior pixels come out as copies.
    for (auto [w, h] : {std::pair{1, 1}, {2, 9}, {9, 2}, {1, 5}}) {
        const Picture src = testPicture(w, h, kFourccArgb, 0, w * 4 + 4);
        const auto r = renderEffect("Flood", src, {{"Intensity", 3.0}});
        EXPECT_TRUE(r.target.samePixels(src)) << w << " x " << h;
        EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
    }
}

TEST(Flood, MatchesTheLiteralWalk) {
    for (auto [w, h] : {std::pair{37, 23}, {3, 3}, {64, 5}}) {
        const Picture src = testPicture(w, h, kFourccArgb, 3, w * 4 + 8);
        for (int passes : {1, 2, 7, 40}) {
            const auto r = renderEffect("Flood", src, {{"Intensity", static_cast<double>(passes)}});
            EXPECT_EQ(r.target.words, modelFlood(src, passes, kFill).words)
                << w << " x " << h << ", " << passes << " passes";
        }
    }
}

TEST(Flood, SameWordsInBothFormats) {
    const Picture src = testPicture(45, 33, kFourccArgb, 1, 45 * 4 + 4);  // raw words in both
    const auto a = renderEffect("Flood", src, {{"Intensity", 3.0}}, {.format = kFourccArgb});
    const auto y = renderEffect("Flood", src, {{"Intensity", 3.0}}, {.format = kFourccAyuv});
    EXPECT_EQ(a.target.words, y.target.words);
}

TEST(Flood, MissingSourceFillsWhite) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        Picture target(9, 4, 9 * 4 + 12, kFill);
        reelfx::Instance inst(reelfx::test::module(), reelfx::test::effectIndex("Flood"), 9, 4);
        ASSERT_EQ(inst.render(nullptr, target, {.format = format}), 0);
        const uint32_t white = format == kFourccAyuv ? 0xFFEA8080u : 0xFFFFFFFFu;
        EXPECT_TRUE(reelfx::test::untouchedOutside(target, 0, 0, 9, 4, kFill));
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 9; ++x) ASSERT_EQ(target.at(x, y), white);
        }
    }
}

// A 4:3 picture in a 16:9 frame: the flood sees only the 96 x 72 active
// rectangle (its edges are the bars' inner neighbours, not the bars), the
// bars stay black and the padding keeps the host's words.
TEST(Flood, WorksInsideTheActiveRectangle) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const uint32_t bar = format == kFourccAyuv ? 0xFF0F8080u : 0xFF000000u;
        const Picture frame = testPicture(128, 72, format, 0, 128 * 4 + 8);
        Picture active(96, 72);
        for (int y = 0; y < 72; ++y) std::copy_n(frame.row(y) + 16, 96, active.row(y));
        RenderOptions o{.format = format,
                        .displayAspect = 16.0 / 9.0,
                        .aspectFitting = true,
                        .pictureAspect = 4.0 / 3.0};
        const auto r = renderEffect("Flood", frame, {{"Intensity", 3.0}}, o);
        const Picture want = modelFlood(active, 3, kFill);
        for (int y = 0; y < 72; ++y) {
            for (int x = 0; x < 128; ++x) {
                const uint32_t v = (x < 16 || x >= 112) ? bar : want.at(x - 16, y);
                ASSERT_EQ(r.target.at(x, y), v) << formatName(format) << " " << x << ", " << y;
            }
        }
        EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
    }
}

}  // namespace
