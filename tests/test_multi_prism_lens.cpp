// "Multi-Prism Lens" through the exported entry: the facet shifts and the
// disc at 720 x 576, copies, facet boundaries, the background colour in both
// formats, the map cache in the instance, hostile values and the border bars.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "plugin/frame_context.h"
#include "plugin/instance.h"
#include "support.h"

namespace {

using reelfx::Instance;
using reelfx::Picture;
using reelfx::RenderOptions;
using reelfx::test::formatName;
using reelfx::test::module;
using reelfx::test::renderEffect;
using reelfx::test::testPicture;

constexpr uint32_t kFill = 0x5A5A5A5A;
constexpr double kPi = 3.141592653589793;

// Every pixel names its own position: x in bits 0-11, y in bits 12-23, and
// an alpha that varies, so a copied word tells where it came from.
Picture coordinatePicture(int32_t w, int32_t h, int32_t strideBytes = 0) {
    Picture p(w, h, strideBytes, kFill);
    for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) {
            p.at(x, y) = (static_cast<uint32_t>((x + y) & 0xFF) << 24) |
                         (static_cast<uint32_t>(y) << 12) | static_cast<uint32_t>(x);
        }
    }
    return p;
}

Instance lens(int32_t w, int32_t h) {
    return Instance(module(), reelfx::test::effectIndex("Multi-Prism Lens"), w, h);
}

const PluginInstance& record(Instance& inst) {
    return *inst.block().instance;
}

// Default parameters at 720 x 576: disc radius 230 around (360, 288), six
// facets clockwise from straight up with the listed shifts; samples outside
// the picture are opaque black.
TEST(MultiPrismLens, DefaultFacetsAndDiscAt720x576) {
    const int32_t w = 720, h = 576, cx = 360, cy = 288;
    const Picture src = coordinatePicture(w, h, w * 4 + 8);
    const auto r = renderEffect("Multi-Prism Lens", src);
    const int shifts[6][2] = {{-172, 299}, {-345, 0}, {-172, -299},
                              {172, -299}, {345, 0},  {172, 299}};
    int inDisc = 0;
    for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) {
            const int X = x - cx, Y = cy - y;
            int dx = 0, dy = 0;
            if (X * X + Y * Y > 230 * 230) {
                double phi = std::atan2(static_cast<double>(X), static_cast<double>(Y));
                if (phi < 0) phi += 2 * kPi;
                // Only the pixels straight up and down sit on a facet start.
                const int k = X == 0 ? (Y > 0 ? 0 : 3) : static_cast<int>(phi / (kPi / 3));
                dx = shifts[k][0];
                dy = shifts[k][1];
            } else {
                ++inDisc;
            }
            const int sx = x + dx, sy = y + dy;
            const uint32_t want =
                (sx >= 0 && sx < w && sy >= 0 && sy < h) ? src.at(sx, sy) : 0xFF000000u;
            ASSERT_EQ(r.target.at(x, y), want) << x << ", " << y;
        }
    }
    EXPECT_GT(inDisc, 160000);  // about pi * 230^2
    EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
    // Straight right of the disc: the edge of the disc is copied, the next
    // pixel out shows the source 345 columns to its left.
    EXPECT_EQ(r.target.at(cx + 230, cy), src.at(cx + 230, cy));
    EXPECT_EQ(r.target.at(cx + 231, cy), src.at(cx + 231 - 345, cy));
}

TEST(MultiPrismLens, ZeroRefractionCopies) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(97, 61, format, 0, 97 * 4 + 12);
        for (double count : {2.0, 6.0, 20.0}) {
            for (double radius : {0.0, 0.5, 1.0}) {
                const auto r = renderEffect(
                    "Multi-Prism Lens", src,
                    {{"Prism Count", count}, {"Center Radius", radius}, {"Prism Refraction", 0.0}},
                    {.format = format});
                EXPECT_TRUE(r.target.samePixels(src)) << count << " " << radius;
                EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
            }
        }
    }
}

