// "Stained Glass": flat panes that follow the dark details. The picture is
// cut into a G x G grid of cells; each cell is seeded at its darkest pixel
// and coloured with its block average; every pixel then takes the colour of
// the nearest seed among its own cell and the eight cells around it.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/clones.h"
#include "pixel/color.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

namespace {

// Boundary k of `count` cells over `size` pixels: trunc(k * cell) for k <
// count, and `size` itself for the last one. The cell size is single
// precision; the product is exact in double.
void cellBoundaries(int32_t* edges, int32_t count, int32_t size) {
    const float cell = static_cast<float>(static_cast<double>(size) / count);
    for (int32_t k = 0; k < count; ++k) edges[k] = truncToInt32(k * static_cast<double>(cell));
    edges[count] = size;
}

// Squared distances in 32-bit integers; results that leave the range wrap
// instead of being undefined (only for pictures over 46340 pixels a side).
inline int32_t square(int32_t v) {
    const uint32_t u = static_cast<uint32_t>(v);
    return static_cast<int32_t>(u * u);
}

inline int32_t distance2(int32_t dx2, int32_t dy2) {
    return static_cast<int32_t>(static_cast<uint32_t>(dx2) + static_cast<uint32_t>(dy2));
}

// One row of a cell: each pixel takes the colour of the nearest of the nine
// candidates (ties go to the later one). All nine are taken in one pass over
// the row, so the loop runs across the pixels, vectorises and writes each
// destination pixel once. A cell with fewer candidates repeats its first one
// in front: the repeats tie with it and leave its distance and colour as
// they are.
REELFX_CLONES void nearestSeedRow(uint32_t* out, int32_t cw, const int32_t* dx2, int32_t widest,
                                  const int32_t* dy2, const uint32_t* cc) {
    // The candidates' terms in locals: the destination row may not be
    // assumed apart from the caller's arrays, and these are read per pixel.
    const int32_t* t[9];
    int32_t d2[9];
    uint32_t colour[9];
    for (int k = 0; k < 9; ++k) {
        t[k] = dx2 + k * static_cast<size_t>(widest);
        d2[k] = dy2[k];
        colour[k] = cc[k];
    }
    for (int32_t x = 0; x < cw; ++x) {
        int32_t best = distance2(t[0][x], d2[0]);
        uint32_t pick = colour[0];
        for (int k = 1; k < 9; ++k) {
            const int32_t d = distance2(t[k][x], d2[k]);
            const bool closer = d <= best;
            best = closer ? d : best;
            pick = closer ? colour[k] : pick;
        }
        out[x] = pick;
    }
}

// The smallest brightness key of n pixels (256 for none), in vector lanes.
REELFX_CLONES int rowMinimumKey(const uint32_t* row, int32_t n) {
    int least = 256;
    for (int32_t x = 0; x < n; ++x) least = std::min(least, brightnessKey(row[x]));
    return least;
}

}  // namespace

