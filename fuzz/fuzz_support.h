// Shared pieces of the fuzz targets: pictures laid out for any stride with
// guard bytes around them, pixels generated from a short seed, and the
// interesting values a hostile host hands over.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>
#include <sanitizer/asan_interface.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

namespace fuzz {

// The targets' own loops over pixels are not coverage-instrumented: they
// would cost more than the code under test and add nothing to find.
#define FUZZ_UNCOUNTED __attribute__((noinline, no_sanitize("coverage")))

// A failed expectation is a finding: libFuzzer keeps the input.
[[noreturn]] inline void fail(const char* what, long a = 0, long b = 0) {
    std::fprintf(stderr, "fuzz check failed: %s (%ld, %ld)\n", what, a, b);
    std::abort();
}
#define FUZZ_EXPECT(cond, ...)                                       \
    do {                                                             \
        if (!(cond)) ::fuzz::fail(#cond __VA_OPT__(, ) __VA_ARGS__); \
    } while (0)

// Truncation toward zero with the x86 conversion's answer (INT32_MIN) for
// NaN and values out of range.
inline int32_t truncX86(double v) {
    if (!(v > -2147483649.0 && v < 2147483648.0)) return INT32_MIN;
    return static_cast<int32_t>(v);
}

// Pixels of a picture from a seed: noise, gradients, a uniform colour (the
// scaler's short cut), a few flat blocks, or extreme alphas.
FUZZ_UNCOUNTED inline void fillPixels(uint8_t* origin, int32_t width, int32_t height,
                                      int32_t stride, uint32_t seed, int kind) {
    uint32_t s = seed * 2654435761u + 0x9E3779B9u;
    auto next = [&s] {
        s ^= s << 13;
        s ^= s >> 17;
        s ^= s << 5;
        return s;
    };
    const uint32_t palette[4] = {next(), next(), next(), next()};
    for (int32_t y = 0; y < height; ++y) {
        uint8_t* row = origin + static_cast<ptrdiff_t>(y) * stride;
        for (int32_t x = 0; x < width; ++x) {
            uint32_t p = 0;
            switch (kind % 5) {
                case 0: p = next(); break;
                case 1:
                    p = 0xFF000000u | ((x * 7u + seed) & 0xFF) << 16 | ((y * 5u) & 0xFF) << 8 |
                        ((x + y) & 0xFF);
                    break;
                case 2: p = palette[0]; break;
                case 3: p = palette[((x >> 3) + (y >> 2)) & 3]; break;
                default: p = (next() & 0x00FFFFFFu) | ((x + y) & 1 ? 0xFF000000u : 0u); break;
            }
            std::memcpy(row + static_cast<size_t>(x) * 4, &p, 4);
        }
    }
}

// A picture of `height` rows of `width` pixels whose rows start `stride`
// bytes apart (any stride: padded, short, unaligned, zero or negative, rows
// then walking upward), inside a buffer with guard bytes on both sides.
// Everything that is not a pixel of some row holds a known pattern.
class GuardedPicture {
public:
    static constexpr size_t kGuardBytes = 64;

    GuardedPicture() = default;
    FUZZ_UNCOUNTED GuardedPicture(int32_t width, int32_t height, int32_t stride)
        : width_(width), height_(height), stride_(stride) {
        const int64_t rowBytes = empty() ? 0 : int64_t{width} * 4;
        const int64_t last = empty() ? 0 : int64_t{height - 1} * stride;
        const int64_t low = std::min<int64_t>(0, last);
        const int64_t high = std::max<int64_t>(0, last) + rowBytes;
        bytes_.resize(static_cast<size_t>(high - low) + 2 * kGuardBytes);
        uint8_t* b = bytes_.data();
        for (size_t i = 0, n = bytes_.size(); i < n; ++i)
            b[i] = static_cast<uint8_t>(0xA5 ^ (i * 29));
        origin_ = static_cast<ptrdiff_t>(kGuardBytes - low);
    }

    bool empty() const { return width_ <= 0 || height_ <= 0; }
    uint8_t* origin() { return bytes_.data() + origin_; }
    uint32_t* pixels() { return reinterpret_cast<uint32_t*>(origin()); }
    int32_t width() const { return width_; }
    int32_t height() const { return height_; }
    int32_t stride() const { return stride_; }
    const std::vector<uint8_t>& bytes() const { return bytes_; }

    void fill(uint32_t seed, int kind) {
        if (!empty()) fillPixels(origin(), width_, height_, stride_, seed, kind);
    }
    // Pixel (x, y) as a word (rows may start at any byte).
    __attribute__((no_sanitize("coverage"))) uint32_t at(int32_t x, int32_t y) const {
        uint32_t v;
        std::memcpy(&v, bytes_.data() + origin_ + static_cast<ptrdiff_t>(y) * stride_ + 4 * x, 4);
        return v;
    }
    // Byte offset of pixel (x, y) in bytes().
    __attribute__((no_sanitize("coverage"))) size_t offsetOf(int32_t x, int32_t y) const {
        return static_cast<size_t>(origin_ + static_cast<ptrdiff_t>(y) * stride_ + 4 * x);
    }
    // Rows that neither overlap nor run backwards: every byte belongs to at
    // most one pixel and the rest is padding.
    bool plainRows() const { return !empty() && int64_t{stride_} >= int64_t{width_} * 4; }

    // Makes every byte that is not a pixel unaddressable for AddressSanitizer
    // (only whole granules can be poisoned, so a few padding bytes next to a
    // row may stay addressable), and back.
    FUZZ_UNCOUNTED void poisonOutside() {
        ASAN_POISON_MEMORY_REGION(bytes_.data(), bytes_.size());
        for (int32_t y = 0; !empty() && y < height_; ++y) {
            ASAN_UNPOISON_MEMORY_REGION(bytes_.data() + offsetOf(0, y),
                                        static_cast<size_t>(width_) * 4);
        }
    }
    void unpoison() { ASAN_UNPOISON_MEMORY_REGION(bytes_.data(), bytes_.size()); }

private:
    int32_t width_ = 0;
    int32_t height_ = 0;
    int32_t stride_ = 0;
    std::vector<uint8_t> bytes_ = std::vector<uint8_t>(2 * kGuardBytes, 0xA5);
    ptrdiff_t origin_ = kGuardBytes;
};

// Row distances a host may hand over for rows of `width` pixels: padded,
// exactly the row, unaligned, shorter than a row, zero or negative.
inline int32_t pickStride(FuzzedDataProvider& in, int32_t width) {
    const int32_t row = width * 4;
    switch (in.ConsumeIntegralInRange<int>(0, 9)) {
        case 0:
        case 1:
        case 2:
        case 3: return row;
        case 4: return row + 4 * in.ConsumeIntegralInRange<int32_t>(1, 64);
        case 5: return row + in.ConsumeIntegralInRange<int32_t>(1, 3);
        case 6: return row - 4 * in.ConsumeIntegralInRange<int32_t>(1, std::max(1, width));
        case 7: return 0;
        case 8: return -row - 4 * in.ConsumeIntegralInRange<int32_t>(0, 4);
        default: return row + in.ConsumeIntegralInRange<int32_t>(-7, 7);
    }
}

// Doubles that break arithmetic: NaN, infinities, the extremes, signed zero,
// denormals, values beyond 32 and 64 bits, halves.
inline double pickSpecialDouble(FuzzedDataProvider& in) {
    static constexpr double kInf = std::numeric_limits<double>::infinity();
    static const double kValues[] = {std::numeric_limits<double>::quiet_NaN(),
                                     -std::numeric_limits<double>::quiet_NaN(),
                                     kInf,
                                     -kInf,
                                     1e308,
                                     -1e308,
                                     std::numeric_limits<double>::max(),
                                     std::numeric_limits<double>::lowest(),
                                     0.0,
                                     -0.0,
                                     5e-324,
                                     -5e-324,
                                     1e-300,
                                     0.5,
                                     -0.5,
                                     1.5,
                                     2.5,
                                     6.5,
                                     0.999999,
                                     1.000001,
                                     4294967295.0,
                                     4278190080.0,
                                     4294967296.0,
                                     2147483647.0,
                                     2147483648.0,
                                     -2147483648.0,
                                     -2147483649.0,
                                     9.3e18,
                                     -9.3e18,
                                     1e10,
                                     -1e10,
                                     255.5,
                                     1000.0,
                                     -1000.0,
                                     100.0,
                                     99.9};
    return kValues[in.ConsumeIntegralInRange<size_t>(0, std::size(kValues) - 1)];
}

// Any double: a fraction, a small whole number, a special one, or raw bits.
inline double pickDouble(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange<int>(0, 3)) {
        case 0: return in.ConsumeIntegralInRange<int32_t>(0, 1024) / 1024.0;
        case 1: return in.ConsumeIntegralInRange<int32_t>(-3, 30);
        case 2: return pickSpecialDouble(in);
        default: {
            const uint64_t bits = in.ConsumeIntegral<uint64_t>();
            double v;
            std::memcpy(&v, &bits, sizeof v);
            return v;
        }
    }
}

}  // namespace fuzz
