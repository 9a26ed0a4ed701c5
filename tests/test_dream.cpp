// "Dream" through the exported entry: the blur widths chosen by the two
// parameters, the cases with no glare effect, the glare blend in both
// formats, wide and resized frames, a glare width with no kernel, hostile
// values, the bars and padding, and an instance without a glare buffer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "pixel/filter.h"
#include "pixel/numeric.h"
#include "plugin/instance.h"
#include "support.h"

namespace {

using reelfx::Instance;
using reelfx::Picture;
using reelfx::RenderOptions;
using reelfx::test::module;
using reelfx::test::renderEffect;
using reelfx::test::testPicture;

constexpr uint32_t kFill = 0x5A5A5A5A;
constexpr uint32_t kFormats[] = {kFourccArgb, kFourccAyuv};

int byteOf(uint32_t p, int k) { return static_cast<int>((p >> (8 * k)) & 0xFF); }

// The glare blend written per pixel.
uint32_t blend(uint32_t D, uint32_t G, uint32_t format) {
    int d, full, shift;
    if (format == kFourccArgb) {
        d = 28 * (byteOf(G, 0) - byteOf(D, 0)) + 154 * (byteOf(G, 1) - byteOf(D, 1)) +
            74 * (byteOf(G, 2) - byteOf(D, 2));
        full = 2048, shift = 11;
    } else {
        d = byteOf(G, 2) - byteOf(D, 2);
        full = 8, shift = 3;
    }
    if (d < 0) return D;
    const int t = std::min(d, full);
    uint32_t out = 0;
    for (int k = 0; k < 4; ++k) {
        out |= static_cast<uint32_t>((byteOf(G, k) * t + byteOf(D, k) * (full - t)) >> shift)
               << (8 * k);
    }
    return out;
}

// The frame from explicit kernel codes (0 = no kernel); the box blur itself
// is the filter facility's, tested on its own.
Picture modelWithCodes(const Picture& src, int32_t baseCode, int32_t glareCode, uint32_t format,
                       uint32_t fill = kFill) {
    Picture dst(src.width, src.height, src.stride, fill);
    if (baseCode) {
        EXPECT_TRUE(ApplyFilterCode(dst.data(), src.words.data(), src.stride, src.width,
                                    src.height, baseCode));
    }
    if (!glareCode) return dst;
    Picture glare(src.width, src.height, src.stride);
    EXPECT_TRUE(ApplyFilterCode(glare.data(), src.words.data(), src.stride, src.width,
                                src.height, glareCode));
    for (int y = 0; y < src.height; ++y) {
        for (int x = 0; x < src.width; ++x) dst.at(x, y) = blend(dst.at(x, y), glare.at(x, y), format);
    }
    return dst;
}

int32_t code(int32_t m) { return m < 3 ? 102 : (m <= 9 ? 100 + m : 0); }

Picture model(const Picture& src, double blur, double glare, uint32_t format,
              uint32_t fill = kFill) {
    return modelWithCodes(src, code(truncToInt32(blur * glare * 9.0)),
                          code(truncToInt32(glare * 9.0)), format, fill);
}

Picture boxBlur(const Picture& src, int32_t boxCode) {
    Picture dst(src.width, src.height, src.stride, kFill);
    EXPECT_TRUE(ApplyFilterCode(dst.data(), src.words.data(), src.stride, src.width, src.height,
                                boxCode));
    return dst;
}

// Dark ground with bright patches and fine detail: every blend case occurs.
Picture glowPicture(int32_t w, int32_t h, uint32_t format, int32_t strideBytes = 0) {
    Picture p = testPicture(w, h, format, 0, strideBytes);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            if ((x / 6 + y / 5) % 3 == 0) p.at(x, y) = format == kFourccAyuv ? 0x80108080u : 0x80000000u;
        }
    }
    return p;
}

