// The companion scaling library, called directly through its exported
// Resizer: coverage, flat sources, exact copies, conversion, the composite,
// degenerate calls and the look of real rescales.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
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
// `pad` more at the end of each row, so the rectangle's stride exceeds its
// width and anything written or read around it can be detected.
struct Frame {
    int32_t width = 0;
    int32_t height = 0;
    int32_t margin = 0;
    int32_t pitch = 0;  // words
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
    bool inside(size_t word) const {
        const int32_t x = static_cast<int32_t>(word % pitch) - margin;
        const int32_t y = static_cast<int32_t>(word / pitch) - margin;
        return x >= 0 && x < width && y >= 0 && y < height;
    }
    void fill(uint32_t value) {
        for (int32_t y = 0; y < height; ++y)
            for (int32_t x = 0; x < width; ++x) at(x, y) = value;
    }
    // Every word outside the rectangle (guard and row padding) equals `guard`.
    ::testing::AssertionResult guardIntact(uint32_t guard) const {
        for (size_t i = 0; i < words.size(); ++i) {
            if (!inside(i) && words[i] != guard) {
                return ::testing::AssertionFailure() << "guard word " << i << " changed";
            }
        }
        return ::testing::AssertionSuccess();
    }
    std::vector<uint32_t> pixels() {
        std::vector<uint32_t> out;
        for (int32_t y = 0; y < height; ++y)
            for (int32_t x = 0; x < width; ++x) out.push_back(at(x, y));
        return out;
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
    for (int32_t y = 0; y < p.height; ++y)
        for (int32_t x = 0; x < p.width; ++x) f.at(x, y) = p.at(x, y);
    return f;
}

struct FormatPair {
    uint32_t src;
    uint32_t dst;
};
constexpr FormatPair kPairs[] = {{kArgb, kArgb}, {kAyuv, kAyuv}, {kArgb, kAyuv}};

uint32_t converted(uint32_t p, FormatPair pair) {
    return pair.src == kArgb && pair.dst == kAyuv ? argbToAyuv(p) : p;
}

uint64_t digest(const std::vector<uint32_t>& words) {
    uint64_t h = 1469598103934665603ull;
    for (uint32_t w : words) {
        for (int k = 0; k < 4; ++k) {
            h ^= (w >> (8 * k)) & 0xFF;
            h *= 1099511628211ull;
        }
    }
    return h;
}

int channel(uint32_t p, int k) {
    return static_cast<int>((p >> (8 * k)) & 0xFF);
}

// ---------------------------------------------------------------------------

TEST(ResizerLibrary, ExportsResizerButNotTheSharedColourCode) {
    void* handle = dlopen(REELFX_RESIZER_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    EXPECT_NE(dlsym(handle, "Resizer"), nullptr);
    EXPECT_EQ(dlsym(handle, "_Z10argbToAyuvj"), nullptr);
    EXPECT_EQ(dlsym(handle, "_Z8mixPixeljjd"), nullptr);
    dlclose(handle);
}

// The destination rectangle is written in full, and neither the guard around
// it nor the row padding; the guard around the source never influences the
// result.
TEST(ResizerCoverage, WritesExactlyTheStridedDestinationAndReadsOnlyTheSource) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int32_t> size(1, 90);
    for (int round = 0; round < 60; ++round) {
        const FormatPair pair = kPairs[round % 3];
        const int32_t mode = round % 2;
        const reelfx::Picture picture = reelfx::makeTestPicture(size(rng), size(rng));
        const int32_t dw = size(rng);
        const int32_t dh = size(rng);
        SCOPED_TRACE(::testing::Message() << picture.width << "x" << picture.height << " -> " << dw
                                          << "x" << dh << " mode " << mode);

        Frame src = fromPicture(picture, 3, 5, 0x00000000);
        Frame first(dw, dh, 2, 3, 0xA5A5A5A5);
        first.fill(0x11111111);
        resize(0, pair.src, src, pair.dst, first, mode);
        EXPECT_TRUE(first.guardIntact(0xA5A5A5A5));

        // Different guard around the source, different old destination
        // content: the same result, so every destination pixel was written
        // and no guard pixel took part.
        Frame poisoned = fromPicture(picture, 3, 5, 0xFFFFFFFF);
        Frame second(dw, dh, 2, 3, 0x5A5A5A5A);
        second.fill(0xEEEEEEEE);
        resize(0, pair.src, poisoned, pair.dst, second, mode);
        EXPECT_TRUE(second.guardIntact(0x5A5A5A5A));
        EXPECT_EQ(first.pixels(), second.pixels());

        // A tightly packed source with nothing around it (checked by the
        // sanitizer build) and a tightly packed destination give the same.
        Frame tight = fromPicture(picture);
        Frame third(dw, dh);
        resize(0, pair.src, tight, pair.dst, third, mode);
        EXPECT_EQ(first.pixels(), third.pixels());

        // The same rows stored bottom-up and walked with a negative stride.
        Frame flipped(picture.width, picture.height);
        for (int32_t y = 0; y < picture.height; ++y)
            for (int32_t x = 0; x < picture.width; ++x)
                flipped.at(x, picture.height - 1 - y) = picture.at(x, y);
        Frame fourth(dw, dh);
        Resizer(0, pair.src, &flipped.at(0, picture.height - 1), -flipped.stride(), picture.width,
                picture.height, pair.dst, fourth.origin(), fourth.stride(), dw, dh, 0, mode);
        EXPECT_EQ(first.pixels(), fourth.pixels());
    }
}

// A flat source stays exactly flat over many sizes (enlarged, reduced, both),
// both modes, with and without conversion. A source whose colour is flat but
// whose alpha varies goes through the real filters: its colour channels must
// stay exactly flat as well.
TEST(ResizerUniform, FlatSourceStaysExactlyFlatAtAnySize) {
    std::mt19937 rng(11);
    std::uniform_int_distribution<int32_t> small(1, 24);
    std::uniform_int_distribution<int32_t> large(1, 260);
    std::uniform_int_distribution<int32_t> huge(200, 900);
    std::uniform_int_distribution<uint32_t> word;
    for (int round = 0; round < 240; ++round) {
        const FormatPair pair = kPairs[round % 3];
        const int32_t mode = (round / 3) % 2;
        const int kind = (round / 6) % 3;  // enlarge, either way, reduce a lot
        const int32_t sw = kind == 0 ? small(rng) : (kind == 1 ? large(rng) : huge(rng));
        const int32_t sh = kind == 0 ? small(rng) : (kind == 1 ? large(rng) : small(rng));
        const int32_t dw = kind == 2 ? small(rng) : large(rng);
        const int32_t dh = large(rng);
        const uint32_t value = word(rng);
        const uint32_t expected = converted(value, pair);
        SCOPED_TRACE(::testing::Message() << sw << "x" << sh << " -> " << dw << "x" << dh
                                          << " mode " << mode << " value " << std::hex << value);

        Frame flat(sw, sh, 2, 1, ~value);
        flat.fill(value);
        Frame dst(dw, dh, 1, 2, 0xA5A5A5A5);
        resize(0, pair.src, flat, pair.dst, dst, mode);
        for (uint32_t p : dst.pixels()) ASSERT_EQ(p, expected);

        if (sw * sh < 2) continue;
        Frame varying(sw, sh, 2, 1, ~value);
        for (int32_t y = 0; y < sh; ++y)
            for (int32_t x = 0; x < sw; ++x)
                varying.at(x, y) = (value & 0xFFFFFF) | word(rng) << 24;
        varying.at(0, 0) = (value & 0xFFFFFF) | ((value >> 24) ^ 0x80) << 24;  // never uniform
        resize(0, pair.src, varying, pair.dst, dst, mode);
        for (uint32_t p : dst.pixels()) ASSERT_EQ(p & 0xFFFFFF, expected & 0xFFFFFF);
        EXPECT_TRUE(dst.guardIntact(0xA5A5A5A5));
    }
}

TEST(ResizerUniform, ExtremeReductionStaysFlat) {
    Frame wide(20000, 1);
    for (int32_t x = 0; x < wide.width; ++x) wide.at(x, 0) = 0x00336699u | (x * 37u & 0xFF) << 24;
    for (int32_t mode : {0, 1}) {
        Frame dst(3, 2);
        resize(0, kArgb, wide, kArgb, dst, mode);
        for (uint32_t p : dst.pixels()) EXPECT_EQ(p & 0xFFFFFF, 0x336699u);
    }
}

// Scaling along one axis leaves the other untouched: a picture whose columns
// are each flat scales vertically into the same columns, exactly.
TEST(ResizerUniform, ScalingOneAxisKeepsTheOtherExact) {
    const reelfx::Picture picture = reelfx::makeTestPicture(53, 40);
    for (int32_t mode : {0, 1}) {
        Frame columns(53, 17);
        for (int32_t y = 0; y < 17; ++y)
            for (int32_t x = 0; x < 53; ++x) columns.at(x, y) = picture.at(x, 25);
        Frame tall(53, 71);
        resize(0, kArgb, columns, kArgb, tall, mode);
        for (int32_t y = 0; y < 71; ++y)
            for (int32_t x = 0; x < 53; ++x) ASSERT_EQ(tall.at(x, y), picture.at(x, 25));

        Frame rows(9, 40);
        for (int32_t y = 0; y < 40; ++y)
            for (int32_t x = 0; x < 9; ++x) rows.at(x, y) = picture.at(3, y);
        Frame narrow(4, 40);
        resize(0, kAyuv, rows, kAyuv, narrow, mode);
        for (int32_t y = 0; y < 40; ++y)
            for (int32_t x = 0; x < 4; ++x) ASSERT_EQ(narrow.at(x, y), picture.at(3, y));
    }
}

// Same size and format: a copy of all four bytes, whatever the mode.
TEST(ResizerCopy, EqualSizesCopyBitForBit) {
    const reelfx::Picture picture = reelfx::makeTestPicture(61, 37);
    for (uint32_t format : {kArgb, kAyuv}) {
        for (int32_t mode : {0, 1}) {
            Frame src = fromPicture(picture, 1, 3, 0);
            Frame dst(61, 37, 2, 1, 0xA5A5A5A5);
            resize(0, format, src, format, dst, mode);
            EXPECT_EQ(dst.pixels(), src.pixels());
            EXPECT_TRUE(dst.guardIntact(0xA5A5A5A5));
        }
    }
}

TEST(ResizerCopy, EqualSizesWithConversionConvertEachPixelAlone) {
    const reelfx::Picture picture = reelfx::makeTestPicture(29, 13);
    Frame src = fromPicture(picture);
    Frame dst(29, 13, 1, 2, 0);
    resize(0, kArgb, src, kAyuv, dst, 1);
    for (int32_t y = 0; y < 13; ++y)
        for (int32_t x = 0; x < 29; ++x) ASSERT_EQ(dst.at(x, y), argbToAyuv(picture.at(x, y)));

    // The 2 x 2 block with only its first pixel set: that pixel's conversion
    // is not disturbed by whatever the other three hold.
    const uint32_t block[4] = {0x80E5CC99, 0xDEADBEEF, 0x00000000, 0xFFFFFFFF};
    uint32_t out[4] = {};
    Resizer(0, kArgb, block, 8, 2, 2, kAyuv, out, 8, 2, 2, 0, 0);
    EXPECT_EQ(out[0], 0x80C0668Eu);
    EXPECT_EQ(out[1], argbToAyuv(0xDEADBEEF));
}

// ARGB colour blocks become AYUV pictures of their conversion, alpha carried.
TEST(ResizerConvert, ColourBlocksFillAyuvPictures) {
    const struct {
        uint32_t argb;
        uint32_t ayuv;
    } cases[] = {{0xFF000000, 0xFF108080},
                 {0xFFFFFFFF, 0xFFEB8080},
                 {0x00000000, 0x00108080},
                 {0xFFE5CC99, 0xFFC0668E},
                 {0x7F00FF00, 0x7F903623}};
    for (const auto& c : cases) {
        const uint32_t block[8] = {c.argb, c.argb, c.argb, c.argb, c.argb, c.argb, c.argb, c.argb};
        Frame dst(720, 576, 1, 4, 0xA5A5A5A5);
        Resizer(0, kArgb, block, 16, 4, 2, kAyuv, dst.origin(), dst.stride(), 720, 576, 0, 0);
        for (uint32_t p : dst.pixels()) ASSERT_EQ(p, c.ayuv) << std::hex << c.argb;
        EXPECT_EQ(dst.at(719, 575), c.ayuv);
        EXPECT_TRUE(dst.guardIntact(0xA5A5A5A5));
    }
}

// Conversion happens before filtering: scaling an ARGB picture into AYUV
// equals scaling its AYUV conversion.
TEST(ResizerConvert, ScalingWithConversionEqualsScalingTheConvertedPicture) {
    const reelfx::Picture picture = reelfx::makeTestPicture(47, 31);
    for (int32_t mode : {0, 1}) {
        Frame argb = fromPicture(picture);
        Frame ayuv = fromPicture(reelfx::toAyuv(picture));
        Frame viaConversion(80, 20);
        Frame direct(80, 20);
        resize(0, kArgb, argb, kAyuv, viaConversion, mode);
        resize(0, kAyuv, ayuv, kAyuv, direct, mode);
        EXPECT_EQ(viaConversion.pixels(), direct.pixels());
    }
}

// The pairs and flags the module never passes: only ARGB -> AYUV converts,
// every other pair moves words unchanged; only the blend bit counts.
TEST(ResizerConvert, OtherFormatPairsAndFlagBits) {
    const reelfx::Picture picture = reelfx::makeTestPicture(17, 9);
    Frame src = fromPicture(picture);
    for (FormatPair pair :
         {FormatPair{kAyuv, kArgb}, FormatPair{0, kAyuv}, FormatPair{kArgb, 0x12345678}}) {
        Frame dst(17, 9);
        resize(0, pair.src, src, pair.dst, dst, 0);
        EXPECT_EQ(dst.pixels(), src.pixels());
    }

    Frame plain(17, 9);
    resize(0x1 | 0x200 | 0x80000000u, kArgb, src, kArgb, plain, 0);
    EXPECT_EQ(plain.pixels(), src.pixels());

    Frame blended(17, 9);
    blended.fill(0xFF000000);
    Frame reference(17, 9);
    reference.fill(0xFF000000);
    resize(0x301 | 0x80000000u, kArgb, src, kArgb, blended, 0);
    resize(kResizerBlend, kArgb, src, kArgb, reference, 0);
    EXPECT_EQ(blended.pixels(), reference.pixels());
    EXPECT_NE(blended.pixels(), plain.pixels());
}

// The composite, with its rounding: each colour channel becomes
// (s * a + d * (255 - a) + 127) / 255; the destination keeps its alpha.
TEST(ResizerBlend, AlphaZeroKeepsFullReplacesAndBetweenMixes) {
    const reelfx::Picture picture = reelfx::makeTestPicture(64, 48);
    for (uint32_t format : {kArgb, kAyuv}) {
        const reelfx::Picture base = format == kAyuv ? reelfx::toAyuv(picture) : picture;
        const uint32_t colour = 0x00204060;
        const uint32_t transparent[8] = {colour, colour, colour, colour,
                                         colour, colour, colour, colour};
        Frame dst = fromPicture(base, 1, 2, 0xA5A5A5A5);
        Resizer(kResizerBlend, format, transparent, 16, 4, 2, format, dst.origin(), dst.stride(),
                64, 48, 0, 0);
        EXPECT_EQ(dst.pixels(), fromPicture(base).pixels());

        const uint32_t opaque[8] = {0xFF204060, 0xFF204060, 0xFF204060, 0xFF204060,
                                    0xFF204060, 0xFF204060, 0xFF204060, 0xFF204060};
        Resizer(kResizerBlend, format, opaque, 16, 4, 2, format, dst.origin(), dst.stride(), 64, 48,
                0, 0);
        for (int32_t y = 0; y < 48; ++y) {
            for (int32_t x = 0; x < 64; ++x) {
                ASSERT_EQ(dst.at(x, y), (base.at(x, y) & 0xFF000000) | 0x204060);
            }
        }
        EXPECT_TRUE(dst.guardIntact(0xA5A5A5A5));
    }

    // Alpha 128 over red 0, green 100, blue 255: 128.49 gives 128, 50.3
    // gives 50, 255.5 gives 255; the pixel beside it is not touched.
    const uint32_t half[4] = {0x80FF00FF, 0x80FF00FF, 0x80FF00FF, 0x80FF00FF};
    uint32_t under[2] = {0x40000000 | 100 << 8 | 255, 0x12345678};
    Resizer(kResizerBlend, kArgb, half, 8, 2, 2, kArgb, under, 4, 1, 1, 0, 0);
    EXPECT_EQ(under[0], 0x40000000u | 128u << 16 | 50u << 8 | 255u);
    EXPECT_EQ(under[1], 0x12345678u);
}

TEST(ResizerBlend, MixesInProportionToAlpha) {
    for (uint32_t a = 0; a < 256; ++a) {
        const uint32_t white[4] = {a << 24 | 0xFFFFFF, a << 24 | 0xFFFFFF, a << 24 | 0xFFFFFF,
                                   a << 24 | 0xFFFFFF};
        const uint32_t black[4] = {a << 24, a << 24, a << 24, a << 24};
        uint32_t overBlack[3] = {0xFF000000, 0x33000000, 0x00000000};
        uint32_t overWhite[3] = {0xFFFFFFFF, 0x33FFFFFF, 0x00FFFFFF};
        Resizer(kResizerBlend, kAyuv, white, 8, 2, 2, kAyuv, overBlack, 12, 3, 1, 0, 0);
        Resizer(kResizerBlend, kAyuv, black, 8, 2, 2, kAyuv, overWhite, 12, 3, 1, 0, 0);
        const uint32_t up = a * 0x010101;
        const uint32_t down = (255 - a) * 0x010101;
        EXPECT_EQ(overBlack[0], 0xFF000000 | up);
        EXPECT_EQ(overBlack[1], 0x33000000 | up);
        EXPECT_EQ(overBlack[2], up);
        EXPECT_EQ(overWhite[0], 0xFF000000 | down);
        EXPECT_EQ(overWhite[2], down);
    }
}

// The documented composite of one pixel.
uint32_t composite(uint32_t s, uint32_t d) {
    const uint32_t a = s >> 24;
    uint32_t out = d & 0xFF000000;
    for (int k = 0; k < 3; ++k) {
        const uint32_t sc = (s >> (8 * k)) & 0xFF;
        const uint32_t dc = (d >> (8 * k)) & 0xFF;
        out |= ((sc * a + dc * (255 - a) + 127) / 255) << (8 * k);
    }
    return out;
}

// Each destination pixel mixes by its own (scaled, converted) source pixel's
// alpha: the composite of what the same call without the blend flag writes.
TEST(ResizerBlend, PerPixelAlphaOverAnyDestination) {
    const reelfx::Picture picture = reelfx::makeTestPicture(40, 24);
    const reelfx::Picture under = reelfx::makeTestPicture(53, 31, 3);
    for (FormatPair pair : kPairs) {
        for (auto [w, h] : {std::pair{40, 24}, std::pair{53, 31}, std::pair{7, 5}}) {
            Frame src = fromPicture(picture);
            Frame plain(w, h);
            resize(0, pair.src, src, pair.dst, plain, 1);
            Frame dst = fromPicture(under, 1, 2, 0xA5A5A5A5);
            dst.width = w;
            dst.height = h;
            resize(kResizerBlend, pair.src, src, pair.dst, dst, 1);
            for (int32_t y = 0; y < h; ++y) {
                for (int32_t x = 0; x < w; ++x) {
                    ASSERT_EQ(dst.at(x, y), composite(plain.at(x, y), under.at(x, y)))
                        << x << "," << y;
                }
            }
        }
    }
}

// Empty destinations and refused calls write nothing.
TEST(ResizerDegenerate, EmptyOrInvalidCallsWriteNothing) {
    const uint32_t block[8] = {0xFF000000, 0xFF000000, 0xFF000000, 0xFF000000,
                               0xFF000000, 0xFF000000, 0xFF000000, 0xFF000000};
    Frame dst(6, 5, 2, 1, 0xA5A5A5A5);
    dst.fill(0xA5A5A5A5);
    const struct {
        int32_t sw, sh, dw, dh;
    } sizes[] = {{4, 2, 0, 5}, {4, 2, 6, 0}, {4, 2, 0, 0},  {4, 2, -6, 5}, {4, 2, 6, -1},
                 {0, 2, 6, 5}, {4, 0, 6, 5}, {-4, 2, 6, 5}, {4, -2, 6, 5}, {4, 2, INT32_MIN, 5}};
    for (const auto& s : sizes) {
        for (uint32_t flags : {0u, kResizerBlend}) {
            Resizer(flags, kArgb, block, 16, s.sw, s.sh, kAyuv, dst.origin(), dst.stride(), s.dw,
                    s.dh, 0, 1);
        }
    }
    Resizer(0, kArgb, nullptr, 16, 4, 2, kArgb, dst.origin(), dst.stride(), 6, 5, 0, 0);
    EXPECT_EQ(Resizer(0, kArgb, block, 16, 4, 2, kArgb, nullptr, 24, 6, 5, 0, 0), -1);
    EXPECT_EQ(Resizer(0, kArgb, block, 16, 4, 2, kArgb, dst.origin(), dst.stride(), 0, 5, 0, 0), 0);
    EXPECT_TRUE(dst.guardIntact(0xA5A5A5A5));
    for (uint32_t p : dst.pixels()) EXPECT_EQ(p, 0xA5A5A5A5);
}

// Picture quality of resampleMode 1.
TEST(ResizerQuality, FineCheckerboardReducedBecomesFlatGrey) {
    const struct {
        int32_t sw, sh, dw, dh;
    } sizes[] = {{300, 300, 100, 100}, {301, 299, 97, 101}, {250, 180, 83, 60}};
    for (const auto& s : sizes) {
        Frame board(s.sw, s.sh);
        for (int32_t y = 0; y < s.sh; ++y)
            for (int32_t x = 0; x < s.sw; ++x)
                board.at(x, y) = ((x + y) & 1) ? 0xFFFFFFFF : 0xFF000000;
        Frame dst(s.dw, s.dh);
        resize(0, kArgb, board, kArgb, dst, 1);
        int worst = 0;
        int worstInside = 0;
        for (int32_t y = 0; y < s.dh; ++y) {
            for (int32_t x = 0; x < s.dw; ++x) {
                const int deviation = std::abs(2 * channel(dst.at(x, y), 1) - 255);
                worst = std::max(worst, deviation);
                if (x > 1 && y > 1 && x < s.dw - 2 && y < s.dh - 2) {
                    worstInside = std::max(worstInside, deviation);
                }
            }
        }
        // In half-levels: inside within one level of 127.5, near the corners
        // (where the board is clamped in both directions) within five.
        EXPECT_LE(worstInside, 2) << s.sw << "x" << s.sh;
        EXPECT_LE(worst, 10) << s.sw << "x" << s.sh;
    }
}

TEST(ResizerQuality, EnlargedRampStaysMonotonic) {
    for (int32_t mode : {0, 1}) {
        Frame ramp(16, 3);
        for (int32_t y = 0; y < 3; ++y)
            for (int32_t x = 0; x < 16; ++x) ramp.at(x, y) = 0xFF000000 | (x * 17u) * 0x010101;
        Frame wide(203, 2);
        resize(0, kArgb, ramp, kArgb, wide, mode);
        for (int32_t x = 1; x < 203; ++x) {
            for (int k = 0; k < 3; ++k) {
                ASSERT_LE(channel(wide.at(x - 1, 0), k), channel(wide.at(x, 0), k)) << x;
            }
        }
        EXPECT_LE(channel(wide.at(0, 0), 1), 2);
        EXPECT_GE(channel(wide.at(202, 0), 1), 253);

        Frame column(2, 16);
        for (int32_t y = 0; y < 16; ++y)
            for (int32_t x = 0; x < 2; ++x) column.at(x, y) = 0xFF000000 | (255 - y * 17u) << 8;
        Frame tall(1, 150);
        resize(0, kArgb, column, kArgb, tall, mode);
        for (int32_t y = 1; y < 150; ++y) {
            ASSERT_GE(channel(tall.at(0, y - 1), 1), channel(tall.at(0, y), 1)) << y;
        }
    }
}

// A sine too fine for the reduced size must fade away instead of folding
// back as a false coarse pattern; a coarse one must keep its contrast.
TEST(ResizerQuality, ReducedSineHasNoAliasing) {
    const double pi = 3.141592653589793;
    const auto contrast = [&](double period, int32_t mode) {
        Frame src(640, 4);
        for (int32_t y = 0; y < 4; ++y) {
            for (int32_t x = 0; x < 640; ++x) {
                const double v = 128.0 + 100.0 * std::sin(2.0 * pi * x / period);
                src.at(x, y) = 0xFF000000 | static_cast<uint32_t>(static_cast<int>(v)) << 8;
            }
        }
        Frame dst(160, 3);
        resize(0, kArgb, src, kArgb, dst, mode);
        int lo = 255;
        int hi = 0;
        for (int32_t x = 4; x < 156; ++x) {
            lo = std::min(lo, channel(dst.at(x, 1), 1));
            hi = std::max(hi, channel(dst.at(x, 1), 1));
        }
        return hi - lo;
    };
    // Periods of 2.5 and 5.3 source pixels lie far beyond what 160 output
    // pixels can show (an output period of 8 source pixels at best).
    // Point sampling would keep nearly all of their contrast of 200.
    EXPECT_LE(contrast(2.5, 1), 6);
    EXPECT_LE(contrast(5.3, 1), 20);
    EXPECT_LE(contrast(2.5, 0), 8);
    // Periods of 64 and 40 source pixels (16 and 10 output pixels) survive.
    EXPECT_GE(contrast(64.0, 1), 190);
    EXPECT_GE(contrast(40.0, 1), 190);
}

// The weights come from plain double arithmetic, so the 32-bit and 64-bit
// builds scale to identical pixels; both must reproduce these digests.
TEST(ResizerQuality, SameDigestsInEveryBuild) {
    const reelfx::Picture picture = reelfx::makeTestPicture(97, 61);
    std::vector<uint64_t> digests;
    for (int32_t mode : {0, 1}) {
        for (FormatPair pair : {kPairs[0], kPairs[2]}) {
            for (auto [w, h] : {std::pair{160, 90}, std::pair{41, 29}, std::pair{97, 200}}) {
                Frame src = fromPicture(picture);
                Frame dst(w, h);
                resize(0, pair.src, src, pair.dst, dst, mode);
                digests.push_back(digest(dst.pixels()));
            }
        }
    }
    const std::vector<uint64_t> expected = {
        0x6ce22a74950e1408ull, 0xb23831afe7de0ba0ull, 0x5d8b6fbdf9b7c18bull, 0x6a134abe634a1024ull,
        0xa34d1d27c8332f8cull, 0x92e7c08c0aa37c32ull, 0xa9bb4dd31178f76full, 0x439a20d5d5460fd9ull,
        0xb90c61f0c7eb03e6ull, 0x63b240e7bf9fa662ull, 0xb21fdb8c5a2e9700ull, 0x055bf26d2edf28c9ull};
    EXPECT_EQ(digests, expected);
}

}  // namespace