// A pixel exactly on the start of a facet belongs to that facet.
TEST(MultiPrismLens, BoundaryPixelsBelongToTheLaterFacet) {
    const int32_t w = 81, h = 61, cx = 40, cy = 30;
    const Picture src = coordinatePicture(w, h);
    const int shift = static_cast<int>(std::sqrt(40.0 * 40 + 30 * 30) * 0.5);  // 25
    // Two facets: the right half (from straight up) shifts left, the left
    // half (from straight down) shifts right; the cosine terms are 0.
    auto r =
        renderEffect("Multi-Prism Lens", src,
                     {{"Prism Count", 2.0}, {"Center Radius", 0.0}, {"Prism Refraction", 0.5}});
    EXPECT_EQ(r.target.at(cx, cy), src.at(cx, cy));                  // the centre, even with R = 0
    EXPECT_EQ(r.target.at(cx, cy - 5), src.at(cx - shift, cy - 5));  // phi = 0: facet 0
    EXPECT_EQ(r.target.at(cx, cy + 5), src.at(cx + shift, cy + 5));  // phi = pi: facet 1
    EXPECT_EQ(r.target.at(cx + 5, cy), src.at(cx + 5 - shift, cy));
    EXPECT_EQ(r.target.at(cx - 5, cy), src.at(cx - 5 + shift, cy));
    // Four facets: straight right (phi = pi / 2) starts facet 1, whose
    // bisector points down-right, so the sample comes from up-left.
    r = renderEffect("Multi-Prism Lens", src,
                     {{"Prism Count", 4.0}, {"Center Radius", 0.0}, {"Prism Refraction", 0.5}});
    const int d = static_cast<int>(25.0 * std::sin(kPi / 4));  // 17
    EXPECT_EQ(r.target.at(cx + 3, cy), src.at(cx + 3 - d, cy - d));
    EXPECT_EQ(r.target.at(cx + 3, cy - 1), src.at(cx + 3 - d, cy - 1 + d));  // just above: facet 0
    EXPECT_EQ(r.target.at(cx, cy + 3), src.at(cx + d, cy + 3 - d));          // phi = pi: facet 2
    EXPECT_EQ(r.target.at(cx - 3, cy), src.at(cx - 3 + d, cy + d));          // 3 pi / 2: facet 3
}

// Samples from outside the picture take opaque black in the frame's format.
TEST(MultiPrismLens, OutsideSamplesAreOpaqueBlackInBothFormats) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const uint32_t black = format == kFourccAyuv ? 0xFF108080u : 0xFF000000u;
        const Picture src = testPicture(64, 48, format, 0, 64 * 4 + 4);
        const auto r =
            renderEffect("Multi-Prism Lens", src, {{"Prism Count", 2.0}, {"Prism Refraction", 1.0}},
                         {.format = format});
        // Disc radius 20 around (32, 24), shift 40: the right half samples
        // 40 columns to the left, the left half 40 to the right.
        for (int32_t y = 0; y < 48; y += 7) {
            EXPECT_EQ(r.target.at(63, y), src.at(23, y)) << formatName(format);
            EXPECT_EQ(r.target.at(0, y), src.at(40, y)) << formatName(format);
        }
        EXPECT_EQ(r.target.at(39, 0), black) << formatName(format);
        EXPECT_EQ(r.target.at(39, 47), black) << formatName(format);
        EXPECT_EQ(r.target.at(24, 0), black) << formatName(format);
        EXPECT_EQ(r.target.at(24, 47), black) << formatName(format);
        EXPECT_EQ(r.target.at(39, 24), src.at(39, 24));  // inside the disc
        EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
    }
}

TEST(MultiPrismLens, MapIsBuiltOnceAndRebuiltOnlyOnChange) {
    const Picture src = testPicture(64, 48, kFourccArgb);
    const Picture other = testPicture(64, 40, kFourccArgb, 2);
    Instance inst = lens(64, 48);
    EXPECT_EQ(record(inst).workBuffer, nullptr);  // nothing until the first frame
    Picture a(64, 48), b(64, 48);
    inst.render(&src, a);
    inst.render(&src, b);
    EXPECT_EQ(record(inst).prismMapBuilds, 1u);
    EXPECT_EQ(a.words, b.words);
    const uint8_t* buffer = record(inst).workBuffer;
    ASSERT_NE(buffer, nullptr);

    // A new radius rebuilds in place; the output follows it.
    inst.setParameter("Center Radius", 1.0);
    inst.render(&src, b);
    EXPECT_EQ(record(inst).prismMapBuilds, 2u);
    EXPECT_EQ(record(inst).workBuffer, buffer);
    EXPECT_EQ(record(inst).cachedCenterRadius, 1.0);
    EXPECT_NE(a.words, b.words);
    inst.render(&src, b);
    EXPECT_EQ(record(inst).prismMapBuilds, 2u);

    // Refraction 0 after a shifted map: the rebuilt map copies.
    inst.setParameter("Prism Refraction", 0.0);
    inst.render(&src, b);
    EXPECT_EQ(record(inst).prismMapBuilds, 3u);
    EXPECT_TRUE(b.samePixels(src));

    // A fractional count is stored truncated and so differs on every frame.
    inst.setParameter("Prism Refraction", 0.75);
    inst.setParameter("Prism Count", 6.5);
    for (uint32_t frame = 1; frame <= 3; ++frame) {
        inst.render(&src, b);
        EXPECT_EQ(record(inst).prismMapBuilds, 3u + frame);
        EXPECT_EQ(record(inst).cachedPrisms, 6);
    }
    inst.setParameter("Prism Count", 6.0);
    inst.render(&src, b);  // built for 6 already
    inst.render(&src, b);
    EXPECT_EQ(record(inst).prismMapBuilds, 6u);
    inst.setParameter("Center Radius", 0.5);
    inst.render(&src, b);
    EXPECT_EQ(record(inst).prismMapBuilds, 7u);
    EXPECT_EQ(b.words, a.words);  // back to the first frame's parameters

    // A new height reallocates the map for the new geometry and builds it
    // once; the result is that of a fresh instance.
    Picture c(64, 40);
    inst.render(&other, c);
    inst.render(&other, c);
    EXPECT_EQ(record(inst).prismMapBuilds, 8u);
    EXPECT_EQ(record(inst).cachedHeight, 40);
    EXPECT_EQ(record(inst).workBufferBytes, 40u * 64 * 4);
    const auto fresh = renderEffect("Multi-Prism Lens", other, {}, {}, 0);
    EXPECT_EQ(c.words, fresh.target.words);
    // A new stride alone reallocates too.
    const Picture padded = testPicture(64, 40, kFourccArgb, 2, 64 * 4 + 16);
    Picture d(64, 40, 64 * 4 + 16, kFill);
    inst.render(&padded, d);
    EXPECT_EQ(record(inst).prismMapBuilds, 9u);
    EXPECT_EQ(record(inst).cachedStride, 64 * 4 + 16);
    EXPECT_TRUE(d.samePixels(fresh.target));
    EXPECT_TRUE(reelfx::test::paddingUntouched(d, kFill));
}

