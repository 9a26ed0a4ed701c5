// The tone maps ("Greyscale", "Sepiascale", "Colorscale"): each pixel's
// luma picks a shade on a gradient from black to the scaling colour, and
// the pixel's colour channels move toward that shade by the frame's effect
// strength, clamped to the legal ranges of the format. Alpha is kept.
#include <cstdint>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/numeric.h"

namespace {

constexpr int kShades = 220;  // lumas 16 ... 235
constexpr int kLumaLow = 16;
constexpr int kLumaHigh = 235;

// amount x shape(position) for the five "Intensity Profile" entries, the
// position held to 0 ... 1 first.
double intensityProfile(int32_t index, double amount, double position) {
    if (index == 0) return amount;
    double p = position;
    if (p < 0.0) p = 0.0;
    if (p > 1.0) p = 1.0;
    switch (index) {
        case 1:
            return amount * p;
        case 2:
            return amount * (1.0 - p);
        default:
            break;
    }
    double v = p + p - 1.0;
    if (v < 0.0) v = -v;
    if (index == 4) v = 1.0 - v;
    return amount * v;
}

inline int channel(uint32_t p, int k) {
    return static_cast<int>((p >> (8 * k)) & 0xFF);
}

// Bits 16-23 of the pixel's AYUV form: in ARGB frames only the luma of the
// full conversion is computed, in the same order of operations.
inline int lumaOf(uint32_t p, bool argb) {
    if (!argb) return channel(p, 2);
    const int r = channel(p, 2);
    const int g = channel(p, 1);
    const int b = channel(p, 0);
    return (16 + static_cast<int>((0.5041 * g + 0.2568 * r) + 0.097924 * b)) & 0xFF;
}

}  // namespace

void renderToneMap(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                   int32_t height, double progress, double intensity, int32_t profile,
                   uint32_t colour, uint32_t format) {
    if (!dst) return;
    if (!src) {
        fillRect(dst, stride, width, height, opaqueWhite(format));
        return;
    }

    // A NaN "Intensity" counts as 0 (no effect) and a NaN `progress` as the
    // start of the span, so the strength is always a finite number.
    double amount = intensity == intensity ? intensity : 0.0;
    if (amount < -1.0) amount = -1.0;
    if (amount > 2.0) amount = 2.0;
    const int32_t index = profile < 0 ? 0 : (profile > 4 ? 4 : profile);
    const double e = intensityProfile(index, amount, progress == progress ? progress : 0.0);

    // The shades, split into channels 0-2 for the mix, built for this frame.
    const bool argb = format == kFourccArgb;
    const uint32_t kr = (colour >> 16) & 0xFF;
    const uint32_t kg = (colour >> 8) & 0xFF;
    const uint32_t kb = colour & 0xFF;
    int shade[kShades][3];
    for (int i = 0; i < kShades; ++i) {
        const uint32_t u = static_cast<uint32_t>(i);
        const uint32_t entry = argbToFrame(
            0xFF000000u | ((u * kr) / 219) << 16 | ((u * kg) / 219) << 8 | ((u * kb) / 219),
            format);
        for (int k = 0; k < 3; ++k) shade[i][k] = channel(entry, k);
    }
    // Channel bounds of the clamped mix, as in mixPixelClamped.
    const double low[3] = {argb ? 0.0 : 16.0, argb ? 0.0 : 16.0, argb ? 0.0 : 16.0};
    const double high[3] = {argb ? 255.0 : 240.0, argb ? 255.0 : 240.0, argb ? 255.0 : 235.0};

    const int64_t pitch = stride >> 2;
    for (int64_t y = 0; y < height; ++y) {
        const uint32_t* in = src + y * pitch;
        uint32_t* out = dst + y * pitch;
        for (int32_t x = 0; x < width; ++x) {
            const uint32_t s = in[x];
            int luma = lumaOf(s, argb);
            if (luma < kLumaLow) luma = kLumaLow;
            if (luma > kLumaHigh) luma = kLumaHigh;
            const int* b = shade[luma - kLumaLow];
            uint32_t m = s & 0xFF000000u;
            for (int k = 0; k < 3; ++k) {
                const int a = channel(s, k);
                double c = static_cast<double>(b[k] - a) * e + a;
                if (c < low[k]) c = low[k];
                if (c > high[k]) c = high[k];
                // c lies within 0 ... 255 here: the plain truncation is safe.
                m |= static_cast<uint32_t>(static_cast<int>(c)) << (8 * k);
            }
            out[x] = m;
        }
    }
}
