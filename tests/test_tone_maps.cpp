// "Greyscale", "Sepiascale" and "Colorscale" through the exported entry,
// against a model built from the shared pixel helpers: grey levels, studio
// range clamping in AYUV, the five intensity profiles at their zero points
// and peaks, both intensity clamps, hostile values, a missing source, and the
// border bars and stride padding.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "pixel/color.h"
#include "support.h"

namespace {

using reelfx::Picture;
using reelfx::RenderOptions;
using reelfx::test::testPicture;

constexpr uint32_t kFill = 0x5A5A5A5A;

std::string hex(uint32_t word) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", word);
    return text;
}
const uint32_t kFormats[] = {kFourccArgb, kFourccAyuv};
const double kInf = std::numeric_limits<double>::infinity();

// Each pixel mixed toward the shade of its luma by strength e with the
// clamped mix, the source alpha kept; the padding keeps kFill.
Picture model(const Picture& src, uint32_t colour, double e, uint32_t format) {
    uint32_t table[220];
    const uint32_t r = (colour >> 16) & 0xFF, g = (colour >> 8) & 0xFF, b = colour & 0xFF;
    for (uint32_t i = 0; i < 220; ++i) {
        table[i] = argbToFrame(
            0xFF000000u + ((i * r) / 219) * 65536 + ((i * g) / 219) * 256 + (i * b) / 219, format);
    }
    Picture out(src.width, src.height, src.stride, kFill);
    for (int y = 0; y < src.height; ++y) {
        for (int x = 0; x < src.width; ++x) {
            const uint32_t s = src.at(x, y);
            const int luma = std::clamp<int>((frameToAyuv(s, format) >> 16) & 0xFF, 16, 235);
            const uint32_t m = mixPixelClamped(s, table[luma - 16], e, format);
            out.at(x, y) = (m & 0x00FFFFFFu) | (s & 0xFF000000u);
        }
    }
    return out;
}

struct ToneMap {
    const char* name;
    uint32_t colour;  // the scaling colour the effect uses by default
};
const ToneMap kToneMaps[] = {
    {"Greyscale", 0xFFFFFFFFu}, {"Sepiascale", 0xFFE5CC99u}, {"Colorscale", 0xFFFFFFFFu}};

// Renders with "Intensity" and "Intensity Profile" set.
Picture render(const char* effect, const Picture& src, double intensity, double profile,
               double progress, uint32_t format,
               std::vector<std::pair<std::string, double>> extra = {}) {
    extra.emplace_back("Intensity", intensity);
    extra.emplace_back("Intensity Profile", profile);
    return reelfx::test::renderEffect(effect, src, extra, {.progress = progress, .format = format},
                                      kFill)
        .target;
}

::testing::AssertionResult sameWords(const Picture& a, const Picture& b) {
    for (int y = 0; y < a.height; ++y) {
        for (int x = 0; x < a.pitch(); ++x) {
            if (a.row(y)[x] != b.row(y)[x]) {
                return ::testing::AssertionFailure()
                       << "word (" << x << ", " << y << ") = " << hex(a.row(y)[x]) << ", want "
                       << hex(b.row(y)[x]);
            }
        }
    }
    return ::testing::AssertionSuccess();
}

// An AYUV picture with channels outside the studio ranges, and opaque grey.
Picture outOfRangeAyuv() {
    Picture p(6, 2, 6 * 4 + 4, kFill);
    const uint32_t words[12] = {0x40000000u, 0x80FF0505u, 0xFF00FFFFu, 0x12EEF1F0u,
                                0xFFEB8080u, 0xFF108080u, 0x7F0A0F11u, 0xFFF0EFF1u,
                                0x00808080u, 0xFF7D8080u, 0x01EC1010u, 0xFE0FF0F0u};
    for (int i = 0; i < 12; ++i) p.at(i % 6, i / 6) = words[i];
    return p;
}

TEST(ToneMaps, GreyscaleFullStrengthInArgb) {
    const Picture src = testPicture(41, 17, kFourccArgb, 0, 41 * 4 + 8);
    const Picture out = render("Greyscale", src, 1.0, 0.0, 0.3, kFourccArgb);
    for (int y = 0; y < src.height; ++y) {
        for (int x = 0; x < src.width; ++x) {
            const uint32_t s = src.at(x, y);
            const int i = static_cast<int>((argbToAyuv(s) >> 16) & 0xFF) - 16;
            const uint32_t grey = static_cast<uint32_t>(i * 255 / 219);
            ASSERT_EQ(out.at(x, y), (s & 0xFF000000u) | grey * 0x010101u) << x << ", " << y;
        }
    }
    EXPECT_TRUE(reelfx::test::paddingUntouched(out, kFill));
    // White stays white with its own alpha, black stays black.
    Picture ends(2, 1);
    ends.at(0, 0) = 0x37FFFFFFu;
    ends.at(1, 0) = 0x9A000000u;
    const Picture e = render("Greyscale", ends, 1.0, 0.0, 0.0, kFourccArgb);
    EXPECT_EQ(e.at(0, 0), 0x37FFFFFFu);
    EXPECT_EQ(e.at(1, 0), 0x9A000000u);
}

