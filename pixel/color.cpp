#include "pixel/color.h"

#include "pixel/numeric.h"

namespace {

inline int channel(uint32_t p, int k) { return static_cast<int>((p >> (8 * k)) & 0xFF); }

}  // namespace

uint32_t argbToAyuv(uint32_t p) { return argbToAyuvInline(p); }

uint32_t ayuvToArgb(uint32_t p) { return ayuvToArgbInline(p); }

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
