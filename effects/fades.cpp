// The fades: the picture is copied into the destination, then a uniform
// colour block whose alpha is the fade amount is composited over it by the
// scaler, which mixes every pixel toward the fade colour by alpha / 255.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/numeric.h"
#include "pixel/resizer.h"

namespace {

constexpr int32_t kBlockWidth = 4;
constexpr int32_t kBlockHeight = 2;
constexpr int32_t kBlockStride = kBlockWidth * 4;
constexpr int kBlockPixels = kBlockWidth * kBlockHeight;

// The fade colour's own alpha is replaced by trunc(255 * amount) modulo 256.
// Truncating to 64 bits keeps that modulo exact for every finite amount; NaN
// and infinities give alpha 0, the picture unchanged.
uint32_t overlayPixel(uint32_t colour, double amount) {
    const uint64_t alpha = static_cast<uint64_t>(truncToInt64(255.0 * amount)) & 0xFFu;
    return (colour & 0x00FFFFFFu) | static_cast<uint32_t>(alpha << 24);
}

}  // namespace

void renderFade(const FrameContext* ctx, const ParameterBlock* /*block*/, uint32_t colour,
                double amount, uint32_t format) {
    uint32_t* dst = ctx->destination;
    const uint32_t* src = ctx->source;
    if (!haveBothPictures(dst, src, ctx->stride, ctx->width, ctx->height, format)) return;

    const uint32_t overlay = overlayPixel(colour, amount);
    uint32_t block[kBlockPixels];
    if (format == kFourccArgb) {
        std::fill_n(block, kBlockPixels, overlay);
    } else {
        uint32_t argb[kBlockPixels];
        std::fill_n(argb, kBlockPixels, overlay);
        Resizer(0, kFourccArgb, argb, kBlockStride, kBlockWidth, kBlockHeight, format, block,
                kBlockStride, kBlockWidth, kBlockHeight, 0, 0);
    }

    // The insets are always 0 in the frames the entry builds; a negative one
    // would reach outside the active rectangle and counts as 0.
    const int64_t ix = std::max(ctx->insetX, 0);
    const int64_t iy = std::max(ctx->insetY, 0);
    const int64_t w = ctx->width - 2 * ix;
    const int64_t h = ctx->height - 2 * iy;
    if (w <= 0 || h <= 0) return;  // nothing to copy, an empty composite

    const int64_t pitch = ctx->stride >> 2;
    uint32_t* out = dst + iy * pitch + ix;
    const uint32_t* in = src + iy * pitch + ix;
    // memmove: a host that renders in place hands the same picture twice.
    for (int64_t y = 0; y < h; ++y) {
        std::memmove(out + y * pitch, in + y * pitch, static_cast<size_t>(w) * 4);
    }
    Resizer(kResizerBlend, format, block, kBlockStride, kBlockWidth, kBlockHeight, format, out,
            ctx->stride, static_cast<int32_t>(w), static_cast<int32_t>(h), 0, 0);
}
