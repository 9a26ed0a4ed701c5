// The five fades through the exported entry: the overlay alpha from the fade
// amount and direction, the ends, a missing source, the active rectangle.
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

// `src` with a block of `colour`, its alpha replaced by `alpha`, composited
// over it by the scaler.
Picture composited(const Picture& src, uint32_t colour, uint32_t alpha, uint32_t format) {
    Picture out = src;
    uint32_t block[8];
    std::fill_n(block, 8, argbToFrame((colour & 0x00FFFFFFu) | alpha << 24, format));
    Resizer(kResizerBlend, format, block, 16, 4, 2, format, out.data(), out.stride, out.width,
            out.height, 0, 0);
    return out;
}

// Alpha = trunc(255 x amount) modulo 256 (NaN: 0), the amount being
// 1 - progress for "Color To Video" (exactly 0.0), progress otherwise.
TEST(Fades, OverlayAlphaFromDirectionAndProgress) {
    const struct {
        const char* effect;
        uint32_t colour;
        double direction, progress;
        uint32_t alpha;
    } cases[] = {
        // clang-format off
        {"Fade To Black", 0xFF000000u, 1.0, 0.5, 127},  {"Fade To Grey", 0xFF808080u, 0.0, 0.25, 191},
        {"Fade To Grey", 0xFF808080u, 1.0, 0.25, 63},   {"Fade To White", 0xFFFFFFFFu, 0.5, 0.25, 63},
        {"Fade To Sepia", 0xFFE5CC99u, 0.0, 0.0, 255},  {"Fade To Sepia", 0xFFE5CC99u, 0.0, 1.0, 0},
        {"Fade To Color", 0x00FF0000u, 1.0, 1.0, 255},  {"Fade To Color", 0x00FF0000u, 1.0, 0.5, 127},
        {"Fade To White", 0xFFFFFFFFu, 1.0, 1.5, 126},  {"Fade To White", 0xFFFFFFFFu, 1.0, -0.5, 129},
        {"Fade To White", 0xFFFFFFFFu, 1.0, NAN, 0},    {"Fade To White", 0xFFFFFFFFu, 1.0, 1e300, 0},
        // clang-format on
    };
    for (uint32_t format : kFormats) {
        const Picture src = reelfx::test::testPicture(23, 7, format);
        for (const auto& c : cases) {
            Instance inst(module(), effectIndex(c.effect), 23, 7);
            inst.setParameter("Direction", c.direction);
            // 16711680.0 is red with alpha 0: the fade amount replaces the alpha.
            if (std::string(c.effect) == "Fade To Color") inst.setParameter("Color", 16711680.0);
            Picture got(23, 7);
            inst.render(&src, got, {.progress = c.progress, .format = format});
            EXPECT_TRUE(got.samePixels(composited(src, c.colour, c.alpha, format))) << c.effect;
            // The ends: the picture itself, and the flat colour (in AYUV its conversion).
            EXPECT_TRUE(c.alpha != 0 || got.samePixels(src));
            EXPECT_TRUE(c.alpha != 255 ||
                        (got.at(22, 6) & 0xFFFFFFu) == (argbToFrame(c.colour, format) & 0xFFFFFFu));
        }
    }
}

}  // namespace
