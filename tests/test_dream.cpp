// "Dream" through the exported entry. The box blurs themselves are the
// filter facility's, tested on their own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "pixel/color.h"
#include "pixel/filter.h"
#include "plugin/instance.h"
#include "support.h"

namespace {

using namespace reelfx::test;
using reelfx::Picture;

constexpr uint32_t kFill = 0x5A5A5A5A;

// The glare blend of one pixel (t = 0 for d < 0 leaves D as it is).
uint32_t blend(uint32_t D, uint32_t G, uint32_t format) {
    auto b = [](uint32_t p, int k) { return static_cast<int>(p >> (8 * k) & 0xFF); };
    const bool argb = format == kFourccArgb;
    const int d =
        argb ? 28 * (b(G, 0) - b(D, 0)) + 154 * (b(G, 1) - b(D, 1)) + 74 * (b(G, 2) - b(D, 2))
             : b(G, 2) - b(D, 2);
    const int full = argb ? 2048 : 8, t = std::clamp(d, 0, full);
    uint32_t out = 0;
    for (int k = 0; k < 4; ++k)
        out |= static_cast<uint32_t>((b(G, k) * t + b(D, k) * (full - t)) / full) << (8 * k);
    return out;
}

Picture boxBlur(const Picture& src, int32_t code) {
    Picture dst(src.width, src.height, src.stride, kFill);
    if (code)
        ApplyFilterCode(dst.data(), src.words.data(), src.stride, src.width, src.height, code);
    return dst;
}

// The frame from the two kernel codes (0: no kernel).
Picture model(const Picture& src, int32_t baseCode, int32_t glareCode, uint32_t format) {
    Picture dst = boxBlur(src, baseCode);
    const Picture glare = boxBlur(src, glareCode);
    for (size_t i = 0; glareCode && i < dst.words.size(); ++i) {
        if (int(i) % dst.pitch() < dst.width)
            dst.words[i] = blend(dst.words[i], glare.words[i], format);
    }
    return dst;
}

Picture render(const Picture& src, double blur, double glare, uint32_t format = kFourccArgb) {
    return renderEffect("Dream", src, {{"Blur Intensity", blur}, {"Glare Intensity", glare}},
                        {.format = format})
        .target;
}

TEST(Dream, HandComputedBlends) {
    // d = 28 * 10 + 154 * 2 + 74 * 2 = 736: each byte (G * 736 + D * 1312) >> 11.
    EXPECT_EQ(blend(0x10203040u, 0x2022324Au, kFourccArgb), 0x15203043u);
    EXPECT_EQ(blend(0x10000000u, 0xFF080808u, kFourccArgb), 0xFF080808u);  // 8 levels: G
    EXPECT_EQ(blend(0xFF202020u, 0x00101010u, kFourccArgb), 0xFF202020u);  // darker: D
    // AYUV: Y 3 levels brighter, t = 3: (G * 3 + D * 5) >> 3.
    EXPECT_EQ(blend(0x80408080u, 0xFF43A070u, kFourccAyuv), 0xAF418C7Au);
}

// Base m1 = trunc(Blur * Glare * 9), glare m2 = trunc(Glare * 9); below 3 the
// 3-tap box, up to 9 the (2m + 1)-tap box, from 10 on none. NaN and values
// beyond 32 bits truncate to INT32_MIN: the narrowest box.
TEST(Dream, ParametersChooseTheBoxWidths) {
    const struct {
        double blur, glare;
        int32_t base, glare2;
    } cases[] = {{0.0, 0.0, 102, 102}, {0.0, 0.5, 102, 104},      {1.0, 1.0, 109, 109},
                 {1.0, 0.5, 104, 104}, {0.5, 0.8, 103, 107},      {0.7, 0.999, 106, 108},
                 {NAN, 0.5, 102, 104}, {0.5, INFINITY, 102, 102}, {-1e300, 0.9, 102, 108},
                 {2.0, 1.0, 0, 109}};  // no base kernel: the glare blends into the host's words
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(45, 33, format, 0, 45 * 4 + 8);
        for (const auto& c : cases) {
            const Picture out = render(src, c.blur, c.glare, format);
            EXPECT_EQ(out.words, model(src, c.base, c.glare2, format).words)
                << c.blur << " " << c.glare << " " << formatName(format);
            // Equal widths: the glare picture is the base blur, d = 0
            // everywhere, and the frame is the plain box blur, never the source.
            if (c.base == c.glare2) {
                EXPECT_EQ(out.words, boxBlur(src, c.base).words);
            }
        }
    }
}

