// "Random-Rotate Squares": the picture is cut into a grid of equal squares
// and each square is turned by 0, 90, 180 or 270 degrees. The turns come from
// a generator restarted from a fixed seed on every frame, so the arrangement
// is the same in every frame and depends only on the frame size and "Scale".
// A turned square at the right or bottom edge takes opaque black where its
// turned source would lie beyond the picture.
#include <cstdint>
#include <cstring>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/fxmath.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace {

constexpr uint32_t kSeed = 2002;

#ifdef __SSE2__
// Four rows of four words turned into four columns: out[a] holds word a of
// each of in[0] ... in[3].
inline void transpose4(const __m128i in[4], __m128i out[4]) {
    const __m128i t0 = _mm_unpacklo_epi32(in[0], in[1]);
    const __m128i t1 = _mm_unpacklo_epi32(in[2], in[3]);
    const __m128i t2 = _mm_unpackhi_epi32(in[0], in[1]);
    const __m128i t3 = _mm_unpackhi_epi32(in[2], in[3]);
    out[0] = _mm_unpacklo_epi64(t0, t1);
    out[1] = _mm_unpackhi_epi64(t0, t1);
    out[2] = _mm_unpacklo_epi64(t2, t3);
    out[3] = _mm_unpackhi_epi64(t2, t3);
}

inline __m128i load4(const uint32_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

inline void store4(uint32_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// A quarter turn (mode 2 clockwise, 6 counter-clockwise) of a square lying
// wholly inside the picture, four by four words: four source rows are read
// across and written as four destination rows. Returns the side covered
// (a multiple of four); the rest is left to the word-by-word loops.
int64_t quarterTurnBlocks(uint32_t* dst, const uint32_t* src, int64_t pitch, int64_t x0, int64_t y0,
                          int64_t n, int mode) {
    const int64_t n4 = n & ~int64_t{3};
    const int64_t far = n - 1;
    for (int64_t i = 0; i < n4; i += 4) {
        uint32_t* out = dst + (y0 + i) * pitch + x0;
        for (int64_t j = 0; j < n4; j += 4) {
            __m128i rows[4], cols[4];
            if (mode == 2) {
                // Word (i + a, j + b) is source (x0 + i + a, y0 + far - j - b).
                for (int b = 0; b < 4; ++b)
                    rows[b] = load4(src + (y0 + far - j - b) * pitch + x0 + i);
                transpose4(rows, cols);
                for (int a = 0; a < 4; ++a) store4(out + a * pitch + j, cols[a]);
            } else {
                // Word (i + a, j + b) is source (x0 + far - i - a, y0 + j + b).
                for (int b = 0; b < 4; ++b)
                    rows[b] = load4(src + (y0 + j + b) * pitch + x0 + far - i - 3);
                transpose4(rows, cols);
                for (int a = 0; a < 4; ++a) store4(out + a * pitch + j, cols[3 - a]);
            }
        }
    }
    return n4;
}
#endif

// One square with top-left corner (x0, y0) and side n, turned by `mode`
// (0 none, 2 a quarter clockwise, 4 a half, 6 a quarter counter-clockwise).
// Destination pixels beyond the picture are skipped; source positions beyond
// it give `fill`.
void turnSquare(uint32_t* dst, const uint32_t* src, int64_t pitch, int64_t width, int64_t height,
                int64_t x0, int64_t y0, int64_t n, int mode, uint32_t fill) {
    const int64_t cols = n < width - x0 ? n : width - x0;    // columns j inside the picture
    const int64_t rows = n < height - y0 ? n : height - y0;  // rows i inside the picture
    const int64_t far = n - 1;
    // The block copy covers the top-left n4 x n4 words of a square inside
    // the picture; the loops below do the rest of its columns and rows.
    int64_t n4 = 0;
#ifdef __SSE2__
    if ((mode == 2 || mode == 6) && cols == n && rows == n) {
        n4 = quarterTurnBlocks(dst, src, pitch, x0, y0, n, mode);
    }
#endif
    for (int64_t i = 0; i < rows; ++i) {
        uint32_t* out = dst + (y0 + i) * pitch + x0;
        const int64_t done = i < n4 ? n4 : 0;  // columns the blocks wrote
        switch (mode) {
            case 0:
                std::memmove(out, src + (y0 + i) * pitch + x0,
                             static_cast<size_t>(cols) * sizeof(uint32_t));
                break;
            case 2: {
                // Source (x0 + i, y0 + far - j): one column read upwards; the
                // positions at or below the bottom edge come first (small j).
                const int64_t sx = x0 + i;
                int64_t j = done;
                if (sx < width) {
                    for (; j < cols && y0 + far - j >= height; ++j) out[j] = fill;
                    for (; j < cols; ++j) out[j] = src[(y0 + far - j) * pitch + sx];
                }
                for (; j < cols; ++j) out[j] = fill;
                break;
            }
            case 4: {
                // Source (x0 + far - j, y0 + far - i): one row read backwards;
                // the positions at or beyond the right edge come first.
                const int64_t sy = y0 + far - i;
                int64_t j = 0;
                if (sy < height) {
                    const uint32_t* in = src + sy * pitch;
                    for (; j < cols && x0 + far - j >= width; ++j) out[j] = fill;
                    for (; j < cols; ++j) out[j] = in[x0 + far - j];
                }
                for (; j < cols; ++j) out[j] = fill;
                break;
            }
            default: {
                // Source (x0 + far - i, y0 + j): one column read downwards;
                // the positions at or below the bottom edge come last.
                const int64_t sx = x0 + far - i;
                int64_t j = done;
                if (sx < width) {
                    for (; j < cols && y0 + j < height; ++j) out[j] = src[(y0 + j) * pitch + sx];
                }
                for (; j < cols; ++j) out[j] = fill;
                break;
            }
        }
    }
}

}  // namespace

void renderRandomRotateSquares(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                               int32_t height, double scale, uint32_t format) {
    if (!haveBothPictures(dst, src, stride, width, height, format)) return;
    // An empty picture has no square inside it (and a side of 0 would never
    // advance the grid).
    if (width <= 0 || height <= 0) return;

    const double s = clampParam(scale, 0.0, 1.0);
    // W^s as 2^(s * log2 W): at s = 1 this lands just below W for some
    // widths (704, 640, 1280), giving W - 1 and a second, one-column square.
    // Both outcomes are handled alike by the loops.
    const double log2W = fxLog(static_cast<double>(width)) / fxLog(2.0);
    int32_t n = truncToInt32(fxPow(2.0, s * log2W));
    if (n < 1) n = 1;
    if (n > width) n = width;

    const uint32_t fill = format == kFourccAyuv ? 0xFF108080u : 0xFF000000u;
    const int64_t pitch = stride >> 2;
    uint32_t g = kSeed;
    for (int64_t y = 0; y < height; y += n) {
        for (int64_t x = 0; x < width; x += n) {
            g = g * 1664525u + 1013904223u;
            const int mode = (static_cast<int>(g & 0xFF) - 1) & 6;
            turnSquare(dst, src, pitch, width, height, x, y, n, mode, fill);
        }
    }
}
