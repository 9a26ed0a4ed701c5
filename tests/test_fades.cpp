// The five fades through the exported entry: the fade amount becomes the
// overlay's alpha (truncated), the direction choice, the fade colours in both
// formats, a missing source, and the border bars and stride padding.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>

#include "pixel/color.h"
#include "pixel/resizer.h"
#include "support.h"

namespace {

using reelfx::Picture;
using reelfx::RenderOptions;
using reelfx::test::renderEffect;
using reelfx::test::testPicture;

constexpr uint32_t kFill = 0x5A5A5A5A;

std::string hex(uint32_t word) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", word);
    return text;
}
const uint32_t kFormats[] = {kFourccArgb, kFourccAyuv};

struct Fade {
    const char* name;
    uint32_t colour;
};
const Fade kFades[] = {{"Fade To Black", 0xFF000000u},
                       {"Fade To Grey", 0xFF808080u},
                       {"Fade To White", 0xFFFFFFFFu},
                       {"Fade To Sepia", 0xFFE5CC99u},
                       {"Fade To Color", 0xFF000000u}};  // its default "Color"

// The source with a uniform block of `colour` (ARGB, its alpha replaced by
// `alpha`) composited over it by the scaler: what a fade with that overlay
// alpha must give, whatever the scaler's mixing arithmetic.
Picture composited(const Picture& src, uint32_t colour, uint32_t alpha, uint32_t format) {
    Picture out = src;
    uint32_t block[8];
    for (uint32_t& b : block) {
        b = argbToFrame((colour & 0x00FFFFFFu) | alpha << 24, format);
    }
    Resizer(kResizerBlend, format, block, 16, 4, 2, format, out.data(), out.stride, out.width,
            out.height, 0, 0);
    return out;
}

::testing::AssertionResult colourChannelsAre(const Picture& p, uint32_t word) {
    for (int y = 0; y < p.height; ++y) {
        for (int x = 0; x < p.width; ++x) {
            if ((p.at(x, y) & 0x00FFFFFFu) != (word & 0x00FFFFFFu)) {
                return ::testing::AssertionFailure()
                       << "pixel (" << x << ", " << y << ") = " << hex(p.at(x, y));
            }
        }
    }
    return ::testing::AssertionSuccess();
}

TEST(Fades, AmountBecomesTruncatedOverlayAlpha) {
    // progress -> alpha for "Video To Color": trunc(255 * progress).
    const struct {
        double progress;
        uint32_t alpha;
    } cases[] = {{0.5, 127}, {0.25, 63}, {0.999, 254}, {0.003, 0}};
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(23, 7, format, 0, 23 * 4 + 8);
        for (const Fade& f : kFades) {
            for (const auto& c : cases) {
                const auto r =
                    renderEffect(f.name, src, {}, {.progress = c.progress, .format = format});
                EXPECT_TRUE(r.target.samePixels(composited(src, f.colour, c.alpha, format)))
                    << f.name << " " << reelfx::test::formatName(format) << " " << c.progress;
                EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
            }
        }
    }
}

// Half way from white to black: alpha 127 leaves 128 in every channel, where
// alpha 128 would leave 127.
TEST(Fades, HalfWayToBlackIsAlpha127) {
    const Picture white(8, 3, 0, 0xFFFFFFFFu);
    const auto r = renderEffect("Fade To Black", white, {}, {.progress = 0.5});
    EXPECT_TRUE(colourChannelsAre(r.target, 0x808080u));
    EXPECT_FALSE(r.target.samePixels(composited(white, 0xFF000000u, 128, kFourccArgb)));
}

TEST(Fades, DirectionChoosesTheShareOfTheColour) {
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(16, 8, format);
        // "Color To Video" (exactly 0.0) at 0.25 fades by 0.75; every other
        // value, an interpolated 0.5 included, fades by 0.25.
        for (double direction : {0.0, 1.0, 0.5, -0.0}) {
            const auto r = renderEffect("Fade To Grey", src, {{"Direction", direction}},
                                        {.progress = 0.25, .format = format});
            const uint32_t alpha = direction == 0.0 ? 191 : 63;
            EXPECT_TRUE(r.target.samePixels(composited(src, 0xFF808080u, alpha, format)))
                << "Direction " << direction;
        }
    }
}

