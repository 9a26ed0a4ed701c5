// Whatever values and geometry a host sends, no effect writes outside the
// target picture (rows above and below, stride padding) and none crashes.
// Under the asan preset the same runs also catch reads outside the source.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <vector>

#include "pixel/color.h"
#include "support.h"

namespace {

using reelfx::Instance;
using reelfx::RenderOptions;
using reelfx::test::module;

constexpr uint32_t kGuard = 0xA5C3E1F7;
constexpr int32_t kGuardRows = 2;
constexpr int32_t kPadWords = 3;

const double kInf = std::numeric_limits<double>::infinity();
const double kNan = std::numeric_limits<double>::quiet_NaN();
const double kHostile[] = {kNan,         kInf,          -kInf, 1e300,       -1e300,
                           -1.0,         0.0,           0.5,   1.0,         2147483648.0,
                           4294967301.0, -2147483649.0, 1e9,   4294967295.0};

// A picture inside a larger block of guard words: kGuardRows rows above and
// below, kPadWords words of padding after every row.
struct Guarded {
    int32_t w, h, pitch;
    std::vector<uint32_t> words;
    Guarded(int32_t width, int32_t height, uint32_t fill)
        : w(width),
          h(height),
          pitch(width + kPadWords),
          words(static_cast<size_t>(pitch) * (height + 2 * kGuardRows), kGuard) {
        for (int32_t y = 0; y < h; ++y) {
            for (int32_t x = 0; x < w; ++x) at(x, y) = fill + static_cast<uint32_t>(x * 7 + y * 13);
        }
    }
    uint32_t& at(int32_t x, int32_t y) {
        return words[static_cast<size_t>(y + kGuardRows) * pitch + x];
    }
    uint32_t* pixels() { return &at(0, 0); }
    int32_t stride() const { return pitch * 4; }
    ::testing::AssertionResult guardsIntact() const {
        for (size_t i = 0; i < words.size(); ++i) {
            const int32_t row = static_cast<int32_t>(i / pitch) - kGuardRows;
            const int32_t col = static_cast<int32_t>(i % pitch);
            const bool inside = row >= 0 && row < h && col < w;
            if (!inside && words[i] != kGuard) {
                return ::testing::AssertionFailure()
                       << "guard word at row " << row << ", column " << col << " was written";
            }
        }
        return ::testing::AssertionSuccess();
    }
};

struct Geometry {
    int32_t w, h;
};
const Geometry kGeometries[] = {{1, 1}, {2, 2}, {3, 1}, {1, 5}, {8, 2}, {17, 9}, {64, 48}};

void renderChecked(Instance& inst, int32_t w, int32_t h, bool withSource, uint32_t format,
                   double progress, const char* what) {
    Guarded src(w, h, format == kFourccAyuv ? 0xFF108080u : 0xFF000000u);
    Guarded dst(w, h, 0x01010101u);
    RenderOptions o;
    o.format = format;
    o.progress = progress;
    const intptr_t r =
        inst.render(withSource ? src.pixels() : nullptr, dst.pixels(), w, h, dst.stride(), o);
    ASSERT_EQ(r, 0) << what;
    ASSERT_TRUE(dst.guardsIntact()) << reelfx::test::module().catalogue()[inst.effectIndex()].name
                                    << " " << w << "x" << h << " " << what;
    ASSERT_TRUE(src.guardsIntact()) << "source written: " << what;
}

class HostileInputs : public ::testing::TestWithParam<int32_t> {};

TEST_P(HostileInputs, ParametersOneAtATimeAndAllAtOnce) {
    const int32_t effect = GetParam();
    for (const Geometry g : kGeometries) {
        for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
            Instance inst(module(), effect, g.w, g.h);
            const int32_t n = inst.parameterCount();
            std::vector<double> initial;
            for (int32_t j = 0; j < n; ++j) initial.push_back(inst.parameter(j));
            for (double v : kHostile) {
                for (int32_t j = 0; j <= n; ++j) {
                    // j == n sets every parameter to v at once.
                    for (int32_t k = 0; k < n; ++k) {
                        inst.setParameter(k, (k == j || j == n) ? v : initial[k]);
                    }
                    renderChecked(inst, g.w, g.h, true, format, 0.5, "parameter value");
                    if (::testing::Test::HasFatalFailure()) {
                        ADD_FAILURE() << "slot " << j << " = " << v;
                        return;
                    }
                }
            }
        }
    }
}

