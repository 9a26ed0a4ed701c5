// "Aged Film": the picture becomes a warm monochrome, hair-like curves are
// drawn over it and three faint vertical scratches run down the frame. The
// random numbers restart from `progress` on every call; hairs and scratches
// live in module-wide tables so that between regeneration ticks they crawl
// from frame to frame instead of jumping.
#include "effects/aged_film.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/fxmath.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

namespace agedfilm {

HairPoint hairTable[kHairRecords][kHairPoints];
int32_t scratchTable[kScratches];

uint32_t nextDraw(uint32_t* s) {
    *s = *s * 1664525u + 1013904223u;
    return *s;
}

float unitDraw(uint32_t s) {
    const uint32_t bits = 0x3F800000u | (s & 0x007FFFFFu);
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f - 1.0f;
}

int32_t byteDraw(uint32_t s) { return static_cast<int32_t>(((s & 255u) - 1u) & 127u); }

int32_t regenerateHair(HairPoint* points, uint32_t* s, int32_t width, int32_t height, int64_t S) {
    // The first draw gives y, the second x.
    const uint32_t s1 = nextDraw(s);
    const uint32_t s2 = nextDraw(s);
    points[0].x = truncToInt32(static_cast<double>(width) * static_cast<double>(unitDraw(s2)));
    points[0].y = truncToInt32(static_cast<double>(height) * static_cast<double>(unitDraw(s1)));
    const double walk = static_cast<double>(unitDraw(nextDraw(s)));
    const int32_t step = truncToInt32(walk * static_cast<double>(S) + 1.0);
    const int32_t half = step >> 1;
    // Each point is truncated to 32 bits like any other; a walk that leaves
    // the 32-bit range lands on INT32_MIN and walks on from there.
    for (int k = 1; k < kHairPoints; ++k) {
        const uint32_t sa = nextDraw(s);
        const uint32_t sb = nextDraw(s);
        points[k].x =
            truncToInt32(static_cast<double>(unitDraw(sb)) * step + points[k - 1].x - half);
        points[k].y =
            truncToInt32(static_cast<double>(unitDraw(sa)) * step + points[k - 1].y - half);
    }
    return step;
}

void seedScratches(int32_t* scratch, uint32_t* s, int32_t width) {
    for (int j = 0; j < kScratches; ++j) {
        scratch[j] = truncToInt32(static_cast<double>(unitDraw(nextDraw(s))) * (width - 1));
    }
}

namespace {

// floor(a / b) for b > 0.
int64_t floorDiv(int64_t a, int64_t b) {
    const int64_t q = a / b;
    return (a % b != 0 && a < 0) ? q - 1 : q;
}

// floor((e0 + f * b2) / a2) with its remainder, exact for 0 <= f < 2^40,
// 0 <= b2 < 2^34, 0 < a2 < 2^34 and |e0| < 2^34, where f * b2 alone may need
// 74 bits: f is split at 2^16, and the high part's product is reduced modulo
// a2 before it is scaled back, so every intermediate stays below 2^58.
struct QuotRem {
    int64_t quot;
    int64_t rem;  // 0 ... a2 - 1
};

QuotRem floorDivProduct(int64_t e0, int64_t f, int64_t b2, int64_t a2) {
    const int64_t high = (f >> 16) * b2;
    const int64_t highQuot = high / a2, highRem = high % a2;
    const int64_t low = highRem * 65536 + (f & 0xFFFF) * b2 + e0;
    const int64_t lowQuot = floorDiv(low, a2);
    return {highQuot * 65536 + lowQuot, low - lowQuot * a2};
}

// The Bresenham walk of drawLine along its major axis (steps j = 0 ... n,
// major coordinate m0 + j * sm), started at the first step whose major
// coordinate lies in [0, extent) and stopped after the last: after j steps
// the minor coordinate has moved floor((e0 + (j - 1) * minor2) / major2) + 1
// times, where the error term starts at e0 = minor2 - major2 / 2, and the
// error term is what that division leaves plus minor2 - major2. End points
// anywhere in the 32-bit range are exact; a line thousands of times longer
// than the picture costs only the picture's size.
template <typename Plot>
void walkClipped(int64_t m0, int64_t n0, int64_t dm, int64_t dn, int64_t extent, Plot plot) {
    const int64_t sm = (dm > 0) - (dm < 0), sn = (dn > 0) - (dn < 0);
    const int64_t a2 = 2 * (dm < 0 ? -dm : dm), b2 = 2 * (dn < 0 ? -dn : dn);
    const int64_t steps = a2 / 2;
    int64_t first = 0, last = steps;
    if (sm > 0) {
        first = std::max<int64_t>(first, -m0);
        last = std::min<int64_t>(last, extent - 1 - m0);
    } else if (sm < 0) {
        first = std::max<int64_t>(first, m0 - (extent - 1));
        last = std::min<int64_t>(last, m0);
    }
    if (first > last) return;
    const int64_t e0 = b2 - (a2 >> 1);
    int64_t moves = 0;
    int64_t e = e0;
    if (first > 0) {
        const QuotRem d = floorDivProduct(e0, first - 1, b2, a2);
        moves = d.quot + 1;
        e = d.rem + b2 - a2;
    }
    int64_t m = m0 + first * sm;
    int64_t n = n0 + moves * sn;
    for (int64_t j = first; j <= last; ++j) {
        plot(m, n);
        if (e >= 0) {
            n += sn;
            e -= a2;
        }
        m += sm;
        e += b2;
    }
}

}  // namespace

void drawHairLine(uint32_t* base, int32_t stride, int32_t width, int32_t height, int32_t x0,
                  int32_t y0, int32_t x1, int32_t y1, uint32_t colour) {
    const ptrdiff_t pitch = stride >> 2;
    const int64_t dx = int64_t{x1} - x0, dy = int64_t{y1} - y0;
    const int64_t adx = dx < 0 ? -dx : dx, ady = dy < 0 ? -dy : dy;
    if (adx > ady) {
        walkClipped(x0, y0, dx, dy, width, [&](int64_t x, int64_t y) {
            if (y >= 0 && y < height) base[y * pitch + x] = colour;
        });
    } else {
        walkClipped(y0, x0, dy, dx, height, [&](int64_t y, int64_t x) {
            if (x >= 0 && x < width) base[y * pitch + x] = colour;
        });
    }
}

uint32_t tintToAyuv(uint32_t argb) {
    const int r = static_cast<int>((argb >> 16) & 0xFF);
    const int g = static_cast<int>((argb >> 8) & 0xFF);
    const int b = static_cast<int>(argb & 0xFF);
    const int v = truncToInt32(((0.4392 * r - 0.3678 * g) - 0.0714 * b) + 128.0);
    const int u = truncToInt32(((0.4392 * b - 0.1482 * r) - 0.291 * g) + 128.0);
    const int y = truncToInt32(((0.5041 * g + 0.2568 * r) + 0.097924 * b) + 16.0);
    return (argb & 0xFF000000u) | (static_cast<uint32_t>(y & 0xFF) << 16) |
           (static_cast<uint32_t>(u & 0xFF) << 8) | static_cast<uint32_t>(v & 0xFF);
}

}  // namespace agedfilm

