// "Mosaic" through the exported entry: exact copies, untouched destinations,
// plain tiles on flat areas, a straightforward model of the tile rule, both
// formats, hostile values and the border bars.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

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

// The tile rule written out literally: every anchor searches and paints its
// whole square, positions outside the picture read as 0 and are skipped.
Picture modelMosaic(const Picture& src, int n, int k, uint32_t fill) {
    Picture dst(src.width, src.height, src.stride, fill);
    const int h = n >> 1;
    auto at = [&](int x, int y) -> uint32_t {
        return (x >= 0 && y >= 0 && x < src.width && y < src.height) ? src.at(x, y) : 0u;
    };
    for (int y = 0; y < src.height; y += n) {
        for (int x = 0; x < src.width; x += n) {
            const uint32_t s = src.at(x, y);
            int best = 100000, bx = 0, by = 0;
            for (int dy = -h; dy <= h; ++dy) {
                for (int dx = -h; dx <= h; ++dx) {
                    const int d = key(at(x + dx, y + dy)) - key(s);
                    if (d >= 1 && d < best) best = d, bx = dx, by = dy;
                }
            }
            const uint32_t hi = at(x + bx, y + by);
            for (int py = y + by - h * k; py <= y + by + (h + 1) * k - 1; ++py) {
                for (int px = x + bx - h * k; px <= x + bx + (h + 1) * k - 1; ++px) {
                    if (px < 0 || py < 0 || px >= src.width || py >= src.height) continue;
                    dst.at(px, py) = key(at(px, py)) - key(s) > 0 ? hi : s;
                }
            }
        }
    }
    return dst;
}

TEST(Mosaic, ResolutionZeroCopiesTheSource) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(53, 31, format, 0, 53 * 4 + 8);
        for (double overlap : {1.0, 2.0, 10.0, 1e9}) {
            const auto r = renderEffect("Mosaic", src, {{"Resolution", 0.0}, {"Overlap", overlap}},
                                        {.format = format});
            EXPECT_TRUE(r.target.samePixels(src)) << "Overlap " << overlap;
            EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
        }
    }
}

TEST(Mosaic, OverlapBelowOneLeavesTheDestinationAlone) {
    const Picture src = testPicture(40, 30, kFourccArgb);
    for (double overlap : {0.0, 0.999, -3.0, std::nan("")}) {
        const auto r = renderEffect("Mosaic", src, {{"Overlap", overlap}});
        EXPECT_TRUE(reelfx::test::untouchedOutside(r.target, 0, 0, 0, 0, kFill)) << overlap;
    }
}

// All keys equal (2r + 5g is a multiple of 8 and b < 8): no neighbour is
// brighter, every patch is the anchor's colour.
TEST(Mosaic, FlatAreasGivePlainTiles) {
    Picture src(24, 14);
    for (int y = 0; y < 14; ++y) {
        for (int x = 0; x < 24; ++x) {
            src.at(x, y) = 0xFF404000u | static_cast<uint32_t>((x * 3 + y * 5) % 8);
        }
    }
    // N = 5, K = 1: 5 x 5 tiles centred on the anchors; column 23 and row 13
    // lie beyond the last tiles and keep the destination's words.
    auto r = renderEffect("Mosaic", src, {{"Resolution", 0.5}, {"Overlap", 1.0}});
    for (int y = 0; y < 14; ++y) {
        for (int x = 0; x < 24; ++x) {
            const uint32_t want =
                (x == 23 || y == 13) ? kFill : src.at((x + 2) / 5 * 5, (y + 2) / 5 * 5);
            ASSERT_EQ(r.target.at(x, y), want) << x << ", " << y;
        }
    }
    // N = 4, K = 1: 5 x 5 tiles four apart; the later anchor wins the overlap.
    r = renderEffect("Mosaic", src, {{"Resolution", 0.4}, {"Overlap", 1.0}});
    for (int y = 0; y < 14; ++y) {
        for (int x = 0; x < 24; ++x) {
            const int ax = std::min((x + 2) / 4 * 4, 20), ay = std::min((y + 2) / 4 * 4, 12);
            const uint32_t want = x == 23 ? kFill : src.at(ax, ay);  // the last tile ends at 22
            ASSERT_EQ(r.target.at(x, y), want) << x << ", " << y;
        }
    }
}

// The neighbour with the smallest positive key excess, first in scan order,
// centres the patch and lends its colour to every brighter pixel.
TEST(Mosaic, PatchCentresOnTheSmallestBrighterNeighbour) {
    Picture src(5, 5, 0, 0xFF101010u);
    src.at(1, 2) = 0xFF202020u;  // key +16 over the anchor
    src.at(2, 0) = 0xFF141414u;  // key +4: the smallest positive excess wins
    src.at(0, 2) = 0xFF141414u;  // equal excess, later in scan order: loses
    const auto r = renderEffect("Mosaic", src, {{"Resolution", 0.5}, {"Overlap", 1.0}});
    // Anchor (0, 0), N = 5: neighbour (2, 0), patch x 0..4, y -2..2.
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 5; ++x) {
            uint32_t want = kFill;
            if (y <= 2) want = key(src.at(x, y)) > key(0xFF101010u) ? 0xFF141414u : 0xFF101010u;
            ASSERT_EQ(r.target.at(x, y), want) << x << ", " << y;
        }
    }
}

