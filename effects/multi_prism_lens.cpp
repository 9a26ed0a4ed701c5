// "Multi-Prism Lens": a faceted lens. A central disc shows the picture
// unchanged; the ring around it is cut into equal angular facets, each of
// which shows the picture shifted outward along the facet's bisector.
//
// Two stages: BuildPrismMap computes one (dx, dy) offset per pixel from the
// geometry and the three parameters (the entry caches the map in the
// instance and rebuilds it only when one of them changes); ApplyPrismMap
// copies source pixels through the map on every frame. Samples that fall
// outside the picture take the background colour.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/fxmath.h"
#include "pixel/numeric.h"
#include "pixel/resizer.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace {

constexpr double kTwoPi = 6.283185307179586;
constexpr int32_t kMinFacets = 2;
constexpr int32_t kMaxFacets = 20;

// Clamps to [lo, hi]; NaN takes the value that disturbs least (`nanValue`).
double clampReal(double v, double lo, double hi, double nanValue) {
    if (v != v) return nanValue;
    if (v < lo) return lo;
    if (v > hi) return hi;
    return v;
}

// A map entry: dx in the first 16 bits, dy in the next (little-endian words).
uint32_t packEntry(int32_t dx, int32_t dy) {
    return (static_cast<uint32_t>(dx) & 0xFFFFu) | (static_cast<uint32_t>(dy) << 16);
}

// The first column from `col` on whose entry differs from e (width if none).
int32_t runEnd(const uint8_t* entries, int32_t col, int32_t width, uint32_t e) {
    int32_t x = col + 1;
#ifdef __SSE2__
    const __m128i want = _mm_set1_epi32(static_cast<int32_t>(e));
    // Sixteen entries at a time while they all match, then four at a time.
    for (; x + 16 <= width; x += 16) {
        const auto* p = reinterpret_cast<const __m128i*>(entries + static_cast<int64_t>(x) * 4);
        const __m128i a = _mm_and_si128(_mm_cmpeq_epi32(_mm_loadu_si128(p), want),
                                        _mm_cmpeq_epi32(_mm_loadu_si128(p + 1), want));
        const __m128i b = _mm_and_si128(_mm_cmpeq_epi32(_mm_loadu_si128(p + 2), want),
                                        _mm_cmpeq_epi32(_mm_loadu_si128(p + 3), want));
        if (_mm_movemask_epi8(_mm_and_si128(a, b)) != 0xFFFF) break;
    }
    for (; x + 4 <= width; x += 4) {
        const __m128i four = _mm_loadu_si128(
            reinterpret_cast<const __m128i*>(entries + static_cast<int64_t>(x) * 4));
        const int same = _mm_movemask_epi8(_mm_cmpeq_epi32(four, want));
        if (same != 0xFFFF) return x + __builtin_ctz(static_cast<unsigned>(~same)) / 4;
    }
#endif
    for (; x < width; ++x) {
        uint32_t v;
        std::memcpy(&v, entries + static_cast<int64_t>(x) * 4, 4);
        if (v != e) return x;
    }
    return width;
}

}  // namespace

