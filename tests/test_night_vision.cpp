// "Night Vision" through the exported entry.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "pixel/color.h"
#include "support.h"

namespace {

using namespace reelfx::test;
using reelfx::Picture;

constexpr uint32_t kFill = 0x5A5A5A5A;

int channel(uint32_t p, int k) { return static_cast<int>((p >> (8 * k)) & 0xFF); }

Picture render(const Picture& src, double i, double m, double k, double z,
               uint32_t format = kFourccArgb) {
    return renderEffect("Night Vision", src,
                        {{"Intensity", i},
                         {"Red/Green Mix", m},
                         {"Brightness Gain", k},
                         {"Brightness Base", z}},
                        {.format = format})
        .target;
}

// ARGB at full intensity: pure green of the clamped level with the source's
// alpha. Values out of range act as the nearest bound, NaN as the lower one.
TEST(NightVision, LevelFromMixGainAndBase) {
    const Picture src = testPicture(40, 24, kFourccArgb, 0, 40 * 4 + 8);
    const struct {
        double i, m, k, z;
        int (*level)(int r, int g);
    } cases[] = {
        {1.0, 0.0, 1.0, 0.0, [](int r, int) { return r; }},              // defaults: red as green
        {1.0, 3.0, 1.0, 0.0, [](int, int g) { return g; }},              // green alone
        {1.0, 0.5, 1.0, 0.0, [](int r, int g) { return (r + g) / 2; }},  // truncated mean
        {1.5, 0.3, 0.0, 0.5, [](int, int) { return 127; }},              // flat trunc(Z * 255)
        {1.0, -1.0, 1.0, 0.8, [](int r, int) { return r; }},             // base irrelevant
        {1.0, 0.0, 7.0, 0.0, [](int r, int) { return 5 * r; }},          // 51 and up saturate
        {1.0, 0.0, 2.0, 9.0, [](int r, int) { return 2 * r - 255; }},    // up to 127 give 0
        {1.0, NAN, NAN, NAN, [](int, int) { return 0; }},
    };
    for (const auto& c : cases) {
        const Picture out = render(src, c.i, c.m, c.k, c.z);
        for (int i = 0; i < 40 * 24; ++i) {
            const uint32_t s = src.at(i % 40, i / 40);
            const int g = std::clamp(c.level(channel(s, 2), channel(s, 1)), 0, 255);
            ASSERT_EQ(out.at(i % 40, i / 40), (s & 0xFF000000u) | static_cast<uint32_t>(g) << 8)
                << c.m << " " << c.k << " " << c.z << " at " << i;
        }
        EXPECT_TRUE(paddingUntouched(out, kFill));
    }
    EXPECT_EQ(renderEffect("Night Vision", src).target.words, render(src, 1, 0, 1, 0).words);
}

// Intensity 0 (or below, or NaN) copies bit for bit, even in AYUV; 0.5 gives
// per channel the truncated midpoint between the source and the green pixel,
// which in AYUV is the green of the pixel's ARGB form converted back.
TEST(NightVision, IntensityAndAyuvFrames) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(30, 20, format, 0, 30 * 4 + 4);
        for (double i : {0.0, -3.0, static_cast<double>(NAN)}) {
            EXPECT_TRUE(render(src, i, 0.3, 2.0, 0.1, format).samePixels(src)) << i;
        }
        const Picture full = render(src, 1.0, 0.0, 1.0, 0.0, format);
        const Picture half = render(src, 0.5, 0.0, 1.0, 0.0, format);
        for (int i = 0; i < 30 * 20; ++i) {
            const uint32_t s = src.at(i % 30, i / 30), q = full.at(i % 30, i / 30);
            const uint32_t p = ayuvToArgb(s), green = (p & 0xFF000000u) | (p >> 8 & 0xFF00u);
            ASSERT_TRUE(format == kFourccArgb || q == argbToAyuv(green)) << i;
            for (int k = 0; k < 4; ++k) {
                ASSERT_EQ(channel(half.at(i % 30, i / 30), k), (channel(s, k) + channel(q, k)) / 2);
            }
        }
    }
}

}  // namespace
