// "Aged Film": the generator and tables at progress 0 (white-box where the
// values never reach a pixel), the tint and tone map in both formats, hair
// counts, the hair curve, crawling and regeneration, the active rectangle.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "effects/aged_film.h"
#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/fxmath.h"
#include "pixel/numeric.h"
#include "plugin/frame_context.h"
#include "support.h"

namespace {

using reelfx::Picture;
using namespace reelfx::test;
namespace af = agedfilm;

constexpr uint32_t kFill = 0x5A5A5A5A;

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

TEST(AgedFilm, GeneratorAndTablesAtProgressZero) {
    uint32_t s = 0;
    EXPECT_EQ(af::nextDraw(&s), 0x3C6EF35Fu);
    EXPECT_EQ(af::nextDraw(&s), 0x47502932u);
    EXPECT_EQ(af::unitDraw(0x12800000u), 0.0f);  // only the low 23 bits count
    EXPECT_EQ(af::unitDraw(0x007FFFFFu), 1.0f - 0x1p-23f);
    EXPECT_EQ(af::byteDraw(0x100u), 127);
    EXPECT_EQ(af::byteDraw(0x81u), 0);
    // Hair 0 of a 720 x 576 picture with the defaults, and its grey.
    s = 0;
    af::HairPoint p[af::kHairPoints];
    EXPECT_EQ(af::regenerateHair(p, &s, 720, 576, 30), 19);
    const int32_t want[] = {450, 499, 453, 508, 462, 505, 471, 509, 479,
                            516, 475, 519, 474, 513, 471, 514, 473, 515};
    EXPECT_EQ(std::memcmp(p, want, sizeof want), 0);
    EXPECT_EQ(af::byteDraw(af::nextDraw(&s)), 3);
    // Scratches seeded after the 50 hairs' 1800 draws, then walked.
    s = 0;
    for (int i = 0; i < 1800; ++i) af::nextDraw(&s);
    int32_t seeds[af::kScratches];
    af::seedScratches(seeds, &s, 720);
    EXPECT_EQ(std::vector<int32_t>(seeds, seeds + 3), (std::vector<int32_t>{321, 362, 395}));
    renderDirect(Picture(720, 576, 0, 0xFF000000u), 0.0);
    EXPECT_EQ(std::vector<int32_t>(af::scratchTable, af::scratchTable + 3),
              (std::vector<int32_t>{321, 359, 393}));
    // Through the entry: scratch 0's first weights 10, 109 and 116 toward
    // 0xFFFDFCFA from black; the last two rows carry no scratch.
    const auto r = renderEffect("Aged Film", Picture(720, 576, 0, 0xFF000000u));
    EXPECT_EQ(r.target.at(321, 0), 0xFF0A0A0Au);
    EXPECT_EQ(r.target.at(321, 1), 0xFF6C6C6Bu);
    EXPECT_EQ(r.target.at(321, 2), 0xFF737372u);
    EXPECT_EQ(r.target.at(321, 574), 0xFF000000u);
}

// Two rows carry no scratch, so without hairs the whole picture is the tone
// map: ARGB from the key (the tint plays no part), AYUV scaled luma with the
// tint's chroma; sepia values outside 0 ... 2 are held to the nearest end,
// NaN counts as 0. The source alpha is dropped.
TEST(AgedFilm, TintAndToneMapInBothFormats) {
    const std::pair<double, uint32_t> tints[] = {{0.0, 0xFFEB8080u},
                                                 {0.5, 0xFFD57387u},
                                                 {1.0, 0xFFC0658Eu},
                                                 {1.5, 0xFFAB5896u},
                                                 {2.0, 0xFF964B9Du}};
    for (const auto& [t, ayuv] : tints) {
        EXPECT_EQ(af::tintToAyuv(mixPixelClamped(0xFFFFFFFFu, 0xFFE5CC99u, t, kFourccArgb)), ayuv);
    }
    const struct {
        uint32_t format, in;
        double sepia;
        uint32_t out;
    } cases[] = {
        {kFourccArgb, 0xFF000000u, 1.0, 0xFF000000u},
        {kFourccArgb, 0x00FFFFFFu, 0.0, 0xFFE5CC99u},
        {kFourccArgb, 0xFF646464u, 2.0, 0xFF59503Cu},  // key 100: trunc(0.9f * 100) = 89
        {kFourccAyuv, 0xFF108080u, 1.0, 0xFF0C658Eu},  // luma 16 -> 12
        {kFourccAyuv, 0x107D2020u, 0.5, 0xFF637387u},  // luma 125 -> 99
        {kFourccAyuv, 0xFF7D8080u, -3.0, 0xFF638080u},
        {kFourccAyuv, 0xFF7D8080u, 7.0, 0xFF634B9Du},
        {kFourccAyuv, 0xFF7D8080u, std::nan(""), 0xFF638080u},
    };
    for (const auto& c : cases) {
        const auto r = renderEffect("Aged Film", Picture(64, 2, 0, c.in),
                                    {{"Number of dust particles", 0}, {"Sepia Intensity", c.sepia}},
                                    {.progress = 0.3, .format = c.format});
        EXPECT_TRUE(r.target.samePixels(Picture(64, 2, 0, c.out))) << std::hex << c.in << c.sepia;
    }
}

TEST(AgedFilm, HairCountScalesWithWidth) {
    auto regenerated = [](int32_t width, double count) {
        for (auto& record : af::hairTable) record[0].x = -77777;
        renderDirect(Picture(width, 4, 0, 0xFF808080u), 0.0, count);
        int n = 0;
        for (const auto& record : af::hairTable) n += record[0].x != -77777;
        return n;
    };
    EXPECT_EQ(regenerated(720, 10), 50);
    EXPECT_EQ(regenerated(1920, 100), 1000);  // 1333, cut to 1000
    EXPECT_EQ(regenerated(15, 10), 1);
    EXPECT_EQ(regenerated(14, 10), 0);
    EXPECT_EQ(regenerated(720, std::nan("")), 0);
    EXPECT_EQ(regenerated(720, 2147483647.0), 1000);  // no 32-bit overflow
    EXPECT_EQ(regenerated(720, 1e300), 0);            // beyond 32 bits: INT32_MIN
}

// Ticks 11 and 12: the second call crawls on from the first one's points
// (point 0 stays, the others move by -2 ... 1), scratches walk at most 5.
// Ticks up to 10, multiples of 128 and 1000 regenerate the hairs.
TEST(AgedFilm, CrawlsBetweenTicksAndRegeneratesOnTheirTicks) {
    const Picture src = testPicture(320, 240, kFourccArgb);
    renderDirect(src, 0.005);
    renderDirect(src, 0.0115);
    const auto hairs11 = hairs();
    const std::vector<int32_t> scratches11(af::scratchTable, af::scratchTable + 3);
    renderDirect(src, 0.0125);
    const auto hairs12 = hairs();
    int moved = 0;
    for (size_t i = 0; i < 22 * af::kHairPoints; ++i) {  // 22 hairs at width 320
        const int dx = hairs12[i].x - hairs11[i].x, dy = hairs12[i].y - hairs11[i].y;
        const int lo = i % af::kHairPoints == 0 ? 0 : -2, hi = lo == 0 ? 0 : 1;
        EXPECT_TRUE(dx >= lo && dx <= hi && dy >= lo && dy <= hi) << i;
        moved += (dx != 0) + (dy != 0);
    }
    EXPECT_GT(moved, 100);
    for (int j = 0; j < 3; ++j) EXPECT_LE(std::abs(af::scratchTable[j] - scratches11[j]), 5);

    for (const auto& [progress, fresh] :
         {std::pair{0.0515, false}, {0.1285, true}, {0.0105, true}, {1.0, true}}) {
        renderDirect(src, 0.05);
        const auto before = hairs();
        renderDirect(src, progress);
        int n = 0;
        for (size_t i = 0; i < 22 * af::kHairPoints; i += af::kHairPoints) {
            n += before[i].x != hairs()[i].x;
        }
        EXPECT_EQ(n > 15, fresh) << progress;
        EXPECT_EQ(n == 0, !fresh) << progress;
    }
}

// The line of drawLine in closed form: j steps along the major axis move
// the minor coordinate j * minor / major times, rounded half up (an unsigned
// 64-bit product, exact for any 32-bit ends); only major positions inside
// the picture are visited, so a line of any length costs the picture's size.
void modelLine(Picture& p, int32_t x0, int32_t y0, int32_t x1, int32_t y1, uint32_t colour) {
    const int64_t dx = int64_t{x1} - x0, dy = int64_t{y1} - y0;
    const bool flat = std::llabs(dx) > std::llabs(dy);
    const int64_t m0 = flat ? x0 : y0, n0 = flat ? y0 : x0, dm = flat ? dx : dy,
                  dn = flat ? dy : dx;
    const uint64_t major = std::llabs(dm), minor = std::llabs(dn);
    for (int64_t c = 0; c < (flat ? p.width : p.height); ++c) {
        const int64_t j = dm < 0 ? m0 - c : c - m0;
        if (j < 0 || uint64_t(j) > major) continue;
        const uint64_t product = uint64_t(j) * minor;
        const uint64_t moved =
            major == 0 ? 0 : product / major + (2 * (product % major) >= major ? 1 : 0);
        const int64_t n = n0 + (dn < 0 ? -int64_t(moved) : int64_t(moved));
        const int64_t x = flat ? c : n, y = flat ? n : c;
        if (x >= 0 && x < p.width && y >= 0 && y < p.height) p.at(int32_t(x), int32_t(y)) = colour;
    }
}

// The hair curve written out: binomial weights, single-precision t summed
// from 0.02f, each Bernstein term's two products rounded to single
// precision, the terms summed in double from the last down, the point
// stored in single precision; 50 lines between the truncated points, in
// grey v (single-precision factors, double products).
void drawModelHair(Picture& p, const af::HairPoint* pts, int32_t v) {
    const uint32_t colour = 0xFF000000u | uint32_t(double(0.9f) * v) << 16 |
                            uint32_t(double(0.8f) * v) << 8 | uint32_t(double(0.6f) * v);
    float qx[9], qy[9];
    for (int i = 0, c = 1; i < 9; c = (8 - i) * c / (i + 1), ++i) {
        qx[i] = static_cast<float>(int64_t{pts[i].x} * c);
        qy[i] = static_cast<float>(int64_t{pts[i].y} * c);
    }
    float t = 0.0f, px = qx[0], py = qy[0];
    for (int m = 0; m < 50; ++m) {
        t += 1.0f / 50.0f;
        double sx = 0.0, sy = 0.0;
        for (int i = 8; i >= 0; --i) {
            const double a = fxPow(t, i), b = fxPow(1.0 - t, 8 - i);
            sx += static_cast<float>(static_cast<float>(qx[i] * a) * b);
            sy += static_cast<float>(static_cast<float>(qy[i] * a) * b);
        }
        const float nx = static_cast<float>(sx), ny = static_cast<float>(sy);
        modelLine(p, truncToInt32(px), truncToInt32(py), truncToInt32(nx), truncToInt32(ny),
                  colour);
        px = nx;
        py = ny;
    }
}

// One hair's turn after any regeneration: its grey from the next draw, the
// dark curve, the crawl of points 1 ... 8 by the next 16 draws (32-bit
// additions, wrapping at the ends of the range), the light curve.
void drawAndCrawlModelHair(Picture& p, af::HairPoint* pts, uint32_t* s) {
    const int32_t g = af::byteDraw(af::nextDraw(s));
    drawModelHair(p, pts, g);
    for (int k = 1; k < 9; ++k) {
        const uint32_t sa = af::nextDraw(s), sb = af::nextDraw(s);
        pts[k].x = int32_t(uint32_t(pts[k].x) + uint32_t(int32_t(af::unitDraw(sb) * 4.0 - 2.0)));
        pts[k].y = int32_t(uint32_t(pts[k].y) + uint32_t(int32_t(af::unitDraw(sa) * 4.0 - 2.0)));
    }
    drawModelHair(p, pts, g + 64);
}

// 500 hairs (100 particles at width 720) carried over from a set table at
// tick 11, partly outside the picture: each drawn dark, crawled by the next
// 16 draws, drawn light. Everything but the scratch columns matches.
TEST(AgedFilm, HairCurvesAndCrawlFromTheTable) {
    std::vector<af::HairPoint> set(500 * 9);
    for (int32_t i = 0; i < 500 * 9; ++i) {
        set[i] = {i / 9 * 37 % 800 - 40 + i % 9 * (i % 7 * 17 - 50),
                  i / 9 * 53 % 650 - 37 + i % 9 * (i % 5 * 23 - 46)};
    }
    std::copy(set.begin(), set.end(), &af::hairTable[0][0]);
    const Picture got = renderDirect(Picture(720, 576, 0, 0xFF000000u), 0.0117, 100.0);
    uint32_t s = static_cast<uint32_t>(static_cast<int32_t>(0.0117 * 10000.0));
    Picture want(720, 576, 0, 0xFF000000u);
    for (size_t i = 0; i < set.size(); i += 9) drawAndCrawlModelHair(want, &set[i], &s);
    for (int x : {af::scratchTable[0], af::scratchTable[1], af::scratchTable[2]}) {
        for (int y = 0; y < 576; ++y) want.at(x, y) = got.at(x, y);
    }
    EXPECT_EQ(got.words, want.words);
}

// Through the entry at tick 5, where every hair is regenerated: steps so
// large that the walk takes control points past +-2^29 and, for the largest
// size, past the 32-bit range itself, where a point truncates to INT32_MIN
// and a later crawl of -1 wraps it to INT32_MAX. The model regenerates,
// draws and crawls each hair and leaves the scratch columns out.
TEST(AgedFilm, HairsWithControlPointsAnywhereInTheirRange) {
    const struct {
        double count, size;
        int32_t width, height;
        bool pastRange;  // some point truncates to INT32_MIN
    } cases[] = {{3, 1e9, 720, 100, false}, {4, 2147483647.0, 720, 60, true}};
    for (const auto& c : cases) {
        const Picture src(c.width, c.height, 0, 0xFF808080u);
        const auto r = renderEffect("Aged Film", src,
                                    {{"Number of dust particles", c.count},
                                     {"Average particle size", c.size},
                                     {"Sepia Intensity", 1.0}},
                                    {.progress = 0.005});
        Picture want(c.width, c.height, 0, 0xFF73664Cu);  // the tone map of grey 128
        uint32_t s = 50;
        const int64_t hairs = 5 * int64_t(c.count) * c.width / 720;
        const int64_t S = int64_t(c.size) * c.width / 720;
        int64_t farthest = 0;
        for (int64_t i = 0; i < hairs; ++i) {
            af::HairPoint p[9];
            const uint32_t s1 = af::nextDraw(&s), s2 = af::nextDraw(&s);
            p[0] = {int32_t(c.width * double(af::unitDraw(s2))),
                    int32_t(c.height * double(af::unitDraw(s1)))};
            const int32_t step = truncToInt32(af::unitDraw(af::nextDraw(&s)) * double(S) + 1.0);
            for (int k = 1; k < 9; ++k) {
                const uint32_t sa = af::nextDraw(&s), sb = af::nextDraw(&s);
                p[k] = {truncToInt32(af::unitDraw(sb) * double(step) + p[k - 1].x - (step >> 1)),
                        truncToInt32(af::unitDraw(sa) * double(step) + p[k - 1].y - (step >> 1))};
                farthest =
                    std::max({farthest, int64_t{std::llabs(p[k].x)}, int64_t{std::llabs(p[k].y)}});
            }
            drawAndCrawlModelHair(want, p, &s);
        }
        EXPECT_GT(farthest, int64_t{1} << 29) << c.size;
        EXPECT_EQ(farthest == int64_t{1} << 31, c.pastRange) << c.size;
        int32_t column[3];
        for (int32_t& x : column) x = int32_t(af::unitDraw(af::nextDraw(&s)) * (c.width - 1));
        for (int32_t& x : column) {
            x = std::clamp(int32_t(af::unitDraw(af::nextDraw(&s)) * 11.0 - 5.0 + x), 0,
                           c.width - 1);
            for (int32_t y = 0; y < c.height; ++y) want.at(x, y) = r.target.at(x, y);
            for (int32_t y = 2; y < c.height; ++y) af::nextDraw(&s);
        }
        EXPECT_EQ(r.target.words, want.words) << c.size;
    }
}

// The hair line walks only the steps inside the picture, yet plots exactly
// the points of the full line: lines far longer than the picture, from and
// to every side, steep and flat, clipped at each edge. The closed-form line
// agrees with drawLine there, and with the hair line for ends at the far
// corners of the 32-bit range, where the walk starts 2^31 steps in.
TEST(AgedFilm, HairLineIsTheClippedLine) {
    uint32_t s = 12345;
    auto coord = [&s](int32_t span) {
        return static_cast<int32_t>(af::nextDraw(&s) % (2u * span + 1)) - span + 20;
    };
    for (const int32_t span : {30, 200, 5000, 100000}) {
        for (int i = 0; i < 200; ++i) {
            const int32_t x0 = coord(span), y0 = coord(span), x1 = coord(span), y1 = coord(span);
            Picture want(41, 29, 48 * 4, kFill), got(41, 29, 48 * 4, kFill), model = want;
            drawLine(want.data(), want.stride, 41, 29, x0, y0, x1, y1, 0xFF123456u);
            af::drawHairLine(got.data(), got.stride, 41, 29, x0, y0, x1, y1, 0xFF123456u);
            modelLine(model, x0, y0, x1, y1, 0xFF123456u);
            ASSERT_EQ(got.words, want.words) << x0 << "," << y0 << " " << x1 << "," << y1;
            ASSERT_EQ(model.words, want.words) << x0 << "," << y0 << " " << x1 << "," << y1;
        }
    }
    constexpr int32_t lo = INT32_MIN, hi = INT32_MAX;
    const int32_t ends[][4] = {
        {lo, lo, hi, hi},                  // the whole diagonal
        {lo + 40, hi, hi, lo + 40},        // the other diagonal, through x + y = 39
        {lo, 10, hi, 20},                  // flat, left to right
        {hi, 3, lo, 25},                   // flat, right to left
        {20, lo, 7, hi},                   // steep, downwards
        {lo, lo / 3, hi, hi / 3},          // slope 1/3 through the middle of the range
        {lo / 3 + 7, hi, hi / 3 + 7, lo},  // slope -3, upwards
        {lo, 0, 30, 28},                   // from the far left into the picture
        {35, 2, hi, lo / 2},               // from the picture to the far right
    };
    for (const auto& e : ends) {
        Picture got(41, 29, 48 * 4, kFill), model = got;
        af::drawHairLine(got.data(), got.stride, 41, 29, e[0], e[1], e[2], e[3], 0xFF123456u);
        modelLine(model, e[0], e[1], e[2], e[3], 0xFF123456u);
        EXPECT_EQ(got.words, model.words) << e[0] << "," << e[1] << " " << e[2] << "," << e[3];
        EXPECT_GT(std::count(model.words.begin(), model.words.end(), 0xFF123456u), 1) << e[0];
    }
}

// Frame sequences through the entry that start from the tables as the module
// is loaded. Each runs in a re-executed test program of its own, so whatever
// ran before in this process cannot have moved the tables.
struct FreshStep {
    int32_t width, height;
    double progress;
};
struct FreshSequence {
    const char* name;
    double count, size;
    uint32_t source;
    std::vector<FreshStep> steps;
    int32_t x, y;
    uint32_t want;
};

void runFreshSequence(const FreshSequence& f) {
    reelfx::Instance inst(module(), effectIndex("Aged Film"), 100, 100);
    inst.setParameter("Number of dust particles", f.count);
    inst.setParameter("Average particle size", f.size);
    inst.setParameter("Sepia Intensity", 1.0);
    uint32_t got = 0;
    for (const FreshStep& step : f.steps) {
        // An empty picture still has pixel memory: only its size is 0.
        const size_t words = std::max<size_t>(size_t(step.width) * step.height, 1);
        std::vector<uint32_t> src(words, f.source), dst(words, kFill);
        inst.render(src.data(), dst.data(), step.width, step.height, step.width * 4,
                    {step.progress});
        if (step.width > f.x && step.height > f.y) got = dst[size_t(f.y) * step.width + f.x];
    }
    if (got != f.want) {
        std::fprintf(stderr, "%s: pixel (%d, %d) is 0x%08X\n", f.name, f.x, f.y, got);
        std::exit(1);
    }
    std::exit(0);
}

TEST(AgedFilmFreshTables, EveryCallAdvancesTheTables) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const FreshSequence sequences[] = {
        // A zero-width frame at tick 6 re-seeds and walks the scratches (to
        // column -1, no writes) and draws their weights.
        {"empty width",
         0,
         30,
         0xFF808080u,
         {{100, 100, 0.005}, {0, 100, 0.006}, {100, 100, 0.02}},
         0,
         0,
         0xFF928873u},
        // A zero-height frame at tick 500 crawls 200 x 100's 138 hairs.
        {"empty height",
         100,
         30,
         0xFF808080u,
         {{200, 100, 0.005}, {200, 0, 0.5}, {200, 100, 0.501}},
         49,
         0,
         0xFF443C2Du},
        // Step (1000 x 100) / 720 = 138, wider than the picture.
        {"step beyond the width", 10, 1000, 0xFF808080u, {{100, 100, 0.005}}, 45, 0, 0xFF5A503Cu},
    };
    for (const FreshSequence& f : sequences) {
        EXPECT_EXIT(runFreshSequence(f), ::testing::ExitedWithCode(0), "") << f.name;
    }
}

}  // namespace