TEST(Fades, EndsAreThePictureAndTheFlatColour) {
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(21, 9, format);
        for (const Fade& f : kFades) {
            const uint32_t flat = argbToFrame(f.colour, format);
            // "Video To Color": picture at 0, colour at 1; "Color To Video" backwards.
            auto at = [&](double direction, double progress) {
                return renderEffect(f.name, src, {{"Direction", direction}},
                                    {.progress = progress, .format = format})
                    .target;
            };
            EXPECT_TRUE(at(1.0, 0.0).samePixels(src)) << f.name;
            EXPECT_TRUE(colourChannelsAre(at(1.0, 1.0), flat)) << f.name;
            EXPECT_TRUE(colourChannelsAre(at(0.0, 0.0), flat)) << f.name;
            EXPECT_TRUE(at(0.0, 1.0).samePixels(src)) << f.name;
        }
    }
}

TEST(Fades, FadeToColorIgnoresTheColoursAlpha) {
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(12, 6, format);
        // 16711680.0 is 0x00FF0000: pure red with alpha 0.
        const auto full = renderEffect("Fade To Color", src, {{"Color", 16711680.0}},
                                       {.progress = 1.0, .format = format});
        EXPECT_TRUE(colourChannelsAre(full.target, argbToFrame(0xFFFF0000u, format)));
        const auto half = renderEffect("Fade To Color", src, {{"Color", 16711680.0}},
                                       {.progress = 0.5, .format = format});
        EXPECT_TRUE(half.target.samePixels(composited(src, 0xFFFF0000u, 127, format)));
    }
}

// Outside 0 ... 1 the alpha byte is trunc(255 * amount) modulo 256; a NaN or
// infinite progress fades by nothing.
TEST(Fades, AmountsOutsideTheSpanWrapTheAlpha) {
    const double inf = std::numeric_limits<double>::infinity();
    const struct {
        double progress;
        uint32_t alpha;
    } cases[] = {{1.5, 126},        {2.0, 254}, {-0.5, 129}, {-1.0, 1},
                 {std::nan(""), 0}, {inf, 0},   {-inf, 0},   {1e300, 0}};
    const Picture src = testPicture(10, 4, kFourccArgb);
    for (const auto& c : cases) {
        const auto r = renderEffect("Fade To White", src, {}, {.progress = c.progress});
        EXPECT_TRUE(r.target.samePixels(composited(src, 0xFFFFFFFFu, c.alpha, kFourccArgb)))
            << c.progress;
    }
}

TEST(Fades, MissingSourceFillsWhite) {
    for (uint32_t format : kFormats) {
        for (const Fade& f : kFades) {
            for (double direction : {0.0, 1.0}) {
                Picture target(9, 4, 9 * 4 + 12, kFill);
                reelfx::Instance inst(reelfx::test::module(), reelfx::test::effectIndex(f.name), 9,
                                      4);
                inst.setParameter("Direction", direction);
                ASSERT_EQ(inst.render(nullptr, target, {.progress = 0.5, .format = format}), 0);
                EXPECT_TRUE(reelfx::test::untouchedOutside(target, 0, 0, 9, 4, kFill));
                EXPECT_TRUE(colourChannelsAre(target, opaqueWhite(format)));
                EXPECT_EQ(target.at(8, 3), opaqueWhite(format));
            }
        }
    }
}

// A 4:3 picture in a 16:9 frame: only the 96 x 72 active rectangle fades; the
// bars keep the frame's black and the padding its words.
TEST(Fades, WorkOnlyInsideTheActiveRectangle) {
    for (uint32_t format : kFormats) {
        const Picture frame = testPicture(128, 72, format, 0, 128 * 4 + 8);
        const RenderOptions o{.progress = 0.4,
                              .format = format,
                              .displayAspect = 16.0 / 9.0,
                              .aspectFitting = true,
                              .pictureAspect = 4.0 / 3.0};
        const auto r = renderEffect("Fade To Sepia", frame, {}, o);
        const Picture want = composited(frame, 0xFFE5CC99u, 102, format);
        const uint32_t bar = format == kFourccAyuv ? 0xFF0F8080u : 0xFF000000u;
        for (int y = 0; y < 72; ++y) {
            for (int x = 0; x < 128; ++x) {
                const uint32_t expected = (x < 16 || x >= 112) ? bar : want.at(x, y);
                ASSERT_EQ(r.target.at(x, y), expected) << x << ", " << y;
            }
        }
        EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
    }
}

}  // namespace
