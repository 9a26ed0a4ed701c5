// The companion scaling library, called directly through its exported
// Resizer: coverage of strided rectangles, flat sources, exact copies,
// conversion, the composite, empty calls and the look of real rescales.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "host/host.h"
#include "pixel/color.h"
#include "pixel/resizer.h"

namespace {

constexpr uint32_t kArgb = kFourccArgb;
constexpr uint32_t kAyuv = kFourccAyuv;

// A rectangle inside a larger buffer: `margin` guard words on every side and
// `pad` more at the end of each row, so the stride exceeds the width and
// anything written around the rectangle shows.
struct Frame {
    int32_t width, height, margin, pitch;
    std::vector<uint32_t> words;

    Frame(int32_t w, int32_t h, int32_t m = 0, int32_t pad = 0, uint32_t guard = 0)
        : width(w),
          height(h),
          margin(m),
          pitch(w + 2 * m + pad),
          words(static_cast<size_t>(pitch) * static_cast<size_t>(h + 2 * m), guard) {}
    uint32_t* origin() { return words.data() + static_cast<size_t>(margin) * pitch + margin; }
    int32_t stride() const { return pitch * 4; }
    uint32_t& at(int32_t x, int32_t y) { return origin()[static_cast<size_t>(y) * pitch + x]; }
    void fill(uint32_t value) {
        for (int32_t y = 0; y < height; ++y) std::fill_n(&at(0, y), width, value);
    }
    std::vector<uint32_t> pixels() {
        std::vector<uint32_t> out;
        for (int32_t y = 0; y < height; ++y) out.insert(out.end(), &at(0, y), &at(0, y) + width);
        return out;
    }
    // Every word outside the rectangle (guard and row padding) equals `guard`.
    ::testing::AssertionResult guardIntact(uint32_t guard) const {
        for (size_t i = 0; i < words.size(); ++i) {
            const int32_t x = int32_t(i % pitch) - margin, y = int32_t(i / pitch) - margin;
            if ((x < 0 || x >= width || y < 0 || y >= height) && words[i] != guard) {
                return ::testing::AssertionFailure() << "guard word " << i << " changed";
            }
        }
        return ::testing::AssertionSuccess();
    }
};

int32_t resize(uint32_t flags, uint32_t srcFormat, Frame& src, uint32_t dstFormat, Frame& dst,
               int32_t mode) {
    return Resizer(flags, srcFormat, src.origin(), src.stride(), src.width, src.height, dstFormat,
                   dst.origin(), dst.stride(), dst.width, dst.height, 0, mode);
}

Frame fromPicture(const reelfx::Picture& p, int32_t margin = 0, int32_t pad = 0,
                  uint32_t guard = 0) {
    Frame f(p.width, p.height, margin, pad, guard);
    for (int32_t y = 0; y < p.height; ++y) std::copy_n(p.row(y), p.width, &f.at(0, y));
    return f;
}

struct FormatPair {
    uint32_t src, dst;
};
constexpr FormatPair kPairs[] = {{kArgb, kArgb}, {kAyuv, kAyuv}, {kArgb, kAyuv}};

int channel(uint32_t p, int k) { return static_cast<int>((p >> (8 * k)) & 0xFF); }

// The whole strided destination is written and nothing around it; only the
// source rectangle is read (another guard around it and other old
// destination content give the same pixels).
TEST(ResizerCoverage, WritesExactlyTheDestinationAndReadsOnlyTheSource) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int32_t> size(1, 90);
    for (int round = 0; round < 40; ++round) {
        const FormatPair pair = kPairs[round % 3];
        const reelfx::Picture picture = reelfx::makeTestPicture(size(rng), size(rng));
        const int32_t dw = size(rng), dh = size(rng), mode = round % 2;
        SCOPED_TRACE(::testing::Message() << picture.width << "x" << picture.height << " -> " << dw
                                          << "x" << dh << " mode " << mode);
        Frame src = fromPicture(picture, 3, 5, 0x00000000);
        Frame first(dw, dh, 2, 3, 0xA5A5A5A5);
        first.fill(0x11111111);
        resize(0, pair.src, src, pair.dst, first, mode);
        EXPECT_TRUE(first.guardIntact(0xA5A5A5A5));
        Frame poisoned = fromPicture(picture, 3, 5, 0xFFFFFFFF);
        Frame second(dw, dh, 2, 3, 0x5A5A5A5A);
        second.fill(0xEEEEEEEE);
        resize(0, pair.src, poisoned, pair.dst, second, mode);
        EXPECT_TRUE(second.guardIntact(0x5A5A5A5A));
        EXPECT_EQ(first.pixels(), second.pixels());
    }
}