TEST(ToneMaps, GreyscaleInAyuvHasNeutralChroma) {
    const Picture src = testPicture(33, 12, kFourccAyuv);
    const Picture out = render("Greyscale", src, 1.0, 0.0, 0.0, kFourccAyuv);
    for (int y = 0; y < src.height; ++y) {
        for (int x = 0; x < src.width; ++x) {
            const uint32_t s = src.at(x, y);
            const int i = std::clamp<int>((s >> 16) & 0xFF, 16, 235) - 16;
            const uint32_t grey = static_cast<uint32_t>(i * 255 / 219);
            const uint32_t want = (s & 0xFF000000u) | (argbToAyuv(grey * 0x010101u) & 0xFFFFFFu);
            ASSERT_EQ(out.at(x, y), want) << x << ", " << y;
            ASSERT_EQ(out.at(x, y) & 0xFFFFu, 0x8080u);
        }
    }
}

// Strength e = Intensity x shape(progress) for every profile, both formats.
TEST(ToneMaps, ProfilesShapeTheStrength) {
    const struct {
        int profile;
        double progress;
        double shape;
    } cases[] = {{0, 0.7, 1.0},  {1, 0.25, 0.25}, {1, 0.75, 0.75}, {2, 0.25, 0.75},
                 {3, 0.25, 0.5}, {3, 0.9, 0.8},   {4, 0.25, 0.5},  {4, 0.5, 1.0}};
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(29, 13, format, 0, 29 * 4 + 8);
        for (const ToneMap& t : kToneMaps) {
            for (const auto& c : cases) {
                for (double intensity : {1.0, 0.6, 2.0, -1.0}) {
                    const Picture out =
                        render(t.name, src, intensity, c.profile, c.progress, format);
                    ASSERT_TRUE(sameWords(out, model(src, t.colour, intensity * c.shape, format)))
                        << t.name << " " << reelfx::test::formatName(format) << " profile "
                        << c.profile << " at " << c.progress << ", intensity " << intensity;
                }
            }
        }
    }
}

// At every zero point the picture stays as it is in ARGB; in AYUV only the
// channels outside the studio ranges are clamped into them.
TEST(ToneMaps, ZeroPointsLeaveThePicture) {
    const struct {
        double intensity;
        int profile;
        double progress;
    } zeros[] = {{0.0, 0, 0.5},  {1.0, 1, 0.0}, {2.0, 2, 1.0},  {1.0, 3, 0.5},
                 {-1.0, 4, 0.0}, {1.0, 4, 1.0}, {1.0, 1, -3.0}, {1.0, 2, 7.0}};
    const Picture argb = testPicture(19, 9, kFourccArgb, 0, 19 * 4 + 4);
    const Picture ayuv = outOfRangeAyuv();
    Picture clamped = ayuv;
    for (int y = 0; y < ayuv.height; ++y) {
        for (int x = 0; x < ayuv.width; ++x) {
            const uint32_t s = ayuv.at(x, y);
            const uint32_t yy = std::clamp<uint32_t>((s >> 16) & 0xFF, 16, 235);
            const uint32_t u = std::clamp<uint32_t>((s >> 8) & 0xFF, 16, 240);
            const uint32_t v = std::clamp<uint32_t>(s & 0xFF, 16, 240);
            clamped.at(x, y) = (s & 0xFF000000u) | yy << 16 | u << 8 | v;
        }
    }
    for (const ToneMap& t : kToneMaps) {
        for (const auto& z : zeros) {
            const Picture a = render(t.name, argb, z.intensity, z.profile, z.progress, kFourccArgb);
            EXPECT_TRUE(a.samePixels(argb)) << t.name << " profile " << z.profile;
            EXPECT_TRUE(reelfx::test::paddingUntouched(a, kFill));
            const Picture y = render(t.name, ayuv, z.intensity, z.profile, z.progress, kFourccAyuv);
            EXPECT_TRUE(y.samePixels(clamped)) << t.name << " profile " << z.profile;
            EXPECT_TRUE(reelfx::test::paddingUntouched(y, kFill));
        }
    }
    EXPECT_EQ(clamped.at(0, 0), 0x40101010u);  // the model clamps as meant
}

