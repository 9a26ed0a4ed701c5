// The separable filter facility, driven directly.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "pixel/filter.h"

namespace {

using Words = std::vector<uint32_t>;

constexpr int32_t kCodes[] = {102, 103, 104, 105, 106, 107, 108, 109,
                              202, 203, 204, 205, 206, 207, 208, 209};

FilterTables tablesFor(int32_t code) {
    int n = 0;
    const float* w = FilterKernel(code, &n);
    FilterTables t{};
    if (w) BuildFilterTables(w, n, &t);
    return t;
}

// The sum over the taps written out: field d (table d / 3, field d % 3) of
// the pixels at distance d on both sides, edge pixels repeated; then the
// bias, the division by 4 and the clamp.
Words plainSum(const Words& in, const FilterTables& t) {
    const int count = static_cast<int>(in.size());
    Words out(in.size());
    for (int i = 0; i < count * 4; ++i) {
        const int k = 8 * (i % 4);
        int s = -t.bias;
        for (int d = 0; d < 3 * t.groups; ++d) {
            for (int at : {i / 4 - d, i / 4 + d}) {
                const uint32_t v = in[std::clamp(at, 0, count - 1)] >> k & 0xFF;
                s += static_cast<int>(t.T[d / 3][v] >> (10 * (d % 3)) & 0x3FF);
            }
        }
        out[i / 4] |= static_cast<uint32_t>(std::clamp(s >> 2, 0, 255)) << k;
    }
    return out;
}

// Rows, then columns, through the plain sum; pictures packed.
Words plainPicture(const Words& in, int w, int h, const FilterTables& t) {
    Words mid(in.size()), out(in.size()), col(h);
    for (int y = 0; y < h; ++y) {
        const Words row = plainSum(Words(in.begin() + y * w, in.begin() + (y + 1) * w), t);
        std::copy(row.begin(), row.end(), mid.begin() + y * w);
    }
    for (int x = 0; x < w; ++x) {
        for (int y = 0; y < h; ++y) col[y] = mid[y * w + x];
        const Words f = plainSum(col, t);
        for (int y = 0; y < h; ++y) out[y * w + x] = f[y];
    }
    return out;
}

Words filterLine(const Words& in, int32_t code) {
    const FilterTables t = tablesFor(code);
    Words out(in.size(), 0xDEADBEEFu);
    FilterLine(in.data(), static_cast<int32_t>(in.size()), 1, &t, out.data());
    return out;
}

// The byte a flat 6 x 5 picture of byte value v (in all four bytes) becomes.
uint32_t flat(int32_t code, uint32_t v) {
    Words src(6 * 5, v * 0x01010101u), dst(6 * 5, 0);
    EXPECT_TRUE(ApplyFilterCode(dst.data(), src.data(), 6 * 4, 6, 5, code));
    EXPECT_EQ(dst, Words(6 * 5, (dst[0] & 0xFF) * 0x01010101u)) << code << " " << v;
    return dst[0] & 0xFF;
}

Words randomWords(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    Words v(n);
    for (auto& x : v) x = rng();
    return v;
}

// n stored weights (the last digit), so 3 to 17 taps in 1 to 3 tables.
TEST(Filter, CatalogueKernelSizes) {
    for (int32_t code : kCodes) {
        int n = 0;
        ASSERT_NE(FilterKernel(code, &n), nullptr) << code;
        EXPECT_EQ(n, code % 100);
        EXPECT_EQ(tablesFor(code).groups, (n + 2) / 3) << code;
    }
    EXPECT_EQ(tablesFor(102).bias, 0);
    EXPECT_EQ(tablesFor(203).bias, 2 * (128 + 128));  // trunc(0.125 * 1024) on both outer taps
}

// Every product is rounded up on its own and each table adds its +2, so flat
// pictures do not always come back unchanged.
TEST(Filter, FlatPictures) {
    for (uint32_t v = 0; v < 256; ++v) {
        EXPECT_EQ(flat(102, v), v);
        EXPECT_EQ(flat(202, v), v);
        // Code 103, row pass: exactly 2, 7, 12, ... 252 go up by one.
        EXPECT_EQ(filterLine(Words(9, v * 0x01010101u), 103)[4] & 0xFF, v % 5 == 2 ? v + 1 : v);
    }
    EXPECT_EQ(flat(103, 2), 3u);
    EXPECT_EQ(filterLine(Words(20, 0), 104)[10], 0x01010101u);
    EXPECT_EQ(flat(104, 0), 2u);
    EXPECT_EQ(filterLine(Words(20, 0x64646464u), 104)[10], 0x65656565u);
    EXPECT_EQ(flat(104, 100), 102u);
    EXPECT_EQ(flat(109, 100), 103u);
    EXPECT_EQ(flat(109, 2), 1u);
    for (int32_t code : kCodes) EXPECT_EQ(flat(code, 255), 255u) << code;
}

// The step row (all four bytes, alpha included, step alike) through the row
// pass, and as a one-row picture whose column pass sees single pixels.
TEST(Filter, StepRows) {
    const Words step = {0, 0, 0, 0, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};
    const Words blurred = {0, 0, 0, 0x55555555, 0xAAAAAAAA, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};
    EXPECT_EQ(filterLine(step, 102), blurred);
    EXPECT_EQ(filterLine(step, 203), step);  // the overshoot is clamped at both ends
    Words dst(8);
    ASSERT_TRUE(ApplyFilterCode(dst.data(), step.data(), 8 * 4, 8, 1, 102));
    EXPECT_EQ(dst, blurred);
}

TEST(Filter, Warnings) {
    Words src = randomWords(7 * 3, 1), dst(7 * 3);
    testing::internal::CaptureStderr();
    for (int32_t code : kCodes) ApplyFilterCode(dst.data(), src.data(), 7 * 4, 7, 3, code);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    // Centre halved to 1.0, plus 0.5: the first group overflows; the second
    // (-0.25 and two missing weights) does not. The filter still runs.
    const float big[] = {2.0f, 0.5f, 0.0f, -0.25f};
    const FilterImage in{7, 3, 7 * 4, src.data()}, out{7, 3, 7 * 4, dst.data()};
    testing::internal::CaptureStderr();
    EXPECT_TRUE(FilterPicture(&in, big, 4, &out));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Warning: filter sum != 1 (=2.500000)\n|1.000000|+|0.500000|+|0.000000| > 1\n");
    // Exactly 1 in a group and a sum within 0.001 of 1: silent.
    const float edge[] = {1.0f, 0.0005f, -0.0005f, 0.0f};
    testing::internal::CaptureStderr();
    EXPECT_TRUE(FilterPicture(&in, edge, 4, &out));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// Unknown codes, empty or overlapping pictures and kernels of no or more than
// nine weights leave the destination untouched.
TEST(Filter, NothingToFilter) {
    const Words src = randomWords(16, 3);
    Words dst(16, 7);
    for (int32_t code : {0, 100, 101, 110, 201, 210, 302, -102, 1102}) {
        EXPECT_FALSE(ApplyFilterCode(dst.data(), src.data(), 16, 4, 4, code)) << code;
    }
    EXPECT_FALSE(ApplyFilterCode(dst.data(), src.data(), 16, 0, 4, 102));
    EXPECT_FALSE(ApplyFilterCode(dst.data(), src.data(), 12, 4, 4, 102));  // rows overlap
    EXPECT_FALSE(ApplyFilterCode(dst.data(), src.data(), 18, 4, 3, 102));  // not whole pixels
    const float ten[10] = {0.1f, 0.05f, 0.05f, 0.05f, 0.05f, 0.05f, 0.05f, 0.05f, 0.05f, 0.05f};
    const FilterImage in{4, 4, 16, const_cast<uint32_t*>(src.data())}, out{4, 4, 16, dst.data()};
    EXPECT_FALSE(FilterPicture(&in, ten, 0, &out));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(FilterPicture(&in, ten, 10, &out));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(dst, Words(16, 7));
}

// The running accumulators give the plain sum for every code: on short lines
// and lines beyond the local working line, on pictures one pixel wide (the
// row pass then sees a flat line) or with a long side, in place too, and on
// pictures wider than one column band (4096 pixels), which are filtered in
// two passes band by band rather than in one pass over a ring of rows.
// Code 208's outer weight gives a field of -1 for the byte 255 (-57 + 56),
// which borrows from the next field: the running sums are then the rule and
// the plain sum is not, so its inputs keep every byte within 100-138.
TEST(Filter, RunningSumsEqualThePlainSum) {
    uint32_t seed = 10;
    for (int32_t code : kCodes) {
        const FilterTables t = tablesFor(code);
        auto input = [&](size_t n) {
            Words v = randomWords(n, ++seed);
            if (code == 208) {
                for (auto& x : v) x = 0x64646464u + (x & 0x1F1F1F1Fu) + (x >> 3 & 0x07070707u);
            }
            return v;
        };
        for (size_t count : {1u, 2u, 3u, 5u, 9u, 17u, 333u, 2033u, 2039u, 2045u, 4097u}) {
            const Words in = input(count);
            EXPECT_EQ(filterLine(in, code), plainSum(in, t)) << code << " count " << count;
        }
        for (const auto& [w, h] : {std::pair{13, 9}, std::pair{1, 23}, std::pair{2100, 2},
                                   std::pair{2, 2100}, std::pair{4100, 3}}) {
            const Words in = input(w * h);
            Words dst(in.size()), same = in;
            ASSERT_TRUE(ApplyFilterCode(dst.data(), in.data(), w * 4, w, h, code));
            EXPECT_EQ(dst, plainPicture(in, w, h, t)) << code << " " << w << "x" << h;
            ASSERT_TRUE(ApplyFilterCode(same.data(), same.data(), w * 4, w, h, code));
            EXPECT_EQ(same, dst) << code;
        }
    }
}

}  // namespace
