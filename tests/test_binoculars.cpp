// "Binoculars" through the exported entry: the corner values of a 720 x 576
// picture, the mask against a literal per-pixel model, the opaque background
// in both formats, the clamps, a missing source and the active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "pixel/color.h"
#include "support.h"

namespace {

using reelfx::Picture;
using reelfx::RenderOptions;
using reelfx::test::renderEffect;
using reelfx::test::testPicture;
using Params = std::vector<std::pair<std::string, double>>;

constexpr uint32_t kFill = 0x5A5A5A5A;
constexpr char kEffect[] = "Binoculars";

// The mask written out for every pixel, with both square roots each time.
double maskAt(int32_t w, int32_t h, double rf, double df, int32_t x, int32_t y) {
    const double r = std::sqrt((((w * w + h * h) * rf) * rf) * 0.25);
    const double d = r * df;
    const int32_t cx = w >> 1, cy = h >> 1;
    const int32_t dy = y - cy;
    const double mL = r - std::sqrt((x - (cx - d)) * (x - (cx - d)) + dy * dy);
    const double mR = r - std::sqrt((x - (cx + d)) * (x - (cx + d)) + dy * dy);
    return std::max(mL, mR);
}

Picture modelBinoculars(const Picture& src, double rf, double df, uint32_t bg) {
    Picture dst(src.width, src.height, src.stride, kFill);
    for (int y = 0; y < src.height; ++y) {
        for (int x = 0; x < src.width; ++x) {
            dst.at(x, y) =
                mixPixelEnds(bg, src.at(x, y), maskAt(src.width, src.height, rf, df, x, y));
        }
    }
    return dst;
}

Params params(double radius, double distance, double colour = 0.0) {
    return {{"Radius", radius}, {"Distance", distance}, {"Background Color", colour}};
}

TEST(Binoculars, CornersOfAFullSizeCircle) {
    const Picture src = testPicture(720, 576, kFourccArgb);
    const auto r = renderEffect(kEffect, src, params(1.0, 0.0));
    const double m10 = maskAt(720, 576, 1.0, 0.0, 1, 0);
    const double m01 = maskAt(720, 576, 1.0, 0.0, 0, 1);
    EXPECT_NEAR(m10, 0.78, 0.01);
    EXPECT_NEAR(m01, 0.62, 0.01);
    EXPECT_EQ(maskAt(720, 576, 1.0, 0.0, 0, 0), 0.0);  // the circle passes through (0, 0)
    EXPECT_EQ(r.target.at(0, 0), 0xFF000000u);
    EXPECT_EQ(r.target.at(1, 0), mixPixel(0xFF000000u, src.at(1, 0), m10));
    EXPECT_EQ(r.target.at(0, 1), mixPixel(0xFF000000u, src.at(0, 1), m01));
    EXPECT_NE(r.target.at(1, 0), src.at(1, 0));
    EXPECT_NEAR(maskAt(720, 576, 1.0, 0.0, 719, 575), 1.41, 0.01);
    EXPECT_EQ(r.target.at(719, 575), src.at(719, 575));
    // The centre sits at (360, 288): (719, 0) mirrors (1, 0) and (0, 575)
    // mirrors (0, 1).
    EXPECT_EQ(maskAt(720, 576, 1.0, 0.0, 719, 0), m10);
    EXPECT_EQ(maskAt(720, 576, 1.0, 0.0, 0, 575), m01);
    EXPECT_EQ(r.target.at(719, 0), mixPixel(0xFF000000u, src.at(719, 0), m10));
    EXPECT_EQ(r.target.at(0, 575), mixPixel(0xFF000000u, src.at(0, 575), m01));
    EXPECT_EQ(r.target.words, modelBinoculars(src, 1.0, 0.0, 0xFF000000u).words);
}

TEST(Binoculars, MatchesThePerPixelMask) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(83, 47, format, 1, 83 * 4 + 8);
        const double cases[][2] = {{0.5, 0.3}, {0.2, 1.0}, {0.9, 0.6}, {0.05, 0.0}, {0.33, 0.77}};
        for (const auto& c : cases) {
            const auto r =
                renderEffect(kEffect, src, params(c[0], c[1], 4278255360.0), {.format = format});
            const uint32_t bg = argbToFrame(0xFF00FF00u, format);
            EXPECT_EQ(r.target.words, modelBinoculars(src, c[0], c[1], bg).words)
                << c[0] << " " << c[1];
        }
    }
}