TEST(Mosaic, MatchesTheLiteralTileRule) {
    const Picture src = testPicture(37, 23, kFourccArgb, 3, 37 * 4 + 4);
    const double cases[][2] = {{0.5, 2.0},
                               {0.3, 1.0},
                               {0.4, 3.0},
                               {1.0, 10.0},
                               {0.2, 7.5},
                               {0.7, 1.0},
                               {0.6, 60.0},
                               {0.9, 2.0},
                               // patches just short of, and just reaching, both sides
                               {0.2, 37.0},
                               {0.2, 38.0},
                               {0.3, 25.0}};
    for (const auto& c : cases) {
        const int n = std::max(1, static_cast<int>(c[0] * 10.0));
        const int k = static_cast<int>(c[1]);
        const auto r = renderEffect("Mosaic", src, {{"Resolution", c[0]}, {"Overlap", c[1]}});
        const Picture want = modelMosaic(src, n, k, kFill);
        EXPECT_EQ(r.target.words, want.words) << "N " << n << " K " << k;
    }
}

TEST(Mosaic, SameWordsInBothFormats) {
    const Picture src = testPicture(61, 45, kFourccArgb);  // used as raw words in both
    for (double res : {0.5, 1.0}) {
        const auto a = renderEffect("Mosaic", src, {{"Resolution", res}}, {.format = kFourccArgb});
        const auto y = renderEffect("Mosaic", src, {{"Resolution", res}}, {.format = kFourccAyuv});
        EXPECT_EQ(a.target.words, y.target.words);
    }
}

TEST(Mosaic, MissingSourceFillsWhite) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        Picture target(9, 4, 9 * 4 + 12, kFill);
        reelfx::Instance inst(reelfx::test::module(), reelfx::test::effectIndex("Mosaic"), 9, 4);
        ASSERT_EQ(inst.render(nullptr, target, {.format = format}), 0);
        const uint32_t white = format == kFourccAyuv ? 0xFFEA8080u : 0xFFFFFFFFu;
        EXPECT_TRUE(reelfx::test::untouchedOutside(target, 0, 0, 9, 4, kFill));
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 9; ++x) ASSERT_EQ(target.at(x, y), white);
        }
    }
}

TEST(Mosaic, HostileValuesOnTinyPictures) {
    const double inf = std::numeric_limits<double>::infinity();
    const double values[] = {std::nan(""), inf, -inf, 1e300, -1e300, 2147483647.0, 1e9, 1e8, 0.25};
    for (int32_t w : {1, 2, 7}) {
        for (int32_t h : {1, 3}) {
            const Picture src = testPicture(w, h, kFourccArgb, 0, w * 4 + 8);
            for (double res : values) {
                for (double overlap : values) {
                    const auto r =
                        renderEffect("Mosaic", src, {{"Resolution", res}, {"Overlap", overlap}});
                    ASSERT_TRUE(reelfx::test::paddingUntouched(r.target, kFill))
                        << res << " " << overlap;
                    // Whatever is painted is a source word.
                    for (int y = 0; y < h; ++y) {
                        for (int x = 0; x < w; ++x) {
                            const uint32_t v = r.target.at(x, y);
                            const bool fromSource =
                                std::find(src.words.begin(), src.words.end(), v) != src.words.end();
                            ASSERT_TRUE(v == kFill || fromSource);
                        }
                    }
                }
            }
        }
    }
    // A patch factor far beyond the picture paints what one just covering it does.
    const Picture src = testPicture(30, 20, kFourccArgb);
    const auto huge = renderEffect("Mosaic", src, {{"Resolution", 0.3}, {"Overlap", 2e9}});
    EXPECT_EQ(huge.target.words, modelMosaic(src, 3, 31, kFill).words);
}

// A 4:3 picture in a 16:9 frame: the renderer sees only the 96 x 72 active
// rectangle, the bars stay black and the padding keeps the host's words.
TEST(Mosaic, WorksInsideTheActiveRectangle) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture frame = testPicture(128, 72, format, 0, 128 * 4 + 8);
        Picture active(96, 72);
        for (int y = 0; y < 72; ++y) std::copy_n(frame.row(y) + 16, 96, active.row(y));
        RenderOptions o{
            .displayAspect = 16.0 / 9.0, .aspectFitting = true, .pictureAspect = 4.0 / 3.0};
        o.format = format;
        const uint32_t black = format == kFourccAyuv ? kBorderAyuv : kBorderArgb;
        const auto r = renderEffect("Mosaic", frame, {{"Resolution", 0.7}, {"Overlap", 3.0}}, o);
        const Picture want = modelMosaic(active, 7, 3, kFill);
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
