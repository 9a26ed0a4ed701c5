// "NewsPrint": a black-on-white halftone. The picture is cut into an N x N
// grid; every other cell (a checkerboard) carries one ink mark whose size
// grows with the darkness of the cell's block average: a filled circle
// ("Uniform") or a dotted spiral ("Non-Uniform").
#include "effects/newsprint.h"

#include <algorithm>
#include <cstddef>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/fxmath.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

namespace newsprint {

int32_t gridSize(int32_t width, double resolution) {
    // q is held to -100 ... 200. At 200 and above every grid of two or more
    // columns is already empty (N < 0), so the upper bound changes nothing;
    // below -100 the cells would be narrower than a pixel, so the grid stops
    // at one-pixel cells and N never exceeds the width. NaN truncates to the
    // lowest integer and so also gives one-pixel cells.
    const double r = resolution * 100.0;
    int64_t q = 200;
    if (!(r >= -100.0)) {
        q = -100;
    } else if (r <= 200.0) {
        q = truncToInt32(r);
    }
    const int64_t half = width / 2;
    int64_t n = half - (half * q) / 100;
    if (n == 0) n = 1;
    return static_cast<int32_t>(n);
}

float cellSize(int32_t extent, int32_t n) {
    return static_cast<float>(static_cast<double>(extent) / n);
}

int32_t cellBoundary(int32_t k, float size, int32_t n, int32_t extent) {
    if (k >= n) return extent;
    return truncToInt32(static_cast<double>(k) * size);
}

float brightnessFactor(double value) {
    if (!(value >= 0.0)) value = 0.0;
    if (value > 2.0) value = 2.0;
    return static_cast<float>(value);
}

double contrastFactor(double value) {
    if (!(value >= 0.0)) value = 0.0;
    if (value > 2.0) value = 2.0;
    return value;
}

float circleScale(float cellWidth, double contrast) {
    return static_cast<float>((static_cast<double>(cellWidth) * contrast) *
                              static_cast<double>(1.0f / 255.0f));
}

float spiralScale(float cellWidth, double contrast) {
    return static_cast<float>((static_cast<double>(cellWidth) * contrast) *
                              static_cast<double>(0.7f));
}

int32_t circleRadius(int32_t key, float brightness, float scale) {
    return truncToInt32((255.0 - key * static_cast<double>(brightness)) * scale);
}

int32_t spiralLength(int32_t key, float brightness, float scale) {
    int32_t l = truncToInt32((255.0 - 2 * key * static_cast<double>(brightness)) * scale);
    if (l > 360) l = 360;
    return l - 1;
}

}  // namespace newsprint

