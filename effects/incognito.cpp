// "Incognito": a rectangular or elliptical region, placed and sized by the
// parameters, is pixelated into n x n flat blocks, optionally with random
// brightness noise per block; the rest of the picture is a plain copy.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

namespace {

// 1 / 32767 in single precision: scales a generator value to 0 ... 1.
constexpr float kInvRandMax = 3.0518509e-5f;

// The noise wants draws from 0 to 32767. They come from the C library's
// rand(), never seeded here; a library whose rand() spans more than 15 bits
// (glibc's reaches 2^31 - 1) has its draws divided down to the top 15 bits.
static_assert((static_cast<unsigned>(RAND_MAX) + 1u) % 32768u == 0,
              "rand() must span a multiple of 32768 values");
constexpr unsigned kRandDivisor = (static_cast<unsigned>(RAND_MAX) + 1u) / 32768u;

inline int draw() { return static_cast<int>(static_cast<unsigned>(std::rand()) / kRandDivisor); }

// Up to this many blocks per side every block of the grid is visited and
// draws its noise. "Intensity" below -7 asks for finer grids, whose n^2
// blocks would take unbounded time while at most one block per pixel can
// paint: those grids visit only the blocks that lie inside the picture (the
// same pixels; blocks outside draw no noise, so the generator moves on by
// three draws per visited block instead of 3 n^2).
constexpr int64_t kFullGridBlocks = 1024;

inline int32_t clampChannel(int32_t v) { return std::clamp(v, 0, 255); }

struct Region {
    int64_t cx, cy;
    double a2, b2;  // squared semi-axes
    bool ellipse;   // "Shape" 0: paint only inside the ellipse
};

// Averages, noises and paints the block [x0, x1) x [y0, y1) (already
// clamped to the picture); an empty block only draws its noise.
void paintBlock(uint32_t* dst, const uint32_t* src, int64_t pitch, int32_t x0, int32_t x1,
                int32_t y0, int32_t y1, int32_t amp, bool ayuv, const Region& rg) {
    const bool empty = x1 <= x0 || y1 <= y0;

    // Sums in 64 bits: an 8K block cannot overflow them. An empty block
    // averages to 0 whatever its divisor.
    int32_t avg0 = 0, avg1 = 0, avg2 = 0;
    if (!empty) {
        uint64_t s0 = 0, s1 = 0, s2 = 0;
        for (int32_t y = y0; y < y1; ++y) {
            const uint32_t* row = src + y * pitch;
            for (int32_t x = x0; x < x1; ++x) {
                const uint32_t p = row[x];
                s0 += p & 0xFF;
                s1 += (p >> 8) & 0xFF;
                s2 += (p >> 16) & 0xFF;
            }
        }
        const uint64_t m = static_cast<uint64_t>(y1 - y0) * static_cast<uint64_t>(x1 - x0) + 1;
        avg0 = static_cast<int32_t>(s0 / m);
        avg1 = static_cast<int32_t>(s1 / m);
        avg2 = static_cast<int32_t>(s2 / m);
    }

    const int g = draw();
    draw();
    draw();
    const int32_t d = truncToInt32((0.5 - g * static_cast<double>(kInvRandMax)) * amp);
    if (empty) return;

    // d lies within +-2^30, so a channel minus d cannot overflow.
    avg2 = clampChannel(avg2 - d);
    if (!ayuv) {
        avg1 = clampChannel(avg1 - d);
        avg0 = clampChannel(avg0 - d);
    }
    const uint32_t paint = 0xFF000000u | static_cast<uint32_t>(avg2) << 16 |
                           static_cast<uint32_t>(avg1) << 8 | static_cast<uint32_t>(avg0);

    for (int32_t y = y0; y < y1; ++y) {
        uint32_t* out = dst + y * pitch;
        if (!rg.ellipse) {
            std::fill(out + x0, out + x1, paint);
            continue;
        }
        const double dy = static_cast<double>(y - rg.cy);
        const double ty = dy * dy / rg.b2;
        for (int32_t x = x0; x < x1; ++x) {
            const double dx = static_cast<double>(x - rg.cx);
            // Strictly inside: points on the ellipse keep the copy.
            if (ty + dx * dx / rg.a2 < 1.0) out[x] = paint;
        }
    }
}

// One axis of the grid: edge k = trunc(k * size + origin) lowered and raised
// into [0, extent]. Edges beyond the picture saturate, so they never
// decrease; on grids this fine a block is under 2^21 pixels long, so every
// block that holds a pixel has both edges within 32 bits and gets the
// edges of the full grid.
struct Edges {
    double size, origin;
    int64_t n;
    int32_t extent;
    int32_t at(int64_t k) const {
        const double v = static_cast<double>(k) * size + origin;
        if (v >= extent) return extent;
        if (v < 1.0) return 0;
        return truncToInt32(v);
    }
};

// The blocks of one axis that hold at least one pixel, as [lo, hi) spans, in
// order. The edges never decrease, so after each span a binary search finds
// the next edge that moves on; there are at most `extent` spans.
std::vector<std::pair<int32_t, int32_t>> occupiedSpans(const Edges& e) {
    std::vector<std::pair<int32_t, int32_t>> spans;
    if (!(e.size > 0.0)) return spans;  // edges that never move on: no block holds a pixel
    int64_t k = 0;
    int32_t lo = e.at(0);
    while (lo < e.extent && k < e.n) {
        if (e.at(e.n) <= lo) break;
        int64_t first = k + 1, last = e.n;  // the first edge past lo lies in [first, last]
        while (first < last) {
            const int64_t mid = first + (last - first) / 2;
            if (e.at(mid) > lo) {
                last = mid;
            } else {
                first = mid + 1;
            }
        }
        const int32_t hi = e.at(first);
        spans.emplace_back(lo, hi);
        k = first;
        lo = hi;
    }
    return spans;
}

}  // namespace

