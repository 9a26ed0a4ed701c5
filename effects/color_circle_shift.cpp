// "Color Circle Shift": every pixel's hue is turned around the grey axis of
// the RGB cube by an angle that advances with progress; the mean of R, G and
// B and the distance from grey are kept (up to the truncations). The colour's
// offset from grey is expressed in an orthonormal frame of the plane
// perpendicular to the grey axis, turned there, and brought back.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/fxmath.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

namespace {

constexpr double kC2 = 0.7071067811865476;
constexpr double kC6 = 0.408248290463863;
constexpr double kK = -0.816496580927726;
constexpr double kThird = 0.3333333333333333;
constexpr double kPi = 3.141592653589793;
constexpr double kHalfPi = 1.5707963267948966;
constexpr double kTwoPi = 6.283185307179586;

inline int32_t clampByte(int32_t v) {
    return v < 0 ? 0 : (v > 255 ? 255 : v);
}

// One ARGB pixel turned by theta around the grey axis; alpha carried through.
uint32_t shiftPixel(uint32_t p, double theta) {
    const uint32_t alpha = p & 0xFF000000u;
    const int32_t red = static_cast<int32_t>((p >> 16) & 0xFF);
    const int32_t green = static_cast<int32_t>((p >> 8) & 0xFF);
    const int32_t blue = static_cast<int32_t>(p & 0xFF);

    const double m = static_cast<double>(red + green + blue) * kThird;
    const double b = blue - m;
    const double g = green - m;
    const double r = red - m;
    const double u = (b - g) * kC2;
    const double v = ((b + g) - (r + r)) * kC6;
    const double x = (u + v) * kC2;
    const double y = (v - u) * kC2;
    const double rho = std::sqrt((y * y) + (x * x));

    double phi;
    if (x != 0.0) {
        phi = fxAtan(y / x);
    } else {
        phi = y >= 0.0 ? kHalfPi : -kHalfPi;
    }
    if (x < 0.0) phi = phi + kPi;
    phi = phi + theta;

    const double x2 = fxCos(phi) * rho;
    const double y2 = fxSin(phi) * rho;
    const double u2 = (x2 - y2) * kC2;
    const double v2 = (y2 + x2) * kC2;
    const double a = u2 * kC2;
    const double w = v2 * kC6;

    const int32_t b0 = truncToInt32(w + a);
    const int32_t g0 = truncToInt32(w - a);
    const int32_t r0 = truncToInt32(v2 * kK);
    const int32_t b1 = clampByte(truncToInt32(b0 + m));
    const int32_t g1 = clampByte(truncToInt32(g0 + m));
    const int32_t r1 = clampByte(truncToInt32(r0 + m));
    return alpha | (static_cast<uint32_t>(r1) << 16) | (static_cast<uint32_t>(g1) << 8) |
           static_cast<uint32_t>(b1);
}

}  // namespace

void renderColorCircleShift(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                            int32_t height, double progress, double offset, double period,
                            uint32_t format) {
    if (!haveBothPictures(dst, src, stride, width, height, format)) return;
    if (width <= 0 || height <= 0) return;

    offset = clampParam(offset, 0.0, 1.0);
    period = clampParam(period, 0.0, 9000.0);
    // A NaN or infinite progress gives a NaN angle; the truncations then
    // give channels clamped to 0, never anything outside the pictures.
    const double theta = ((progress * period) + offset) * kTwoPi;

    // The colour bytes of the result depend on the source's colour bytes
    // alone (alpha passes through every step unchanged), and the turn costs
    // an arctangent, a sine and a cosine: results are kept in a small
    // direct-mapped cache, indexed by a hash of the colour bytes, for the
    // duration of the frame. A key above 24 bits marks an empty entry.
    constexpr int kCacheBits = 12;
    uint32_t cacheKey[1 << kCacheBits];
    uint32_t cacheValue[1 << kCacheBits];
    std::fill_n(cacheKey, 1 << kCacheBits, 0xFFFFFFFFu);

    const int64_t pitch = stride >> 2;
    for (int64_t y = 0; y < height; ++y) {
        const uint32_t* in = src + y * pitch;
        uint32_t* out = dst + y * pitch;
        for (int32_t x = 0; x < width; ++x) {
            const uint32_t s = in[x];
            const uint32_t colour = s & 0x00FFFFFFu;
            const uint32_t slot = (colour * 2654435761u) >> (32 - kCacheBits);
            if (cacheKey[slot] != colour) {
                cacheKey[slot] = colour;
                cacheValue[slot] =
                    argbToFrame(shiftPixel(frameToArgb(colour, format), theta), format) &
                    0x00FFFFFFu;
            }
            out[x] = (s & 0xFF000000u) | cacheValue[slot];
        }
    }
}
