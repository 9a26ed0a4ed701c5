// "Mosaic": two-tone tiles. The source is sampled on a square grid of
// anchors; around each anchor the neighbour whose brightness key exceeds the
// anchor's by the smallest positive amount is found, and a square patch
// around that neighbour is painted with the anchor's colour where the source
// is no brighter than the anchor and with the neighbour's colour elsewhere.
// Later anchors (row-major order) paint over earlier ones; pixels no patch
// reaches keep their previous value.
#include <algorithm>
#include <cstdint>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

void renderMosaic(const FrameContext* ctx, const ParameterBlock* block, uint32_t format) {
    uint32_t* dst = ctx->destination;
    const uint32_t* src = ctx->source;
    const int32_t width = ctx->width;
    const int32_t height = ctx->height;
    const int64_t pitch = ctx->stride >> 2;
    if (!haveBothPictures(dst, src, ctx->stride, width, height, format)) return;
    if (width <= 0 || height <= 0) return;

    int32_t n = truncToInt32(paramValue(block, 0) * 10.0);
    if (n < 1) n = 1;
    int32_t k = truncToInt32(paramValue(block, 1));
    if (k < 1) return;  // the patch is empty: nothing is painted
    const int64_t h = n >> 1;

    if (h == 0) {
        // The search square holds only the anchor, so every patch is the
        // anchor's own colour over [x, x + K) x [y, y + K); the last patch
        // covering a pixel is the one anchored on it. The result is an
        // exact copy, made directly rather than through K^2 writes per pixel.
        for (int32_t y = 0; y < height; ++y) {
            std::copy_n(src + y * pitch, width, dst + y * pitch);
        }
        return;
    }
    // A patch never needs to reach further than the picture: once K exceeds
    // both sides, every patch covers the whole picture either way, so a
    // larger K paints exactly the same pixels. Then each patch paints over
    // the whole of the one before, and only the last anchor's remains.
    const int64_t cover = int64_t{std::max(width, height)} + 1;
    const bool lastOnly = k >= cover;
    if (lastOnly) k = static_cast<int32_t>(cover);
    const int64_t before = h * k;       // patch offsets -h*K ...
    const int64_t after = (h + 1) * k;  // ... (h + 1)*K - 1
    const int64_t firstRow = lastOnly ? (height - 1) / n * int64_t{n} : 0;
    const int64_t firstColumn = lastOnly ? (width - 1) / n * int64_t{n} : 0;

    for (int64_t y = firstRow; y < height; y += n) {
        // Search rows outside the picture read as key 0, which is never
        // brighter than an anchor: they are skipped without changing the result.
        const int64_t sy0 = std::max<int64_t>(y - h, 0);
        const int64_t sy1 = std::min<int64_t>(y + h, height - 1);
        for (int64_t x = firstColumn; x < width; x += n) {
            const uint32_t s = src[y * pitch + x];
            const int keyS = brightnessKey(s);
            const int64_t sx0 = std::max<int64_t>(x - h, 0);
            const int64_t sx1 = std::min<int64_t>(x + h, width - 1);
            int best = 100000;
            int64_t bx = x, by = y;
            for (int64_t sy = sy0; sy <= sy1; ++sy) {
                const uint32_t* row = src + sy * pitch;
                for (int64_t sx = sx0; sx <= sx1; ++sx) {
                    const int d = brightnessKey(row[sx]) - keyS;
                    if (d >= 1 && d < best) {
                        best = d;
                        bx = sx;
                        by = sy;
                    }
                }
            }
            const uint32_t hi = src[by * pitch + bx];

            const int64_t py0 = std::max<int64_t>(by - before, 0);
            const int64_t py1 = std::min<int64_t>(by + after, height);
            const int64_t px0 = std::max<int64_t>(bx - before, 0);
            const int64_t px1 = std::min<int64_t>(bx + after, width);
            for (int64_t py = py0; py < py1; ++py) {
                const uint32_t* in = src + py * pitch;
                uint32_t* out = dst + py * pitch;
                for (int64_t px = px0; px < px1; ++px) {
                    out[px] = brightnessKey(in[px]) > keyS ? hi : s;
                }
            }
        }
    }
}
