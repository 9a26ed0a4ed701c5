// The single-pixel conversions and channel mixes: reference values, the
// truncation of chroma toward zero, clamping, and alpha passing through.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "pixel/color.h"

namespace {

TEST(PixelColor, ArgbToAyuvReferenceColours) {
    EXPECT_EQ(argbToFrame(0xFFFFFFFFu, kFourccAyuv), 0xFFEB8080u);
    EXPECT_EQ(argbToFrame(0xFF000000u, kFourccAyuv), 0xFF108080u);
    EXPECT_EQ(argbToFrame(0xFF808080u, kFourccAyuv), 0xFF7D8080u);
    EXPECT_EQ(argbToFrame(0xFFE5CC99u, kFourccAyuv), 0xFFC0668Eu);
    EXPECT_EQ(argbToFrame(0xFF00FF00u, kFourccAyuv), 0xFF903623u);
    // Alpha is carried, whatever it is.
    EXPECT_EQ(argbToFrame(0x00000000u, kFourccAyuv), 0x00108080u);
    EXPECT_EQ(argbToFrame(0x7FFFFFFFu, kFourccAyuv), 0x7FEB8080u);
    // frameToAyuv converts when the frame is ARGB, i.e. the other way round.
    EXPECT_EQ(frameToAyuv(0xFFE5CC99u, kFourccArgb), 0xFFC0668Eu);
}

TEST(PixelColor, GreyInputsHaveNeutralChromaAndChromaTruncatesTowardZero) {
    for (uint32_t v = 0; v < 256; ++v) {
        const uint32_t yuv = argbToAyuv(0xFF000000u | v << 16 | v << 8 | v);
        EXPECT_EQ(yuv & 0xFFFFu, 0x8080u) << v;
    }
    // Pure blue: V = 128 - trunc(0.0714 * 255) = 128 - 18; U = 128 - trunc(-0.4392 * 255)
    // = 128 + 111 (a negative difference truncates toward zero, not down).
    EXPECT_EQ(argbToAyuv(0xFF0000FFu) & 0xFFFFu, (239u << 8) | 110u);
}

TEST(PixelColor, AyuvToArgbReferenceAndClamping) {
    EXPECT_EQ(frameToArgb(0xFF108080u, kFourccAyuv), 0xFF000000u);
    EXPECT_EQ(frameToArgb(0xFFEB8080u, kFourccAyuv), 0xFFFEFEFEu);
    // Outside the studio range every channel is clamped to 0-255.
    const uint32_t low = frameToArgb(0x1200FFFFu, kFourccAyuv);
    EXPECT_EQ(low >> 24, 0x12u);
    EXPECT_EQ((low >> 16) & 0xFF, 184u);  // R = trunc(1.596002 * 127 - 0.000151 * 127 - 18.63)
    EXPECT_EQ(low & 0xFF, 237u);          // B = trunc(2.017234 * 127 - 18.63 - 0.017)
    EXPECT_EQ(frameToArgb(0xFF100000u, kFourccAyuv) & 0xFF, 0u);          // B below 0
    EXPECT_EQ(frameToArgb(0xFFFFFFFFu, kFourccAyuv) >> 16 & 0xFF, 255u);  // R above 255
}

TEST(PixelColor, ConversionsForTheOtherFormatLeaveThePixelAlone) {
    for (uint32_t p : {0x00000000u, 0x12345678u, 0xFFFFFFFFu, 0x80FF0080u}) {
        EXPECT_EQ(frameToArgb(p, kFourccArgb), p);
        EXPECT_EQ(frameToAyuv(p, kFourccAyuv), p);
        EXPECT_EQ(argbToFrame(p, kFourccArgb), p);
    }
}

TEST(PixelColor, MixesTruncateAndMixAlpha) {
    EXPECT_EQ(mixPixel(0xFF000000u, 0xFFFFFFFFu, 0.5), 0xFF7F7F7Fu);
    EXPECT_EQ(mixPixel(0x00000000u, 0xFF000000u, 0.5), 0x7F000000u);
    EXPECT_EQ(mixPixel(0x10203040u, 0x10203040u, 0.7), 0x10203040u);
    // Downward mixes truncate toward zero too: 255 + (0 - 255) * 0.5 = 127.5.
    EXPECT_EQ(mixPixel(0xFFFFFFFFu, 0xFF000000u, 0.5), 0xFF7F7F7Fu);
}

TEST(PixelColor, ClampedMixStaysInTheFormatsRange) {
    EXPECT_EQ(mixPixelClamped(0xFF404040u, 0xFFFFFFFFu, 2.0, kFourccArgb), 0xFFFFFFFFu);
    EXPECT_EQ(mixPixelClamped(0xFF404040u, 0xFFFFFFFFu, 2.0, kFourccAyuv), 0xFFEBF0F0u);
    EXPECT_EQ(mixPixelClamped(0xFFC0C0C0u, 0xFF000000u, 2.0, kFourccArgb), 0xFF000000u);
    EXPECT_EQ(mixPixelClamped(0xFFC0C0C0u, 0xFF000000u, 2.0, kFourccAyuv), 0xFF101010u);
    EXPECT_EQ(mixPixelClamped(0xFF000000u, 0xFFFFFFFFu, 0.5, kFourccArgb), 0xFF7F7F7Fu);
    // A NaN weight has a defined result and no undefined conversion.
    const uint32_t nan = mixPixelClamped(0xFF404040u, 0xFFFFFFFFu,
                                         std::numeric_limits<double>::quiet_NaN(), kFourccArgb);
    EXPECT_EQ(nan, mixPixelClamped(0xFF404040u, 0xFFFFFFFFu,
                                   std::numeric_limits<double>::quiet_NaN(), kFourccArgb));
}

TEST(PixelColor, EndsMixReturnsTheEndsBitForBit) {
    const uint32_t a = 0x12345678u, b = 0x9ABCDEF0u;
    EXPECT_EQ(mixPixelEnds(a, b, 1.5), b);
    EXPECT_EQ(mixPixelEnds(a, b, 1.0), b);
    EXPECT_EQ(mixPixelEnds(a, b, -0.2), a);
    EXPECT_EQ(mixPixelEnds(a, b, 0.0), a);
    EXPECT_EQ(mixPixelEnds(a, b, 0.25), mixPixel(a, b, 0.25));
}

}  // namespace
