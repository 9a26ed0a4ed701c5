// The separable filter facility, driven directly: the known flat-picture and
// step-row results, the two warnings, degenerate pictures, alpha, unknown
// codes, and the accumulator technique against a plain sum over the taps for
// all sixteen codes, lines far beyond the local working line included.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "pixel/filter.h"

namespace {

constexpr int32_t kCodes[] = {102, 103, 104, 105, 106, 107, 108, 109,
                              202, 203, 204, 205, 206, 207, 208, 209};

FilterTables tablesFor(int32_t code) {
    int n = 0;
    const float* w = FilterKernel(code, &n);
    EXPECT_NE(w, nullptr) << code;
    FilterTables t{};
    BuildFilterTables(w, n, &t);
    return t;
}

// Field d of the kernel (table d / 3, field d % 3) for byte value v.
int field(const FilterTables& t, int d, uint32_t v) {
    return static_cast<int>((t.T[d / 3][v] >> (10 * (d % 3))) & 0x3FFu);
}

// The sum formula written out: every distance d from 0 to the radius, once
// on each side, edge pixels repeated; then bias, divide by 4, clamp.
std::vector<uint32_t> referenceLine(const std::vector<uint32_t>& in, const FilterTables& t) {
    const int count = static_cast<int>(in.size());
    const int radius = 3 * t.groups - 1;
    std::vector<uint32_t> out(in.size());
    for (int i = 0; i < count; ++i) {
        uint32_t pixel = 0;
        for (int k = 0; k < 4; ++k) {
            int s = 0;
            for (int d = 0; d <= radius; ++d) {
                const uint32_t lo = in[std::clamp(i - d, 0, count - 1)];
                const uint32_t hi = in[std::clamp(i + d, 0, count - 1)];
                s += field(t, d, (lo >> (8 * k)) & 0xFF) + field(t, d, (hi >> (8 * k)) & 0xFF);
            }
            const int r = (s - t.bias) >> 2;
            pixel |= static_cast<uint32_t>(std::clamp(r, 0, 255)) << (8 * k);
        }
        out[i] = pixel;
    }
    return out;
}

// Rows, then columns, through the reference line; pictures packed.
std::vector<uint32_t> referencePicture(const std::vector<uint32_t>& in, int w, int h,
                                       const FilterTables& t) {
    std::vector<uint32_t> mid(in.size()), out(in.size());
    for (int y = 0; y < h; ++y) {
        const std::vector<uint32_t> row(in.begin() + y * w, in.begin() + (y + 1) * w);
        const auto f = referenceLine(row, t);
        std::copy(f.begin(), f.end(), mid.begin() + y * w);
    }
    for (int x = 0; x < w; ++x) {
        std::vector<uint32_t> col(h);
        for (int y = 0; y < h; ++y) col[y] = mid[y * w + x];
        const auto f = referenceLine(col, t);
        for (int y = 0; y < h; ++y) out[y * w + x] = f[y];
    }
    return out;
}

std::vector<uint32_t> randomWords(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint32_t> v(n);
    for (auto& x : v) x = rng();
    return v;
}

// Code 208's outer weight -0.0555 gives a field of -1 for the byte value 255
// (-57 + 56): it borrows from the neighbouring field, and from there on the
// running sums are the rule while the plain sum of masked fields is not.
// Its reference inputs keep every byte within 100-155, so that neither the
// source nor the row pass (at most 155 * 1.778 - 100 * 0.777) reaches 255.
std::vector<uint32_t> referenceInput(int32_t code, size_t n, uint32_t seed) {
    std::vector<uint32_t> v = randomWords(n, seed);
    if (code == 208) {
        for (auto& x : v) {
            uint32_t y = 0;
            for (int k = 0; k < 4; ++k) y |= (100 + ((x >> (8 * k)) & 0xFF) % 56) << (8 * k);
            x = y;
        }
    }
    return v;
}

std::vector<uint32_t> filterLine(const std::vector<uint32_t>& in, const FilterTables& t) {
    std::vector<uint32_t> out(in.size(), 0xDEADBEEFu);
    FilterLine(in.data(), static_cast<int32_t>(in.size()), 1, &t, out.data());
    return out;
}

// A flat w x h picture of byte value v in all four bytes, filtered whole.
uint32_t flatResult(int32_t code, uint32_t v) {
    const uint32_t word = v * 0x01010101u;
    std::vector<uint32_t> src(6 * 5, word), dst(6 * 5, 0);
    EXPECT_TRUE(ApplyFilterCode(dst.data(), src.data(), 6 * 4, 6, 5, code));
    for (uint32_t p : dst) EXPECT_EQ(p, dst[0]) << "flat picture not flat, code " << code;
    EXPECT_EQ(dst[0], (dst[0] & 0xFF) * 0x01010101u);
    return dst[0] & 0xFF;
}

TEST(FilterFlat, BlurAndSharpenOfThreeTapsKeepEveryValue) {
    for (uint32_t v = 0; v < 256; ++v) {
        EXPECT_EQ(flatResult(102, v), v);
        EXPECT_EQ(flatResult(202, v), v);
    }
}

TEST(FilterFlat, RoundingUpRaisesSomeValues) {
    // Code 103, row pass: exactly the values 2, 7, 12, ... 252 go up by one.
    const FilterTables t103 = tablesFor(103);
    int raised = 0;
    for (uint32_t v = 0; v < 256; ++v) {
        const uint32_t got = filterLine(std::vector<uint32_t>(9, v * 0x01010101u), t103)[4] & 0xFF;
        const uint32_t want = v % 5 == 2 ? v + 1 : v;
        EXPECT_EQ(got, want) << v;
        raised += got != v;
    }
    EXPECT_EQ(raised, 51);
    EXPECT_EQ(flatResult(103, 2), 3u);

    // Code 104: 0 -> 1 -> 2 and 100 -> 101 -> 102 over the two passes.
    const FilterTables t104 = tablesFor(104);
    EXPECT_EQ(filterLine(std::vector<uint32_t>(20, 0), t104)[10], 0x01010101u);
    EXPECT_EQ(filterLine(std::vector<uint32_t>(20, 0x64646464u), t104)[10], 0x65656565u);
    EXPECT_EQ(flatResult(104, 0), 2u);
    EXPECT_EQ(flatResult(104, 100), 102u);

    EXPECT_EQ(flatResult(109, 100), 103u);
    EXPECT_EQ(flatResult(109, 2), 1u);
}

TEST(FilterFlat, WhiteStaysWhiteForEveryCode) {
    for (int32_t code : kCodes) EXPECT_EQ(flatResult(code, 255), 255u) << code;
}

TEST(FilterStep, RowPassOfBlurAndSharpen) {
    const std::vector<uint32_t> step = {0, 0, 0, 0, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};
    auto bytes = [](const std::vector<uint32_t>& line) {
        std::vector<uint32_t> b;
        for (uint32_t p : line) {
            EXPECT_EQ(p, (p & 0xFF) * 0x01010101u);
            b.push_back(p & 0xFF);
        }
        return b;
    };
    EXPECT_EQ(bytes(filterLine(step, tablesFor(102))),
              (std::vector<uint32_t>{0, 0, 0, 85, 170, 255, 255, 255}));
    EXPECT_EQ(bytes(filterLine(step, tablesFor(203))),
              (std::vector<uint32_t>{0, 0, 0, 0, 255, 255, 255, 255}));
    // As a one-row picture the column pass sees single pixels and keeps them.
    std::vector<uint32_t> dst(8);
    ASSERT_TRUE(ApplyFilterCode(dst.data(), step.data(), 8 * 4, 8, 1, 102));
    EXPECT_EQ(bytes(dst), (std::vector<uint32_t>{0, 0, 0, 85, 170, 255, 255, 255}));
}

TEST(FilterWarnings, CatalogueKernelsAreSilent) {
    std::vector<uint32_t> src = randomWords(7 * 3, 1), dst(7 * 3);
    testing::internal::CaptureStderr();
    for (int32_t code : kCodes) ApplyFilterCode(dst.data(), src.data(), 7 * 4, 7, 3, code);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(FilterWarnings, SumAndFieldOverflowTexts) {
    FilterTables t{};
    const float sum15[] = {0.5f, 0.5f};  // 0.5 + 2 * 0.5
    testing::internal::CaptureStderr();
    BuildFilterTables(sum15, 2, &t);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Warning: filter sum != 1 (=1.500000)\n");

    // Centre halved to 1.0, plus 0.5: the first group overflows; the second
    // group (-0.25 and two missing weights) does not.
    const float big[] = {2.0f, 0.5f, 0.0f, -0.25f};
    testing::internal::CaptureStderr();
    BuildFilterTables(big, 4, &t);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Warning: filter sum != 1 (=2.500000)\n|1.000000|+|0.500000|+|0.000000| > 1\n");
    EXPECT_EQ(t.groups, 2);
    EXPECT_EQ(t.bias, 2 * 256);

    // Exactly 1 in a group and a sum within 0.001 of 1: silent.
    const float edge[] = {1.0f, 0.0005f, -0.0005f, 0.0f};
    testing::internal::CaptureStderr();
    BuildFilterTables(edge, 4, &t);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    // The filter still runs after a warning.
    std::vector<uint32_t> src(4, 0x10101010u), dst(4, 0);
    const FilterImage in{4, 1, 16, src.data()}, out{4, 1, 16, dst.data()};
    testing::internal::CaptureStderr();
    EXPECT_TRUE(FilterPicture(&in, sum15, 2, &out));
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    EXPECT_NE(dst[0], 0u);
}

TEST(FilterTablesBuild, GroupsBiasAndFields) {
    const FilterTables t102 = tablesFor(102), t203 = tablesFor(203), t209 = tablesFor(209);
    EXPECT_EQ(t102.groups, 1);
    EXPECT_EQ(t102.bias, 0);
    // 4 * 0.1666665 * 255 = 169.99983 rounds to 170; 4 * 0.333333 * 255 = 339.99966 to 340 (+1).
    EXPECT_EQ(field(t102, 0, 255), 170);
    EXPECT_EQ(field(t102, 1, 255), 341);
    EXPECT_EQ(field(t102, 2, 255), 0);
    EXPECT_EQ(field(t102, 1, 0), 1);
    EXPECT_EQ(t203.groups, 1);
    EXPECT_EQ(t203.bias, 2 * (128 + 128));
    EXPECT_EQ(field(t203, 1, 0), 129);  // offset 128 plus the rounding 1
    EXPECT_EQ(field(t203, 2, 255), 1);  // -127.5 rounds up to -127, plus 128
    EXPECT_EQ(t209.groups, 3);
    EXPECT_EQ(tablesFor(104).groups, 2);
    EXPECT_EQ(tablesFor(106).groups, 2);
    EXPECT_EQ(tablesFor(107).groups, 3);
}

TEST(FilterEdges, UnknownCodesLeaveTheDestinationAlone) {
    const std::vector<uint32_t> src = randomWords(5 * 4, 2);
    for (int32_t code : {0, 1, 100, 101, 110, 201, 210, 302, -102, 1102, 2147483647}) {
        std::vector<uint32_t> dst(5 * 4, 0x5A5A5A5Au);
        EXPECT_FALSE(ApplyFilterCode(dst.data(), src.data(), 5 * 4, 5, 4, code)) << code;
        EXPECT_EQ(dst, std::vector<uint32_t>(5 * 4, 0x5A5A5A5Au)) << code;
    }
    EXPECT_EQ(FilterKernel(110, nullptr), nullptr);
}

TEST(FilterEdges, EmptyAndOverlappingPicturesAreNotFiltered) {
    const std::vector<uint32_t> src = randomWords(16, 3);
    std::vector<uint32_t> dst(16, 7);
    EXPECT_FALSE(ApplyFilterCode(dst.data(), src.data(), 16, 0, 4, 102));
    EXPECT_FALSE(ApplyFilterCode(dst.data(), src.data(), 16, 4, 0, 102));
    EXPECT_FALSE(ApplyFilterCode(dst.data(), src.data(), 12, 4, 4, 102));  // rows overlap
    EXPECT_FALSE(ApplyFilterCode(dst.data(), src.data(), 18, 4, 3, 102));  // not whole pixels
    EXPECT_FALSE(ApplyFilterCode(dst.data(), src.data(), -16, 4, 1, 102));
    EXPECT_EQ(dst, std::vector<uint32_t>(16, 7));
    // A kernel of no weights or of more than nine filters nothing.
    const float ten[10] = {0.1f, 0.05f, 0.05f, 0.05f, 0.05f, 0.05f, 0.05f, 0.05f, 0.05f, 0.05f};
    const FilterImage in{4, 4, 16, const_cast<uint32_t*>(src.data())}, out{4, 4, 16, dst.data()};
    testing::internal::CaptureStderr();
    EXPECT_FALSE(FilterPicture(&in, ten, 0, &out));
    EXPECT_FALSE(FilterPicture(&in, ten, 10, &out));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(dst, std::vector<uint32_t>(16, 7));
}

// One pixel wide: the row pass sees a flat line; the column pass filters.
TEST(FilterEdges, OnePixelWidePicture) {
    const std::vector<uint32_t> col = randomWords(23, 4);
    for (int32_t code : {102, 202, 105, 209}) {
        // Stride of three words: the padding must keep its value.
        std::vector<uint32_t> src(23 * 3, 0x77777777u), dst(23 * 3, 0x5A5A5A5Au);
        for (int y = 0; y < 23; ++y) src[y * 3] = col[y];
        ASSERT_TRUE(ApplyFilterCode(dst.data(), src.data(), 12, 1, 23, code));
        const FilterTables t = tablesFor(code);
        std::vector<uint32_t> afterRows(23);
        for (int y = 0; y < 23; ++y) afterRows[y] = referenceLine({col[y]}, t)[0];
        if (code == 102 || code == 202) {
            EXPECT_EQ(afterRows, col);
        }
        const auto want = referenceLine(afterRows, t);
        for (int y = 0; y < 23; ++y) {
            EXPECT_EQ(dst[y * 3], want[y]) << code << " row " << y;
            EXPECT_EQ(dst[y * 3 + 1], 0x5A5A5A5Au);
            EXPECT_EQ(dst[y * 3 + 2], 0x5A5A5A5Au);
        }
    }
}

TEST(FilterEdges, AlphaIsFilteredLikeTheColourBytes) {
    // Alpha steps from 0 to 255 across the row; the colour bytes are flat.
    std::vector<uint32_t> src(10 * 3), dst(10 * 3);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 10; ++x) src[y * 10 + x] = (x < 5 ? 0x00u : 0xFFu) << 24 | 0x404040u;
    }
    ASSERT_TRUE(ApplyFilterCode(dst.data(), src.data(), 40, 10, 3, 102));
    const uint32_t wantAlpha[] = {0, 0, 0, 0, 85, 170, 255, 255, 255, 255};
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 10; ++x) {
            EXPECT_EQ(dst[y * 10 + x] >> 24, wantAlpha[x]) << x;
            EXPECT_EQ(dst[y * 10 + x] & 0xFFFFFFu, 0x404040u);
        }
    }
}