TEST(DreamMapping, ParametersChooseTheBoxWidths) {
    struct Case {
        double blur, glare;
        int32_t base, glareCode;
    };
    const Case cases[] = {
        {0.0, 0.0, 102, 102},    {0.0, 0.5, 102, 104},   {1.0, 1.0, 109, 109},
        {1.0, 0.5, 104, 104},    {0.5, 0.8, 103, 107},   {0.7, 0.999, 106, 108},
        {0.3, 0.33, 102, 102},   {1.0, 0.35, 103, 103},  {0.9, 0.6, 104, 105},
        {0.25, 0.7, 102, 106},   {2.0, 1.0, 0, 109},     // no base kernel: the host's words stay
        {1.0, 1.0 / 3.0, 103, 103},
    };
    for (uint32_t format : kFormats) {
        const Picture src = glowPicture(45, 33, format);
        for (const Case& c : cases) {
            const auto r = renderEffect("Dream", src,
                                        {{"Blur Intensity", c.blur}, {"Glare Intensity", c.glare}},
                                        {.format = format});
            EXPECT_EQ(r.target.words, modelWithCodes(src, c.base, c.glareCode, format).words)
                << c.blur << " " << c.glare << " " << reelfx::test::formatName(format);
        }
    }
}

// Equal widths give a glare picture equal to the base blur: d = 0
// everywhere, and the frame is exactly the plain box blur (never the source).
TEST(DreamMapping, EqualWidthsAreThePlainBoxBlur) {
    const double cases[][3] = {{0.0, 0.0, 102}, {1.0, 1.0, 109}, {1.0, 0.5, 104}, {0.0, 0.3, 102}};
    for (uint32_t format : kFormats) {
        const Picture src = glowPicture(40, 28, format, 40 * 4 + 12);
        for (const auto& c : cases) {
            const auto r = renderEffect("Dream", src,
                                        {{"Blur Intensity", c[0]}, {"Glare Intensity", c[1]}},
                                        {.format = format});
            const Picture want = boxBlur(src, static_cast<int32_t>(c[2]));
            EXPECT_EQ(r.target.words, want.words) << c[0] << " " << c[1];
            EXPECT_FALSE(r.target.samePixels(src));
            EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
        }
    }
}

TEST(DreamBlend, ArgbFollowsLuminance) {
    const Picture src = glowPicture(50, 40, kFourccArgb);
    const auto r = renderEffect("Dream", src, {{"Blur Intensity", 0.0}, {"Glare Intensity", 0.5}});
    const Picture base = boxBlur(src, 102), glare = boxBlur(src, 104);
    int kept = 0, replaced = 0, mixed = 0;
    for (int y = 0; y < 40; ++y) {
        for (int x = 0; x < 50; ++x) {
            const uint32_t D = base.at(x, y), G = glare.at(x, y), out = r.target.at(x, y);
            const int d = 28 * (byteOf(G, 0) - byteOf(D, 0)) + 154 * (byteOf(G, 1) - byteOf(D, 1)) +
                          74 * (byteOf(G, 2) - byteOf(D, 2));
            if (d < 0) {
                ASSERT_EQ(out, D) << x << ", " << y;  // darker glare: base blur kept
                ++kept;
            } else if (d >= 2048) {
                ASSERT_EQ(out, G) << x << ", " << y;  // 8 levels brighter: glare, alpha too
                ++replaced;
            } else {
                ASSERT_EQ(out, blend(D, G, kFourccArgb)) << x << ", " << y;
                mixed += d > 0;
            }
        }
    }
    EXPECT_GT(kept, 0);
    EXPECT_GT(replaced, 0);
    EXPECT_GT(mixed, 0);
}

TEST(DreamBlend, HandComputedMixes) {
    // d = 28 * 10 + 154 * 2 + 74 * 2 = 736: each byte (G * 736 + D * 1312) >> 11.
    EXPECT_EQ(blend(0x10203040u, 0x2022324Au, kFourccArgb), 0x15203043u);
    // AYUV: Y 3 levels brighter: t = 3, (G * 3 + D * 5) >> 3.
    EXPECT_EQ(blend(0x80408080u, 0xFF43A070u, kFourccAyuv), 0xAF418C7Au);
}