// A flat source stays exactly flat at any size, in both modes, with and
// without conversion, down to 20000 -> 3. A colour that is flat under a
// varying alpha goes through the real filters and must stay flat too.
TEST(ResizerUniform, FlatSourceStaysExactlyFlatAtAnySize) {
    std::mt19937 rng(11);
    std::uniform_int_distribution<int32_t> small(1, 24), large(1, 260), huge(200, 900);
    std::uniform_int_distribution<uint32_t> word;
    for (int round = 0; round < 240; ++round) {
        const FormatPair pair = kPairs[round % 3];
        const int32_t mode = (round / 3) % 2;
        const int kind = (round / 6) % 3;  // enlarge, either way, reduce a lot
        const int32_t sw = kind == 0 ? small(rng) : (kind == 1 ? large(rng) : huge(rng));
        const int32_t sh = kind == 1 ? large(rng) : small(rng);
        const int32_t dw = kind == 2 ? small(rng) : large(rng), dh = large(rng);
        const uint32_t value = word(rng);
        const uint32_t want = pair.dst != pair.src ? argbToAyuv(value) : value;
        SCOPED_TRACE(::testing::Message() << sw << "x" << sh << " -> " << dw << "x" << dh
                                          << " mode " << mode << " value " << std::hex << value);
        Frame flat(sw, sh, 2, 1, ~value);
        flat.fill(value);
        Frame dst(dw, dh, 1, 2, 0xA5A5A5A5);
        resize(0, pair.src, flat, pair.dst, dst, mode);
        for (uint32_t p : dst.pixels()) ASSERT_EQ(p, want);

        for (int32_t y = 0; y < sh; ++y) {
            for (int32_t x = 0; x < sw; ++x) flat.at(x, y) = (value & 0xFFFFFF) | word(rng) << 24;
        }
        resize(0, pair.src, flat, pair.dst, dst, mode);
        for (uint32_t p : dst.pixels()) ASSERT_EQ(p & 0xFFFFFF, want & 0xFFFFFF);
        EXPECT_TRUE(dst.guardIntact(0xA5A5A5A5));
    }
    Frame wide(20000, 1), dst(3, 2);
    for (int32_t x = 0; x < 20000; ++x) wide.at(x, 0) = 0x00336699u | (x * 37u & 0xFF) << 24;
    for (int32_t mode : {0, 1}) {
        resize(0, kArgb, wide, kArgb, dst, mode);
        for (uint32_t p : dst.pixels()) EXPECT_EQ(p & 0xFFFFFF, 0x336699u);
    }
}

