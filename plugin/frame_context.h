// The per-frame description of the picture handed to renderers, with aspect
// fitting: when the picture aspect differs from the display aspect, the
// active rectangle is centred in the frame and everything around it is
// painted opaque black before the renderer runs.
#pragma once

#include <cstdint>

struct FrameContext {
    uint32_t size;
    uint32_t* source;        // active top-left pixel of the source, or null
    uint32_t* secondSource;  // always null: every effect has one input
    uint32_t* destination;   // active top-left pixel of the destination
    int32_t width;           // active width in pixels
    int32_t height;          // active height in rows
    int32_t bytesPerPixel;   // always 4
    int32_t stride;          // the frame's own row distance in bytes
    double aspect;           // picture aspect used for fitting
    int32_t insetX;          // always 0
    int32_t insetY;          // always 0
};

// AYUV's opaque black is luma 0x0f with neutral chroma.
inline constexpr uint32_t kBorderArgb = 0xFF000000u;
inline constexpr uint32_t kBorderAyuv = 0xFF0F8080u;

// Fills `ctx` for a frame of W x H pixels, S bytes per row, picture aspect A
// shown at display aspect D, and paints the border into `destination` when A
// differs from D. The active rectangle always lies inside the frame.
void makeFrameContext(FrameContext* ctx, uint32_t* source, uint32_t* secondSource,
                      uint32_t* destination, uint32_t format, int32_t W, int32_t H, int32_t S,
                      int32_t bytesPerPixel, double A, double D);
