// "Crop", "Crop Scale To Fit" and "Crop Scale To Fill" through the exported
// entry: kept rectangles in place and centred, both fitting branches, frames
// that stay black, hostile margins, a missing source, and the border bars
// and stride padding.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "pixel/color.h"
#include "pixel/resizer.h"
#include "support.h"

namespace {

using reelfx::Picture;
using reelfx::RenderOptions;
using reelfx::test::renderEffect;
using reelfx::test::testPicture;

constexpr uint32_t kFill = 0x5A5A5A5A;

std::string hex(uint32_t word) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", word);
    return text;
}
const uint32_t kFormats[] = {kFourccArgb, kFourccAyuv};
const char* const kCrops[] = {"Crop", "Crop Scale To Fit", "Crop Scale To Fill"};

uint32_t black(uint32_t format) {
    return argbToFrame(0xFF000000u, format);
}

struct Margins {
    double top, right, bottom, left;
};

using Params = std::vector<std::pair<std::string, double>>;

Params margins(Margins m) {
    return {{"Top (Pixel)", m.top},
            {"Right (Pixel)", m.right},
            {"Bottom (Pixel)", m.bottom},
            {"Left (Pixel)", m.left}};
}

// "Crop" also has its "Mode"; the scaling crops have none.
Params params(Margins m, double mode, const std::string& effect = "Crop") {
    Params p = margins(m);
    if (effect == "Crop") p.emplace_back("Mode", mode);
    return p;
}

// A black frame (the padding kept) with the source rectangle at (sx, sy),
// sw x sh, placed at (dx, dy) as dw x dh by the scaler in `mode`.
Picture expected(const Picture& src, uint32_t format, int sx, int sy, int sw, int sh, int dx,
                 int dy, int dw, int dh, int mode) {
    Picture out(src.width, src.height, src.stride, kFill);
    for (int y = 0; y < src.height; ++y) {
        for (int x = 0; x < src.width; ++x) out.at(x, y) = black(format);
    }
    Resizer(0, format, src.row(sy) + sx, src.stride, sw, sh, format, &out.at(dx, dy), out.stride,
            dw, dh, 0, mode);
    return out;
}

// Every word equal, padding included: the frames compared came from the same fill.
::testing::AssertionResult sameWords(const Picture& a, const Picture& b) {
    if (a.words == b.words) return ::testing::AssertionSuccess();
    for (int y = 0; y < a.height; ++y) {
        for (int x = 0; x < a.pitch(); ++x) {
            if (a.row(y)[x] != b.row(y)[x]) {
                return ::testing::AssertionFailure()
                       << "word (" << x << ", " << y << ") = " << hex(a.row(y)[x]) << ", want "
                       << hex(b.row(y)[x]);
            }
        }
    }
    return ::testing::AssertionFailure() << "sizes differ";
}

TEST(Crop, NoMarginsCopyThePicture) {
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(37, 11, format, 0, 37 * 4 + 8);
        for (double mode : {0.0, 1.0}) {
            const auto r =
                renderEffect("Crop", src, params({0, 0, 0, 0}, mode), {.format = format});
            EXPECT_TRUE(r.target.samePixels(src));
            EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
        }
    }
}

// Top 10, Bottom 30: in place the margins are black; centred the kept rows
// move down by 10, leaving 20 black rows above and below.
TEST(Crop, KeptRowsInPlaceOrCentred) {
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(40, 100, format, 0, 40 * 4 + 4);
        const auto inPlace =
            renderEffect("Crop", src, params({10, 0, 30, 0}, 0.0), {.format = format});
        const auto centred =
            renderEffect("Crop", src, params({10, 0, 30, 0}, 1.0), {.format = format});
        for (int y = 0; y < 100; ++y) {
            for (int x = 0; x < 40; ++x) {
                const uint32_t a = (y >= 10 && y < 70) ? src.at(x, y) : black(format);
                const uint32_t b = (y >= 20 && y < 80) ? src.at(x, y - 10) : black(format);
                ASSERT_EQ(inPlace.target.at(x, y), a) << x << ", " << y;
                ASSERT_EQ(centred.target.at(x, y), b) << x << ", " << y;
            }
        }
        EXPECT_TRUE(reelfx::test::paddingUntouched(inPlace.target, kFill));
        EXPECT_TRUE(reelfx::test::paddingUntouched(centred.target, kFill));
    }
}