namespace {

using agedfilm::byteDraw;
using agedfilm::HairPoint;
using agedfilm::kHairPoints;
using agedfilm::kHairRecords;
using agedfilm::kScratches;
using agedfilm::nextDraw;
using agedfilm::unitDraw;

constexpr int kSegments = 50;
constexpr int32_t kBinomial[kHairPoints] = {1, 8, 28, 56, 70, 56, 28, 8, 1};

// The picture the renderer draws into.
struct Target {
    uint32_t* pixels;
    int32_t stride;  // bytes
    int32_t width;
    int32_t height;
};

// Bernstein factors of the hair curve: the 50 values of t are the same in
// every call, so t^i and (1 - t)^(8 - i) are worked out once per frame, at
// double precision from the single-precision t. fxPow gives the same bits in
// the 32-bit and 64-bit builds (the C library's pow differs in the last bit
// for one of these 900 values).
struct CurveWeights {
    double rise[kSegments][kHairPoints];  // t^i
    double fall[kSegments][kHairPoints];  // (1 - t)^(8 - i)
};

void computeCurveWeights(CurveWeights* cw) {
    const float dt = 1.0f / static_cast<float>(kSegments);
    float t = 0.0f;
    for (int m = 0; m < kSegments; ++m) {
        t = t + dt;  // accumulated in single precision: the last t is only close to 1
        const double td = static_cast<double>(t);
        for (int i = 0; i < kHairPoints; ++i) {
            cw->rise[m][i] = fxPow(td, i);
            cw->fall[m][i] = fxPow(1.0 - td, kHairPoints - 1 - i);
        }
    }
}

// One segment of a curve. A segment whose two ends lie beyond the same edge
// of the picture plots nothing (every point of a line lies between its
// ends), so far-off hairs cost nothing; a target without pixels (a frame with
// nothing to draw) plots nothing at all.
void drawSegment(const Target& t, int32_t x0, int32_t y0, int32_t x1, int32_t y1, uint32_t colour) {
    if (!t.pixels) return;
    if ((x0 < 0 && x1 < 0) || (y0 < 0 && y1 < 0)) return;
    if ((x0 >= t.width && x1 >= t.width) || (y0 >= t.height && y1 >= t.height)) return;
    agedfilm::drawHairLine(t.pixels, t.stride, t.width, t.height, x0, y0, x1, y1, colour);
}

// The Bézier curve through a hair's nine control points as 50 lines.
void drawHair(const Target& t, const HairPoint* p, const CurveWeights& cw, uint32_t colour) {
    float qx[kHairPoints];
    float qy[kHairPoints];
    for (int i = 0; i < kHairPoints; ++i) {
        qx[i] = static_cast<float>(static_cast<int64_t>(p[i].x) * kBinomial[i]);
        qy[i] = static_cast<float>(static_cast<int64_t>(p[i].y) * kBinomial[i]);
    }
    float px = qx[0];
    float py = qy[0];
    for (int m = 0; m < kSegments; ++m) {
        double sx = 0.0;
        double sy = 0.0;
        for (int i = kHairPoints - 1; i >= 0; --i) {
            const float ax = static_cast<float>(static_cast<double>(qx[i]) * cw.rise[m][i]);
            const float ay = static_cast<float>(static_cast<double>(qy[i]) * cw.rise[m][i]);
            sx += static_cast<double>(static_cast<float>(static_cast<double>(ax) * cw.fall[m][i]));
            sy += static_cast<double>(static_cast<float>(static_cast<double>(ay) * cw.fall[m][i]));
        }
        const float nx = static_cast<float>(sx);
        const float ny = static_cast<float>(sy);
        drawSegment(t, truncToInt32(px), truncToInt32(py), truncToInt32(nx), truncToInt32(ny),
                    colour);
        px = nx;
        py = ny;
    }
}

// Crawl moves a point by -1, 0 or +1 (-2 only for a zero draw), in 32-bit
// arithmetic: a point at either end of the range wraps round to the other.
int32_t crawl(int32_t v, uint32_t s) {
    const int32_t moved = truncToInt32(static_cast<double>(unitDraw(s)) * 4.0 - 2.0);
    return static_cast<int32_t>(static_cast<uint32_t>(v) + static_cast<uint32_t>(moved));
}

// Moves each byte of `o` toward `c` by w/255 (w 0-255), rounding.
uint32_t blendToward(uint32_t o, uint32_t c, int32_t w) {
    const int32_t f = w * 257;
    uint32_t out = 0;
    for (int k = 0; k < 32; k += 8) {
        const int32_t ok = static_cast<int32_t>((o >> k) & 0xFF);
        const int32_t ck = static_cast<int32_t>((c >> k) & 0xFF);
        const int32_t v = ((ck - ok) * f + (ok << 16) + 32895) >> 16;
        out |= static_cast<uint32_t>(v & 0xFF) << k;
    }
    return out;
}

// trunc(f * v) for the single-precision factors 0.9f, 0.8f and 0.6f, the
// product formed at double precision.
uint32_t warmGrey(int32_t v) {
    const int32_t r = truncToInt32(static_cast<double>(0.9f) * v);
    const int32_t g = truncToInt32(static_cast<double>(0.8f) * v);
    const int32_t b = truncToInt32(static_cast<double>(0.6f) * v);
    return 0xFF000000u | static_cast<uint32_t>(r) << 16 | static_cast<uint32_t>(g) << 8 |
           static_cast<uint32_t>(b);
}

}  // namespace

