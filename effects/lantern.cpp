// "Lantern": the picture is dark except for a spot lit by a lantern hanging
// above the middle of the picture. Over the effect's time span the spot
// follows a fixed path of twelve points (the first just off the centre, the
// others drawn from a generator seeded with 2002 on every call, so every
// clip of the same size follows the same path). The beam is a tilted cone:
// the spot is round near the middle and stretched towards the edges. Lit
// pixels keep the source, unlit ones become a dark grey (ARGB) or a dark
// luma (AYUV), and a band at the rim blends the two. The effect fades in
// from and out to the source at the ends of its span. Alpha is always 255.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/clones.h"
#include "pixel/color.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

namespace {

// Time is counted in 100000 steps over the span; the path has 11 segments
// of equal time, segment k covering the steps [kSegmentStart[k], kSegmentStart[k + 1]).
constexpr int kPathPoints = 12;
constexpr int32_t kTimeSteps = 100000;
constexpr int32_t kSegmentStart[kPathPoints] = {0,     9090,  18181, 27272, 36363, 45454,
                                                54545, 63636, 72727, 81818, 90909, 100000};
constexpr double kSegmentSteps = 9090.909090909092;  // 100000 / 11
constexpr double kSegmentScale = 0.00011;            // 11 / 100000

constexpr double kFadeScale = 0.0033333333333333335;  // "Fading" 100 fades over a third
constexpr double kDarkScale = 0.06666666666666667;    // 1 / 15

// The dark value is trunc(sum * kDarkScale); that equals sum / 15 for every
// sum of four bytes, so the pixel loop divides in integers.
constexpr bool darkScaleIsExact() {
    for (int32_t sum = 0; sum <= 4 * 255; ++sum) {
        if (static_cast<int32_t>(sum * kDarkScale) != sum / 15) return false;
    }
    return true;
}
static_assert(darkScaleIsExact());

// Columns are lit in strips of bands of rows: the column terms of a strip
// are computed once per band into these small arrays, then the band's rows
// of the strip are walked one by one.
constexpr int32_t kStripColumns = 256;
constexpr int32_t kBandRows = 32;

struct Point {
    double x, y;
};

// One step of the path generator, as a number in [-1, 1).
double nextDraw(uint32_t* state) {
    *state = *state * 1664525u + 1013904223u;
    const uint32_t bits = (*state & 0x7FFFFFu) | 0x3F800000u;
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return 2.0 * (static_cast<double>(f) - 1.0 - 0.5);
}

// The twelve path points, origin at the picture's centre, y upwards.
void makePath(Point* path, int32_t width, int32_t height) {
    path[0] = {0.01 * width, 0.01 * height};
    uint32_t state = 2002;
    for (int k = 1; k < kPathPoints; ++k) {
        const double rx = nextDraw(&state);
        const double ry = nextDraw(&state);
        path[k] = {0.5 * width * rx, 0.5 * height * ry};
    }
}

// Where the spot is at time step T; outside the span it rests on P0.
Point spotAt(const Point* path, int32_t T) {
    if (T < 0 || T >= kTimeSteps) return path[0];
    int k = 0;
    while (T >= kSegmentStart[k + 1]) ++k;
    const double s = (T - k * kSegmentSteps) * kSegmentScale;
    return {(1 - s) * path[k].x + s * path[k + 1].x, (1 - s) * path[k].y + s * path[k + 1].y};
}

// Everything about the beam that depends only on the frame. With the spot at
// (x, y) and the lantern at height Z, a pixel at (dx, dy) from the centre is
// turned into the beam's frame as
//   u = (uxx * dx + uxy * dy) * inv - cx,  v = (vyy * dy + uxy * dx) * inv - cy,
// and is lit when u^2 + v^2 < w = (dx * x + dy * y + zz) * k.
struct Beam {
    double x, y;
    double uxx, uxy, vyy;  // c*x^2 + y^2, (c - 1)*x*y, c*y^2 + x^2
    double inv;            // 1 / (x^2 + y^2)
    double cx, cy;
    double zz, k;  // Z^2 and c * spotRadius^2 / Z^2
};

Beam makeBeam(Point spot, int32_t width, int32_t height, int32_t q) {
    const double x = spot.x;
    const double y = spot.y;
    const double spotRadius = static_cast<double>(std::min(width, height)) / q;
    const double z = (int64_t{width} + height) * 0.1;
    const double r2 = x * x + y * y;
    const double c = z / std::sqrt(r2 + z * z);
    Beam b{};
    b.x = x;
    b.y = y;
    b.zz = z * z;
    b.k = c * (spotRadius * spotRadius) / b.zz;
    if (r2 > 0.0) {
        b.uxx = c * (x * x) + y * y;
        b.uxy = (c - 1) * x * y;
        b.vyy = c * (y * y) + x * x;
        b.inv = 1 / r2;
        b.cx = c * x;
        b.cy = c * y;
    } else {
        // A spot exactly on the centre would make inv infinite; the beam is
        // then upright and the turn is the identity: u = dx, v = dy.
        b.uxx = 1.0;
        b.uxy = 0.0;
        b.vyy = 1.0;
        b.inv = 1.0;
        b.cx = 0.0;
        b.cy = 0.0;
    }
    return b;
}

// Share of the source still shown at time step T while fading in or out,
// in 1/65536; 0 outside the fades.
int32_t fadeWeight(double fadeShare, int32_t T) {
    const double d = fadeShare * 100000.0;
    const double e = (1.0 - fadeShare) * 100000.0;
    const double t = T;
    double g;
    if (!(d > 0.0)) return 0;  // "Fading" 0, negative or NaN: no fades
    if (t < d) {
        g = (d - t) * 65536.0 / d;
    } else if (t > e) {
        g = (t - e) * 65536.0 / d;
    } else {
        return 0;
    }
    // An infinite or huge "Fading" gives inf / inf or a ratio beyond 1: the
    // fade covers the whole span, so the source shows through entirely.
    if (!(g < 65536.0)) return 65536;
    if (g <= 0.0) return 0;
    return truncToInt32(g);
}

struct Shading {
    double aaLow, aaHigh;  // the blend band, an open interval of e
    bool darkShortcut;     // the band lies above e = -1
    bool litShortcut;      // the band lies below e = 6.5
    int32_t g;             // fade weight of the source
};

// The blend is 32-bit signed integer arithmetic as a machine does it: a
// product or sum that leaves the range wraps, a shift is arithmetic, and
// the shaded value keeps the low 8 bits when it is stored into its byte.
// A band beyond 0 < e < 1 ("AntiAliasing" above 100) gives factors outside
// 0-1 and shaded values outside 0-255.
int32_t wrapMul(int32_t a, uint32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * b);
}
int32_t wrapAdd(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
int32_t wrapSub(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}
int32_t shiftDown(int32_t v) { return v >> 16; }  // arithmetic in C++20

// Where a pixel stands against the beam: dark, lit, or in the blend band
// (or not yet sorted, for the shading of one pixel at a time).
enum PixelClass : uint8_t { kDark = 0, kLit = 1, kBand = 2 };

// The beam's terms of one pixel, from its column and row terms.
struct BeamTerms {
    double rho2, w;
};
inline BeamTerms beamTerms(const Beam& b, double uCol, double vCol, double wCol, double uRow,
                           double vRow, double wRow) {
    const double u = (uCol + uRow) * b.inv - b.cx;
    const double v = (vRow + vCol) * b.inv - b.cy;
    return {u * u + v * v, (wCol + wRow + b.zz) * b.k};
}

// The rim coordinate e = 2 * (w / rho2 - 1) + 0.5 matters only near the rim.
// Where rho2 >= 4w, e <= -1 (or e is NaN) and the pixel is dark; where
// w >= 4 rho2 (and w > 0), e >= 6.5 and it is lit. Each shortcut is taken
// only when the blend band cannot reach it.
inline double rimOf(BeamTerms t) { return 2.0 * (t.w / t.rho2 - 1.0) + 0.5; }
// The shortcuts first, in integer arithmetic without branches so that a
// row is sorted in vector lanes (the dark one before the lit one); a pixel
// neither takes is near the rim and is sorted by its rim coordinate after.
constexpr uint8_t kNearRim = 3;
inline uint8_t shortcutClassOf(const Shading& sh, BeamTerms t) {
    const int32_t dark = sh.darkShortcut & (t.rho2 >= 4.0 * t.w);
    const int32_t lit = sh.litShortcut & (t.w >= 4.0 * t.rho2);
    const int32_t c = (kNearRim & (lit - 1)) | lit;
    return static_cast<uint8_t>(c & (dark - 1));
}
inline uint8_t nearRimClassOf(const Shading& sh, BeamTerms t) {
    const double e = rimOf(t);
    if (sh.aaLow < e && e < sh.aaHigh) return kBand;
    return t.rho2 < t.w ? kLit : kDark;
}

// One pixel of the blend band, with its rim coordinate e.
template <bool kAyuv>
__attribute__((always_inline)) inline uint32_t bandPixel(uint32_t p, double e, uint32_t g) {
    const uint32_t keep = 65536u - g;
    const uint32_t b0 = p & 0xFF, b1 = (p >> 8) & 0xFF, b2 = (p >> 16) & 0xFF;
    const uint32_t dk = (b0 + b1 + b2 + (p >> 24)) / 15;
    if constexpr (kAyuv) {
        const int32_t f = truncToInt32(65536.0 * e);
        const uint32_t s =
            static_cast<uint32_t>(
                wrapAdd(shiftDown(wrapMul(f, b2)), shiftDown(wrapMul(wrapSub(65536, f), dk)))) &
            0xFF;
        const uint32_t y = (((g * b2) >> 16) + ((keep * s) >> 16)) & 0xFF;
        return 0xFF000000u | (y << 16) | (p & 0xFFFFu);
    } else {
        const int32_t f = truncToInt32(10000.0 * e);
        const int32_t f2 = truncToInt32(10000.0 * (1.0 - e));
        const int32_t darkPart = wrapMul(f2, dk) / 10000;
        const uint32_t s0 = static_cast<uint32_t>(wrapAdd(wrapMul(f, b0) / 10000, darkPart)) & 0xFF;
        const uint32_t s1 = static_cast<uint32_t>(wrapAdd(wrapMul(f, b1) / 10000, darkPart)) & 0xFF;
        const uint32_t s2 = static_cast<uint32_t>(wrapAdd(wrapMul(f, b2) / 10000, darkPart)) & 0xFF;
        const uint32_t o0 = (((keep * s0) >> 16) + ((g * b0) >> 16)) & 0xFF;
        const uint32_t o1 = (((keep * s1) >> 16) + ((g * b1) >> 16)) & 0xFF;
        const uint32_t o2 = (((keep * s2) >> 16) + ((g * b2) >> 16)) & 0xFF;
        return 0xFF000000u | (o2 << 16) | (o1 << 8) | o0;
    }
}

// A dark or lit pixel: the dark value or the source, faded with the source.
template <bool kAyuv>
inline uint32_t plainPixel(uint32_t p, bool lit, uint32_t g) {
    const uint32_t keep = 65536u - g;
    const uint32_t b0 = p & 0xFF, b1 = (p >> 8) & 0xFF, b2 = (p >> 16) & 0xFF;
    const uint32_t dk = (b0 + b1 + b2 + (p >> 24)) / 15;
    if constexpr (kAyuv) {
        const uint32_t s = lit ? b2 : dk;
        const uint32_t y = (((g * b2) >> 16) + ((keep * s) >> 16)) & 0xFF;
        return 0xFF000000u | (y << 16) | (p & 0xFFFFu);
    } else {
        const uint32_t s0 = lit ? b0 : dk, s1 = lit ? b1 : dk, s2 = lit ? b2 : dk;
        const uint32_t o0 = (((keep * s0) >> 16) + ((g * b0) >> 16)) & 0xFF;
        const uint32_t o1 = (((keep * s1) >> 16) + ((g * b1) >> 16)) & 0xFF;
        const uint32_t o2 = (((keep * s2) >> 16) + ((g * b2) >> 16)) & 0xFF;
        return 0xFF000000u | (o2 << 16) | (o1 << 8) | o0;
    }
}

// Lights n pixels of one row: first every pixel's class (in vector lanes),
// then the dark and lit pixels, then the few in the band one at a time. A
// band pixel keeps the source until its turn, so a picture lit in place
// reads its own pixels.
template <bool kAyuv>
__attribute__((always_inline)) inline void lightRow(uint32_t* out, const uint32_t* in, int32_t n,
                                                    const Beam& beam, const Shading& shading,
                                                    const double* uCol, const double* vCol,
                                                    const double* wCol, double dy) {
    // Copies the loops keep in registers (a store of a byte might otherwise
    // change what the references point to).
    const Beam b = beam;
    const Shading sh = shading;
    const double uRow = b.uxy * dy;
    const double vRow = b.vyy * dy;
    const double wRow = dy * b.y;
    const uint32_t g = static_cast<uint32_t>(sh.g);
    uint8_t cls[kStripColumns];
    int32_t bands = 0;
    int32_t near = 0;
    for (int32_t i = 0; i < n; ++i) {
        cls[i] = shortcutClassOf(sh, beamTerms(b, uCol[i], vCol[i], wCol[i], uRow, vRow, wRow));
        near += cls[i] == kNearRim;
    }
    for (int32_t i = 0; near > 0 && i < n; ++i) {
        if (cls[i] != kNearRim) continue;
        cls[i] = nearRimClassOf(sh, beamTerms(b, uCol[i], vCol[i], wCol[i], uRow, vRow, wRow));
        bands += cls[i] == kBand;
        --near;
    }
    for (int32_t i = 0; i < n; ++i) {
        const uint32_t p = in[i];
        const uint32_t q = plainPixel<kAyuv>(p, cls[i] == kLit, g);
        out[i] = cls[i] == kBand ? p : q;
    }
    for (int32_t i = 0; bands > 0 && i < n; ++i) {
        if (cls[i] != kBand) continue;
        const double e = rimOf(beamTerms(b, uCol[i], vCol[i], wCol[i], uRow, vRow, wRow));
        out[i] = bandPixel<kAyuv>(in[i], e, g);
        --bands;
    }
}

// Lights the columns [col0, col1) of the rows [row0, row1). One clone per
// instruction set around both formats (a template cannot be cloned by every
// compiler).
REELFX_CLONES void lightStrip(uint32_t* dst, const uint32_t* src, int64_t pitch, int32_t width,
                              int32_t height, const Beam& b, const Shading& sh, bool ayuv,
                              int32_t col0, int32_t col1, int32_t row0, int32_t row1) {
    double uCol[kStripColumns], vCol[kStripColumns], wCol[kStripColumns];
    const int32_t n = col1 - col0;
    for (int32_t i = 0; i < n; ++i) {
        const double dx = (col0 + i) - 0.5 * width;
        uCol[i] = b.uxx * dx;
        vCol[i] = b.uxy * dx;
        wCol[i] = dx * b.x;
    }
    for (int32_t row = row0; row < row1; ++row) {
        uint32_t* out = dst + row * pitch + col0;
        const uint32_t* in = src + row * pitch + col0;
        const double dy = 0.5 * height - row;
        if (ayuv) {
            lightRow<true>(out, in, n, b, sh, uCol, vCol, wCol, dy);
        } else {
            lightRow<false>(out, in, n, b, sh, uCol, vCol, wCol, dy);
        }
    }
}

}  // namespace