TEST(FilterReference, RandomShortLinesForEveryCode) {
    uint32_t seed = 10;
    for (int32_t code : kCodes) {
        const FilterTables t = tablesFor(code);
        for (size_t count : {1u, 2u, 3u, 5u, 8u, 9u, 17u, 40u, 333u}) {
            const auto in = referenceInput(code, count, ++seed);
            EXPECT_EQ(filterLine(in, t), referenceLine(in, t)) << code << " count " << count;
        }
        // Smooth content too, where the sharpening fields do not saturate.
        std::vector<uint32_t> ramp(64);
        for (size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<uint32_t>(i * 4) * 0x01010101u;
        EXPECT_EQ(filterLine(ramp, t), referenceLine(ramp, t)) << code;
    }
}

TEST(FilterReference, SmallPicturesForEveryCode) {
    uint32_t seed = 100;
    for (int32_t code : kCodes) {
        const int w = 13, h = 9;
        const auto in = referenceInput(code, w * h, ++seed);
        std::vector<uint32_t> dst(w * h);
        ASSERT_TRUE(ApplyFilterCode(dst.data(), in.data(), w * 4, w, h, code));
        EXPECT_EQ(dst, referencePicture(in, w, h, tablesFor(code))) << code;
        // In place: the destination may be the source.
        std::vector<uint32_t> same = in;
        ASSERT_TRUE(ApplyFilterCode(same.data(), same.data(), w * 4, w, h, code));
        EXPECT_EQ(same, dst) << code;
    }
}

// Lines longer than the local working line, through the picture (one
// shared heap line per call) and through FilterLine alone.
TEST(FilterReference, LinesWiderThanTheLocalWorkingLine) {
    for (int32_t code : {102, 104, 109, 203, 209}) {
        const FilterTables t = tablesFor(code);
        const int w = 3840, h = 3;
        const auto in = referenceInput(code, w * h, static_cast<uint32_t>(code));
        std::vector<uint32_t> dst(w * h);
        ASSERT_TRUE(ApplyFilterCode(dst.data(), in.data(), w * 4, w, h, code));
        EXPECT_EQ(dst, referencePicture(in, w, h, t)) << code;

        for (size_t count : {2033u, 2038u, 2039u, 2044u, 2045u, 4097u}) {
            const auto line = referenceInput(code, count, static_cast<uint32_t>(count));
            EXPECT_EQ(filterLine(line, t), referenceLine(line, t)) << code << " " << count;
        }
    }
    // A tall picture: the columns are the long lines.
    const int w = 2, h = 2500;
    const auto in = randomWords(w * h, 77);
    std::vector<uint32_t> dst(w * h);
    ASSERT_TRUE(ApplyFilterCode(dst.data(), in.data(), w * 4, w, h, 107));
    EXPECT_EQ(dst, referencePicture(in, w, h, tablesFor(107)));
}

}  // namespace
