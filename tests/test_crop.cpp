// "Crop", "Crop Scale To Fit" and "Crop Scale To Fill" through the exported
// entry: where the kept rectangle comes from and where it lands, frames that
// stay black, hostile margins, a missing source, the active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "pixel/color.h"
#include "pixel/resizer.h"
#include "support.h"

namespace {

using reelfx::Instance;
using reelfx::Picture;
using reelfx::test::effectIndex;
using reelfx::test::module;

constexpr uint32_t kFill = 0x5A5A5A5A;
const uint32_t kFormats[] = {kFourccArgb, kFourccAyuv};
const char* const kCrops[] = {"Crop", "Crop Scale To Fit", "Crop Scale To Fill"};

// Renders crop `e` (index into kCrops) with margins Top, Right, Bottom,
// Left and ("Crop" only) "Mode".
intptr_t crop(int e, const Picture* src, Picture& got, const reelfx::RenderOptions& o, double t,
              double r, double b, double l, double mode) {
    Instance inst(module(), effectIndex(kCrops[e]), got.width, got.height);
    inst.setParameter("Top (Pixel)", t);
    inst.setParameter("Right (Pixel)", r);
    inst.setParameter("Bottom (Pixel)", b);
    inst.setParameter("Left (Pixel)", l);
    if (e == 0) inst.setParameter("Mode", mode);
    return inst.render(src, got, o);
}

// Each case: the kept rectangle (sx, sy, sw x sh) placed at (dx, dy) as
// dw x dh by the scaler on opaque black; dw 0 leaves the frame black.
TEST(Crop, KeptRectangleLandsInPlaceCentredFittedOrStretched) {
    const struct {
        int e, w, h;  // e: index into kCrops
        double t, r, b, l, mode;
        int sx, sy, sw, sh, dx, dy, dw, dh, resample;
    } cases[] = {
        // clang-format off
        {0, 60, 100, 0, 0, 0, 0, 1,     0, 0, 60, 100, 0, 0, 60, 100, 0},
        {0, 60, 100, 10, 0, 30, 0, 0,   0, 10, 60, 60, 0, 10, 60, 60, 0},
        {0, 60, 100, 10, 0, 30, 0, 1,   0, 10, 60, 60, 0, 20, 60, 60, 0},
        {0, 60, 100, 0, 1, 0, 4, -1,    4, 0, 55, 100, 2, 0, 55, 100, 0},  // any mode but 0 centres
        {0, 60, 100, 3, 1, 0, 4, 0.9,   4, 3, 55, 97, 4, 3, 55, 97, 0},    // "Mode" truncates to 0
        {0, 60, 100, 49, 30, 49, 22, 0, 22, 49, 8, 2, 22, 49, 8, 2, 0},    // smallest kept
        {0, 60, 100, 50, 0, 49, 0, 0,   0, 0, 0, 0, 0, 0, 0, 0, 0},
        {1, 60, 100, 0, 30, 0, 23, 0,   0, 0, 0, 0, 0, 0, 0, 0, 0},
        {1, 720, 576, 0, 180, 0, 180, 0, 180, 0, 360, 576, 180, 0, 360, 576, 1},
        {1, 720, 576, 72, 0, 72, 0, 0,  0, 72, 720, 432, 0, 72, 720, 432, 1},
        // 44 x 92 kept: fitH = trunc(60 x 92 / 44) = 125 > 100, fitW = trunc(100 x 44 / 92) = 47.
        {1, 60, 100, 5, 10, 3, 6, 0,    6, 5, 44, 92, 6, 0, 47, 100, 1},
        {1, 60, 100, 60, 10, 3, 6, 0,   6, 60, 44, 37, 0, 25, 60, 50, 1},  // fitH = 50
        {1, 60, 100, 13, 10, 13, 6, 0,  6, 13, 44, 74, 0, 0, 60, 100, 1},  // fitH = 100 = H
        {2, 60, 100, 5, 10, 3, 6, 0,    6, 5, 44, 92, 0, 0, 60, 100, 1},
        // Negative margins count as 0; NaN, infinities and values past 2^63
        // truncate to 0, 4294967301 to its low 32 bits, 5.
        {0, 60, 100, -5, -1, -7, -2147483648.0, 1, 0, 0, 60, 100, 0, 0, 60, 100, 0},
        {1, 60, 100, NAN, INFINITY, -INFINITY, 1e300, 0, 0, 0, 60, 100, 0, 0, 60, 100, 1},
        {2, 60, 100, 4294967297.0, 0, 0, 4294967301.0, 0, 5, 1, 55, 99, 0, 0, 60, 100, 1},
        {2, 60, 100, 0, 2147483647.0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
        // clang-format on
    };
    for (uint32_t format : kFormats) {
        for (const auto& c : cases) {
            const Picture src = reelfx::test::testPicture(c.w, c.h, format, 0, c.w * 4 + 8);
            Picture got(c.w, c.h, src.stride, kFill), want = got;
            crop(c.e, &src, got, {.format = format}, c.t, c.r, c.b, c.l, c.mode);
            for (int y = 0; y < c.h; ++y)
                std::fill_n(want.row(y), c.w, argbToFrame(0xFF000000u, format));
            Resizer(0, format, src.row(c.sy) + c.sx, src.stride, c.sw, c.sh, format,
                    &want.at(c.dx, c.dy), want.stride, c.dw, c.dh, 0, c.resample);
            EXPECT_TRUE(got.words == want.words) << kCrops[c.e] << " " << c.t << " " << c.r;
            // A plain copy at full size is the picture itself.
            EXPECT_TRUE(c.dw != c.w || c.dh != c.h || c.resample || got.samePixels(src));
        }
    }
}

}  // namespace
