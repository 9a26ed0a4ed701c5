// "Flip XY": mirrors the picture left to right, upside down, or both (a half
// turn). Whole pixels are moved and never looked inside, so every format is
// handled alike; the format only chooses the white of a missing source.
#include <cstdint>
#include <cstring>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"

void renderFlipXY(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width, int32_t height,
                  int32_t flipX, int32_t flipY, uint32_t format) {
    if (!haveBothPictures(dst, src, stride, width, height, format)) return;
    if (width <= 0 || height <= 0) return;

    // Switches: negative counts as off, 2 or more as on.
    const bool upsideDown = flipX > 0;  // "Flip X Axis": about the horizontal axis
    const bool leftRight = flipY > 0;   // "Flip Y Axis": about the vertical axis
    const int64_t pitch = stride >> 2;
    const int64_t last = width - 1;
    for (int64_t y = 0; y < height; ++y) {
        const uint32_t* in = src + (upsideDown ? height - 1 - y : y) * pitch;
        uint32_t* out = dst + y * pitch;
        if (leftRight) {
            for (int64_t x = 0; x <= last; ++x) out[x] = in[last - x];
        } else {
            // memmove: a host that hands one picture as both source and
            // target still gets a defined copy.
            std::memmove(out, in, static_cast<size_t>(width) * sizeof(uint32_t));
        }
    }
}