void renderStainedGlass(const FrameContext* ctx, const ParameterBlock* block, uint32_t format) {
    uint32_t* dst = ctx->destination;
    const uint32_t* src = ctx->source;
    const int32_t width = ctx->width;
    const int32_t height = ctx->height;
    const int32_t stride = ctx->stride;
    const int64_t pitch = stride >> 2;
    if (!haveBothPictures(dst, src, ctx->stride, width, height, format)) return;
    if (width <= 0 || height <= 0) return;

    // Fewer than one cell per side (0, negative, NaN) means one cell: every
    // candidate is that cell and the picture takes its average colour.
    //
    // A grid finer than the picture has cells without pixels. Such a cell
    // has no darkest pixel, so it gets no seed and takes no part as a
    // candidate for its neighbours' pixels; its clamped neighbours are
    // looked up in the full grid as usual. Once G reaches the longer side
    // every cell that holds a pixel holds exactly one and is its own nearest
    // seed, so a larger G draws the same picture: G stops there, which
    // bounds the boundary tables by the picture's sides.
    int32_t g = truncToInt32(paramValue(block, kStainedGlassIntensity));
    if (g < 1) g = 1;
    g = std::min(g, std::max(width, height));

    std::vector<int32_t> edges(2 * (static_cast<size_t>(g) + 1));
    int32_t* colEdge = edges.data();
    int32_t* rowEdge = colEdge + g + 1;
    cellBoundaries(colEdge, g, width);
    cellBoundaries(rowEdge, g, height);

    // Only cells with pixels are stored: slot[k] is the index of grid column
    // (or row) k among the non-empty ones, -1 when it is empty. The work
    // arrays then hold at most one entry per pixel.
    std::vector<int32_t> slots(2 * static_cast<size_t>(g));
    int32_t* colSlot = slots.data();
    int32_t* rowSlot = colSlot + g;
    int32_t cols = 0, rows = 0;
    for (int32_t k = 0; k < g; ++k) {
        colSlot[k] = colEdge[k + 1] > colEdge[k] ? cols++ : -1;
        rowSlot[k] = rowEdge[k + 1] > rowEdge[k] ? rows++ : -1;
    }

    const size_t cells = static_cast<size_t>(rows) * cols;
    std::vector<int32_t> seedX(cells), seedY(cells);
    std::vector<uint32_t> colour(cells);

    for (int32_t r = 0; r < g; ++r) {
        if (rowSlot[r] < 0) continue;
        const int32_t y0 = rowEdge[r], y1 = rowEdge[r + 1];
        for (int32_t c = 0; c < g; ++c) {
            if (colSlot[c] < 0) continue;
            const int32_t x0 = colEdge[c], x1 = colEdge[c + 1];
            const size_t i = static_cast<size_t>(rowSlot[r]) * cols + colSlot[c];
            colour[i] = blockAverage(src, stride, width, height, x0, y0, x1, y1);
            // First darkest pixel in scan order: a row's minimum, then its
            // first position there; a later row must be strictly darker.
            int bestKey = 256;
            int32_t sx = x0, sy = y0;
            for (int32_t y = y0; y < y1; ++y) {
                const uint32_t* row = src + y * pitch;
                const int rowMin = rowMinimumKey(row + x0, x1 - x0);
                if (rowMin >= bestKey) continue;
                bestKey = rowMin;
                sy = y;
                sx = x0;
                while (brightnessKey(row[sx]) != rowMin) ++sx;
            }
            seedX[i] = sx;
            seedY[i] = sy;
        }
    }

    // Candidate order: self, upper left, upper right, up, lower left, lower
    // right, down, left, right. At the grid's edge a missing neighbour is the
    // nearest existing cell; with G = 1 all nine are the one cell; empty
    // cells are left out. The x terms of the distances are tabulated once
    // per cell, the y terms once per row, so the pixel loop only adds and
    // compares.
    static constexpr int kDr[9] = {0, -1, -1, -1, 1, 1, 1, 0, 0};
    static constexpr int kDc[9] = {0, -1, 1, 0, -1, 1, 0, -1, 1};
    int32_t widest = 0;
    for (int32_t c = 0; c < g; ++c) widest = std::max(widest, colEdge[c + 1] - colEdge[c]);
    std::vector<int32_t> dx2(9 * static_cast<size_t>(widest));
    for (int32_t r = 0; r < g; ++r) {
        if (rowSlot[r] < 0) continue;
        for (int32_t c = 0; c < g; ++c) {
            if (colSlot[c] < 0) continue;
            const int32_t x0 = colEdge[c], x1 = colEdge[c + 1];
            const int32_t cw = x1 - x0;
            size_t taking[9];
            int m = 0;  // candidates taking part; the cell itself always does
            for (int k = 0; k < 9; ++k) {
                const int32_t rr = rowSlot[std::clamp(r + kDr[k], 0, g - 1)];
                const int32_t ck = colSlot[std::clamp(c + kDc[k], 0, g - 1)];
                if (rr < 0 || ck < 0) continue;
                taking[m++] = static_cast<size_t>(rr) * cols + ck;
            }
            // Nine slots: the first candidate repeated 9 - m times, then all m.
            int32_t cy[9];
            uint32_t cc[9];
            for (int k = 0; k < 9; ++k) {
                const size_t i = taking[std::max(0, k - (9 - m))];
                int32_t* t = dx2.data() + k * static_cast<size_t>(widest);
                for (int32_t x = 0; x < cw; ++x) t[x] = square(x0 + x - seedX[i]);
                cy[k] = seedY[i];
                cc[k] = colour[i];
            }
            for (int32_t y = rowEdge[r]; y < rowEdge[r + 1]; ++y) {
                int32_t dy2[9];
                for (int k = 0; k < 9; ++k) dy2[k] = square(y - cy[k]);
                nearestSeedRow(dst + y * pitch + x0, cw, dx2.data(), widest, dy2, cc);
            }
        }
    }
}