TEST(DreamBlend, AyuvDecidesOnLumaOnly) {
    // Y flat at 128, which the 3- and 5-tap boxes both keep, under varying
    // chroma: glare and base differ in U and V only, so d = 0 everywhere.
    Picture src = testPicture(36, 30, kFourccAyuv);
    for (auto& w : src.words) w = (w & 0xFF00FFFFu) | 0x00800000u;
    const Picture base = boxBlur(src, 102);
    ASSERT_NE(base.words, boxBlur(src, 103).words);
    const auto params = std::vector<std::pair<std::string, double>>{{"Blur Intensity", 0.0},
                                                                    {"Glare Intensity", 0.35}};
    const auto ayuv = renderEffect("Dream", src, params, {.format = kFourccAyuv});
    EXPECT_EQ(ayuv.target.words, base.words);
    // The same words as ARGB: the chroma bytes are colour and do blend.
    const auto argb = renderEffect("Dream", src, params, {.format = kFourccArgb});
    EXPECT_NE(argb.target.words, base.words);
    EXPECT_EQ(argb.target.words, model(src, 0.0, 0.35, kFourccArgb).words);

    // A full AYUV picture against the model.
    const Picture yuv = glowPicture(47, 31, kFourccAyuv);
    const auto r = renderEffect("Dream", yuv, {{"Glare Intensity", 0.8}, {"Blur Intensity", 0.2}},
                                {.format = kFourccAyuv});
    EXPECT_EQ(r.target.words, model(yuv, 0.2, 0.8, kFourccAyuv).words);
    EXPECT_NE(r.target.words, boxBlur(yuv, 102).words);
}

// A glare width with no kernel leaves the glare picture unwritten: the frame
// is the base blur, even when the buffer still holds an earlier frame's
// glare or was never written.
TEST(DreamGlare, NoGlareKernelKeepsTheBaseBlur) {
    for (uint32_t format : kFormats) {
        Instance inst(module(), reelfx::test::effectIndex("Dream"), 40, 30);
        const Picture first = glowPicture(40, 30, format);
        const Picture second = testPicture(40, 30, format, 5);
        Picture target(40, 30, 0, kFill);

        inst.setParameter("Blur Intensity", 0.5);
        inst.setParameter("Glare Intensity", 1.2);  // base trunc(5.4) = 5, glare 10: none
        ASSERT_EQ(inst.render(&second, target, {.format = format}), 0);
        EXPECT_EQ(target.words, boxBlur(second, 105).words);

        inst.setParameter("Blur Intensity", 0.0);
        inst.setParameter("Glare Intensity", 0.5);
        ASSERT_EQ(inst.render(&first, target, {.format = format}), 0);
        EXPECT_EQ(target.words, model(first, 0.0, 0.5, format).words);

        for (double g : {10.0 / 9.0, 1.2, 5.0, 1e8}) {
            inst.setParameter("Glare Intensity", g);
            ASSERT_EQ(inst.render(&second, target, {.format = format}), 0);
            EXPECT_EQ(target.words, boxBlur(second, 102).words) << g;
        }
    }
}

TEST(DreamFrames, WiderThanTheLocalWorkingLine) {
    for (uint32_t format : kFormats) {
        const Picture src = glowPicture(2100, 4, format, 2100 * 4 + 8);
        for (const auto& [blur, glare] : {std::pair{0.0, 0.5}, std::pair{1.0, 1.0}}) {
            const auto r = renderEffect(
                "Dream", src, {{"Blur Intensity", blur}, {"Glare Intensity", glare}},
                {.format = format});
            EXPECT_EQ(r.target.words, model(src, blur, glare, format).words) << blur;
            EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
        }
    }
}

// Frames larger than the one the instance was created for get a glare
// picture that fits; the result is the same as with a fitting instance.
TEST(DreamFrames, LargerFramesThanAtCreation) {
    Instance inst(module(), reelfx::test::effectIndex("Dream"), 16, 12);
    inst.setParameter("Glare Intensity", 0.6);
    for (auto [w, h, s] : {std::tuple{16, 12, 64}, std::tuple{64, 48, 64 * 4 + 16},
                           std::tuple{2100, 3, 2100 * 4}, std::tuple{10, 8, 40}}) {
        const Picture src = glowPicture(w, h, kFourccArgb, s);
        Picture target(w, h, s, kFill);
        ASSERT_EQ(inst.render(&src, target), 0);
        EXPECT_EQ(target.words, model(src, 0.0, 0.6, kFourccArgb).words) << w << "x" << h;
    }
}