TEST(Binoculars, OpeningsAndBackground) {
    const Picture src = testPicture(64, 40, kFourccArgb);
    // Radius 0: nothing but background; the default colour is opaque black.
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const auto r = renderEffect(kEffect, src, params(0.0, 0.3), {.format = format});
        const uint32_t black = format == kFourccAyuv ? 0xFF108080u : 0xFF000000u;
        for (int y = 0; y < 40; ++y) {
            for (int x = 0; x < 64; ++x) ASSERT_EQ(r.target.at(x, y), black);
        }
    }
    // A background without alpha (or half alpha) is painted opaque.
    for (double colour : {16711680.0, 2164195328.0}) {  // 0x00FF0000, 0x80FF0000
        EXPECT_EQ(renderEffect(kEffect, src, params(0.0, 0.0, colour)).target.at(5, 5),
                  0xFFFF0000u);
    }
    // Distance 1: the circles touch at the middle, which is pure background,
    // while their centres are pure source.
    const auto touch = renderEffect(kEffect, src, params(0.4, 1.0, 4294967295.0));
    EXPECT_EQ(touch.target.at(32, 20), 0xFFFFFFFFu);
    const double d = std::sqrt((64 * 64 + 40 * 40) * 0.4 * 0.4 * 0.25);
    const int left = static_cast<int>(32 - d), right = static_cast<int>(32 + d);
    EXPECT_EQ(touch.target.at(left, 20), src.at(left, 20));
    EXPECT_EQ(touch.target.at(right, 20), src.at(right, 20));
}

TEST(Binoculars, ParametersAreClamped) {
    const Picture src = testPicture(50, 30, kFourccArgb, 2);
    auto render = [&](double radius, double distance) {
        return renderEffect(kEffect, src, params(radius, distance, 4278190335.0)).target.words;
    };
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(render(3.0, 0.2), render(1.0, 0.2));
    EXPECT_EQ(render(inf, 0.2), render(1.0, 0.2));
    EXPECT_EQ(render(-1.0, 0.2), render(0.0, 0.2));
    EXPECT_EQ(render(0.5, 1e300), render(0.5, 1.0));
    EXPECT_EQ(render(0.5, -inf), render(0.5, 0.0));
    // NaN counts as the lower bound.
    EXPECT_EQ(render(std::nan(""), 0.2), render(0.0, 0.2));
    EXPECT_EQ(render(0.5, std::nan("")), render(0.5, 0.0));
}

TEST(Binoculars, MissingSourceFillsWhite) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        Picture target(6, 4, 6 * 4 + 8, kFill);
        reelfx::Instance inst(reelfx::test::module(), reelfx::test::effectIndex(kEffect), 6, 4);
        ASSERT_EQ(inst.render(nullptr, target, {.format = format}), 0);
        EXPECT_TRUE(reelfx::test::untouchedOutside(target, 0, 0, 6, 4, kFill));
        for (int y = 0; y < 4; ++y) {
            for (int x = 0; x < 6; ++x) ASSERT_EQ(target.at(x, y), opaqueWhite(format));
        }
    }
}

// A 4:3 picture pillarboxed in a 16:9 frame and a 16:9 picture letterboxed
// in a 4:3 frame: the openings are centred on the active rectangle, the bars
// stay black, the padding keeps its words.
TEST(Binoculars, WorksInsideTheActiveRectangle) {
    struct Fit {
        int32_t w, h;
        double display, picture;
        int32_t x0, y0, aw, ah;
    };
    const Fit fits[] = {{128, 72, 16.0 / 9.0, 4.0 / 3.0, 16, 0, 96, 72},
                        {120, 90, 4.0 / 3.0, 16.0 / 9.0, 0, 11, 120, 67}};
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const uint32_t bar = format == kFourccAyuv ? 0xFF0F8080u : 0xFF000000u;
        const uint32_t bg = argbToFrame(0xFF2040E0u, format);
        for (const Fit& f : fits) {
            const Picture frame = testPicture(f.w, f.h, format, 2, f.w * 4 + 8);
            Picture active(f.aw, f.ah);
            for (int y = 0; y < f.ah; ++y) {
                std::copy_n(frame.row(f.y0 + y) + f.x0, f.aw, active.row(y));
            }
            const Picture want = modelBinoculars(active, 0.45, 0.5, bg);
            const auto r = renderEffect(kEffect, frame, params(0.45, 0.5, 4280303840.0),
                                        {.format = format,
                                         .displayAspect = f.display,
                                         .aspectFitting = true,
                                         .pictureAspect = f.picture});
            for (int y = 0; y < f.h; ++y) {
                for (int x = 0; x < f.w; ++x) {
                    const bool in = x >= f.x0 && x < f.x0 + f.aw && y >= f.y0 && y < f.y0 + f.ah;
                    ASSERT_EQ(r.target.at(x, y), in ? want.at(x - f.x0, y - f.y0) : bar)
                        << x << ", " << y;
                }
            }
            EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
        }
    }
}

}  // namespace