void BuildPrismMap(uint8_t* map, int32_t mapStride, int32_t width, int32_t height,
                   int32_t facetCount, double centerRadius, double refraction, double centerOffsetX,
                   double centerOffsetY) {
    // The map must hold width entries per row; anything else is not written.
    if (!map || width <= 0 || height <= 0 || int64_t{mapStride} < int64_t{width} * 4) return;

    int32_t n = facetCount;
    if (n < kMinFacets) n = kMinFacets;
    if (n > kMaxFacets) n = kMaxFacets;
    // A NaN radius or refraction counts as 0 (no disc, no shift) and a NaN
    // centre offset as 0 (the centre of the picture).
    centerRadius = clampReal(centerRadius, 0.0, 1.0, 0.0);
    refraction = clampReal(refraction, 0.0, 1.0, 0.0);
    centerOffsetX = clampReal(centerOffsetX, -1.0, 1.0, 0.0);
    centerOffsetY = clampReal(centerOffsetY, -1.0, 1.0, 0.0);

    const int32_t halfW = width >> 1;
    const int32_t halfH = height >> 1;
    int32_t cx = halfW + truncToInt32(halfW * centerOffsetX);
    int32_t cy = halfH + truncToInt32(halfH * centerOffsetY);
    if (cx < 0) cx = 0;
    if (cx > width - 1) cx = width - 1;
    if (cy < 0) cy = 0;
    if (cy > height - 1) cy = height - 1;

    // The sum of squares is taken in 64 bits: it fits 32 bits for every
    // frame up to 65535 pixels on a side and must not wrap beyond that.
    const int64_t squares = int64_t{halfW} * halfW + int64_t{halfH} * halfH;
    const double halfDiagonal = std::sqrt(static_cast<double>(squares));
    const int64_t discRadius = truncToInt32(halfDiagonal * centerRadius);
    const int64_t discRadius2 = discRadius * discRadius;
    const double shift = halfDiagonal * refraction;

    // Facet k starts at angle (1/n) * k * 2pi, measured clockwise from straight
    // up, and shifts its pixels by (dx, dy), against its bisector.
    double start[kMaxFacets];
    uint32_t entry[kMaxFacets];
    const double step = 1.0 / n;
    for (int32_t k = 0; k < n; ++k) {
        start[k] = step * k * kTwoPi;
        const double bisector = step * (k + 0.5) * kTwoPi;
        const int32_t dx = -truncToInt32(shift * fxSin(bisector));
        const int32_t dy = -truncToInt32(-shift * fxCos(bisector));
        entry[k] = packEntry(dx, dy);
    }

    for (int32_t row = 0; row < height; ++row) {
        uint8_t* out = map + static_cast<int64_t>(row) * mapStride;
        const int64_t Y = int64_t{cy} - row;
        const int64_t rowPart = Y * Y;
        for (int32_t col = 0; col < width; ++col) {
            const int64_t X = int64_t{col} - cx;
            uint32_t e = 0;  // inside the disc (the centre pixel always is)
            if (X * X + rowPart > discRadius2) {
                double phi = fxAtan2(static_cast<double>(X), static_cast<double>(Y));
                if (phi < 0.0) phi += kTwoPi;
                // The last facet whose start is not past phi: a pixel exactly
                // on a boundary belongs to the facet that begins there.
                int32_t k = n - 1;
                while (k > 0 && start[k] > phi) --k;
                e = entry[k];
            }
            std::memcpy(out + static_cast<int64_t>(col) * 4, &e, 4);
        }
    }
}

void ApplyPrismMap(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                   int32_t height, const uint8_t* map, int32_t mapStride, uint32_t borderColour,
                   uint32_t format) {
    if (!haveBothPictures(dst, src, stride, width, height, format)) return;
    if (!map || width <= 0 || height <= 0 || int64_t{mapStride} < int64_t{width} * 4) return;

    // The background colour in the frame's format: every pixel of the block
    // holds it, though only the first result is read.
    const uint32_t colourBlock[4] = {borderColour, borderColour, borderColour, borderColour};
    uint32_t converted[4] = {0, 0, 0, 0};
    Resizer(0, kFourccArgb, colourBlock, 8, 2, 2, format, converted, 8, 2, 2, 0, 0);
    const uint32_t fill = converted[0];

    const int64_t pitch = stride >> 2;
    for (int32_t row = 0; row < height; ++row) {
        const uint8_t* in = map + static_cast<int64_t>(row) * mapStride;
        uint32_t* out = dst + row * pitch;
        // The map holds long runs of equal entries (the disc, then one run
        // per facet crossed): each run is one shifted copy of a source row
        // segment, with the fill where it reaches outside the picture.
        int32_t col = 0;
        while (col < width) {
            uint32_t e;
            std::memcpy(&e, in + static_cast<int64_t>(col) * 4, 4);
            const int32_t end = runEnd(in, col, width, e);
            const auto dx = static_cast<int16_t>(e & 0xFFFFu);
            const auto dy = static_cast<int16_t>(e >> 16);
            const int64_t sy = int64_t{row} + dy;
            int64_t from = col, to = end;  // the columns whose sample lies inside
            if (sy < 0 || sy >= height) {
                to = from;
            } else {
                from = std::min<int64_t>(std::max<int64_t>(from, -int64_t{dx}), end);
                to = std::max<int64_t>(std::min<int64_t>(to, int64_t{width} - dx), from);
            }
            std::fill(out + col, out + from, fill);
            if (to > from) {
                std::memmove(out + from, src + sy * pitch + from + dx,
                             static_cast<size_t>(to - from) * sizeof(uint32_t));
            }
            std::fill(out + to, out + end, fill);
            col = end;
        }
    }
}
