// "Flood" through the exported entry: the pass count, a ramp, the neighbour
// order, flat pictures and the edges, the walk written out literally in both
// formats, and the active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "support.h"

namespace {

using reelfx::Picture;
using namespace reelfx::test;

constexpr uint32_t kFill = 0x5A5A5A5A;

Picture flood(const Picture& src, double intensity, uint32_t format = kFourccArgb,
              uint32_t targetFill = kFill) {
    return renderEffect("Flood", src, {{"Intensity", intensity}}, {.format = format}, targetFill)
        .target;
}

int key(uint32_t p) {
    return static_cast<int>((2 * ((p >> 16) & 0xFF) + 5 * ((p >> 8) & 0xFF) + (p & 0xFF)) >> 3);
}

// Every interior pixel walks on its own, every pass runs; the destination's
// edges are the source's, its padding the host's.
Picture modelFlood(const Picture& src, int passes) {
    const int w = src.width, h = src.height;
    Picture dst(w, h, src.stride, kFill);
    for (int y = 0; y < h; ++y) std::copy_n(src.row(y), w, dst.row(y));
    Picture work = src;
    for (int pass = 0; pass < passes; ++pass) {
        for (int y = 1; y < h - 1; ++y) {
            for (int x = 1; x < w - 1; ++x) {
                int cx = x, cy = y;
                while (cx != 0 && cy != 0 && cx != w - 1 && cy != h - 1) {
                    int best = key(work.at(cx, cy)), nx = cx, ny = cy;
                    for (auto [ax, ay] :
                         {std::pair{cx, cy - 1}, {cx, cy + 1}, {cx - 1, cy}, {cx + 1, cy}}) {
                        if (key(work.at(ax, ay)) < best)
                            best = key(work.at(ax, ay)), nx = ax, ny = ay;
                    }
                    if (nx == cx && ny == cy) break;
                    cx = nx, cy = ny;
                }
                dst.at(x, y) = work.at(cx, cy);
            }
        }
        for (int y = 0; y < h; ++y) std::copy_n(dst.row(y), w, work.row(y));
    }
    return dst;
}

// A bright flat picture with one dark pixel: every pass spreads the dark
// colour one step further, a diamond of radius N after N passes.
TEST(Flood, PassCountFollowsIntensity) {
    const uint32_t bright = 0xFFC0C0C0u, dark = 0x80000010u;
    Picture src(31, 31, 0, bright);
    src.at(15, 15) = dark;
    const double cases[][2] = {{0.0, 1},  {1.0, 1}, {2.9, 2},   {12.5, 12},
                               {-4.0, 1}, {NAN, 1}, {1e300, 1}, {1e9, 30}};
    for (const auto& c : cases) {
        const Picture r = flood(src, c[0]);
        for (int y = 0; y < 31; ++y) {
            for (int x = 0; x < 31; ++x) {
                const bool edge = x == 0 || y == 0 || x == 30 || y == 30;
                const bool reached = std::abs(x - 15) + std::abs(y - 15) <= c[1];
                ASSERT_EQ(r.at(x, y), reached && !edge ? dark : bright)
                    << c[0] << ": " << x << ", " << y;
            }
        }
    }
}

// Keys fall from each column to the next towards the left and are equal down
// each column: every interior pixel takes column 0 of its own row.
TEST(Flood, RampDrainsToTheLeftEdge) {
    Picture src(30, 9);
    for (int y = 0; y < 9; ++y) {
        for (int x = 0; x < 30; ++x)
            src.at(x, y) = (uint32_t(y * 29 + 3) << 24) | ((8 + 8 * x) << 8) | (y % 8);
    }
    const Picture r = flood(src, 1.0);
    for (int y = 1; y < 8; ++y) {
        for (int x = 1; x < 29; ++x) ASSERT_EQ(r.at(x, y), src.at(0, y)) << x << ", " << y;
    }
}

// Among equally dark neighbours the first of above, below, left, right wins;
// a strictly darker one wins whatever its place.
TEST(Flood, NeighbourOrderBreaksTies) {
    const uint32_t a = 0xFF303030u, b = 0x7F303030u, darker = 0xFF202020u;  // a, b: same key
    // a at (x, y), b at (x, y), whether b is the darker word
    const int cases[][5] = {
        {2, 1, 1, 2, 0}, {2, 3, 1, 2, 0}, {1, 2, 3, 2, 0}, {2, 1, 2, 3, 0}, {2, 1, 3, 2, 1}};
    for (const auto& c : cases) {
        Picture src(5, 5, 0, 0xFF808080u);
        src.at(c[0], c[1]) = a;
        src.at(c[2], c[3]) = c[4] ? darker : b;
        EXPECT_EQ(flood(src, 1.0).at(2, 2), c[4] ? darker : a) << c[0] << c[1] << c[2] << c[3];
    }
}

// A picture whose keys are all equal (the words differ) is copied, and its
// edges come from the source whatever the target held, so a target's edge
// never flows in; a dark source edge drains like any pixel. Pictures without
// interior pixels come out as copies.
TEST(Flood, FlatPicturesAndEdgesFromTheSource) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        Picture src(12, 8, 12 * 4 + 8, 0xFF909090u);
        for (int y = 0; y < 8; ++y) {
            for (int x = 0; x < 12; ++x)
                src.at(x, y) = (uint32_t(x * 11 + y) << 24) | 0x404000u | ((x + y) % 8);
        }
        for (uint32_t targetFill : {0x00000000u, 0xFFFFFFFFu}) {
            const Picture r = flood(src, 4.0, format, targetFill);
            EXPECT_TRUE(r.samePixels(src)) << formatName(format);
            EXPECT_TRUE(paddingUntouched(r, targetFill));
        }
        for (int y = 0; y < 8; ++y) std::fill_n(src.row(y), 12, 0xFF909090u);
        src.at(0, 3) = 0xFF101010u;
        const Picture r = flood(src, 2.0, format, 0);
        EXPECT_EQ(r.at(2, 3), 0xFF101010u);  // reached in the second pass
        EXPECT_EQ(r.at(1, 2), 0xFF101010u);
        EXPECT_EQ(r.at(3, 3), 0xFF909090u);
        EXPECT_EQ(r.at(0, 2), 0xFF909090u);
    }
    for (auto [w, h] : {std::pair{1, 1}, {2, 9}, {9, 2}}) {
        const Picture src = testPicture(w, h, kFourccArgb, 0, w * 4 + 4);
        EXPECT_EQ(flood(src, 3.0).words, modelFlood(src, 1).words) << w << " x " << h;
    }
}

