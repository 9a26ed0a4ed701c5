// The halftone grid and mark sizes of "NewsPrint", shared with its tests.
// Only effects/newsprint.cpp renders with them.
#pragma once

#include <cstdint>

namespace newsprint {

// N, the cells per side for a picture `width` pixels wide, from the formula
// for every "Resolution" (far beyond 32 bits below -1); below 1 means an
// empty grid (plain paper).
int64_t gridSize(int32_t width, double resolution);
// Cell width or height: extent / N rounded to single precision (N >= 1).
float cellSize(int32_t extent, int64_t n);
// Boundary k of the grid: trunc(k * size) for k < N, the extent for k = N.
int32_t cellBoundary(int64_t k, float size, int64_t n, int32_t extent);

// "Brightness" B: the value rounded to single precision.
float brightnessFactor(double value);
float circleScale(float cellWidth, double contrast);
float spiralScale(float cellWidth, double contrast);
// Circle radius for a cell of key k; 0 when k * B >= 255 (no mark), and a
// mark only when >= 1.
int64_t circleRadius(int32_t key, float brightness, float scale);
// Number of spiral points for a cell of key k (a mark only when >= 1).
int64_t spiralLength(int32_t key, float brightness, float scale);

}  // namespace newsprint