// Values beyond the working ranges act as the nearest bound; NaN radius or
// refraction as 0. Nothing outside the picture is written.
TEST(MultiPrismLens, HostileValuesClamp) {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::nan("");
    const Picture src = testPicture(50, 30, kFourccArgb, 1, 50 * 4 + 8);
    auto words = [&](double count, double radius, double refraction) {
        const auto r = renderEffect(
            "Multi-Prism Lens", src,
            {{"Prism Count", count}, {"Center Radius", radius}, {"Prism Refraction", refraction}});
        EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
        return r.target.words;
    };
    EXPECT_EQ(words(1e300, 0.3, 0.6), words(2.0, 0.3, 0.6));  // low 32 bits of INT64_MIN: 0
    EXPECT_EQ(words(-7.0, 0.3, 0.6), words(2.0, 0.3, 0.6));
    EXPECT_EQ(words(1000.0, 0.3, 0.6), words(20.0, 0.3, 0.6));
    EXPECT_EQ(words(5.0, inf, 0.6), words(5.0, 1.0, 0.6));
    EXPECT_EQ(words(5.0, -inf, 0.6), words(5.0, 0.0, 0.6));
    EXPECT_EQ(words(5.0, nan, 0.6), words(5.0, 0.0, 0.6));
    EXPECT_EQ(words(5.0, 0.3, 1e300), words(5.0, 0.3, 1.0));
    EXPECT_EQ(words(5.0, 0.3, nan), words(5.0, 0.3, 0.0));
    EXPECT_EQ(words(5.0, 0.3, -2.0), words(5.0, 0.3, 0.0));
    Picture copy = src;
    for (int32_t y = 0; y < 30; ++y) {
        for (int32_t x = 50; x < copy.pitch(); ++x) copy.at(x, y) = kFill;
    }
    EXPECT_EQ(words(nan, nan, nan), copy.words);
}

TEST(MultiPrismLens, MissingSourceFillsWhite) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        Picture target(9, 4, 9 * 4 + 12, kFill);
        const uint32_t white = format == kFourccAyuv ? 0xFFEA8080u : 0xFFFFFFFFu;
        Instance inst = lens(9, 4);
        ASSERT_EQ(inst.render(nullptr, target, {.format = format}), 0);
        EXPECT_TRUE(reelfx::test::untouchedOutside(target, 0, 0, 9, 4, kFill));
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 9; ++x) ASSERT_EQ(target.at(x, y), white);
        }
    }
}

// A 4:3 picture in a 16:9 frame: the lens works on the 96 x 72 active
// rectangle alone; the bars stay black and the padding keeps the host's words.
TEST(MultiPrismLens, WorksInsideTheActiveRectangle) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const uint32_t bar = format == kFourccAyuv ? kBorderAyuv : kBorderArgb;
        const Picture frame = testPicture(128, 72, format, 0, 128 * 4 + 8);
        Picture active(96, 72);
        for (int y = 0; y < 72; ++y) std::copy_n(frame.row(y) + 16, 96, active.row(y));
        RenderOptions o{.format = format,
                        .displayAspect = 16.0 / 9.0,
                        .aspectFitting = true,
                        .pictureAspect = 4.0 / 3.0};
        const auto r = renderEffect("Multi-Prism Lens", frame, {{"Prism Count", 5.0}}, o);
        const auto want =
            renderEffect("Multi-Prism Lens", active, {{"Prism Count", 5.0}}, {.format = format});
        for (int y = 0; y < 72; ++y) {
            for (int x = 0; x < 128; ++x) {
                const uint32_t v = (x < 16 || x >= 112) ? bar : want.target.at(x - 16, y);
                ASSERT_EQ(r.target.at(x, y), v) << formatName(format) << " " << x << ", " << y;
            }
        }
        EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
    }
}

}  // namespace
