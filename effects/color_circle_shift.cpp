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
#include "pixel/clones.h"
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

// The colour's offset from grey (m is the mean of R, G and B) in the
// orthonormal frame of the plane perpendicular to the grey axis.
struct PlanePoint {
    double x, y;
};

inline PlanePoint intoPlane(double red, double green, double blue, double m) {
    const double b = blue - m;
    const double g = green - m;
    const double r = red - m;
    const double u = (b - g) * kC2;
    const double v = ((b + g) - (r + r)) * kC6;
    return {(u + v) * kC2, (v - u) * kC2};
}

// A turned point of the plane back to the offsets of blue, green and red
// from grey, before they are truncated.
inline void outOfPlane(double x2, double y2, double out[3]) {
    const double u2 = (x2 - y2) * kC2;
    const double v2 = (y2 + x2) * kC2;
    const double a = u2 * kC2;
    const double w = v2 * kC6;
    out[0] = w + a;
    out[1] = w - a;
    out[2] = v2 * kK;
}

// The colour's offset from grey turned by the angle whose cosine and sine
// are given: the turned offsets of blue, green and red.
void turnOffsets(double red, double green, double blue, double cosTheta, double sinTheta,
                 double out[3]) {
    const PlanePoint p = intoPlane(red, green, blue, (red + green + blue) * kThird);
    outOfPlane((p.x * cosTheta) - (p.y * sinTheta), (p.x * sinTheta) + (p.y * cosTheta), out);
}

// Angles up to 2^30 are reduced exactly by fxSin and fxCos, and adding the
// colour's polar angle to them rounds by less than 2^-22: the plane
// rotation below stays well within one step of the polar turn there.
constexpr double kPlaneTurnLimit = 1073741824.0;

inline int32_t clampByte(int32_t v) { return v < 0 ? 0 : (v > 255 ? 255 : v); }

// One ARGB pixel turned by theta through its polar angle; alpha carried.
uint32_t polarTurn(uint32_t p, double theta) {
    const int32_t red = static_cast<int32_t>((p >> 16) & 0xFF);
    const int32_t green = static_cast<int32_t>((p >> 8) & 0xFF);
    const int32_t blue = static_cast<int32_t>(p & 0xFF);
    const double m = static_cast<double>(red + green + blue) * kThird;
    const auto [x, y] = intoPlane(red, green, blue, m);
    const double rho = std::sqrt((y * y) + (x * x));
    double phi;
    if (x != 0.0) {
        phi = fxAtan(y / x);
    } else {
        phi = y >= 0.0 ? kHalfPi : -kHalfPi;
    }
    if (x < 0.0) phi = phi + kPi;
    phi = phi + theta;
    double turned[3];
    outOfPlane(fxCos(phi) * rho, fxSin(phi) * rho, turned);
    const int32_t b1 = clampByte(truncToInt32(truncToInt32(turned[0]) + m));
    const int32_t g1 = clampByte(truncToInt32(truncToInt32(turned[1]) + m));
    const int32_t r1 = clampByte(truncToInt32(truncToInt32(turned[2]) + m));
    return (p & 0xFF000000u) | (static_cast<uint32_t>(r1) << 16) |
           (static_cast<uint32_t>(g1) << 8) | static_cast<uint32_t>(b1);
}

// The turn is linear in (R, G, B): the turned offset of each channel is a
// weighted sum of the three channels, with weights found once per frame by
// turning the three unit colours. Turning the offset by a rotation of the
// plane instead of through its polar angle changes it by far less than one
// step, so each truncated channel stays within one of the per-pixel polar
// computation.
struct Turn {
    float blue[3], green[3], red[3];  // weights of R, G, B
};