void renderIncognito(const FrameContext* ctx, const ParameterBlock* block, uint32_t format) {
    uint32_t* dst = ctx->destination;
    const uint32_t* src = ctx->source;
    const int32_t width = ctx->width;
    const int32_t height = ctx->height;
    const int64_t pitch = ctx->stride >> 2;
    if (!haveBothPictures(dst, src, ctx->stride, width, height, format)) return;
    for (int32_t y = 0; y < height; ++y) std::copy_n(src + y * pitch, width, dst + y * pitch);

    const int64_t q = truncToInt32(paramValue(block, kIncognitoIntensity) * 100.0);
    const int32_t amp = truncToInt32(paramValue(block, kIncognitoNoise) * 100.0);
    const int32_t s = truncToInt32(paramValue(block, kIncognitoShape));
    // Region arithmetic is in 64 bits: a huge position or size only moves
    // the region off the picture, it never overflows.
    const int64_t cx =
        static_cast<int64_t>(truncToInt32(width * paramValue(block, kIncognitoXPosition))) +
        (width >> 1);
    const int64_t cy =
        static_cast<int64_t>(truncToInt32(height * paramValue(block, kIncognitoYPosition))) +
        (height >> 1);
    const int32_t rw = truncToInt32(width * paramValue(block, kIncognitoXSize));
    const int32_t rh = truncToInt32(height * paramValue(block, kIncognitoYSize));
    const double ox = static_cast<float>(cx - (rw >> 1));
    const double oy = static_cast<float>(cy - (rh >> 1));
    const double a = std::max(rw >> 1, 1);
    const double b = std::max(rh >> 1, 1);
    const double a2 = a * a;
    const double b2 = b * b;

    int64_t n = 128 - (128 * q) / 100;
    if (n == 0) n = 1;
    if (n < 1) return;  // the copy stands
    const double bw = static_cast<float>(static_cast<double>(rw) / static_cast<double>(n));
    const double bh = static_cast<float>(static_cast<double>(rh) / static_cast<double>(n));
    const bool ayuv = format == kFourccAyuv;
    const Region rg{cx, cy, a2, b2, s == 0};

    if (n > kFullGridBlocks) {
        const auto rows = occupiedSpans(Edges{bh, oy, n, height});
        const auto cols = occupiedSpans(Edges{bw, ox, n, width});
        for (const auto& [y0, y1] : rows) {
            for (const auto& [x0, x1] : cols) {
                paintBlock(dst, src, pitch, x0, x1, y0, y1, amp, ayuv, rg);
            }
        }
        return;
    }

    for (int64_t r = 0; r < n; ++r) {
        // A region of size 0 (or a negative size) gives blocks with y1 <= y0
        // or x1 <= x0: they sum nothing and paint nothing, but still draw
        // their noise, so the generator advances by 3 n^2 in every call.
        const int32_t y0 = std::max(truncToInt32(r * bh + oy), 0);
        const int32_t y1 = std::min(truncToInt32((r + 1) * bh + oy), height);
        for (int64_t c = 0; c < n; ++c) {
            const int32_t x0 = std::max(truncToInt32(c * bw + ox), 0);
            const int32_t x1 = std::min(truncToInt32((c + 1) * bw + ox), width);
            paintBlock(dst, src, pitch, x0, x1, y0, y1, amp, ayuv, rg);
        }
    }
}
