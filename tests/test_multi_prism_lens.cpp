// "Multi-Prism Lens" through the exported entry: facets and disc at 720 x 576,
// facet boundaries, the background colour, the map cache, clamped values and
// the active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "plugin/instance.h"
#include "support.h"

namespace {

using reelfx::Picture;
using namespace reelfx::test;

constexpr uint32_t kFill = 0x5A5A5A5A;

Picture lens(const Picture& src, double count, double radius, double refraction,
             uint32_t format = kFourccArgb) {
    return renderEffect("Multi-Prism Lens", src,
                        {{"Prism Count", count},
                         {"Center Radius", radius},
                         {"Prism Refraction", refraction}},
                        {.format = format})
        .target;
}

// Every pixel names its own position, so a copied word tells where it came from.
Picture coordinatePicture(int32_t w, int32_t h) {
    Picture p(w, h, w * 4 + 8, kFill);
    for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) p.at(x, y) = 0x80000000u | (y << 12) | x;
    }
    return p;
}

// Defaults at 720 x 576: disc radius 230 around (360, 288), six facets
// clockwise from straight up with the listed shifts.
TEST(MultiPrismLens, DefaultFacetsAndCentreRadiusOneAt720x576) {
    const Picture src = coordinatePicture(720, 576);
    const Picture r = lens(src, 6.0, 0.5, 0.75);
    const int shifts[6][2] = {{-172, 299}, {-345, 0}, {-172, -299},
                              {172, -299}, {345, 0},  {172, 299}};
    for (int k = 0; k < 6; ++k) {  // a pixel 300 from the centre on the facet's bisector
        const double m = (k + 0.5) * 3.141592653589793 / 3;
        const int x = 360 + std::lround(300 * std::sin(m)),
                  y = 288 - std::lround(300 * std::cos(m));
        EXPECT_EQ(r.at(x, y), src.at(x + shifts[k][0], y + shifts[k][1])) << "facet " << k;
    }
    EXPECT_EQ(r.at(360 + 230, 288), src.at(360 + 230, 288));  // the disc's rim
    EXPECT_EQ(r.at(360 + 231, 288), src.at(360 + 231 - 345, 288));
    EXPECT_TRUE(paddingUntouched(r, kFill));
    // Radius 1.0: R = 461; only the corner (0, 0), 461.02 away, is in a facet.
    Picture want = src;
    want.at(0, 0) = src.at(172, 299);
    EXPECT_EQ(lens(src, 6.0, 1.0, 0.75).words, want.words);
}

// A pixel exactly on the start of a facet belongs to that facet; the centre
// is in the disc even with radius 0; samples from outside the picture take
// opaque black in the frame's format.
TEST(MultiPrismLens, FacetBoundariesAndOutsideSamples) {
    const int32_t cx = 40, cy = 30;
    const Picture src = coordinatePicture(81, 61);  // half diagonal 50
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        Picture r = lens(src, 2.0, 0.0, 0.5, format);  // shift 25
        EXPECT_EQ(r.at(cx, cy), src.at(cx, cy));
        EXPECT_EQ(r.at(cx, cy - 5), src.at(cx - 25, cy - 5));       // phi = 0: facet 0
        EXPECT_EQ(r.at(cx, cy + 5), src.at(cx + 25, cy + 5));       // phi = pi: facet 1
        r = lens(src, 4.0, 0.0, 0.5, format);                       // shifts of 17 diagonally
        EXPECT_EQ(r.at(cx + 3, cy), src.at(cx + 3 - 17, cy - 17));  // phi = pi / 2: facet 1
        EXPECT_EQ(r.at(cx + 3, cy - 1), src.at(cx + 3 - 17, cy - 1 + 17));  // facet 0
        r = lens(src, 2.0, 0.0, 1.0, format);                               // shift 50
        const uint32_t black = format == kFourccAyuv ? 0xFF108080u : 0xFF000000u;
        EXPECT_EQ(r.at(45, 10), black) << formatName(format);
        EXPECT_EQ(r.at(35, 50), black) << formatName(format);
        EXPECT_EQ(r.at(70, 10), src.at(20, 10));
    }
}

TEST(MultiPrismLens, MapIsBuiltOnceAndRebuiltOnlyOnChange) {
    const Picture src = testPicture(64, 48, kFourccArgb);
    reelfx::Instance inst(module(), effectIndex("Multi-Prism Lens"), 64, 48);
    const PluginInstance& rec = *inst.block().instance;
    EXPECT_EQ(rec.workBuffer, nullptr);  // nothing until the first frame
    Picture a(64, 48), b(64, 48);
    auto frames = [&](const Picture& s, Picture& t, uint32_t builds) {
        inst.render(&s, t);
        inst.render(&s, t);
        EXPECT_EQ(rec.prismMapBuilds, builds);
    };
    frames(src, a, 1);
    const uint8_t* buffer = rec.workBuffer;
    inst.setParameter("Center Radius", 1.0);  // rebuilt in place
    frames(src, b, 2);
    EXPECT_EQ(rec.workBuffer, buffer);
    EXPECT_NE(a.words, b.words);
    inst.setParameter("Prism Count", 6.5);  // stored as 6, so it differs on every frame
    frames(src, b, 4);
    EXPECT_EQ(rec.cachedPrisms, 6);
    inst.setParameter("Prism Count", 6.0);
    inst.setParameter("Center Radius", 0.5);
    frames(src, b, 5);
    EXPECT_EQ(b.words, a.words);
    // A new height, then a new stride alone, reallocate and build once each.
    for (int32_t stride : {64 * 4, 64 * 4 + 16}) {
        const Picture other = testPicture(64, 40, kFourccArgb, 2, stride);
        Picture c(64, 40, stride, kFill);
        frames(other, c, stride == 64 * 4 ? 6 : 7);
        EXPECT_EQ(rec.workBufferBytes, 40u * stride);
        EXPECT_EQ(c.words, renderEffect("Multi-Prism Lens", other).target.words);
    }
}

// Beyond the working ranges the nearest bound; a NaN radius or refraction
// counts as 0, a count beyond 64 bits as 0 (so 2).
TEST(MultiPrismLens, ValuesAreClamped) {
    const double nan = std::nan(""), inf = std::numeric_limits<double>::infinity();
    const Picture src = testPicture(50, 30, kFourccArgb, 1);
    EXPECT_EQ(lens(src, 1e300, 0.3, 0.6).words, lens(src, 2.0, 0.3, 0.6).words);
    EXPECT_EQ(lens(src, -7.0, 0.3, 0.6).words, lens(src, 2.0, 0.3, 0.6).words);
    EXPECT_EQ(lens(src, 1e3, 0.3, 0.6).words, lens(src, 20.0, 0.3, 0.6).words);
    EXPECT_EQ(lens(src, 5.0, inf, 0.6).words, lens(src, 5.0, 1.0, 0.6).words);
    EXPECT_EQ(lens(src, 5.0, nan, 0.6).words, lens(src, 5.0, 0.0, 0.6).words);
    EXPECT_EQ(lens(src, 5.0, 0.3, 1e300).words, lens(src, 5.0, 0.3, 1.0).words);
    for (double refraction : {0.0, -2.0, nan})
        EXPECT_EQ(lens(src, 5.0, 0.3, refraction).words, src.words);
}

}  // namespace
