// Block sampling and line drawing for the cell-based effects. Pictures are
// given as a pixel base, a stride in bytes, a width and a height; pixel
// (x, y) is the word at y * (stride >> 2) + x. The pixel format is never
// looked at: the three low bytes are treated alike.
#pragma once

#include <cstdint>

// (2 * b2 + 5 * b1 + b0) >> 3 on the three low bytes: 0-255.
inline int brightnessKey(uint32_t p) {
    return static_cast<int>((2 * ((p >> 16) & 0xFF) + 5 * ((p >> 8) & 0xFF) + (p & 0xFF)) >> 3);
}

// Opaque average of the block [x0, x1) x [y0, y1) after clamping the corners
// to the picture, divided by (x1 - x0) * (y1 - y0) + 1.
uint32_t blockAverage(const uint32_t* base, int32_t stride, int32_t width, int32_t height,
                      int32_t x0, int32_t y0, int32_t x1, int32_t y1);

// Fills width x height pixels, rows `stride` bytes apart, with `word`; empty
// or negative sizes write nothing.
void fillRect(uint32_t* base, int32_t stride, int32_t width, int32_t height, uint32_t word);

// Bresenham line from (x0, y0) to (x1, y1), both ends drawn; only points
// inside the picture are written.
void drawLine(uint32_t* base, int32_t stride, int32_t width, int32_t height, int32_t x0, int32_t y0,
              int32_t x1, int32_t y1, uint32_t colour);