// Created for a frame of no pixels: no glare buffer. Frames show the base
// blur, and the frame geometry is recorded in the instance.
TEST(DreamFrames, WithoutAGlareBufferOnlyTheBaseBlur) {
    Instance inst(module(), reelfx::test::effectIndex("Dream"), 0, 0);
    const auto* state = reinterpret_cast<const PluginInstance*>(inst.block().instance);
    ASSERT_NE(state, nullptr);
    ASSERT_EQ(state->workBuffer, nullptr);
    inst.setParameter("Blur Intensity", 1.0);
    inst.setParameter("Glare Intensity", 0.8);  // base trunc(7.2) = 7
    const Picture src = glowPicture(30, 20, kFourccArgb, 30 * 4 + 8);
    Picture target(30, 20, 30 * 4 + 8, kFill);
    ASSERT_EQ(inst.render(&src, target), 0);
    EXPECT_EQ(target.words, boxBlur(src, 107).words);
    EXPECT_EQ(state->cachedStride, 30 * 4 + 8);
    EXPECT_EQ(state->cachedWidth, 30);
    EXPECT_EQ(state->cachedHeight, 20);
}

TEST(DreamFrames, HostileParameterValues) {
    const double inf = std::numeric_limits<double>::infinity();
    const double values[] = {std::nan(""), inf, -inf, 1e300, -1e300, 1e9, 1e8, -0.5, 0.5};
    for (uint32_t format : kFormats) {
        const Picture src = glowPicture(9, 7, format, 9 * 4 + 8);
        for (double blur : values) {
            for (double glare : values) {
                const auto r = renderEffect(
                    "Dream", src, {{"Blur Intensity", blur}, {"Glare Intensity", glare}},
                    {.format = format});
                ASSERT_EQ(r.target.words, model(src, blur, glare, format).words)
                    << blur << " " << glare;
                ASSERT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
            }
        }
    }
    // NaN truncates like an out-of-range value, to the narrowest box.
    const Picture src = glowPicture(9, 7, kFourccArgb);
    const auto r = renderEffect("Dream", src, {{"Glare Intensity", std::nan("")}});
    EXPECT_EQ(r.target.words, boxBlur(src, 102).words);
}

// A 4:3 picture in a 16:9 frame: only the 96 x 72 active rectangle is
// drawn, the bars are black in the frame's format, the padding is kept.
TEST(DreamFrames, WorksInsideTheActiveRectangle) {
    for (uint32_t format : kFormats) {
        const Picture frame = glowPicture(128, 72, format, 128 * 4 + 8);
        Picture active(96, 72);
        for (int y = 0; y < 72; ++y) std::copy_n(frame.row(y) + 16, 96, active.row(y));
        RenderOptions o{.format = format, .displayAspect = 16.0 / 9.0, .aspectFitting = true,
                        .pictureAspect = 4.0 / 3.0};
        const auto r = renderEffect("Dream", frame, {{"Glare Intensity", 0.7}}, o);
        const Picture want = model(active, 0.0, 0.7, format);
        const uint32_t bar = format == kFourccAyuv ? 0xFF0F8080u : 0xFF000000u;
        for (int y = 0; y < 72; ++y) {
            for (int x = 0; x < 128; ++x) {
                const uint32_t w = (x < 16 || x >= 112) ? bar : want.at(x - 16, y);
                ASSERT_EQ(r.target.at(x, y), w) << x << ", " << y;
            }
        }
        EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
    }
}

TEST(DreamFrames, MissingSourceFillsWhite) {
    for (uint32_t format : kFormats) {
        Picture target(9, 4, 9 * 4 + 12, kFill);
        Instance inst(module(), reelfx::test::effectIndex("Dream"), 9, 4);
        ASSERT_EQ(inst.render(nullptr, target, {.format = format}), 0);
        EXPECT_TRUE(reelfx::test::untouchedOutside(target, 0, 0, 9, 4, kFill));
        const uint32_t white = format == kFourccAyuv ? 0xFFEA8080u : 0xFFFFFFFFu;
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 9; ++x) ASSERT_EQ(target.at(x, y), white);
        }
    }
}

}  // namespace