// Left 4 + Right 1: centred the kept 27 columns start at column 2, leaving 2
// black columns on the left and 3 on the right; a mode of 0.9 truncates to
// "Crop only".
TEST(Crop, OddMarginLeavesTheExtraColumnOnTheRight) {
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(32, 9, format);
        const auto centred =
            renderEffect("Crop", src, params({0, 1, 0, 4}, 1.0), {.format = format});
        EXPECT_TRUE(sameWords(centred.target, expected(src, format, 4, 0, 27, 9, 2, 0, 27, 9, 0)));
        const auto inPlace =
            renderEffect("Crop", src, params({3, 1, 0, 4}, 0.9), {.format = format});
        EXPECT_TRUE(sameWords(inPlace.target, expected(src, format, 4, 3, 27, 6, 4, 3, 27, 6, 0)));
        const auto oddRows =
            renderEffect("Crop", src, params({0, 0, 3, 0}, 7.0), {.format = format});
        EXPECT_TRUE(sameWords(oddRows.target, expected(src, format, 0, 0, 32, 6, 0, 1, 32, 6, 0)));
    }
}

// Smallest kept rectangle 8 x 2; one row or column less and every crop
// leaves the frame opaque black.
TEST(Crop, TooSmallAKeptRectangleLeavesBlack) {
    const Margins tooSmall[] = {{5, 0, 4, 0}, {0, 10, 0, 7}, {9, 0, 9, 0}, {0, 0, 0, 100}};
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(15, 6, format, 0, 15 * 4 + 8);
        for (const char* effect : kCrops) {
            for (const Margins& m : tooSmall) {
                const auto r =
                    renderEffect(effect, src, params(m, 1.0, effect), {.format = format});
                EXPECT_TRUE(sameWords(r.target, expected(src, format, 0, 0, 1, 1, 0, 0, 0, 0, 0)))
                    << effect << " " << m.top << " " << m.left;
            }
            // Exactly 8 x 2 is still drawn.
            const auto r =
                renderEffect(effect, src, params({2, 3, 2, 4}, 0.0, effect), {.format = format});
            EXPECT_NE(r.target.at(4, 2), black(format)) << effect;
        }
    }
}

// Left = Right = 180 on 720 x 576: too tall for the full width, so the kept
// 360 x 576 is drawn at its own size between black sides.
TEST(CropScaleToFit, FullHeightBranch) {
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(720, 576, format);
        const auto r =
            renderEffect("Crop Scale To Fit", src, margins({0, 180, 0, 180}), {.format = format});
        for (int y = 0; y < 576; y += 5) {
            for (int x = 0; x < 720; ++x) {
                const uint32_t want = (x >= 180 && x < 540) ? src.at(x, y) : black(format);
                ASSERT_EQ(r.target.at(x, y), want) << x << ", " << y;
            }
        }
    }
}

// Top = Bottom = 72: the kept 720 x 432 fits the full width, rows 72 to 503.
TEST(CropScaleToFit, FullWidthBranch) {
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(720, 576, format);
        const auto r =
            renderEffect("Crop Scale To Fit", src, margins({72, 0, 72, 0}), {.format = format});
        for (int y = 0; y < 576; ++y) {
            for (int x = 0; x < 720; x += 7) {
                const uint32_t want = (y >= 72 && y < 504) ? src.at(x, y) : black(format);
                ASSERT_EQ(r.target.at(x, y), want) << x << ", " << y;
            }
        }
    }
}

// Rescaling cases: 60 x 40 with Top 5, Right 10, Bottom 3, Left 6 keeps
// 44 x 32; fitH = trunc(60 * 32 / 44) = 43 > 40, so the output is
// fitW = trunc(40 * 44 / 32) = 55 wide, at column 2. With Top 20 it keeps
// 44 x 17; fitH = trunc(60 * 17 / 44) = 23, at row 8.
TEST(CropScaleToFit, RescalesIntoTheCentredRectangle) {
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(60, 40, format, 0, 60 * 4 + 12);
        const auto tall =
            renderEffect("Crop Scale To Fit", src, margins({5, 10, 3, 6}), {.format = format});
        EXPECT_TRUE(sameWords(tall.target, expected(src, format, 6, 5, 44, 32, 2, 0, 55, 40, 1)));
        const auto wide =
            renderEffect("Crop Scale To Fit", src, margins({20, 10, 3, 6}), {.format = format});
        EXPECT_TRUE(sameWords(wide.target, expected(src, format, 6, 20, 44, 17, 0, 8, 60, 23, 1)));
    }
}

