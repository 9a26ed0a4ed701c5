// The halftone grid and mark sizes of "NewsPrint", shared with its tests.
// Only effects/newsprint.cpp renders with them.
#pragma once

#include <cstdint>

namespace newsprint {

// N, the cells per side for a picture `width` pixels wide; negative means an
// empty grid (plain paper).
int32_t gridSize(int32_t width, double resolution);
// Cell width or height: extent / N rounded to single precision (N >= 1).
float cellSize(int32_t extent, int32_t n);
// Boundary k of the grid: trunc(k * size) for k < N, the extent for k = N.
int32_t cellBoundary(int32_t k, float size, int32_t n, int32_t extent);

// "Brightness" and "Contrast" held to their working range 0 ... 2, NaN as 0.
float brightnessFactor(double value);
double contrastFactor(double value);
float circleScale(float cellWidth, double contrast);
float spiralScale(float cellWidth, double contrast);
// Circle radius for a cell of key k (a mark only when >= 1).
int32_t circleRadius(int32_t key, float brightness, float scale);
// Number of spiral points for a cell of key k (a mark only when >= 1).
int32_t spiralLength(int32_t key, float brightness, float scale);

}  // namespace newsprint
