// Single-pixel colour conversions and channel mixes shared by the effects.
// All are pure functions of their arguments.
#pragma once

#include <cstdint>

#include "pixel/block.h"
#include "pixel/numeric.h"
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

// The same two conversions inline, for loops over whole rows that the
// compiler vectorises; every intermediate stays far inside the 32-bit range.
inline uint32_t argbToAyuvInline(uint32_t p) {
    const int r = static_cast<int>((p >> 16) & 0xFF);
    const int g = static_cast<int>((p >> 8) & 0xFF);
    const int b = static_cast<int>(p & 0xFF);
    // Chroma is truncated toward zero as a signed offset from 128.
    const int v = 128 - truncBounded((0.3678 * g + 0.0714 * b) - 0.4392 * r);
    const int u = 128 - truncBounded((0.291 * g - 0.4392 * b) + 0.1482 * r);
    const int y = 16 + truncBounded((0.5041 * g + 0.2568 * r) + 0.097924 * b);
    return (p & 0xFF000000u) | (static_cast<uint32_t>(y & 0xFF) << 16) |
           (static_cast<uint32_t>(u & 0xFF) << 8) | static_cast<uint32_t>(v & 0xFF);
}

inline uint32_t ayuvToArgbInline(uint32_t p) {
    const int y = static_cast<int>((p >> 16) & 0xFF) - 16;
    const int u = static_cast<int>((p >> 8) & 0xFF) - 128;
    const int v = static_cast<int>(p & 0xFF) - 128;
    const double ys = 1.164383 * y;
    auto clampByte = [](int c) { return c < 0 ? 0 : (c > 255 ? 255 : c); };
    const int b = clampByte(truncBounded((2.017234 * u + ys) - 0.000135 * v));
    const int g = clampByte(truncBounded(ys - (0.813013 * v + 0.391781 * u)));
    const int r = clampByte(truncBounded((1.596002 * v - 0.000151 * u) + ys));
    return (p & 0xFF000000u) | (static_cast<uint32_t>(r) << 16) | (static_cast<uint32_t>(g) << 8) |
           static_cast<uint32_t>(b);
}

// Channel-wise a + (b - a) * t, alpha included, no clamping (0 <= t <= 1).
uint32_t mixPixel(uint32_t a, uint32_t b, double t);
// Channel-wise mix clamped to the legal channel ranges of `format`.
uint32_t mixPixelClamped(uint32_t a, uint32_t b, double t, uint32_t format);
// a when t <= 0, b when t >= 1, mixPixel otherwise.
uint32_t mixPixelEnds(uint32_t a, uint32_t b, double t);