// Intensities beyond -1 ... 2 act as the bound, profile indices beyond 0 ... 4
// as the nearer end, progress beyond 0 ... 1 as the nearer end; a NaN
// intensity counts as 0 and a NaN progress as the start.
TEST(ToneMaps, ValuesOutsideTheRangesActAsTheBounds) {
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(23, 11, format, 0, 23 * 4 + 8);
        for (const ToneMap& t : kToneMaps) {
            auto same = [&](double i1, double p1, double t1, double i2, double p2, double t2) {
                return sameWords(render(t.name, src, i1, p1, t1, format),
                                 render(t.name, src, i2, p2, t2, format));
            };
            EXPECT_TRUE(same(5.0, 0, 0, 2.0, 0, 0)) << t.name;
            EXPECT_TRUE(same(kInf, 0, 0, 2.0, 0, 0)) << t.name;
            EXPECT_TRUE(same(-7.0, 0, 0, -1.0, 0, 0)) << t.name;
            EXPECT_TRUE(same(-kInf, 0, 0, -1.0, 0, 0)) << t.name;
            EXPECT_TRUE(same(1.0, 9, 0.2, 1.0, 4, 0.2)) << t.name;
            EXPECT_TRUE(same(1.0, 1e300, 0.2, 1.0, 0, 0.2)) << t.name;  // low 32 bits: 0
            EXPECT_TRUE(same(1.0, -3, 0.2, 1.0, 0, 0.2)) << t.name;
            EXPECT_TRUE(same(1.0, 1, -2.0, 1.0, 1, 0.0)) << t.name;
            EXPECT_TRUE(same(1.0, 1, 2.0, 1.0, 1, 1.0)) << t.name;
            EXPECT_TRUE(same(std::nan(""), 0, 0.5, 0.0, 0, 0.5)) << t.name;
            EXPECT_TRUE(same(1.0, 4, std::nan(""), 1.0, 4, 0.0)) << t.name;
            EXPECT_TRUE(same(1.0, 1, kInf, 1.0, 1, 1.0)) << t.name;
            EXPECT_TRUE(same(1.0, 1, -kInf, 1.0, 1, 0.0)) << t.name;
            // The clamps bite: 2.0 and -1.0 overshoot and clamp.
            EXPECT_TRUE(sameWords(render(t.name, src, 2.0, 0, 0, format),
                                  model(src, t.colour, 2.0, format)));
            EXPECT_TRUE(sameWords(render(t.name, src, -1.0, 0, 0, format),
                                  model(src, t.colour, -1.0, format)));
        }
    }
}

TEST(ToneMaps, ColorscaleUsesTheScalingBaseColor) {
    Picture src(3, 1);
    src.at(0, 0) = 0x80FFFFFFu;  // white: luma 235
    src.at(1, 0) = 0xFF808080u;  // mid grey: luma 125, shade 109 * 255 / 219 = 126
    src.at(2, 0) = 0x00000000u;
    const Picture out = render("Colorscale", src, 1.0, 0.0, 0.0, kFourccArgb,
                               {{"Scaling Base Color", 4278190335.0}});  // 0xFF0000FF
    EXPECT_EQ(out.at(0, 0), 0x800000FFu);
    EXPECT_EQ(out.at(1, 0), 0xFF00007Eu);
    EXPECT_EQ(out.at(2, 0), 0x00000000u);
    // The colour's alpha byte plays no part.
    const Picture noAlpha =
        render("Colorscale", src, 1.0, 0.0, 0.0, kFourccArgb, {{"Scaling Base Color", 255.0}});
    EXPECT_TRUE(sameWords(out, noAlpha));
    for (uint32_t format : kFormats) {
        const Picture pic = testPicture(20, 8, format);
        const Picture o = render("Colorscale", pic, 0.8, 4.0, 0.25, format,
                                 {{"Scaling Base Color", 4281558562.0}});  // 0xFF336622
        EXPECT_TRUE(sameWords(o, model(pic, 0xFF336622u, 0.4, format)));
    }
}

TEST(ToneMaps, MissingSourceFillsWhite) {
    for (uint32_t format : kFormats) {
        for (const ToneMap& t : kToneMaps) {
            Picture target(9, 4, 9 * 4 + 12, kFill);
            reelfx::Instance inst(reelfx::test::module(), reelfx::test::effectIndex(t.name), 9, 4);
            ASSERT_EQ(inst.render(nullptr, target, {.format = format}), 0);
            EXPECT_TRUE(reelfx::test::untouchedOutside(target, 0, 0, 9, 4, kFill));
            for (int y = 0; y < 4; ++y) {
                for (int x = 0; x < 9; ++x) ASSERT_EQ(target.at(x, y), opaqueWhite(format));
            }
        }
    }
}

// A 4:3 picture in a 16:9 frame: the 96 x 72 active rectangle is recoloured,
// the bars keep the frame's black and the padding its words.
TEST(ToneMaps, WorkOnlyInsideTheActiveRectangle) {
    for (uint32_t format : kFormats) {
        const Picture frame = testPicture(128, 72, format, 0, 128 * 4 + 8);
        const RenderOptions o{.progress = 0.5,
                              .format = format,
                              .displayAspect = 16.0 / 9.0,
                              .aspectFitting = true,
                              .pictureAspect = 4.0 / 3.0};
        const uint32_t bar = format == kFourccAyuv ? 0xFF0F8080u : 0xFF000000u;
        for (const ToneMap& t : kToneMaps) {
            const auto r = reelfx::test::renderEffect(
                t.name, frame, {{"Intensity", 1.5}, {"Intensity Profile", 1.0}}, o, kFill);
            const Picture want = model(frame, t.colour, 0.75, format);
            for (int y = 0; y < 72; ++y) {
                for (int x = 0; x < 128; ++x) {
                    const uint32_t w = (x < 16 || x >= 112) ? bar : want.at(x, y);
                    ASSERT_EQ(r.target.at(x, y), w) << t.name << " " << x << ", " << y;
                }
            }
            EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill)) << t.name;
        }
    }
}

}  // namespace