// Equal sizes and formats copy all four bytes in either mode; with only the
// formats differing each pixel is the conversion of its source pixel alone
// (the 2 x 2 block whose first pixel alone is set reads back right).
TEST(ResizerCopy, EqualSizesCopyOrConvertEachPixelAlone) {
    const reelfx::Picture picture = reelfx::makeTestPicture(61, 37);
    for (uint32_t format : {kArgb, kAyuv}) {
        for (int32_t mode : {0, 1}) {
            Frame src = fromPicture(picture, 1, 3, 0);
            Frame dst(61, 37, 2, 1, 0xA5A5A5A5);
            resize(0, format, src, format, dst, mode);
            EXPECT_EQ(dst.pixels(), src.pixels());
            EXPECT_TRUE(dst.guardIntact(0xA5A5A5A5));
            resize(0, kArgb, src, kAyuv, dst, mode);
            for (int32_t y = 0; y < 37; ++y) {
                for (int32_t x = 0; x < 61; ++x) {
                    ASSERT_EQ(dst.at(x, y), argbToAyuv(picture.at(x, y)));
                }
            }
        }
    }
    const uint32_t block[4] = {0x80E5CC99, 0xDEADBEEF, 0x00000000, 0xFFFFFFFF};
    uint32_t out[4] = {};
    Resizer(0, kArgb, block, 8, 2, 2, kAyuv, out, 8, 2, 2, 0, 0);
    EXPECT_EQ(out[0], 0x80C0668Eu);
}

// ARGB colour blocks fill a 720 x 576 AYUV picture with their conversion,
// alpha carried, up to the last row and column.
TEST(ResizerConvert, ColourBlocksFillAyuvPictures) {
    const std::pair<uint32_t, uint32_t> cases[] = {{0xFF000000, 0xFF108080},
                                                   {0xFFFFFFFF, 0xFFEB8080},
                                                   {0x00000000, 0x00108080},
                                                   {0x7F00FF00, 0x7F903623}};
    for (const auto& [argb, ayuv] : cases) {
        const std::vector<uint32_t> block(8, argb);
        Frame dst(720, 576, 1, 4, 0xA5A5A5A5);
        Resizer(0, kArgb, block.data(), 16, 4, 2, kAyuv, dst.origin(), dst.stride(), 720, 576, 0,
                0);
        for (uint32_t p : dst.pixels()) ASSERT_EQ(p, ayuv) << std::hex << argb;
        EXPECT_TRUE(dst.guardIntact(0xA5A5A5A5));
    }
}

// Alpha 0 leaves the destination as it was, 255 replaces its colour
// channels, values in between mix in proportion; the destination keeps its
// alpha and nothing beside the rectangle is touched.
TEST(ResizerBlend, AlphaZeroKeepsFullReplacesAndBetweenMixes) {
    const reelfx::Picture picture = reelfx::makeTestPicture(64, 48);
    for (uint32_t format : {kArgb, kAyuv}) {
        const reelfx::Picture base = format == kAyuv ? reelfx::toAyuv(picture) : picture;
        Frame dst = fromPicture(base, 1, 2, 0xA5A5A5A5);
        const std::vector<uint32_t> transparent(8, 0x00204060), opaque(8, 0xFF204060);
        Resizer(kResizerBlend, format, transparent.data(), 16, 4, 2, format, dst.origin(),
                dst.stride(), 64, 48, 0, 0);
        EXPECT_EQ(dst.pixels(), fromPicture(base).pixels());
        Resizer(kResizerBlend, format, opaque.data(), 16, 4, 2, format, dst.origin(), dst.stride(),
                64, 48, 0, 0);
        const std::vector<uint32_t> mixed = dst.pixels();
        for (int32_t i = 0; i < 64 * 48; ++i) {
            ASSERT_EQ(mixed[i], (base.words[i] & 0xFF000000) | 0x204060) << i;
        }
        EXPECT_TRUE(dst.guardIntact(0xA5A5A5A5));
    }
    for (uint32_t a : {1u, 64u, 128u, 200u, 254u}) {
        const std::vector<uint32_t> white(4, a << 24 | 0xFFFFFF);
        uint32_t under[2] = {0x33000000, 0x12345678};
        Resizer(kResizerBlend, kArgb, white.data(), 8, 2, 2, kArgb, under, 8, 1, 1, 0, 0);
        EXPECT_EQ(under[0], 0x33000000u | a * 0x010101u) << a;
        EXPECT_EQ(under[1], 0x12345678u);
    }
}