Turn turnFor(double theta) {
    const double cosTheta = fxCos(theta);
    const double sinTheta = fxSin(theta);
    double byRed[3], byGreen[3], byBlue[3];
    turnOffsets(1.0, 0.0, 0.0, cosTheta, sinTheta, byRed);
    turnOffsets(0.0, 1.0, 0.0, cosTheta, sinTheta, byGreen);
    turnOffsets(0.0, 0.0, 1.0, cosTheta, sinTheta, byBlue);
    Turn t;
    float* rows[3] = {t.blue, t.green, t.red};
    for (int c = 0; c < 3; ++c) {
        rows[c][0] = static_cast<float>(byRed[c]);
        rows[c][1] = static_cast<float>(byGreen[c]);
        rows[c][2] = static_cast<float>(byBlue[c]);
    }
    return t;
}

// One channel: its turned offset truncated, the mean m = (R + G + B) / 3
// added back and truncated again, clamped to a byte. For an integer k and a
// channel sum s of 0 to 765, trunc(k + s * 0.3333333333333333) in double
// precision equals trunc((3k + s) * (1/3 in single precision)) for every
// |k| up to 3000, far beyond any turned offset.
inline uint32_t channelOf(float offset, int32_t sum) {
    const int32_t k = truncBounded(offset);
    const int32_t c = truncBounded(static_cast<float>(3 * k + sum) * 0.33333334f);
    return static_cast<uint32_t>(c < 0 ? 0 : (c > 255 ? 255 : c));
}

template <bool Ayuv>
inline uint32_t turnPixel(uint32_t p, const Turn& t) {
    if (Ayuv) p = ayuvToArgbInline(p);
    const int32_t red = static_cast<int32_t>((p >> 16) & 0xFF);
    const int32_t green = static_cast<int32_t>((p >> 8) & 0xFF);
    const int32_t blue = static_cast<int32_t>(p & 0xFF);
    const int32_t sum = red + green + blue;
    const float fr = static_cast<float>(red);
    const float fg = static_cast<float>(green);
    const float fb = static_cast<float>(blue);
    const uint32_t b1 = channelOf((t.blue[0] * fr + t.blue[1] * fg) + t.blue[2] * fb, sum);
    const uint32_t g1 = channelOf((t.green[0] * fr + t.green[1] * fg) + t.green[2] * fb, sum);
    const uint32_t r1 = channelOf((t.red[0] * fr + t.red[1] * fg) + t.red[2] * fb, sum);
    const uint32_t out = (p & 0xFF000000u) | (r1 << 16) | (g1 << 8) | b1;
    return Ayuv ? argbToAyuvInline(out) : out;
}

REELFX_CLONES void turnRow(uint32_t* out, const uint32_t* in, int32_t width, const Turn& t,
                           bool ayuv) {
    const Turn turn = t;
    if (ayuv) {
        for (int32_t x = 0; x < width; ++x) out[x] = turnPixel<true>(in[x], turn);
    } else {
        for (int32_t x = 0; x < width; ++x) out[x] = turnPixel<false>(in[x], turn);
    }
}

}  // namespace

void renderColorCircleShift(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                            int32_t height, double progress, double offset, double period,
                            uint32_t format) {
    if (!haveBothPictures(dst, src, stride, width, height, format)) return;
    if (width <= 0 || height <= 0) return;

    offset = clampParam(offset, 0.0, 1.0);
    period = clampParam(period, 0.0, 9000.0);
    const double theta = ((progress * period) + offset) * kTwoPi;
    const bool ayuv = format == kFourccAyuv;
    const int64_t pitch = stride >> 2;

    // Far from zero the angle swamps the colour's own polar angle when the
    // two are added, and every hue comes out turned to nearly the same
    // direction; a NaN or infinite angle leaves only alpha. There the turn
    // is taken per pixel through the polar angle, as written.
    if (!(std::fabs(theta) <= kPlaneTurnLimit)) {
        for (int64_t y = 0; y < height; ++y) {
            const uint32_t* in = src + y * pitch;
            uint32_t* out = dst + y * pitch;
            for (int32_t x = 0; x < width; ++x) {
                out[x] = argbToFrame(polarTurn(frameToArgb(in[x], format), theta), format);
            }
        }
        return;
    }

    const Turn turn = turnFor(theta);
    for (int64_t y = 0; y < height; ++y) {
        turnRow(dst + y * pitch, src + y * pitch, width, turn, ayuv);
    }
}
