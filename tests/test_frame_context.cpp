// Aspect fitting and border painting, seen through the exported entry and
// through the frame-context builder itself.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "plugin/frame_context.h"
#include "support.h"

namespace {

using reelfx::Instance;
using reelfx::Picture;
using reelfx::RenderOptions;
using reelfx::test::module;

constexpr double k4x3 = 4.0 / 3.0;
constexpr double k16x9 = 16.0 / 9.0;
constexpr uint32_t kFill = 0x12345678;
// An index past the catalogue: the entry paints the border and calls no renderer.
constexpr int32_t kNoEffect = 25;

struct FitCase {
    int32_t W, H;
    double D, A;
    int32_t aw, ah, offX, offY;
};

// The worked examples: frame, display aspect, picture aspect -> active rectangle.
const FitCase kCases[] = {
    {720, 576, k4x3, k16x9, 720, 432, 0, 72},      {720, 576, k16x9, k4x3, 540, 576, 90, 0},
    {720, 480, k4x3, k16x9, 720, 360, 0, 60},      {480, 576, k16x9, k4x3, 360, 576, 60, 0},
    {1920, 1080, k16x9, k4x3, 1440, 1080, 240, 0}, {720, 576, k16x9, 2.35, 720, 435, 0, 70},
    {120, 90, k4x3, k16x9, 120, 67, 0, 11},        {128, 72, k16x9, k4x3, 96, 72, 16, 0},
    {100, 70, k16x9, k4x3, 93, 70, 3, 0},          {64, 48, k16x9, k4x3, 64, 48, 0, 0},
    {700, 500, 1.7, 1.6995, 700, 411, 0, 44},      {720, 576, k4x3, k4x3, 720, 576, 0, 0},
};

class WorkedExamples : public ::testing::TestWithParam<std::tuple<FitCase, uint32_t>> {};

// Through the entry: exactly the pixels outside the active rectangle are
// painted, the active rectangle and the row padding keep the host's words.
TEST_P(WorkedExamples, PaintsExactlyTheBorder) {
    const auto [c, format] = GetParam();
    const uint32_t border = format == kFourccAyuv ? 0xFF0F8080u : 0xFF000000u;
    const int32_t stride = c.W * 4 + 12;  // padded rows
    Picture target(c.W, c.H, stride, kFill);
    Instance inst(module(), kNoEffect, c.W, c.H);
    RenderOptions o;
    o.format = format;
    o.displayAspect = c.D;
    o.aspectFitting = true;
    o.pictureAspect = c.A;
    ASSERT_EQ(inst.render(&target, target, o), 0);

    for (int32_t y = 0; y < c.H; ++y) {
        for (int32_t x = 0; x < target.pitch(); ++x) {
            const bool padding = x >= c.W;
            const bool active =
                x >= c.offX && x < c.offX + c.aw && y >= c.offY && y < c.offY + c.ah;
            const uint32_t want = (padding || active) ? kFill : border;
            ASSERT_EQ(target.row(y)[x], want) << "at (" << x << ", " << y << ")";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Fitting, WorkedExamples,
                         ::testing::Combine(::testing::ValuesIn(kCases),
                                            ::testing::Values(kFourccArgb, kFourccAyuv)));

// The builder itself: sizes, moved pointers and the untouched stride.
TEST(FrameContext, MovesPointersToTheActiveRectangle) {
    for (const FitCase& c : kCases) {
        const int32_t stride = c.W * 4 + 8;
        Picture dst(c.W, c.H, stride, kFill);
        Picture src(c.W, c.H, stride, kFill);
        FrameContext ctx;
        makeFrameContext(&ctx, src.data(), nullptr, dst.data(), kFourccArgb, c.W, c.H, stride, 4,
                         c.A, c.D);
        EXPECT_EQ(ctx.width, c.aw) << c.W << "x" << c.H;
        EXPECT_EQ(ctx.height, c.ah) << c.W << "x" << c.H;
        EXPECT_EQ(ctx.destination, &dst.at(c.offX, c.offY));
        EXPECT_EQ(ctx.source, &src.at(c.offX, c.offY));
        EXPECT_EQ(ctx.secondSource, nullptr);
        EXPECT_EQ(ctx.stride, stride);
        EXPECT_EQ(ctx.bytesPerPixel, 4);
        EXPECT_EQ(ctx.aspect, c.A);
        EXPECT_EQ(ctx.insetX, 0);
        EXPECT_EQ(ctx.insetY, 0);
        EXPECT_EQ(ctx.size, sizeof(FrameContext));
    }
}

FrameContext fit(int32_t W, int32_t H, double A, double D, Picture* dst = nullptr) {
    FrameContext ctx;
    makeFrameContext(&ctx, nullptr, nullptr, dst ? dst->data() : nullptr, kFourccArgb, W, H, W * 4,
                     4, A, D);
    return ctx;
}

TEST(FrameContext, SpecialAndSmallFrameRules) {
    // 480 wide and 576 or 480 high follow the special rule, 480 x 360 does not:
    // with nearly equal aspects the special rule keeps the full height.
    EXPECT_EQ(fit(480, 576, 1.6995, 1.7).width, 479);
    EXPECT_EQ(fit(480, 576, 1.6995, 1.7).height, 576);
    EXPECT_EQ(fit(480, 480, 1.6995, 1.7).width, 479);
    EXPECT_EQ(fit(480, 360, 1.6995, 1.7).width, 480);
    EXPECT_EQ(fit(480, 360, 1.6995, 1.7).height, 282);
    // 149 wide is a small frame (square pixels: trunc(H * A)); 150 is not.
    EXPECT_EQ(fit(149, 100, k4x3, k16x9).width, 133);
    EXPECT_EQ(fit(150, 100, k4x3, k16x9).width, 112);  // trunc((150 / (16/9)) * 4/3)
}

TEST(FrameContext, NullPointersStayNullAndNothingIsPainted) {
    FrameContext ctx = fit(720, 576, k16x9, k4x3);
    EXPECT_EQ(ctx.destination, nullptr);
    EXPECT_EQ(ctx.source, nullptr);
    EXPECT_EQ(ctx.height, 432);
}

// A display aspect narrower than the frame's own shape can make the active
// height trunc(W / A) exceed H; the rectangle is kept inside the frame.
TEST(FrameContext, ActiveRectangleNeverLeavesTheFrame) {
    Picture tall(720, 576, 0, kFill);
    // k = trunc(720 / 0.9993) = 720 is less than q = 720.5: ah = k = 720 > 576.
    FrameContext c = fit(720, 576, 0.9993, 720.0 / 720.5, &tall);
    EXPECT_EQ(c.height, 576);
    EXPECT_EQ(c.width, 720);
    EXPECT_EQ(c.destination, tall.data());
    EXPECT_TRUE(reelfx::test::untouchedOutside(tall, 0, 0, 0, 0, kFill));
}

// Degenerate picture aspects (a host's garbage) give an empty rectangle: the
// whole frame is painted and no renderer runs.
TEST(FrameContext, DegenerateAspectsPaintTheWholeFrame) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (double a : {nan, inf, -inf, 0.0, -1.0, 1e300, 1e-300}) {
        Picture target(64, 40, 64 * 4 + 4, kFill);
        Instance inst(module(), reelfx::test::effectIndex("Greyscale"), 64, 40);
        RenderOptions o;
        o.displayAspect = k4x3;
        o.aspectFitting = true;
        o.pictureAspect = a;
        EXPECT_EQ(inst.render(&target, target, o), 0);
        for (int32_t y = 0; y < 40; ++y) {
            for (int32_t x = 0; x < 64; ++x) ASSERT_EQ(target.at(x, y), 0xFF000000u) << a;
        }
        EXPECT_TRUE(reelfx::test::paddingUntouched(target, kFill));
    }
}

// Fitting is chosen by the call block: presets override the picture aspect,
// fit mode 1 switches it off.
TEST(FrameContext, HostSelectsThePictureAspect) {
    auto painted = [](bool fitting, int32_t mode, int32_t preset, double pictureAspect) {
        Picture target(720, 576, 0, kFill);
        Instance inst(module(), kNoEffect, 720, 576);
        RenderOptions o;
        o.displayAspect = k4x3;
        o.aspectFitting = fitting;
        o.aspectFitMode = mode;
        o.aspectPreset = preset;
        o.pictureAspect = pictureAspect;
        inst.render(&target, target, o);
        int32_t rows = 0;
        for (int32_t y = 0; y < 576; ++y) rows += target.at(360, y) == 0xFF000000u;
        return rows;
    };
    EXPECT_EQ(painted(true, 0, 3, 1.0), 144);    // 16:9 preset whatever pictureAspect holds
    EXPECT_EQ(painted(true, 0, 2, 2.35), 0);     // 4:3 preset equals D exactly: no border
    EXPECT_EQ(painted(true, 0, 1, k16x9), 144);  // no preset: pictureAspect
    EXPECT_EQ(painted(true, 1, 3, k16x9), 0);    // fit mode 1: fitting off
    EXPECT_EQ(painted(false, 0, 3, k16x9), 0);   // fitting off
}

}  // namespace
