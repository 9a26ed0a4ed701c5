// "Dream": a soft glow. The source is box-blurred into the destination, box-
// blurred again (usually wider) into the glare picture kept in the instance's
// work buffer, and each destination pixel is pulled towards its glare pixel
// wherever the glare pixel is brighter.
#include <algorithm>
#include <cstdint>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/clones.h"
#include "pixel/color.h"
#include "pixel/filter.h"
#include "pixel/numeric.h"

namespace {

// Box kernel for a blur width m: 3 taps below 3, 2m + 1 taps up to 9, none
// (code 0) from 10 on. NaN and out-of-range products truncate to INT32_MIN
// and so take the narrowest box.
int32_t boxCode(int32_t m) {
    if (m < 3) return 102;
    if (m <= 9) return 100 + m;
    return 0;
}

// ARGB: the weights 28, 154, 74 (blue, green, red) sum to 256, so d is 256
// times the luminance excess of the glare pixel; the factor saturates at 8
// levels. A glare pixel no brighter gives the factor 0, which leaves D as it
// is: (D * 2048) >> 11 == D.
inline uint32_t blendArgb(uint32_t D, uint32_t G) {
    const int32_t d =
        28 * (static_cast<int32_t>(G & 0xFF) - static_cast<int32_t>(D & 0xFF)) +
        154 * (static_cast<int32_t>((G >> 8) & 0xFF) - static_cast<int32_t>((D >> 8) & 0xFF)) +
        74 * (static_cast<int32_t>((G >> 16) & 0xFF) - static_cast<int32_t>((D >> 16) & 0xFF));
    const int32_t t = d < 0 ? 0 : std::min(d, 2048);
    uint32_t out = 0;
    for (int k = 0; k < 32; k += 8) {
        const auto g = static_cast<int32_t>((G >> k) & 0xFF);
        const auto b = static_cast<int32_t>((D >> k) & 0xFF);
        // (g * t + b * (2048 - t)) >> 11, with b * 2048 taken out of the
        // shift whole: one multiply instead of two.
        out |= static_cast<uint32_t>(b + (((g - b) * t) >> 11)) << k;
    }
    return out;
}

// AYUV: only the Y bytes decide; the factor 0 leaves D as it is.
inline uint32_t blendAyuv(uint32_t D, uint32_t G) {
    const int32_t d =
        static_cast<int32_t>((G >> 16) & 0xFF) - static_cast<int32_t>((D >> 16) & 0xFF);
    const int32_t t = d < 0 ? 0 : std::min(d, 8);
    uint32_t out = 0;
    for (int k = 0; k < 32; k += 8) {
        const auto g = static_cast<int32_t>((G >> k) & 0xFF);
        const auto b = static_cast<int32_t>((D >> k) & 0xFF);
        out |= static_cast<uint32_t>(b + (((g - b) * t) >> 3)) << k;  // as for ARGB
    }
    return out;
}

REELFX_CLONES void blendGlare(uint32_t* dst, const uint32_t* glare, ptrdiff_t pitch, int32_t width,
                              int32_t height, bool ayuv) {
    for (int32_t y = 0; y < height; ++y) {
        uint32_t* d = dst + y * pitch;
        const uint32_t* g = glare + y * pitch;
        if (ayuv) {
            for (int32_t x = 0; x < width; ++x) d[x] = blendAyuv(d[x], g[x]);
        } else {
            for (int32_t x = 0; x < width; ++x) d[x] = blendArgb(d[x], g[x]);
        }
    }
}

}  // namespace

void renderDream(uint32_t* dst, const uint32_t* src, uint8_t** workBuffer, int32_t stride,
                 int32_t width, int32_t height, int32_t* cachedStride, int32_t* cachedWidth,
                 int32_t* cachedHeight, double blurIntensity, double glareIntensity,
                 uint32_t format) {
    if (!haveBothPictures(dst, src, stride, width, height, format)) return;
    if (width <= 0 || height <= 0) return;

    // Base blur. With no kernel the destination keeps what the host put there.
    ApplyFilterCode(dst, src, stride, width, height,
                    boxCode(truncToInt32(blurIntensity * glareIntensity * 9.0)));

    uint8_t* buffer = workBuffer ? *workBuffer : nullptr;
    if (!buffer) {
        // No glare picture: the frame shows the base blur only.
        *cachedStride = stride;
        *cachedWidth = width;
        *cachedHeight = height;
        return;
    }
    if (format != kFourccArgb && format != kFourccAyuv) return;  // no blend defined

    // Glare blur of the source (not of the base blur) into the work buffer,
    // laid out like the destination. The entry keeps the buffer at least
    // height x stride bytes, so a frame larger than the one the instance was
    // made for never writes past it.
    auto* glare = reinterpret_cast<uint32_t*>(buffer);
    const bool fresh = ApplyFilterCode(glare, src, stride, width, height,
                                       boxCode(truncToInt32(glareIntensity * 9.0)));
    // Without a kernel (or when the filter could not run) the glare picture
    // was not written this frame: it holds an earlier frame's glare or
    // nothing at all, so the frame keeps its base blur.
    if (!fresh) return;

    const ptrdiff_t pitch = stride / 4;
    blendGlare(dst, glare, pitch, width, height, format == kFourccAyuv);
}
