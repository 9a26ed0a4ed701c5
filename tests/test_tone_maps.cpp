// "Greyscale", "Sepiascale" and "Colorscale" through the exported entry:
// worked pixels in both formats (studio range clamps in AYUV), the five
// intensity profiles and the clamps of every value, a missing source, the
// active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "pixel/color.h"
#include "support.h"

namespace {

using reelfx::Instance;
using reelfx::Picture;
using reelfx::test::effectIndex;
using reelfx::test::module;

constexpr uint32_t kFill = 0x5A5A5A5A;
const uint32_t kFormats[] = {kFourccArgb, kFourccAyuv};
const char* const kToneMaps[] = {"Greyscale", "Sepiascale", "Colorscale"};

// Renders tone map `t` (index into kToneMaps); "Colorscale" gets the
// "Scaling Base Color" 0xFF0000FF.
Picture tone(int t, const Picture* src, const reelfx::RenderOptions& o, double intensity,
             double profile, int32_t w, int32_t h) {
    Instance inst(module(), effectIndex(kToneMaps[t]), w, h);
    inst.setParameter("Intensity", intensity);
    inst.setParameter("Intensity Profile", profile);
    if (t == 2) inst.setParameter("Scaling Base Color", 4278190335.0);
    Picture got(w, h, w * 4 + 8, kFill);  // sources have the same stride
    EXPECT_EQ(inst.render(src, got, o), 0);
    return got;
}

// Each pixel moves toward the shade of its luma by the strength, clamped to
// the format's channel ranges, alpha kept. 0xFF204060: luma 65, grey shade
// trunc(49 x 255 / 219) = 57; strength 2 gives 2 x 57 - source, -1 gives
// 2 x source - 57. Mid grey: luma 125, shade 126. White stays white.
TEST(ToneMaps, WorkedPixels) {
    // clang-format off
    const std::vector<uint32_t> argb = {0x37FFFFFFu, 0x9A000000u, 0xFF204060u, 0xFFFF0000u, 0xFF808080u};
    const std::vector<uint32_t> ayuv = {0x40000000u, 0x80FF0505u, 0xFF00FFFFu, 0x12EEF1F0u, 0xFF7D8080u};
    // clang-format on
    auto check = [&](int t, uint32_t format, double intensity, const std::vector<uint32_t>& want) {
        Picture src(5, 1, 5 * 4 + 8, kFill);  // the target's stride
        const auto& words = format == kFourccArgb ? argb : ayuv;
        std::copy(words.begin(), words.end(), src.words.begin());
        const Picture got = tone(t, &src, {.progress = 0.3, .format = format}, intensity, 0, 5, 1);
        EXPECT_EQ(std::vector<uint32_t>(got.words.begin(), got.words.begin() + 5), want)
            << kToneMaps[t] << " " << intensity;
    };
    // clang-format off
    check(0, kFourccArgb, 1.0, {0x37FFFFFFu, 0x9A000000u, 0xFF393939u, 0xFF4B4B4Bu, 0xFF7E7E7Eu});
    check(0, kFourccArgb, 2.0, {0x37FFFFFFu, 0x9A000000u, 0xFF523212u, 0xFF009696u, 0xFF7C7C7Cu});
    check(0, kFourccArgb, -1.0, {0x37FFFFFFu, 0x9A000000u, 0xFF074787u, 0xFFFF0000u, 0xFF828282u});
    check(2, kFourccArgb, 1.0, {0x370000FFu, 0x9A000000u, 0xFF000039u, 0xFF00004Bu, 0xFF00007Eu});
    check(1, kFourccArgb, 0.6, {0x37EFE0C1u, 0x9A000000u, 0xFF2B343Au, 0xFF8E241Bu, 0xFF776F60u});
    check(2, kFourccArgb, 0.0, argb);
    // Strength 0 in AYUV only clamps Y to 16-235 and U, V to 16-240.
    check(0, kFourccAyuv, 0.0, {0x40101010u, 0x80EB1010u, 0xFF10F0F0u, 0x12EBF0F0u, 0xFF7D8080u});
    check(0, kFourccAyuv, 1.0, {0x40108080u, 0x80EB8080u, 0xFF108080u, 0x12EB8080u, 0xFF7C8080u});
    check(1, kFourccAyuv, 2.0, {0x4020F0F0u, 0x8081C7F0u, 0xFF201010u, 0x1292102Cu, 0xFF51688Eu});
    check(1, kFourccAyuv, -1.0, {0x40101010u, 0x80EB1010u, 0xFF10F0F0u, 0x12EBF0F0u, 0xFF938C79u});
    check(2, kFourccAyuv, 0.6, {0x40104C4Cu, 0x807E9144u, 0xFF10B2B2u, 0x1277EFA2u, 0xFF42A17Bu});
    // clang-format on
}

// Strength = clamped "Intensity" x shape(clamped progress) of the clamped
// profile: each case renders like the constant profile at the strength
// given. A NaN intensity or progress counts as 0; 1e300 keeps its low 32
// bits, 0.
TEST(ToneMaps, ProfilesAndClamps) {
    const struct {
        double intensity, profile, progress, strength;
    } cases[] = {
        // clang-format off
        {2.0, 1, 0.25, 0.5},  {2.0, 2, 0.25, 1.5},  {2.0, 3, 0.25, 1.0},  {2.0, 3, 0.5, 0.0},
        {2.0, 4, 0.25, 1.0},  {2.0, 4, 0.5, 2.0},   {2.0, 4, 1.0, 0.0},   {1.0, 1, -2.0, 0.0},
        {1.0, 2, 7.0, 0.0},   {1.0, 1, NAN, 0.0},   {5.0, 0, 0.0, 2.0},   {-7.0, 0, 0.3, -1.0},
        {NAN, 0, 0.3, 0.0},   {1.0, 9, 0.25, 0.5},  {1.0, -3, 0.9, 1.0},  {0.5, 1e300, 0.1, 0.5},
        // clang-format on
    };
    for (uint32_t format : kFormats) {
        const Picture src = reelfx::test::testPicture(23, 11, format, 0, 23 * 4 + 8);
        for (int t = 0; t < 3; ++t) {
            for (const auto& c : cases) {
                const reelfx::RenderOptions o{.progress = c.progress, .format = format};
                EXPECT_EQ(tone(t, &src, o, c.intensity, c.profile, 23, 11).words,
                          tone(t, &src, {.format = format}, c.strength, 0, 23, 11).words)
                    << kToneMaps[t] << " " << c.intensity << " " << c.profile << " " << c.progress;
            }
        }
    }
}

}  // namespace