void renderLantern(const FrameContext* ctx, const ParameterBlock* block, double progress,
                   uint32_t format) {
    uint32_t* dst = ctx->destination;
    const uint32_t* src = ctx->source;
    const int32_t width = ctx->width;
    const int32_t height = ctx->height;
    if (!haveBothPictures(dst, src, ctx->stride, width, height, format)) return;

    const double fadeShare = paramValue(block, kLanternFading) * kFadeScale;
    // q = 20 - trunc("Spot Radius") in wrapping 32-bit arithmetic. NaN and
    // values beyond the 32-bit range truncate to -2^31, and the difference
    // for those (and for values just above -2^31) wraps below 1: q = 1, the
    // largest spot.
    int32_t q = static_cast<int32_t>(
        20u - static_cast<uint32_t>(truncToInt32(paramValue(block, kLanternSpotRadius))));
    if (q < 1) q = 1;
    // Below 0 (and NaN) the band is empty: a hard-edged spot, as with 0.
    // Above 100 it reaches beyond 0 < e < 1 and the blend extrapolates.
    Shading sh{};
    sh.aaLow = 0.5 - paramValue(block, kLanternAntiAliasing) * 0.005;
    sh.aaHigh = 1.0 - sh.aaLow;
    sh.darkShortcut = sh.aaLow >= -1.0;
    sh.litShortcut = sh.aaHigh <= 6.5;
    if (format != kFourccArgb && format != kFourccAyuv) return;

    // The insets are always 0 in the frames the entry builds; a negative one
    // would reach outside the active rectangle and counts as 0.
    const int32_t ix = std::max(ctx->insetX, 0);
    const int32_t iy = std::max(ctx->insetY, 0);
    const int64_t colEnd = int64_t{width} - ix;
    const int64_t rowEnd = int64_t{height} - iy;
    if (width <= 0 || height <= 0 || colEnd <= ix || rowEnd <= iy) return;

    // Progress outside 0-1 renders as the nearest end of the span, NaN as
    // its start: the fades then never divide by a zero fade length.
    const double t = progress > 0.0 ? std::min(progress, 1.0) : 0.0;
    const int32_t T = truncToInt32(t * 100000.0);

    Point path[kPathPoints];
    makePath(path, width, height);
    const Beam beam = makeBeam(spotAt(path, T), width, height, q);
    sh.g = fadeWeight(fadeShare, T);

    const int64_t pitch = ctx->stride >> 2;
    // Bands of rows across the picture, strip by strip: a band's rows are
    // visited together, so the pages they lie on are found once per band.
    for (int64_t row = iy; row < rowEnd; row += kBandRows) {
        const int32_t r0 = static_cast<int32_t>(row);
        const int32_t r1 = static_cast<int32_t>(std::min<int64_t>(row + kBandRows, rowEnd));
        for (int64_t col = ix; col < colEnd; col += kStripColumns) {
            const int32_t c0 = static_cast<int32_t>(col);
            const int32_t c1 = static_cast<int32_t>(std::min<int64_t>(col + kStripColumns, colEnd));
            lightStrip(dst, src, pitch, width, height, beam, sh, format == kFourccAyuv, c0, c1, r0,
                       r1);
        }
    }
}
