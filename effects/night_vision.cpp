// "Night Vision": a green monochrome picture. Each pixel's level is a mix of
// its red and green channels, stretched by a gain around a base level, shown
// as pure green and mixed with the source pixel by the intensity.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

namespace {

// mixPixel's channel arithmetic, inlined for the per-pixel loop: each byte
// of a moved toward b by t (0 < t < 1), truncated.
inline uint32_t mixToward(uint32_t a, uint32_t b, double t) {
    uint32_t out = 0;
    for (int k = 0; k < 32; k += 8) {
        const int32_t ak = static_cast<int32_t>((a >> k) & 0xFF);
        const int32_t bk = static_cast<int32_t>((b >> k) & 0xFF);
        const int32_t v = truncToInt32(static_cast<double>(bk - ak) * t + ak);
        out |= static_cast<uint32_t>(v & 0xFF) << k;
    }
    return out;
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

    // Per frame: channel minus base for every channel value, and the green
    // pixel of every level in the frame's format (alpha 0 here: the
    // conversions carry alpha through unchanged, it is added per pixel).
    double offsetFromBase[256];
    uint32_t green[256];
    for (int32_t c = 0; c < 256; ++c) {
        offsetFromBase[c] = c - base;
        green[c] = argbToFrame(static_cast<uint32_t>(c) << 8, format);
    }
    // At full intensity the mix is exact: (Q - s) * 1 + s gives Q in every channel.
    const bool full = intensityC == 1.0;
    // The source alpha reaches the green pixel unchanged and so survives the
    // mix: the colour bytes of the result depend on the source's colour
    // bytes alone. Results are kept in a small direct-mapped cache, indexed
    // by a hash of the colour bytes, for the duration of the frame; a key
    // above 24 bits marks an empty entry.
    constexpr int kCacheBits = 12;
    uint32_t cacheKey[1 << kCacheBits];
    uint32_t cacheValue[1 << kCacheBits];
    std::fill_n(cacheKey, 1 << kCacheBits, 0xFFFFFFFFu);

    for (int64_t y = 0; y < height; ++y) {
        const uint32_t* in = src + y * pitch;
        uint32_t* out = dst + y * pitch;
        for (int32_t x = 0; x < width; ++x) {
            const uint32_t s = in[x];
            const uint32_t colour = s & 0x00FFFFFFu;
            const uint32_t slot = (colour * 2654435761u) >> (32 - kCacheBits);
            if (cacheKey[slot] != colour) {
                const uint32_t p = frameToArgb(colour, format);
                const double r = offsetFromBase[(p >> 16) & 0xFF];
                const double g = offsetFromBase[(p >> 8) & 0xFF];
                const double level = (((g - r) * mix) + r) * gain + base;
                int32_t lv = truncToInt32(level);
                lv = lv < 0 ? 0 : (lv > 255 ? 255 : lv);
                cacheKey[slot] = colour;
                cacheValue[slot] = full ? green[lv] : mixToward(colour, green[lv], intensityC);
            }
            out[x] = (s & 0xFF000000u) | cacheValue[slot];
        }
    }
}