TEST(CropScaleToFill, StretchesOverTheWholePicture) {
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(60, 40, format, 0, 60 * 4 + 12);
        const auto r =
            renderEffect("Crop Scale To Fill", src, margins({5, 10, 3, 6}), {.format = format});
        EXPECT_TRUE(sameWords(r.target, expected(src, format, 6, 5, 44, 32, 0, 0, 60, 40, 1)));
        const auto same =
            renderEffect("Crop Scale To Fill", src, margins({0, 0, 0, 0}), {.format = format});
        EXPECT_TRUE(sameWords(same.target, expected(src, format, 0, 0, 60, 40, 0, 0, 60, 40, 1)));
    }
}

// Negative margins count as 0; NaN, infinities and values past 2^63 truncate
// to 0; 4294967301 keeps its low 32 bits (5); 2^31 - 1 leaves nothing.
TEST(Crop, HostileMarginsStayInsideThePicture) {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::nan("");
    for (uint32_t format : kFormats) {
        const Picture src = testPicture(30, 12, format, 0, 30 * 4 + 8);
        for (const char* effect : kCrops) {
            auto run = [&](Margins m) {
                return renderEffect(effect, src, params(m, 1.0, effect), {.format = format}).target;
            };
            const Picture plain = run({0, 0, 0, 0});
            for (double v : {-1.0, -1e9, -2147483648.0, nan, inf, -inf, 1e300}) {
                EXPECT_TRUE(sameWords(run({v, v, v, v}), plain)) << effect << " " << v;
            }
            EXPECT_TRUE(sameWords(run({4294967297.0, 0, -3, 4294967301.0}), run({1, 0, 0, 5})))
                << effect;
            EXPECT_TRUE(sameWords(run({0, 2147483647.0, 0, 2147483647.0}),
                                  expected(src, format, 0, 0, 1, 1, 0, 0, 0, 0, 0)))
                << effect;
            EXPECT_TRUE(sameWords(run({2147483647.0, 0, 2147483647.0, 0}),
                                  expected(src, format, 0, 0, 1, 1, 0, 0, 0, 0, 0)))
                << effect;
        }
    }
}

TEST(Crop, MissingSourceFillsWhite) {
    for (uint32_t format : kFormats) {
        for (const char* effect : kCrops) {
            Picture target(9, 4, 9 * 4 + 12, kFill);
            reelfx::Instance inst(reelfx::test::module(), reelfx::test::effectIndex(effect), 9, 4);
            inst.setParameter("Top (Pixel)", 1.0);
            ASSERT_EQ(inst.render(nullptr, target, {.format = format}), 0);
            EXPECT_TRUE(reelfx::test::untouchedOutside(target, 0, 0, 9, 4, kFill));
            for (int y = 0; y < 4; ++y) {
                for (int x = 0; x < 9; ++x) ASSERT_EQ(target.at(x, y), opaqueWhite(format));
            }
        }
    }
}

// A 4:3 picture in a 16:9 frame: each crop works on the 96 x 72 active
// rectangle at column 16 only; the bars keep the frame's black and the
// padding its words.
TEST(Crop, WorksOnlyInsideTheActiveRectangle) {
    for (uint32_t format : kFormats) {
        const Picture frame = testPicture(128, 72, format, 0, 128 * 4 + 8);
        const RenderOptions o{.format = format,
                              .displayAspect = 16.0 / 9.0,
                              .aspectFitting = true,
                              .pictureAspect = 4.0 / 3.0};
        const uint32_t bar = format == kFourccAyuv ? 0xFF0F8080u : 0xFF000000u;
        for (const char* effect : kCrops) {
            const auto r = renderEffect(effect, frame, params({3, 5, 7, 9}, 1.0, effect), o);
            // The same crop on the active rectangle cut out as its own picture.
            Picture active(96, 72);
            for (int y = 0; y < 72; ++y) {
                for (int x = 0; x < 96; ++x) active.at(x, y) = frame.at(16 + x, y);
            }
            const auto alone =
                renderEffect(effect, active, params({3, 5, 7, 9}, 1.0, effect), {.format = format});
            for (int y = 0; y < 72; ++y) {
                for (int x = 0; x < 128; ++x) {
                    const uint32_t want = (x < 16 || x >= 112) ? bar : alone.target.at(x - 16, y);
                    ASSERT_EQ(r.target.at(x, y), want) << effect << " " << x << ", " << y;
                }
            }
            EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill)) << effect;
        }
    }
}

}  // namespace
