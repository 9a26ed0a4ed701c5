// Single-pixel colour conversions and channel mixes shared by the effects.
// All are pure functions of their arguments.
#pragma once

#include <cstdint>

#include "pixel/block.h"
#include "plugin/host_records.h"

// Opaque white in the frame's format: what a renderer paints over its active
// rectangle when the host hands it no source picture.
inline uint32_t opaqueWhite(uint32_t format) {
    return format == kFourccAyuv ? 0xFFEA8080u : 0xFFFFFFFFu;
}

// How every renderer starts: with no destination there is nothing to do,
// and with no source picture the active rectangle becomes opaque white.
// True when both pictures are there and the renderer goes on.
inline bool haveBothPictures(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                             int32_t height, uint32_t format) {
    if (!dst) return false;
    if (!src) {
        fillRect(dst, stride, width, height, opaqueWhite(format));
        return false;
    }
    return true;
}

// AYUV -> ARGB when `format` is AYUV; any other code returns p unchanged.
uint32_t frameToArgb(uint32_t p, uint32_t format);
// ARGB -> AYUV when `format` is ARGB (the pixel is ARGB and luma is wanted).
uint32_t frameToAyuv(uint32_t p, uint32_t format);
// ARGB -> AYUV when `format` is AYUV (an ARGB colour into the frame's format).
uint32_t argbToFrame(uint32_t p, uint32_t format);

// The two conversions themselves, alpha carried unchanged.
uint32_t argbToAyuv(uint32_t p);
uint32_t ayuvToArgb(uint32_t p);

// Channel-wise a + (b - a) * t, alpha included, no clamping (0 <= t <= 1).
uint32_t mixPixel(uint32_t a, uint32_t b, double t);
// Channel-wise mix clamped to the legal channel ranges of `format`.
uint32_t mixPixelClamped(uint32_t a, uint32_t b, double t, uint32_t format);
// a when t <= 0, b when t >= 1, mixPixel otherwise.
uint32_t mixPixelEnds(uint32_t a, uint32_t b, double t);
