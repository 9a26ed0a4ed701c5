#include "pixel/color.h"

#include "pixel/numeric.h"

namespace {

inline int channel(uint32_t p, int k) { return static_cast<int>((p >> (8 * k)) & 0xFF); }

inline int clampByte(int v) { return v < 0 ? 0 : (v > 255 ? 255 : v); }

}  // namespace

uint32_t argbToAyuv(uint32_t p) {
    const int r = channel(p, 2);
    const int g = channel(p, 1);
    const int b = channel(p, 0);
    // Chroma is truncated toward zero as a signed offset from 128.
    const int v = 128 - truncToInt32((0.3678 * g + 0.0714 * b) - 0.4392 * r);
    const int u = 128 - truncToInt32((0.291 * g - 0.4392 * b) + 0.1482 * r);
    const int y = 16 + truncToInt32((0.5041 * g + 0.2568 * r) + 0.097924 * b);
    return (p & 0xFF000000u) | (static_cast<uint32_t>(y & 0xFF) << 16) |
           (static_cast<uint32_t>(u & 0xFF) << 8) | static_cast<uint32_t>(v & 0xFF);
}

uint32_t ayuvToArgb(uint32_t p) {
    const int y = channel(p, 2) - 16;
    const int u = channel(p, 1) - 128;
    const int v = channel(p, 0) - 128;
    const double ys = 1.164383 * y;
    const int b = clampByte(truncToInt32((2.017234 * u + ys) - 0.000135 * v));
    const int g = clampByte(truncToInt32(ys - (0.813013 * v + 0.391781 * u)));
    const int r = clampByte(truncToInt32((1.596002 * v - 0.000151 * u) + ys));
    return (p & 0xFF000000u) | (static_cast<uint32_t>(r) << 16) | (static_cast<uint32_t>(g) << 8) |
           static_cast<uint32_t>(b);
}

uint32_t frameToArgb(uint32_t p, uint32_t format) {
    return format == kFourccAyuv ? ayuvToArgb(p) : p;
}

uint32_t frameToAyuv(uint32_t p, uint32_t format) {
    return format == kFourccArgb ? argbToAyuv(p) : p;
}

uint32_t argbToFrame(uint32_t p, uint32_t format) {
    return format == kFourccAyuv ? argbToAyuv(p) : p;
}

uint32_t mixPixel(uint32_t a, uint32_t b, double t) {
    uint32_t out = 0;
    for (int k = 0; k < 4; ++k) {
        const int ak = channel(a, k);
        const int bk = channel(b, k);
        const int v = truncToInt32(static_cast<double>(bk - ak) * t + ak);
        out |= static_cast<uint32_t>(v & 0xFF) << (8 * k);
    }
    return out;
}

uint32_t mixPixelClamped(uint32_t a, uint32_t b, double t, uint32_t format) {
    static constexpr double kLowArgb[4] = {0.0, 0.0, 0.0, 0.0};
    static constexpr double kHighArgb[4] = {255.0, 255.0, 255.0, 255.0};
    static constexpr double kLowYuv[4] = {16.0, 16.0, 16.0, 0.0};
    static constexpr double kHighYuv[4] = {240.0, 240.0, 235.0, 255.0};
    const bool argb = format == kFourccArgb;
    const double* low = argb ? kLowArgb : kLowYuv;
    const double* high = argb ? kHighArgb : kHighYuv;
    uint32_t out = 0;
    for (int k = 0; k < 4; ++k) {
        const int ak = channel(a, k);
        const int bk = channel(b, k);
        double c = static_cast<double>(bk - ak) * t + ak;
        if (c < low[k]) c = low[k];
        if (c > high[k]) c = high[k];
        out |= static_cast<uint32_t>(truncToInt32(c) & 0xFF) << (8 * k);
    }
    return out;
}

uint32_t mixPixelEnds(uint32_t a, uint32_t b, double t) {
    if (t >= 1.0) return b;
    if (t <= 0.0) return a;
    return mixPixel(a, b, t);
}