// Empty destinations and refused calls write nothing.
TEST(ResizerDegenerate, EmptyOrInvalidCallsWriteNothing) {
    const std::vector<uint32_t> block(8, 0xFF000000);
    Frame dst(6, 5, 2, 1, 0xA5A5A5A5);
    dst.fill(0xA5A5A5A5);
    const int32_t sizes[][4] = {{4, 2, 0, 5}, {4, 2, 6, 0},  {4, 2, -6, 5},
                                {0, 2, 6, 5}, {4, -2, 6, 5}, {4, 2, INT32_MIN, 5}};
    for (const auto& s : sizes) {
        for (uint32_t flags : {0u, kResizerBlend}) {
            Resizer(flags, kArgb, block.data(), 16, s[0], s[1], kAyuv, dst.origin(), dst.stride(),
                    s[2], s[3], 0, 1);
        }
    }
    Resizer(0, kArgb, nullptr, 16, 4, 2, kArgb, dst.origin(), dst.stride(), 6, 5, 0, 0);
    EXPECT_EQ(Resizer(0, kArgb, block.data(), 16, 4, 2, kArgb, nullptr, 24, 6, 5, 0, 0), -1);
    EXPECT_TRUE(dst.guardIntact(0xA5A5A5A5));
    for (uint32_t p : dst.pixels()) EXPECT_EQ(p, 0xA5A5A5A5);
}

// A fine checkerboard reduced by resampleMode 1 becomes a nearly flat grey:
// inside within one level of 127.5 (in half-levels), near the corners,
// where the board is clamped both ways, within five.
TEST(ResizerQuality, FineCheckerboardReducedBecomesFlatGrey) {
    const int32_t sizes[][4] = {{300, 300, 100, 100}, {301, 299, 97, 101}, {250, 180, 83, 60}};
    for (const auto& s : sizes) {
        Frame board(s[0], s[1]), dst(s[2], s[3]);
        for (int32_t y = 0; y < s[1]; ++y) {
            for (int32_t x = 0; x < s[0]; ++x) board.at(x, y) = (x + y) & 1 ? ~0u : 0xFF000000;
        }
        resize(0, kArgb, board, kArgb, dst, 1);
        int worst = 0, worstInside = 0;
        for (int32_t y = 0; y < s[3]; ++y) {
            for (int32_t x = 0; x < s[2]; ++x) {
                const int deviation = std::abs(2 * channel(dst.at(x, y), 1) - 255);
                worst = std::max(worst, deviation);
                if (x > 1 && y > 1 && x < s[2] - 2 && y < s[3] - 2) {
                    worstInside = std::max(worstInside, deviation);
                }
            }
        }
        EXPECT_LE(worstInside, 2) << s[0] << "x" << s[1];
        EXPECT_LE(worst, 10) << s[0] << "x" << s[1];
    }
}

// An enlarged ramp stays monotonic from end to end, across and down.
TEST(ResizerQuality, EnlargedRampStaysMonotonic) {
    for (int32_t mode : {0, 1}) {
        Frame ramp(16, 3), wide(203, 2), column(2, 16), tall(1, 150);
        for (int32_t i = 0; i < 48; ++i)
            ramp.at(i % 16, i / 16) = 0xFF000000 | (i % 16 * 17u) * 0x010101;
        for (int32_t i = 0; i < 32; ++i)
            column.at(i % 2, i / 2) = 0xFF000000 | (255 - i / 2 * 17u) << 8;
        resize(0, kArgb, ramp, kArgb, wide, mode);
        resize(0, kArgb, column, kArgb, tall, mode);
        for (int32_t x = 1; x < 203; ++x) {
            for (int k = 0; k < 3; ++k)
                ASSERT_LE(channel(wide.at(x - 1, 0), k), channel(wide.at(x, 0), k));
        }
        EXPECT_LE(channel(wide.at(0, 0), 1), 2);
        EXPECT_GE(channel(wide.at(202, 0), 1), 253);
        for (int32_t y = 1; y < 150; ++y) {
            ASSERT_GE(channel(tall.at(0, y - 1), 1), channel(tall.at(0, y), 1)) << y;
        }
    }
}

}  // namespace
