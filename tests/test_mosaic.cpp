// "Mosaic" through the exported entry: exact copies, untouched destinations,
// the tile rule written out, both formats and the active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "plugin/frame_context.h"
#include "support.h"

namespace {

using reelfx::Picture;
using namespace reelfx::test;

constexpr uint32_t kFill = 0x5A5A5A5A;

int key(uint32_t p) { return int((2 * (p >> 16 & 0xFF) + 5 * (p >> 8 & 0xFF) + (p & 0xFF)) >> 3); }

// The tile rule written out literally: every anchor searches and paints its
// whole square; positions outside the picture read as 0 and are skipped.
Picture modelMosaic(const Picture& src, int n, int k) {
    Picture dst(src.width, src.height, src.stride, kFill);
    const int h = n >> 1;
    auto at = [&](int x, int y) {
        return x >= 0 && y >= 0 && x < src.width && y < src.height ? src.at(x, y) : 0u;
    };
    for (int y = 0; y < src.height; y += n) {
        for (int x = 0; x < src.width; x += n) {
            const int ks = key(src.at(x, y));
            int best = 100000, bx = 0, by = 0;
            for (int dy = -h; dy <= h; ++dy) {
                for (int dx = -h; dx <= h; ++dx) {
                    const int d = key(at(x + dx, y + dy)) - ks;
                    if (d >= 1 && d < best) best = d, bx = dx, by = dy;
                }
            }
            for (int py = std::max(0, y + by - h * k); py < y + by + (h + 1) * k; ++py) {
                for (int px = std::max(0, x + bx - h * k); px < x + bx + (h + 1) * k; ++px) {
                    if (px >= src.width || py >= src.height) continue;
                    dst.at(px, py) = key(at(px, py)) > ks ? at(x + bx, y + by) : src.at(x, y);
                }
            }
        }
    }
    return dst;
}

// "Resolution" 0 copies the source (each pixel is painted last by its own
// anchor); "Overlap" below 1 (NaN and negatives too) paints nothing.
TEST(Mosaic, CopiesAndEmptyPatches) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(53, 31, format, 0, 53 * 4 + 8);
        for (double overlap : {1.0, 2.0, 10.0, 0.999, -3.0, std::nan("")}) {
            const auto r = renderEffect("Mosaic", src, {{"Resolution", 0.0}, {"Overlap", overlap}},
                                        {.format = format});
            EXPECT_TRUE(overlap >= 1 ? r.target.samePixels(src) && paddingUntouched(r.target, kFill)
                                     : untouchedOutside(r.target, 0, 0, 0, 0, kFill))
                << overlap;
        }
    }
}

// Overlaps, gaps, partial tiles at the edges, the same words in both
// formats. On a flat picture (2r + 5g a multiple of 8, b < 8: all keys
// equal) every patch takes its anchor's colour; in the 5 x 5 picture the
// smallest excess (+4 at (2, 0)) wins over +16 and over a later +4.
TEST(Mosaic, MatchesTheTileRuleInBothFormats) {
    Picture flat(24, 14), small(5, 5, 0, 0xFF101010u);
    for (int i = 0; i < 24 * 14; ++i) flat.words[i] = 0xFF404000u | (i * 3 % 8);
    small.at(1, 2) = 0xFF202020u;
    small.at(2, 0) = small.at(0, 2) = 0xFF141414u;
    const Picture pic = testPicture(37, 23, kFourccArgb, 3, 37 * 4 + 4);
    // Wide enough that large patches are painted in several column strips.
    const Picture wide = testPicture(1501, 29, kFourccArgb, 5, 1501 * 4 + 12);
    const struct {
        const Picture& src;
        double resolution, overlap;
    } cases[] = {{flat, 0.5, 1.0}, {flat, 0.4, 1.0}, {small, 0.5, 1.0}, {pic, 0.5, 2.0},
                 {pic, 0.3, 1.0},  {pic, 0.4, 3.0},  {pic, 1.0, 10.0},  {pic, 0.7, 1.0},
                 {pic, 0.6, 60.0}, {pic, 0.2, 38.0}, {wide, 0.2, 10.0}, {wide, 1.0, 10.0},
                 {wide, 0.5, 2.0}, {wide, 0.3, 1.0}};
    for (const auto& c : cases) {
        const Picture want =
            modelMosaic(c.src, std::max(1, int(c.resolution * 10)), int(c.overlap));
        for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
            const auto r = renderEffect("Mosaic", c.src,
                                        {{"Resolution", c.resolution}, {"Overlap", c.overlap}},
                                        {.format = format});
            EXPECT_EQ(r.target.words, want.words) << c.resolution << " " << c.overlap;
        }
    }
    const Picture centred = modelMosaic(small, 5, 1);  // on (2, 0): rows -2 to 2
    EXPECT_TRUE(centred.at(1, 2) == 0xFF141414u && centred.at(0, 3) == kFill);
    // Patches far beyond the picture paint what patches just covering it do.
    const auto huge = renderEffect("Mosaic", pic, {{"Resolution", 0.3}, {"Overlap", 2e9}});
    EXPECT_EQ(huge.target.words, modelMosaic(pic, 3, 38).words);
}

}  // namespace
