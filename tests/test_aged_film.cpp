// "Aged Film": the generator and tables at progress 0 (white-box where the
// values never reach a pixel), the tint, the tone map in both formats, hair
// counts, crawling between frames, regeneration ticks and safety.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <set>
#include <utility>
#include <vector>

#include "effects/aged_film.h"
#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/fxmath.h"
#include "support.h"

namespace {

using reelfx::Picture;
using reelfx::test::flatPicture;
using reelfx::test::renderEffect;
using reelfx::test::testPicture;
namespace af = agedfilm;

constexpr uint32_t kFill = 0x5A5A5A5A;
const double kNan = std::numeric_limits<double>::quiet_NaN();

// The statically linked renderer, whose tables the tests can read and set
// (the loaded module keeps its own).
Picture renderDirect(const Picture& src, double progress, double count = 10.0) {
    Picture dst(src.width, src.height, src.stride, kFill);
    FrameContext ctx{};
    ctx.source = const_cast<uint32_t*>(src.words.data());
    ctx.destination = dst.data();
    ctx.width = src.width;
    ctx.height = src.height;
    ctx.stride = src.stride;
    ParameterBlock block{};
    block.slot[0].value = count;
    block.slot[1].value = 30.0;
    block.slot[2].value = 1.0;
    renderAgedFilm(&ctx, &block, progress, kFourccArgb);
    return dst;
}

std::vector<af::HairPoint> hairs() {
    return {&af::hairTable[0][0], &af::hairTable[0][0] + af::kHairRecords * af::kHairPoints};
}

// Columns with at least one pixel other than `word`.
size_t columnsNotEqual(const Picture& p, uint32_t word) {
    std::set<int32_t> cols;
    for (int32_t y = 0; y < p.height; ++y) {
        for (int32_t x = 0; x < p.width; ++x) {
            if (p.at(x, y) != word) cols.insert(x);
        }
    }
    return cols.size();
}

TEST(AgedFilm, GeneratorAndTablesAtProgressZero) {
    uint32_t s = 0;
    EXPECT_EQ(af::nextDraw(&s), 0x3C6EF35Fu);
    EXPECT_EQ(af::nextDraw(&s), 0x47502932u);
    EXPECT_EQ(af::unitDraw(0x12800000u), 0.0f);  // only the low 23 bits count
    EXPECT_EQ(af::unitDraw(0x007FFFFFu), 1.0f - 0x1p-23f);
    EXPECT_EQ(af::byteDraw(0x100u), 127);  // low byte 0 gives 127
    EXPECT_EQ(af::byteDraw(0x81u), 0);

    // Hair 0 of a 720 x 576 picture with the defaults, and its grey.
    s = 0;
    af::HairPoint p[af::kHairPoints];
    EXPECT_EQ(af::regenerateHair(p, &s, 720, 576, 30), 19);
    const int32_t want[af::kHairPoints][2] = {{450, 499}, {453, 508}, {462, 505},
                                              {471, 509}, {479, 516}, {475, 519},
                                              {474, 513}, {471, 514}, {473, 515}};
    for (int k = 0; k < af::kHairPoints; ++k) {
        EXPECT_EQ(p[k].x, want[k][0]) << k;
        EXPECT_EQ(p[k].y, want[k][1]) << k;
    }
    EXPECT_EQ(af::byteDraw(af::nextDraw(&s)), 3);

    // Scratches seeded after the 50 hairs' 1800 draws, then walked.
    s = 0;
    for (int i = 0; i < 1800; ++i) af::nextDraw(&s);
    int32_t seeds[af::kScratches];
    af::seedScratches(seeds, &s, 720);
    EXPECT_EQ(std::vector<int32_t>(seeds, seeds + 3), (std::vector<int32_t>{321, 362, 395}));
    renderDirect(flatPicture(720, 576, 0xFF000000u), 0.0);
    EXPECT_EQ(std::vector<int32_t>(af::scratchTable, af::scratchTable + 3),
              (std::vector<int32_t>{321, 359, 393}));

    // Through the entry: scratch 0's first weights 10, 109 and 116 toward
    // 0xFFFDFCFA from black; the last two rows carry no scratch.
    const auto r = renderEffect("Aged Film", flatPicture(720, 576, 0xFF000000u));
    EXPECT_EQ(r.target.at(321, 0), 0xFF0A0A0Au);
    EXPECT_EQ(r.target.at(321, 1), 0xFF6C6C6Bu);
    EXPECT_EQ(r.target.at(321, 2), 0xFF737372u);
    EXPECT_EQ(r.target.at(321, 574), 0xFF000000u);
}

TEST(AgedFilm, TintReferenceValues) {
    const std::pair<double, uint32_t> cases[] = {{0.0, 0xFFEB8080u},
                                                 {0.5, 0xFFD57387u},
                                                 {1.0, 0xFFC0658Eu},
                                                 {1.5, 0xFFAB5896u},
                                                 {2.0, 0xFF964B9Du}};
    for (const auto& [t, ayuv] : cases) {
        EXPECT_EQ(af::tintToAyuv(mixPixelClamped(0xFFFFFFFFu, 0xFFE5CC99u, t, kFourccArgb)), ayuv);
    }
    // Through the entry the tint is the chroma of every AYUV pixel; values
    // outside 0 ... 2 are held to the nearest end, NaN counts as 0.
    const std::pair<double, uint32_t> entry[] = {
        {0.5, 0x7387}, {2.0, 0x4B9D}, {-3.0, 0x8080}, {7.0, 0x4B9D}, {kNan, 0x8080}};
    for (const auto& [sepia, chroma] : entry) {
        const auto r = renderEffect("Aged Film", flatPicture(40, 20, 0xFF7D8080u),
                                    {{"Number of dust particles", 0}, {"Sepia Intensity", sepia}},
                                    {.format = kFourccAyuv});
        EXPECT_EQ(r.target.at(5, 19), 0xFF630000u | chroma) << sepia;  // luma 125 -> 99
    }
    // In ARGB the tint plays no part.
    const Picture src = testPicture(160, 90, kFourccArgb);
    const auto a = renderEffect("Aged Film", src, {{"Sepia Intensity", 0.0}}, {.progress = 0.007});
    const auto b = renderEffect("Aged Film", src, {{"Sepia Intensity", 2.0}}, {.progress = 0.007});
    EXPECT_TRUE(a.target.samePixels(b.target));
}

TEST(AgedFilm, ToneMapAndHairsInBothFormats) {
    const struct {
        uint32_t format, in, out;
    } cases[] = {
        {kFourccArgb, 0xFF000000u, 0xFF000000u}, {kFourccArgb, 0xFFFFFFFFu, 0xFFE5CC99u},
        {kFourccArgb, 0x00FFFFFFu, 0xFFE5CC99u},  // source alpha dropped
        {kFourccArgb, 0xFF646464u, 0xFF59503Cu},  // key 100: trunc(0.9f * 100) = 89
        {kFourccAyuv, 0xFF108080u, 0xFF0C658Eu},  // luma 16 -> 12, the tint's chroma
        {kFourccAyuv, 0x10EB2020u, 0xFFBB658Eu},
    };
    for (const auto& c : cases) {
        const Picture src = flatPicture(64, 40, c.in);
        // No hairs: only the three scratch columns differ, never in the last two rows.
        const auto none = renderEffect("Aged Film", src, {{"Number of dust particles", 0}},
                                       {.progress = 0.3, .format = c.format});
        EXPECT_LE(columnsNotEqual(none.target, c.out), 3u) << std::hex << c.in;
        for (int32_t x = 0; x < 64; ++x) EXPECT_EQ(none.target.at(x, 39), c.out) << x;
        // 100 particles on 64 columns make 44 hairs.
        const auto some = renderEffect("Aged Film", src, {{"Number of dust particles", 100}},
                                       {.progress = 0.003, .format = c.format});
        EXPECT_GT(columnsNotEqual(some.target, c.out), 10u) << std::hex << c.in;
    }
}

TEST(AgedFilm, HairCountScalesWithWidth) {
    auto regenerated = [](int32_t width, double count) {
        for (auto& record : af::hairTable) record[0].x = -77777;
        renderDirect(flatPicture(width, 4, 0xFF808080u), 0.0, count);
        int n = 0;
        for (const auto& record : af::hairTable) n += record[0].x != -77777;
        return n;
    };
    EXPECT_EQ(regenerated(720, 10), 50);
    EXPECT_EQ(regenerated(1920, 100), 1000);  // 1333, cut to 1000
    EXPECT_EQ(regenerated(15, 10), 1);
    EXPECT_EQ(regenerated(14, 10), 0);
    EXPECT_EQ(regenerated(720, 0), 0);
    EXPECT_EQ(regenerated(720, kNan), 0);
    EXPECT_EQ(regenerated(720, 2147483647.0), 1000);  // no 32-bit overflow
    EXPECT_EQ(regenerated(720, 1e300), 0);            // beyond 32 bits: INT32_MIN
}

TEST(AgedFilm, CrawlsBetweenTicks11And12) {
    const Picture src = testPicture(320, 240, kFourccArgb);
    renderDirect(src, 0.005);   // tick 5 regenerates everything
    renderDirect(src, 0.0115);  // tick 11
    const auto hairs11 = hairs();
    const std::vector<int32_t> scratches11(af::scratchTable, af::scratchTable + 3);
    const Picture frame12 = renderDirect(src, 0.0125);  // tick 12
    const auto hairs12 = hairs();

    int moved = 0;
    for (size_t i = 0; i < 22 * af::kHairPoints; ++i) {  // 22 hairs at width 320
        const int dx = hairs12[i].x - hairs11[i].x;
        const int dy = hairs12[i].y - hairs11[i].y;
        if (i % af::kHairPoints == 0) {
            EXPECT_TRUE(dx == 0 && dy == 0);  // point 0 stays
        } else {
            EXPECT_TRUE(dx >= -2 && dx <= 1 && dy >= -2 && dy <= 1) << i;
        }
        moved += (dx != 0) + (dy != 0);
    }
    EXPECT_GT(moved, 100);
    for (int j = 0; j < 3; ++j) EXPECT_LE(std::abs(af::scratchTable[j] - scratches11[j]), 5);

    // The same tables give the same frame, others another.
    std::memcpy(af::hairTable, hairs11.data(), hairs11.size() * sizeof(af::HairPoint));
    std::memcpy(af::scratchTable, scratches11.data(), 3 * sizeof(int32_t));
    EXPECT_TRUE(renderDirect(src, 0.0125).samePixels(frame12));
    EXPECT_FALSE(renderDirect(src, 0.0125).samePixels(frame12));
}

// The hair curve written out: binomial weights, single-precision t summed
// from 0.02f, each Bernstein term's two products rounded to single
// precision, the terms summed in double from the last down, the point
// stored in single precision; 50 lines between the truncated points.
void drawModelHair(Picture& p, const af::HairPoint* pts, uint32_t colour) {
    float qx[9], qy[9];
    for (int i = 0, c = 1; i < 9; ++i) {
        qx[i] = static_cast<float>(pts[i].x * c);
        qy[i] = static_cast<float>(pts[i].y * c);
        c = (8 - i) * c / (i + 1);
    }
    const float dt = 1.0f / 50.0f;
    float t = 0.0f, px = qx[0], py = qy[0];
    for (int m = 0; m < 50; ++m) {
        t += dt;
        double sx = 0.0, sy = 0.0;
        for (int i = 8; i >= 0; --i) {
            const double a = fxPow(static_cast<double>(t), i);
            const double b = fxPow(1.0 - static_cast<double>(t), 8 - i);
            sx += static_cast<float>(static_cast<float>(qx[i] * a) * b);
            sy += static_cast<float>(static_cast<float>(qy[i] * a) * b);
        }
        const float nx = static_cast<float>(sx), ny = static_cast<float>(sy);
        drawLine(p.data(), p.stride, p.width, p.height, static_cast<int>(px), static_cast<int>(py),
                 static_cast<int>(nx), static_cast<int>(ny), colour);
        px = nx;
        py = ny;
    }
}

// 500 hairs (100 particles at width 720) carried over from a set table at
// tick 11: each drawn dark, crawled by the next 16 draws, drawn light.
TEST(AgedFilm, HairCurvesAndCrawlFromTheTable) {
    const Picture src = flatPicture(720, 576, 0xFF000000u);
    constexpr int kHairs = 500;
    uint32_t seed = 12345;
    auto next = [&seed](int32_t range) {
        seed = seed * 1103515245u + 12345u;
        return static_cast<int32_t>((seed >> 8) % static_cast<uint32_t>(range));
    };
    std::vector<af::HairPoint> set(kHairs * 9);
    for (int i = 0; i < kHairs; ++i) {
        // Walks of up to 60 pixels a step from anywhere near the picture.
        af::HairPoint p{next(800) - 40, next(650) - 37};
        for (int k = 0; k < 9; ++k) {
            set[i * 9 + k] = p;
            p.x += next(121) - 60;
            p.y += next(121) - 60;
        }
    }
    std::copy(set.begin(), set.end(), &af::hairTable[0][0]);
    const double progress = 0.0117;
    const Picture got = renderDirect(src, progress, 100.0);

    // The greys' factors are single precision, their products double.
    auto grey = [](int32_t v) {
        return 0xFF000000u | uint32_t(double(0.9f) * v) << 16 | uint32_t(double(0.8f) * v) << 8 |
               uint32_t(double(0.6f) * v);
    };
    uint32_t s = static_cast<uint32_t>(static_cast<int32_t>(progress * 10000.0));
    Picture want = src;
    for (int i = 0; i < kHairs; ++i) {
        af::HairPoint* pts = &set[i * 9];
        const int32_t g = af::byteDraw(af::nextDraw(&s));
        drawModelHair(want, pts, grey(g));
        for (int k = 1; k < 9; ++k) {
            const uint32_t sa = af::nextDraw(&s), sb = af::nextDraw(&s);
            pts[k].x += static_cast<int>(af::unitDraw(sb) * 4.0 - 2.0);
            pts[k].y += static_cast<int>(af::unitDraw(sa) * 4.0 - 2.0);
        }
        drawModelHair(want, pts, grey(g + 64));
    }
    for (int i = 0; i < kHairs * 9; ++i) {
        ASSERT_EQ(af::hairTable[0][i].x, set[i].x) << i;
        ASSERT_EQ(af::hairTable[0][i].y, set[i].y) << i;
    }
    // Everything but the three scratch columns matches.
    int differing = 0;
    for (int y = 0; y < 576; ++y) {
        for (int x = 0; x < 720; ++x) {
            if (x == af::scratchTable[0] || x == af::scratchTable[1] || x == af::scratchTable[2])
                continue;
            differing += got.at(x, y) != want.at(x, y);
        }
    }
    EXPECT_EQ(differing, 0);
}

TEST(AgedFilm, RegenerationTicks) {
    const Picture src = flatPicture(320, 60, 0xFF808080u);
    renderDirect(src, 0.0);
    // Hairs whose point 0 changed from a state left by tick 50.
    auto regenerated = [&](double progress) {
        renderDirect(src, 0.05);
        const auto before = hairs();
        renderDirect(src, progress);
        const auto after = hairs();
        int n = 0;
        for (size_t i = 0; i < 22; ++i) {
            n += before[i * af::kHairPoints].x != after[i * af::kHairPoints].x;
        }
        return n;
    };
    EXPECT_EQ(regenerated(0.0515), 0);   // tick 51
    EXPECT_GT(regenerated(0.1285), 15);  // tick 128
    EXPECT_GT(regenerated(0.0105), 15);  // tick 10
    EXPECT_GT(regenerated(1.0), 15);     // tick 1000
}

TEST(AgedFilmSafety, HostileValuesTinyPicturesAndMissingSource) {
    const double hostile[] = {kNan, 1e300, -1e300, 1e9, -1.0, 4294967295.0};
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        for (const auto& [w, h] : {std::pair{1, 1}, {2, 1}, {1, 3}, {16, 3}, {300, 40}}) {
            const Picture src = testPicture(w, h, format, 0, w * 4 + 12);
            for (double v : hostile) {
                for (const char* name : {"Average particle size", "Sepia Intensity"}) {
                    const auto r = renderEffect("Aged Film", src,
                                                {{"Number of dust particles", 100}, {name, v}},
                                                {.progress = 0.5, .format = format});
                    ASSERT_TRUE(reelfx::test::paddingUntouched(r.target, kFill)) << name << v;
                }
                const auto r = renderEffect("Aged Film", src, {{"Number of dust particles", v}},
                                            {.progress = v, .format = format});
                ASSERT_TRUE(reelfx::test::paddingUntouched(r.target, kFill)) << v;
            }
        }
        // No source: opaque white.
        reelfx::Instance inst(reelfx::test::module(), reelfx::test::effectIndex("Aged Film"), 9, 5);
        Picture dst(9, 5, 48, kFill);
        ASSERT_EQ(inst.render(nullptr, dst, {.format = format}), 0);
        EXPECT_TRUE(reelfx::test::untouchedOutside(dst, 0, 0, 9, 5, kFill));
        EXPECT_EQ(columnsNotEqual(dst, format == kFourccAyuv ? 0xFFEA8080u : 0xFFFFFFFFu), 0u);
    }
}

TEST(AgedFilmSafety, BorderBarsStayBlack) {
    for (uint32_t format : {kFourccArgb, kFourccAyuv}) {
        const Picture src = testPicture(320, 240, format, 0, 320 * 4 + 8);
        const auto r = renderEffect(
            "Aged Film", src, {{"Number of dust particles", 100}, {"Average particle size", 100}},
            {.format = format,
             .displayAspect = 4.0 / 3.0,
             .aspectFitting = true,
             .aspectPreset = 3});
        // 16:9 in a 4:3 frame: rows 30-209 active, black bars around.
        const uint32_t black = format == kFourccAyuv ? kBorderAyuv : kBorderArgb;
        for (int32_t y = 0; y < 240; ++y) {
            if (y >= 30 && y < 210) continue;
            for (int32_t x = 0; x < 320; ++x) ASSERT_EQ(r.target.at(x, y), black) << x << ", " << y;
        }
        EXPECT_TRUE(reelfx::test::paddingUntouched(r.target, kFill));
    }
}

}  // namespace
