#include "pixel/block.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include "pixel/clones.h"

// The sums run in 64 bits so that a block of any size a frame can hold (an
// 8K frame is 33 million pixels of up to 255) averages without overflow; for
// blocks whose 32-bit sums would not overflow the result is the same.

REELFX_CLONES uint32_t blockAverage(const uint32_t* base, int32_t stride, int32_t width,
                                    int32_t height, int32_t x0, int32_t y0, int32_t x1,
                                    int32_t y1) {
    // The clamped corners and their differences are held in 64 bits: corners
    // anywhere in the 32-bit range (and a width or height of INT32_MIN) can
    // neither overflow the subtraction nor the product.
    const int64_t cx0 = std::max<int64_t>(x0, 0);
    const int64_t cy0 = std::max<int64_t>(y0, 0);
    const int64_t cx1 = std::min<int64_t>(x1, int64_t{width} - 1);
    const int64_t cy1 = std::min<int64_t>(y1, int64_t{height} - 1);
    // A block with no column or no row sums nothing: with a divisor of 1 or
    // more that is opaque black, and the divisor of zero or less that
    // reversed corners give (x1 < x0 with y1 > y0, or the reverse) is
    // answered the same way instead of dividing by it.
    if (cx1 <= cx0 || cy1 <= cy0) return 0xFF000000u;
    const int64_t n = (cx1 - cx0) * (cy1 - cy0) + 1;
    int64_t s0 = 0, s1 = 0, s2 = 0;
    const ptrdiff_t pitch = stride >> 2;
    // Past the early return the corners lie inside the picture.
    const int32_t bx0 = static_cast<int32_t>(cx0), bx1 = static_cast<int32_t>(cx1);
    // Each row is summed in 32-bit lanes, in pieces of at most 2^24 pixels
    // (2^24 * 255 < 2^32), and the pieces are added up in 64 bits: the same
    // sums, with twice the lanes per vector.
    constexpr int32_t kPiece = int32_t{1} << 24;
    for (int32_t y = static_cast<int32_t>(cy0); y < cy1; ++y) {
        const uint32_t* row = base + y * pitch;
        for (int32_t xs = bx0, xe = bx0; xs < bx1; xs = xe) {
            xe = xs + std::min(kPiece, bx1 - xs);
            uint32_t r0 = 0, r1 = 0, r2 = 0;
            for (int32_t x = xs; x < xe; ++x) {
                const uint32_t p = row[x];
                r0 += p & 0xFF;
                r1 += (p >> 8) & 0xFF;
                r2 += (p >> 16) & 0xFF;
            }
            s0 += r0;
            s1 += r1;
            s2 += r2;
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

void drawLine(uint32_t* base, int32_t stride, int32_t width, int32_t height, int32_t x0, int32_t y0,
              int32_t x1, int32_t y1, uint32_t colour) {
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