namespace {

using namespace newsprint;

struct Target {
    uint32_t* pixels;
    ptrdiff_t pitch;  // words
    int32_t width;
    int32_t height;
};

// Spiral point 10 * j for j = 0 ... 359: the only points a mark uses.
struct SpiralPoint {
    int32_t dx;
    int32_t dy;
};
constexpr int kSpiralMarks = 360;

void buildSpiral(SpiralPoint* spiral, float cellWidth) {
    const double radiusStep = static_cast<double>(1.0f / 3600.0f);
    const double angleStep = static_cast<double>(1.0f / 57.0f);
    for (int j = 0; j < kSpiralMarks; ++j) {
        const int i = 10 * j;
        const float rho = static_cast<float>((static_cast<double>(cellWidth) * i) * radiusStep);
        const double theta = i * angleStep;
        spiral[j].dx = truncToInt32(fxCos(theta) * rho);
        spiral[j].dy = truncToInt32(fxSin(theta) * rho);
    }
}

// One horizontal line of a filled circle, clipped. A horizontal line plots
// every column between its ends, so the span is filled directly: a large
// circle costs only the pixels it covers.
void fillSpan(const Target& t, int64_t xa, int64_t xb, int64_t y, uint32_t ink) {
    if (y < 0 || y >= t.height) return;
    const int64_t lo = std::max<int64_t>(std::min(xa, xb), 0);
    const int64_t hi = std::min<int64_t>(std::max(xa, xb), t.width - 1);
    uint32_t* row = t.pixels + static_cast<ptrdiff_t>(y) * t.pitch;
    for (int64_t x = lo; x <= hi; ++x) row[x] = ink;
}

// Filled circle of radius r >= 1 by the midpoint rule, four spans per step.
void drawCircle(const Target& t, int64_t cx, int64_t cy, int64_t r, uint32_t ink) {
    int64_t x = 0;
    int64_t y = r;
    int64_t d = 3 - 2 * r;
    while (x <= y) {
        fillSpan(t, cx + x, cx - x, cy + y, ink);
        fillSpan(t, cx + x, cx - x, cy - y, ink);
        fillSpan(t, cx + y, cx - y, cy + x, ink);
        fillSpan(t, cx + y, cx - y, cy - x, ink);
        if (d >= 0) {
            d = d + 4 * (x - y) + 10;
            y = y - 1;
        } else {
            d = d + 4 * x + 6;
        }
        x = x + 1;
    }
}

void drawSpiral(const Target& t, const SpiralPoint* spiral, int64_t cx, int64_t cy, int32_t length,
                uint32_t ink) {
    for (int32_t j = length; j >= 1; --j) {
        const int64_t x = cx + spiral[j].dx;
        const int64_t y = cy + spiral[j].dy;
        if (x >= 0 && x < t.width && y >= 0 && y < t.height) {
            t.pixels[static_cast<ptrdiff_t>(y) * t.pitch + x] = ink;
        }
    }
}

void renderNewsPrint(const FrameContext* ctx, const ParameterBlock* block, uint32_t format,
                     bool spirals) {
    uint32_t* dst = ctx->destination;
    if (!dst) return;
    const uint32_t* src = ctx->source;
    const int32_t width = ctx->width;
    const int32_t height = ctx->height;
    if (width <= 0 || height <= 0) return;
    const bool ayuv = format == kFourccAyuv;
    const uint32_t ink = ayuv ? 0xFF108080u : 0xFF000000u;
    const uint32_t paper = ayuv ? 0xFFEA8080u : 0xFFFFFFFFu;
    const Target t{dst, ctx->stride >> 2, width, height};

    for (int32_t y = 0; y < height; ++y) {
        uint32_t* row = dst + y * t.pitch;
        for (int32_t x = 0; x < width; ++x) row[x] = paper;
    }
    if (!src) return;

    // A negative N (a "Resolution" above 1) is an empty grid: plain paper.
    const int32_t n = gridSize(width, paramValue(block, 0));
    if (n < 1) return;
    const float cellWidth = cellSize(width, n);
    const float cellHeight = cellSize(height, n);
    const float brightness = brightnessFactor(paramValue(block, 1));
    const double contrast = contrastFactor(paramValue(block, 2));
    const float scale =
        spirals ? spiralScale(cellWidth, contrast) : circleScale(cellWidth, contrast);

    SpiralPoint spiral[kSpiralMarks];
    if (spirals) buildSpiral(spiral, cellWidth);

    for (int32_t r = 0; r < n; ++r) {
        const int32_t top = cellBoundary(r, cellHeight, n, height);
        const int32_t bottom = cellBoundary(r + 1, cellHeight, n, height);
        // A grid finer than the picture repeats rows: a row with the same
        // bounds as the row two above carries the same marks in the same
        // columns, and ink drawn twice is ink, so it is passed over.
        if (r >= 2 && top == cellBoundary(r - 2, cellHeight, n, height) &&
            bottom == cellBoundary(r - 1, cellHeight, n, height)) {
            continue;
        }
        for (int32_t c = r & 1; c < n; c += 2) {
            const int32_t left = cellBoundary(c, cellWidth, n, width);
            const int32_t right = cellBoundary(c + 1, cellWidth, n, width);
            // Cells always start inside the picture; should rounding ever put
            // one at or past the far edge it counts as empty (opaque black,
            // what an empty block averages to), never a block outside.
            const uint32_t average =
                left < width && top < height
                    ? blockAverage(src, ctx->stride, width, height, left, top, right, bottom)
                    : 0xFF000000u;
            const int32_t key = brightnessKey(average);
            const int64_t cx = (static_cast<int64_t>(left) + right) >> 1;
            const int64_t cy = (static_cast<int64_t>(top) + bottom) >> 1;
            if (spirals) {
                const int32_t length = spiralLength(key, brightness, scale);
                if (length >= 1) drawSpiral(t, spiral, cx, cy, length, ink);
            } else {
                const int32_t radius = circleRadius(key, brightness, scale);
                if (radius >= 1) drawCircle(t, cx, cy, radius, ink);
            }
        }
    }
}

}  // namespace

void renderNewsPrintNonUniform(const FrameContext* ctx, const ParameterBlock* block,
                               uint32_t format) {
    renderNewsPrint(ctx, block, format, true);
}

void renderNewsPrintUniform(const FrameContext* ctx, const ParameterBlock* block, uint32_t format) {
    renderNewsPrint(ctx, block, format, false);
}