// In AYUV only the Y byte decides: Y flat at 128 (which the 3- and 5-tap
// boxes both keep) under varying chroma leaves the base blur; the same words
// as ARGB do blend.
TEST(Dream, AyuvDecidesOnLumaOnly) {
    Picture src = testPicture(36, 30, kFourccAyuv);
    for (auto& w : src.words) w = (w & 0xFF00FFFFu) | 0x00800000u;
    ASSERT_NE(boxBlur(src, 102).words, boxBlur(src, 103).words);
    EXPECT_EQ(render(src, 0.0, 0.35, kFourccAyuv).words, boxBlur(src, 102).words);
    EXPECT_NE(render(src, 0.0, 0.35).words, boxBlur(src, 102).words);
}

// A glare width with no kernel leaves the glare picture unwritten, and the
// frame keeps its base blur even when the picture holds an earlier frame's
// glare.
TEST(Dream, NoGlareKernelKeepsTheBaseBlur) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        reelfx::Instance inst(module(), effectIndex("Dream"), 40, 30);
        const Picture first = testPicture(40, 30, format, 1),
                      second = testPicture(40, 30, format, 5);
        Picture target(40, 30, 0, kFill);
        ASSERT_EQ(inst.render(&first, target, {.format = format}), 0);  // defaults: glare 104
        EXPECT_EQ(target.words, model(first, 102, 104, format).words);
        for (double g : {10.0 / 9.0, 1.2, 5.0, 1e8}) {
            inst.setParameter("Glare Intensity", g);
            ASSERT_EQ(inst.render(&second, target, {.format = format}), 0);
            EXPECT_EQ(target.words, boxBlur(second, 102).words) << g;
        }
    }
}

// Created for a frame of no pixels, or of more bytes than 32 bits count (up
// to the largest sides, whose byte count overflows 64 bits): no glare
// picture. Frames show the base blur, and the frame geometry is recorded in
// the instance.
TEST(Dream, WithoutAGlarePictureOnlyTheBaseBlur) {
    const struct {
        int32_t width, height;
    } sizes[] = {{0, 0}, {-4, 3}, {32768, 16384}, {65536, 65536}, {INT32_MAX, INT32_MAX}};
    for (const auto [width, height] : sizes) {
        reelfx::Instance inst(module(), effectIndex("Dream"), width, height);
        const auto* state = reinterpret_cast<const PluginInstance*>(inst.block().instance);
        ASSERT_EQ(state->workBuffer, nullptr) << width << "x" << height;
        inst.setParameter("Blur Intensity", 1.0);
        inst.setParameter("Glare Intensity", 0.8);  // base trunc(7.2) = 7
        const Picture src = testPicture(30, 20, kFourccArgb, 0, 30 * 4 + 8);
        Picture target(30, 20, 30 * 4 + 8, kFill);
        ASSERT_EQ(inst.render(&src, target), 0);
        EXPECT_EQ(target.words, boxBlur(src, 107).words) << width << "x" << height;
        EXPECT_EQ(state->cachedStride, 30 * 4 + 8);
        EXPECT_EQ(state->cachedWidth, 30);
        EXPECT_EQ(state->cachedHeight, 20);
    }
}

}  // namespace