TEST_P(HostileInputs, ProgressAndMissingSource) {
    const int32_t effect = GetParam();
    for (const Geometry g : kGeometries) {
        for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
            Instance inst(module(), effect, g.w, g.h);
            for (double t : {kNan, kInf, -kInf, -5.0, 5.0, 0.0, 1.0, 1e-300}) {
                renderChecked(inst, g.w, g.h, true, format, t, "progress");
                if (::testing::Test::HasFatalFailure()) return;
            }
            renderChecked(inst, g.w, g.h, false, format, 0.5, "no source");
            if (::testing::Test::HasFatalFailure()) return;
        }
    }
}

// A frame size that changes between calls of one instance (the Dream buffer
// and the Multi-Prism Lens map are sized at creation or on first render).
TEST_P(HostileInputs, FrameSizeChangesBetweenCalls) {
    const int32_t effect = GetParam();
    Instance inst(module(), effect, 8, 8);
    for (const Geometry g :
         {Geometry{8, 8}, Geometry{64, 48}, Geometry{3, 1}, Geometry{64, 48}, Geometry{100, 7}}) {
        renderChecked(inst, g.w, g.h, true, kFourccArgb, 0.3, "resized frame");
        if (::testing::Test::HasFatalFailure()) return;
    }
}

// A 4:3 picture in a 16:9 frame of 128 x 72 (padded rows): the active
// rectangle, 96 x 72 at column 16, comes out exactly as the same picture
// rendered on its own; without a source it is opaque white; the bars are
// black and the padding keeps the host's words.
TEST_P(HostileInputs, WorksOnlyInsideTheActiveRectangle) {
    const int32_t effect = GetParam();
    constexpr uint32_t kFill = 0x5A5A5A5A;
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const reelfx::Picture frame = reelfx::test::testPicture(128, 72, format, 0, 128 * 4 + 8);
        reelfx::Picture active(96, 72), alone(96, 72, 0, kFill);
        for (int32_t y = 0; y < 72; ++y) std::copy_n(frame.row(y) + 16, 96, active.row(y));
        // "Aged Film" carries its tables from call to call; progress 0 starts
        // them afresh on every call.
        RenderOptions o{.progress = effect == 0 ? 0.0 : 0.4, .format = format};
        // Incognito's noise comes from the C library's generator: the same
        // sequence for both renders.
        std::srand(7);
        Instance(module(), effect, 96, 72).render(&active, alone, o);
        o.displayAspect = 16.0 / 9.0;
        o.aspectFitting = true;
        o.aspectPreset = 2;
        for (bool withSource : {true, false}) {
            reelfx::Picture got(128, 72, frame.stride, kFill), want = got;
            for (int32_t y = 0; y < 72; ++y) {
                std::fill_n(want.row(y), 128, format == kFourccAyuv ? 0xFF0F8080u : 0xFF000000u);
                if (withSource) {
                    std::copy_n(alone.row(y), 96, want.row(y) + 16);
                } else {
                    std::fill_n(want.row(y) + 16, 96, opaqueWhite(format));
                }
            }
            std::srand(7);
            ASSERT_EQ(
                Instance(module(), effect, 128, 72).render(withSource ? &frame : nullptr, got, o),
                0);
            EXPECT_EQ(got.words, want.words)
                << reelfx::test::formatName(format) << (withSource ? "" : ", no source");
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllEffects, HostileInputs, ::testing::Range(0, 25),
                         [](const ::testing::TestParamInfo<int32_t>& effect) {
                             std::string name = module().catalogue()[effect.param].name;
                             for (char& c : name) {
                                 if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                             }
                             return name;
                         });

}  // namespace
