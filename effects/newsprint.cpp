// "NewsPrint": a black-on-white halftone. The picture is cut into an N x N
// grid; every other cell (a checkerboard) carries one ink mark whose size
// grows with the darkness of the cell's block average: a filled circle
// ("Uniform") or a dotted spiral ("Non-Uniform").
#include "effects/newsprint.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <vector>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/fxmath.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

namespace newsprint {

int64_t gridSize(int32_t width, double resolution) {
    // In 64 bits: q of the whole 32-bit range (NaN and values beyond it
    // truncate to INT32_MIN) gives N up to about 2^42 for the widest picture.
    const int64_t q = truncToInt32(resolution * 100.0);
    const int64_t half = width / 2;
    int64_t n = half - (half * q) / 100;
    if (n == 0) n = 1;
    return n;
}

float cellSize(int32_t extent, int64_t n) {
    return static_cast<float>(static_cast<double>(extent) / static_cast<double>(n));
}

int32_t cellBoundary(int64_t k, float size, int64_t n, int32_t extent) {
    if (k >= n) return extent;
    return truncToInt32(static_cast<double>(k) * size);
}

float brightnessFactor(double value) {
    return static_cast<float>(value);
}

float circleScale(float cellWidth, double contrast) {
    return static_cast<float>((static_cast<double>(cellWidth) * contrast) *
                              static_cast<double>(1.0f / 255.0f));
}

float spiralScale(float cellWidth, double contrast) {
    return static_cast<float>((static_cast<double>(cellWidth) * contrast) *
                              static_cast<double>(0.7f));
}

int64_t circleRadius(int32_t key, float brightness, float scale) {
    // Tested on its own: with a negative "Contrast" the product below would
    // turn a cell brighter than the paper into a mark.
    if (key * static_cast<double>(brightness) >= 255.0) return 0;
    return truncToInt32((255.0 - key * static_cast<double>(brightness)) * scale);
}

int64_t spiralLength(int32_t key, float brightness, float scale) {
    // In 64 bits: INT32_MIN (NaN, or a length beyond 32 bits) minus 1 stays
    // negative instead of wrapping to a length that would leave the table.
    int64_t l = truncToInt32((255.0 - 2 * key * static_cast<double>(brightness)) * scale);
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
// A circle that reaches twice as far as the picture's farthest pixel from
// its centre surely covers the picture: that is one fill, whatever the
// radius. Returns whether the whole picture is now ink.
bool drawCircle(const Target& t, int64_t cx, int64_t cy, int64_t r, uint32_t ink) {
    const int64_t far = std::max(std::abs(cx), std::abs(t.width - 1 - cx)) +
                        std::max(std::abs(cy), std::abs(t.height - 1 - cy));
    if (r >= 2 * far + 4) {
        for (int32_t y = 0; y < t.height; ++y) {
            std::fill_n(t.pixels + static_cast<ptrdiff_t>(y) * t.pitch, t.width, ink);
        }
        return true;
    }
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
    return false;
}

void drawSpiral(const Target& t, const SpiralPoint* spiral, int64_t cx, int64_t cy, int64_t length,
                uint32_t ink) {
    for (int64_t j = length; j >= 1; --j) {
        const int64_t x = cx + spiral[j].dx;
        const int64_t y = cy + spiral[j].dy;
        if (x >= 0 && x < t.width && y >= 0 && y < t.height) {
            t.pixels[static_cast<ptrdiff_t>(y) * t.pitch + x] = ink;
        }
    }
}

// Up to this many cells per side every marked cell is visited in order.
// Finer grids (a "Resolution" below about -1.8 on a 1920-wide picture) have
// far more cells than pixels: there the cells are grouped by their bounds,
// since cells with the same bounds have the same average and the same mark,
// and ink drawn twice is ink. Each group is drawn once if one of its cells
// is marked: the same picture, with at most about 2 x width by 2 x height
// groups.
constexpr int64_t kCellByCell = 1024;

// Cells of one axis with equal bounds, and which parities of the cell index
// occur among them (bit 0: even, bit 1: odd).
struct Band {
    int32_t lo, hi;
    uint8_t parities;
};

uint8_t parityMask(int64_t first, int64_t last) {
    return last > first ? 3 : static_cast<uint8_t>(1u << (first & 1));
}

// The bounds k < N never decrease, so the cells that start at one boundary
// are a run found by binary search; all but the run's last cell are empty.
std::vector<Band> bands(float size, int64_t n, int32_t extent) {
    std::vector<Band> out;
    int64_t k = 0;
    while (k < n) {
        const int32_t at = cellBoundary(k, size, n, extent);
        int64_t lo = k + 1, hi = n;
        while (lo < hi) {
            const int64_t mid = lo + (hi - lo) / 2;
            if (cellBoundary(mid, size, n, extent) > at) {
                hi = mid;
            } else {
                lo = mid + 1;
            }
        }
        if (lo - 1 > k) out.push_back({at, at, parityMask(k, lo - 2)});
        out.push_back({at, cellBoundary(lo, size, n, extent), parityMask(lo - 1, lo - 1)});
        k = lo;
    }
    return out;
}

struct Marks {
    const uint32_t* src;
    int32_t stride;
    const Target* t;
    const SpiralPoint* spiral;  // null: circles
    float brightness, scale;
    uint32_t ink;

    // The mark of the cell with these bounds; true when the picture is now
    // all ink, so that no later mark can change it.
    bool draw(int32_t left, int32_t top, int32_t right, int32_t bottom) const {
        // Cells always start inside the picture; should rounding ever put one
        // at or past the far edge it counts as empty (opaque black, what an
        // empty block averages to), never a block outside.
        const uint32_t average = left < t->width && top < t->height
                                     ? blockAverage(src, stride, t->width, t->height, left, top,
                                                    right, bottom)
                                     : 0xFF000000u;
        const int32_t key = brightnessKey(average);
        const int64_t cx = (static_cast<int64_t>(left) + right) >> 1;
        const int64_t cy = (static_cast<int64_t>(top) + bottom) >> 1;
        if (spiral) {
            const int64_t length = spiralLength(key, brightness, scale);
            if (length >= 1) drawSpiral(*t, spiral, cx, cy, length, ink);
            return false;
        }
        const int64_t radius = circleRadius(key, brightness, scale);
        return radius >= 1 && drawCircle(*t, cx, cy, radius, ink);
    }
};

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

    // N below 1 (a "Resolution" above 1) is an empty grid: plain paper.
    const int64_t n = gridSize(width, paramValue(block, 0));
    if (n < 1) return;
    const float cellWidth = cellSize(width, n);
    const float cellHeight = cellSize(height, n);
    const float brightness = brightnessFactor(paramValue(block, 1));
    const double contrast = paramValue(block, 2);
    const float scale =
        spirals ? spiralScale(cellWidth, contrast) : circleScale(cellWidth, contrast);

    // When no key at all gives a mark the picture stays paper, however many
    // cells there are.
    bool anyMark = false;
    for (int32_t key = 0; key < 256 && !anyMark; ++key) {
        anyMark = (spirals ? spiralLength(key, brightness, scale)
                           : circleRadius(key, brightness, scale)) >= 1;
    }
    if (!anyMark) return;

    SpiralPoint spiral[kSpiralMarks];
    if (spirals) buildSpiral(spiral, cellWidth);
    const Marks marks{src, ctx->stride, &t, spirals ? spiral : nullptr, brightness, scale, ink};

    if (n > kCellByCell) {
        const std::vector<Band> rows = bands(cellHeight, n, height);
        const std::vector<Band> cols = bands(cellWidth, n, width);
        for (const Band& r : rows) {
            for (const Band& c : cols) {
                if ((r.parities & c.parities) != 0 && marks.draw(c.lo, r.lo, c.hi, r.hi)) return;
            }
        }
        return;
    }

    for (int64_t r = 0; r < n; ++r) {
        const int32_t top = cellBoundary(r, cellHeight, n, height);
        const int32_t bottom = cellBoundary(r + 1, cellHeight, n, height);
        // A grid finer than the picture repeats rows: a row with the same
        // bounds as the row two above carries the same marks in the same
        // columns, and ink drawn twice is ink, so it is passed over.
        if (r >= 2 && top == cellBoundary(r - 2, cellHeight, n, height) &&
            bottom == cellBoundary(r - 1, cellHeight, n, height)) {
            continue;
        }
        for (int64_t c = r & 1; c < n; c += 2) {
            const int32_t left = cellBoundary(c, cellWidth, n, width);
            const int32_t right = cellBoundary(c + 1, cellWidth, n, width);
            if (marks.draw(left, top, right, bottom)) return;
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
