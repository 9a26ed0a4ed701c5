#include "pixel/block.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

// The sums run in 64 bits so that a block of any size a frame can hold (an
// 8K frame is 33 million pixels of up to 255) averages without overflow; for
// blocks whose 32-bit sums would not overflow the result is the same.
//
// A divisor of zero or less (x1 < x0 with y1 > y0 after clamping, or the
// reverse) cannot come from the effects; it is answered with opaque black
// instead of a division by zero or a negative quotient.
uint32_t blockAverage(const uint32_t* base, int32_t stride, int32_t width, int32_t height,
                      int32_t x0, int32_t y0, int32_t x1, int32_t y1) {
    x0 = std::max(x0, 0);
    y0 = std::max(y0, 0);
    x1 = std::min(x1, width - 1);
    y1 = std::min(y1, height - 1);
    const int64_t n = int64_t{x1 - x0} * int64_t{y1 - y0} + 1;
    if (n <= 0) return 0xFF000000u;
    int64_t s0 = 0, s1 = 0, s2 = 0;
    const ptrdiff_t pitch = stride >> 2;
    for (int32_t y = y0; y < y1; ++y) {
        const uint32_t* row = base + y * pitch;
        for (int32_t x = x0; x < x1; ++x) {
            const uint32_t p = row[x];
            s0 += p & 0xFF;
            s1 += (p >> 8) & 0xFF;
            s2 += (p >> 16) & 0xFF;
        }
    }
    return 0xFF000000u | static_cast<uint32_t>(s2 / n) << 16 | static_cast<uint32_t>(s1 / n) << 8 |
           static_cast<uint32_t>(s0 / n);
}

void fillRect(uint32_t* base, int32_t stride, int32_t width, int32_t height, uint32_t word) {
    if (width <= 0) return;
    const ptrdiff_t pitch = stride >> 2;
    for (int32_t y = 0; y < height; ++y) std::fill_n(base + y * pitch, width, word);
}

void drawLine(uint32_t* base, int32_t stride, int32_t width, int32_t height, int32_t x0,
              int32_t y0, int32_t x1, int32_t y1, uint32_t colour) {
    const ptrdiff_t pitch = stride >> 2;
    // 64-bit walk state: end points anywhere in the 32-bit range never overflow.
    int64_t x = x0, y = y0;
    const int64_t dx = int64_t{x1} - x0, dy = int64_t{y1} - y0;
    const int64_t ax = 2 * std::llabs(dx), ay = 2 * std::llabs(dy);
    const int64_t sx = (dx > 0) - (dx < 0), sy = (dy > 0) - (dy < 0);
    auto plot = [&] {
        if (x >= 0 && x < width && y >= 0 && y < height) base[y * pitch + x] = colour;
    };
    if (ax > ay) {
        int64_t e = ay - (ax >> 1);
        for (;;) {
            plot();
            if (x == x1) break;
            if (e >= 0) {
                y += sy;
                e -= ax;
            }
            x += sx;
            e += ay;
        }
    } else {
        int64_t e = ax - (ay >> 1);
        for (;;) {
            plot();
            if (y == y1) break;
            if (e >= 0) {
                x += sx;
                e -= ay;
            }
            y += sy;
            e += ax;
        }
    }
}