// Hills and valleys with noise on every pixel: long walks that turn, in
// every direction.
Picture ripples(int w, int h) {
    Picture p(w, h, w * 4 + 8, kFill);
    uint32_t seed = 77;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            seed = seed * 1664525u + 1013904223u;
            const int v =
                120 + int(100 * std::sin(x / 4.3) * std::cos(y / 3.1)) + int(seed >> 29) - 4;
            p.at(x, y) =
                (seed & 0xFF000000u) | uint32_t(v) << 16 | uint32_t(v) << 8 | (seed >> 8 & 0xFF);
        }
    }
    return p;
}

// Drains shared between walks and passes that end early must not change the
// result: the same words in both formats as the literal walk.
TEST(Flood, MatchesTheLiteralWalk) {
    for (auto [w, h] : {std::pair{37, 23}, {3, 3}, {64, 5}, {90, 70}}) {
        const Picture src = w == 90 ? ripples(w, h) : testPicture(w, h, kFourccArgb, 3, w * 4 + 8);
        for (int passes : {1, 2, 7, 40}) {
            const Picture want = modelFlood(src, passes);
            for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
                EXPECT_EQ(flood(src, passes, format).words, want.words)
                    << w << " x " << h << ", " << passes << " passes " << formatName(format);
            }
        }
    }
}

}  // namespace