namespace {

// One call's work: the tone map, then the hairs and scratches. The tables
// advance in every call; a target without pixels (an empty picture, or a
// frame the entry cannot address) gets the same draws and table updates but
// no pixel writes.
void agedFilmFrame(const Target& target, const uint32_t* src, const ParameterBlock* block,
                   double progress, uint32_t format) {
    uint32_t* dst = target.pixels;
    const int32_t width = target.width;
    const int32_t height = target.height;
    const ptrdiff_t pitch = target.stride >> 2;
    const bool ayuv = format == kFourccAyuv;

    uint32_t s = static_cast<uint32_t>(truncToInt32(progress * 10000.0));

    // Counts scale with the width (720 is the reference); the products are
    // formed in 64 bits, so no value of the 32-bit range overflows them.
    // NaN and values beyond that range truncate to INT32_MIN, like every
    // other conversion: no hairs, the smallest step.
    const int64_t count = truncToInt32(paramValue(block, kAgedFilmDustParticles));
    const int64_t hairs = std::min<int64_t>(5 * count * width / 720, kHairRecords);
    const int64_t size = truncToInt32(paramValue(block, kAgedFilmParticleSize));
    const int64_t S = std::max<int64_t>(size * width / 720, 1);
    double tint = paramValue(block, kAgedFilmSepiaIntensity);
    if (!(tint >= 0.0)) tint = 0.0;  // NaN counts as 0: neutral
    if (tint > 2.0) tint = 2.0;
    const uint32_t tintArgb = mixPixelClamped(0xFFFFFFFFu, 0xFFE5CC99u, tint, kFourccArgb);
    const uint32_t chroma = agedfilm::tintToAyuv(tintArgb) & 0x0000FFFFu;

    // Hair colour C(v) for v 0-255; in ARGB it is also the tone map by key.
    uint32_t ramp[256];
    for (int32_t v = 0; v < 256; ++v) {
        ramp[v] = ayuv ? 0xFF000000u | static_cast<uint32_t>(v) << 16 | chroma : warmGrey(v);
    }

    for (int32_t y = 0; dst && y < height; ++y) {
        const uint32_t* in = src + y * pitch;
        uint32_t* out = dst + y * pitch;
        if (ayuv) {
            for (int32_t x = 0; x < width; ++x) {
                const uint32_t luma = (((in[x] >> 16) & 0xFF) * 52224u) >> 16;
                out[x] = 0xFF000000u | luma << 16 | chroma;
            }
        } else {
            for (int32_t x = 0; x < width; ++x) out[x] = ramp[brightnessKey(in[x])];
        }
    }

    const int32_t tick = truncToInt32(progress * 1000.0);
    const bool reseed = tick <= 10 || tick >= 1000;
    const bool regenerateHairs = reseed || (tick & 127) == 0;
    if (hairs > 0) {
        CurveWeights cw;
        computeCurveWeights(&cw);
        for (int64_t i = 0; i < hairs; ++i) {
            HairPoint* p = agedfilm::hairTable[i];
            if (regenerateHairs) agedfilm::regenerateHair(p, &s, width, height, S);
            const int32_t g = byteDraw(nextDraw(&s));
            drawHair(target, p, cw, ramp[g]);
            for (int k = 1; k < kHairPoints; ++k) {
                const uint32_t sa = nextDraw(&s);
                const uint32_t sb = nextDraw(&s);
                p[k].x = crawl(p[k].x, sb);
                p[k].y = crawl(p[k].y, sa);
            }
            drawHair(target, p, cw, ramp[g + 64]);
        }
    }

    // A scratch of a picture with no columns ends at width - 1 = -1 (or
    // further left for a negative width): it is stored as walked, its
    // weights are drawn and its writes fall outside the picture.
    int32_t* scratch = agedfilm::scratchTable;
    if (reseed) agedfilm::seedScratches(scratch, &s, width);
    const uint32_t scratchColour = ayuv ? 0xFFE87E80u : 0xFFFDFCFAu;
    const int64_t lastColumn = int64_t{width} - 1;
    for (int j = 0; j < kScratches; ++j) {
        const double walked = static_cast<double>(unitDraw(nextDraw(&s))) * 11.0 - 5.0 + scratch[j];
        int64_t column = truncToInt32(walked);
        if (column < 0) column = 0;
        if (column > lastColumn) column = lastColumn;
        scratch[j] = static_cast<int32_t>(column);
        const bool visible = dst && column >= 0 && column < width;
        for (int64_t y = 0; y + 2 < height; ++y) {
            const int32_t w = byteDraw(nextDraw(&s));
            if (!visible) continue;
            uint32_t* px = dst + y * pitch + column;
            *px = blendToward(*px, scratchColour, w);
        }
    }
}

}  // namespace

void renderAgedFilm(const FrameContext* ctx, const ParameterBlock* block, double progress,
                    uint32_t format) {
    uint32_t* dst = ctx->destination;
    const uint32_t* src = ctx->source;
    if (!haveBothPictures(dst, src, ctx->stride, ctx->width, ctx->height, format)) return;
    // An empty active rectangle has no pixels to write, yet its call still
    // moves the hairs and scratches on.
    const bool empty = ctx->width <= 0 || ctx->height <= 0;
    agedFilmFrame(Target{empty ? nullptr : dst, ctx->stride, ctx->width, ctx->height}, src, block,
                  progress, format);
}

void advanceAgedFilm(const FrameContext* ctx, const ParameterBlock* block, double progress) {
    agedFilmFrame(Target{nullptr, 0, ctx->width, ctx->height}, nullptr, block, progress,
                  kFourccArgb);
}
