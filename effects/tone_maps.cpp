// The tone maps ("Greyscale", "Sepiascale", "Colorscale"): each pixel's
// luma picks a shade on a gradient from black to the scaling colour, and
// the pixel's colour channels move toward that shade by the frame's effect
// strength, clamped to the legal ranges of the format. Alpha is kept.
#include <cstdint>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/clones.h"
#include "pixel/color.h"
#include "pixel/numeric.h"

namespace {

constexpr int kShades = 220;  // lumas 16 ... 235
constexpr int kLumaLow = 16;
constexpr int kLumaHigh = 235;
constexpr int32_t kChunk = 256;  // pixels per step of the row loop

// amount x shape(position) for the five "Intensity Profile" entries, the
// position held to 0 ... 1 first.
double intensityProfile(int32_t index, double amount, double position) {
    if (index == 0) return amount;
    double p = position;
    if (p < 0.0) p = 0.0;
    if (p > 1.0) p = 1.0;
    switch (index) {
        case 1: return amount * p;
        case 2: return amount * (1.0 - p);
        default: break;
    }
    double v = p + p - 1.0;
    if (v < 0.0) v = -v;
    if (index == 4) v = 1.0 - v;
    return amount * v;
}

inline int channel(uint32_t p, int k) { return static_cast<int>((p >> (8 * k)) & 0xFF); }

// The luma (bits 16-23 of the AYUV form) held to 16 ... 235. In ARGB frames
// only the luma of the full conversion is computed, in the same order of
// operations; it always lies within 16 ... 235.
inline int argbLuma(uint32_t p) {
    const int r = channel(p, 2);
    const int g = channel(p, 1);
    const int b = channel(p, 0);
    return 16 + static_cast<int>((0.5041 * g + 0.2568 * r) + 0.097924 * b);
}

inline int ayuvLuma(uint32_t p) {
    const int l = channel(p, 2);
    return l < kLumaLow ? kLumaLow : (l > kLumaHigh ? kLumaHigh : l);
}

// Channel bounds of the clamped mix: channels 0 and 1 share theirs.
struct Bounds {
    double low01, high01, low2, high2;
};

// One channel of the clamped mix, (b - a) * e + a held to low ... high. The
// strength is finite, so the held value truncates safely.
inline uint32_t mixChannel(int a, int b, double e, double low, double high) {
    double c = static_cast<double>(b - a) * e + a;
    c = c < low ? low : c;
    c = c > high ? high : c;
    return static_cast<uint32_t>(static_cast<int>(c));
}

// The colour channels of s mixed toward the shade, the alpha of s kept.
inline uint32_t mixToShade(uint32_t s, uint32_t shade, double e, const Bounds& b) {
    return (s & 0xFF000000u) |
           mixChannel(channel(s, 2), channel(shade, 2), e, b.low2, b.high2) << 16 |
           mixChannel(channel(s, 1), channel(shade, 1), e, b.low01, b.high01) << 8 |
           mixChannel(channel(s, 0), channel(shade, 0), e, b.low01, b.high01);
}

// x / 219 for every x up to 219 * 255 as a product and a shift, which
// the vector lanes do with one 32-bit multiply.
constexpr uint32_t kBy219 = 76609;  // ceil(2^24 / 219)
constexpr bool by219IsExact() {
    for (uint32_t x = 0; x <= 219 * 255; ++x) {
        if ((x * kBy219) >> 24 != x / 219) return false;
    }
    return true;
}
static_assert(by219IsExact());
inline uint32_t by219(uint32_t x) { return (x * kBy219) >> 24; }

// The shade of index i (luma - 16, 0 ... 219) in ARGB frames: each channel
// of the scaling colour times i / 219.
inline uint32_t argbShade(uint32_t i, uint32_t kr, uint32_t kg, uint32_t kb) {
    return 0xFF000000u | by219(i * kr) << 16 | by219(i * kg) << 8 | by219(i * kb);
}

// One row, in chunks: the shades are found first, then the mix runs over
// plain arrays, where it vectorises (AVX2 where the CPU has it). In ARGB
// frames the shade is worked out in the vector lanes (the scaling colour is
// `colour`); AYUV frames look it up in `shade`.
REELFX_CLONES void toneMapRow(const uint32_t* in, uint32_t* out, int32_t width, bool argb,
                              const uint32_t* shade, uint32_t colour, double e,
                              const Bounds& bounds) {
    uint32_t shadeOf[kChunk];
    const uint32_t kr = (colour >> 16) & 0xFF, kg = (colour >> 8) & 0xFF, kb = colour & 0xFF;
    for (int32_t x0 = 0; x0 < width; x0 += kChunk) {
        const int32_t n = width - x0 < kChunk ? width - x0 : kChunk;
        const uint32_t* s = in + x0;
        if (argb) {
            for (int32_t j = 0; j < n; ++j) {
                const auto i = static_cast<uint32_t>(argbLuma(s[j]) - kLumaLow);
                shadeOf[j] = argbShade(i, kr, kg, kb);
            }
        } else {
            for (int32_t j = 0; j < n; ++j) shadeOf[j] = shade[ayuvLuma(s[j]) - kLumaLow];
        }
        uint32_t* o = out + x0;
        for (int32_t j = 0; j < n; ++j) o[j] = mixToShade(s[j], shadeOf[j], e, bounds);
    }
}

}  // namespace

void renderToneMap(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                   int32_t height, double progress, double intensity, int32_t profile,
                   uint32_t colour, uint32_t format) {
    if (!haveBothPictures(dst, src, stride, width, height, format)) return;

    // A NaN "Intensity" counts as 0 (no effect) and a NaN `progress` as the
    // start of the span, so the strength is always a finite number.
    double amount = intensity == intensity ? intensity : 0.0;
    if (amount < -1.0) amount = -1.0;
    if (amount > 2.0) amount = 2.0;
    const int32_t index = profile < 0 ? 0 : (profile > 4 ? 4 : profile);
    const double e = intensityProfile(index, amount, progress == progress ? progress : 0.0);

    // The shades in the frame's format, built for this frame.
    const uint32_t kr = (colour >> 16) & 0xFF;
    const uint32_t kg = (colour >> 8) & 0xFF;
    const uint32_t kb = colour & 0xFF;
    uint32_t shade[kShades];
    for (uint32_t i = 0; i < kShades; ++i) {
        shade[i] = argbToFrame(argbShade(i, kr, kg, kb), format);
    }
    const bool argb = format == kFourccArgb;
    const Bounds bounds = argb ? Bounds{0.0, 255.0, 0.0, 255.0} : Bounds{16.0, 240.0, 16.0, 235.0};

    const int64_t pitch = stride >> 2;
    for (int64_t y = 0; y < height; ++y) {
        toneMapRow(src + y * pitch, dst + y * pitch, width, argb, shade, colour, e, bounds);
    }
}
