// "Night Vision": a green monochrome picture. Each pixel's level is a mix of
// its red and green channels, stretched by a gain around a base level, shown
// as pure green and mixed with the source pixel by the intensity.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/clones.h"
#include "pixel/color.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

namespace {

constexpr int32_t kChunk = 256;  // pixels per step of the row loop

// The green level of each pixel of a chunk: a mix of red and green
// stretched by the gain around the base, truncated and held to 0 ... 255.
// Every value is finite and far inside 32 bits (the parameters are
// clamped), so the plain truncation is exact and the loop vectorises.
// Inlined into the row loop so that it is compiled for the row loop's
// instruction set.
template <bool kAyuv>
__attribute__((always_inline)) inline void greenLevels(const uint32_t* s, int32_t n, double mix,
                                                       double gain, double base, int32_t* level) {
    for (int32_t j = 0; j < n; ++j) {
        const uint32_t p = kAyuv ? ayuvToArgbInline(s[j]) : s[j];
        const double r = static_cast<int32_t>((p >> 16) & 0xFF) - base;
        const double g = static_cast<int32_t>((p >> 8) & 0xFF) - base;
        const int32_t v = truncBounded((((g - r) * mix) + r) * gain + base);
        level[j] = v < 0 ? 0 : (v > 255 ? 255 : v);
    }
}

// Each byte of s moved toward the green pixel by t (0 < t <= 1),
// truncated; alpha is the same in both and stays.
__attribute__((always_inline)) inline void mixTowardGreen(const uint32_t* s, const uint32_t* green,
                                                          int32_t n, double t, uint32_t* out) {
    for (int32_t j = 0; j < n; ++j) {
        uint32_t v = s[j] & 0xFF000000u;
        for (int k = 0; k < 24; k += 8) {
            const int32_t a = static_cast<int32_t>((s[j] >> k) & 0xFF);
            const int32_t b = static_cast<int32_t>((green[j] >> k) & 0xFF);
            v |= static_cast<uint32_t>(truncBounded(static_cast<double>(b - a) * t + a) & 0xFF)
                 << k;
        }
        out[j] = v;
    }
}

REELFX_CLONES void nightVisionRow(const uint32_t* in, uint32_t* out, int32_t width, bool ayuv,
                                  double intensity, double mix, double gain, double base,
                                  const uint32_t* greenOf) {
    int32_t level[kChunk];
    uint32_t green[kChunk];
    for (int32_t x0 = 0; x0 < width; x0 += kChunk) {
        const int32_t n = width - x0 < kChunk ? width - x0 : kChunk;
        const uint32_t* s = in + x0;
        if (ayuv) {
            greenLevels<true>(s, n, mix, gain, base, level);
        } else {
            greenLevels<false>(s, n, mix, gain, base, level);
        }
        // The green pixel of the level in the frame's format, with the
        // source's alpha (the conversions carry alpha through unchanged).
        for (int32_t j = 0; j < n; ++j) green[j] = (s[j] & 0xFF000000u) | greenOf[level[j]];
        if (intensity == 1.0) {
            // At full intensity the mix is exact: (Q - s) * 1 + s gives Q.
            std::memcpy(out + x0, green, static_cast<size_t>(n) * sizeof(uint32_t));
        } else {
            mixTowardGreen(s, green, n, intensity, out + x0);
        }
    }
}

}  // namespace

void renderNightVision(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                       int32_t height, double intensity, double redGreenMix, double brightnessGain,
                       double brightnessBase, uint32_t format) {
    if (!haveBothPictures(dst, src, stride, width, height, format)) return;
    if (width <= 0 || height <= 0) return;

    const double intensityC = clampParam(intensity, 0.0, 1.0);
    const double mix = clampParam(redGreenMix, 0.0, 1.0);
    const double gain = clampParam(brightnessGain, 0.0, 5.0);
    const double base = clampParam(brightnessBase, 0.0, 1.0) * 255.0;
    const int64_t pitch = stride >> 2;

    if (intensityC == 0.0) {
        // No green at all: the picture is copied as it is, without conversion.
        for (int64_t y = 0; y < height; ++y) {
            std::memmove(dst + y * pitch, src + y * pitch,
                         static_cast<size_t>(width) * sizeof(uint32_t));
        }
        return;
    }

    // The green pixel of every level in the frame's format, alpha 0.
    uint32_t greenOf[256];
    for (int32_t c = 0; c < 256; ++c)
        greenOf[c] = argbToFrame(static_cast<uint32_t>(c) << 8, format);
    const bool ayuv = format == kFourccAyuv;
    // Each chunk is read whole before any of it is written, so a picture
    // rendered in place gives the same result.
    for (int64_t y = 0; y < height; ++y) {
        nightVisionRow(src + y * pitch, dst + y * pitch, width, ayuv, intensityC, mix, gain, base,
                       greenOf);
    }
}
