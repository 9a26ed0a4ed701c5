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
#include "pixel/clones.h"
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

float brightnessFactor(double value) { return static_cast<float>(value); }

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

// Blocks of up to this many pixels sum their bytes in 32 bits.
constexpr int64_t kShortSum = 0xFFFFFFFF / 255;

// The block average of a cell: corners held to the picture (its last column
// and row are left out), the byte sums divided by the pixel count + 1, an
// empty block opaque black. Cells up to kShortSum pixels sum in 32 bits,
// which the 32-bit build does in single registers; larger or odd blocks go
// to the shared block average.
uint32_t cellAverage(const uint32_t* src, int32_t stride, int32_t width, int32_t height, int32_t x0,
                     int32_t y0, int32_t x1, int32_t y1) {
    if (x0 < 0 || y0 < 0) return blockAverage(src, stride, width, height, x0, y0, x1, y1);
    const int32_t ex = std::min(x1, width - 1);
    const int32_t ey = std::min(y1, height - 1);
    if (ex <= x0 || ey <= y0) return 0xFF000000u;
    const int32_t cols = ex - x0;
    if (int64_t{cols} * (ey - y0) > kShortSum) {
        return blockAverage(src, stride, width, height, x0, y0, x1, y1);
    }
    uint32_t s0 = 0, s1 = 0, s2 = 0;
    const ptrdiff_t pitch = stride >> 2;
    for (int32_t y = y0; y < ey; ++y) {
        const uint32_t* row = src + y * pitch + x0;
        for (int32_t i = 0; i < cols; ++i) {
            const uint32_t p = row[i];
            s0 += p & 0xFF;
            s1 += (p >> 8) & 0xFF;
            s2 += (p >> 16) & 0xFF;
        }
    }
    const uint32_t n = static_cast<uint32_t>(cols * (ey - y0)) + 1;
    return 0xFF000000u | (s2 / n) << 16 | (s1 / n) << 8 | s0 / n;
}

// The byte sums of rows [top, bottom) in each of the first `count` columns,
// for the cells of one cell row to add up: each pixel is read once, in
// vector lanes, instead of once per cell in loops a few pixels long.
struct ColumnSums {
    std::vector<uint32_t> s0, s1, s2;
    int32_t rows = 0;         // rows summed; 0 when the cell row has none inside the picture
    uint32_t divisor = 0;     // the divisor whose reciprocal is below (0: none yet)
    uint64_t reciprocal = 0;  // ceil(2^40 / divisor)
};

REELFX_CLONES void sumColumns(const uint32_t* src, ptrdiff_t pitch, int32_t count, int32_t top,
                              int32_t bottom, uint32_t* s0, uint32_t* s1, uint32_t* s2) {
    for (int32_t x = 0; x < count; ++x) s0[x] = s1[x] = s2[x] = 0;
    for (int32_t y = top; y < bottom; ++y) {
        const uint32_t* row = src + y * pitch;
        for (int32_t x = 0; x < count; ++x) {
            const uint32_t p = row[x];
            s0[x] += p & 0xFF;
            s1[x] += (p >> 8) & 0xFF;
            s2[x] += (p >> 16) & 0xFF;
        }
    }
}

// cellAverage of the cell [x0, x1) x [top, bottom) of a cell row whose
// column sums are `cs` (0 <= x0, 0 <= top): the same sums, added column by
// column. Blocks past kShortSum pixels go to cellAverage itself.
// Below this pixel count + 1 a block's quotients are taken as products.
constexpr uint32_t kReciprocalLimit = 65536;
static_assert(uint64_t{255} * kReciprocalLimit * kReciprocalLimit < (uint64_t{1} << 40));

uint32_t averageFromColumns(ColumnSums& cs, const uint32_t* src, int32_t stride, int32_t width,
                            int32_t height, int32_t x0, int32_t top, int32_t x1, int32_t bottom) {
    const int32_t ex = std::min(x1, width - 1);
    if (ex <= x0 || cs.rows <= 0) return 0xFF000000u;
    const int32_t cols = ex - x0;
    if (int64_t{cols} * cs.rows > kShortSum) {
        return cellAverage(src, stride, width, height, x0, top, x1, bottom);
    }
    uint32_t s0 = 0, s1 = 0, s2 = 0;
    for (int32_t x = x0; x < ex; ++x) {
        s0 += cs.s0[x];
        s1 += cs.s1[x];
        s2 += cs.s2[x];
    }
    const uint32_t n = static_cast<uint32_t>(cols * cs.rows) + 1;
    if (n >= kReciprocalLimit) return 0xFF000000u | (s2 / n) << 16 | (s1 / n) << 8 | s0 / n;
    // s / n as a product: with m = ceil(2^40 / n) = (2^40 + e) / n, e < n,
    // s * m / 2^40 exceeds s / n by s * e / (n * 2^40) < 1 / n when s * n <
    // 2^40, which holds for sums of at most 255 * n below kReciprocalLimit:
    // the quotient's integer part is the same.
    // Cells share a handful of sizes: the reciprocal is kept for the last one.
    if (n != cs.divisor) {
        cs.divisor = n;
        cs.reciprocal = ((uint64_t{1} << 40) + n - 1) / n;
    }
    const uint64_t m = cs.reciprocal;
    const auto quotient = [m](uint32_t v) { return static_cast<uint32_t>((v * m) >> 40); };
    return 0xFF000000u | quotient(s2) << 16 | quotient(s1) << 8 | quotient(s0);
}

constexpr int kSpiralMarks = 360;  // points 10 x j, j = 0 ... 359

// The spiral points a mark can use, 10 x j for j = 1 ... 359, as distinct
// offsets in the order of the first point that lands on each: a mark of
// length L sets the first reach[L] of them. The spiral winds ten times
// within one cell width, so most points fall on a pixel an earlier point
// has set already, and ink set twice is ink.
struct Spiral {
    std::vector<int32_t> dx, dy;
    std::vector<ptrdiff_t> at;  // dy x pitch + dx, when offsetsFit
    int32_t reach[kSpiralMarks];
    int64_t left = 0, right = 0, up = 0, down = 0;  // extreme offsets
    bool offsetsFit = false;                        // every offset lies within the picture's size
};

void buildSpiral(Spiral& s, float cellWidth, const Target& t) {
    const double radiusStep = static_cast<double>(1.0f / 3600.0f);
    const double angleStep = static_cast<double>(1.0f / 57.0f);
    s.reach[0] = 0;
    for (int j = 1; j < kSpiralMarks; ++j) {
        const int i = 10 * j;
        const float rho = static_cast<float>((static_cast<double>(cellWidth) * i) * radiusStep);
        const double theta = i * angleStep;
        const int32_t dx = truncToInt32(fxCos(theta) * rho);
        const int32_t dy = truncToInt32(fxSin(theta) * rho);
        bool seen = false;
        for (size_t k = s.dx.size(); k-- > 0 && !seen;) seen = s.dx[k] == dx && s.dy[k] == dy;
        if (!seen) {
            s.dx.push_back(dx);
            s.dy.push_back(dy);
            s.left = std::min<int64_t>(s.left, dx);
            s.right = std::max<int64_t>(s.right, dx);
            s.up = std::min<int64_t>(s.up, dy);
            s.down = std::max<int64_t>(s.down, dy);
        }
        s.reach[j] = static_cast<int32_t>(s.dx.size());
    }
    s.offsetsFit = -s.left < t.width && s.right < t.width && -s.up < t.height && s.down < t.height;
    if (s.offsetsFit) {
        for (size_t k = 0; k < s.dx.size(); ++k) s.at.push_back(s.dy[k] * t.pitch + s.dx[k]);
    }
}

void drawSpiral(const Target& t, const Spiral& s, int64_t cx, int64_t cy, int64_t length,
                uint32_t ink) {
    const int32_t count = s.reach[length];
    if (s.offsetsFit && cx + s.left >= 0 && cx + s.right < t.width && cy + s.up >= 0 &&
        cy + s.down < t.height) {
        uint32_t* centre = t.pixels + static_cast<ptrdiff_t>(cy) * t.pitch + cx;
        for (int32_t k = 0; k < count; ++k) centre[s.at[k]] = ink;
        return;
    }
    for (int32_t k = 0; k < count; ++k) {
        const int64_t x = cx + s.dx[k];
        const int64_t y = cy + s.dy[k];
        if (x >= 0 && x < t.width && y >= 0 && y < t.height) {
            t.pixels[static_cast<ptrdiff_t>(y) * t.pitch + x] = ink;
        }
    }
}

// A filled circle of radius r by the midpoint rule draws, with x = 0,
// y = r, d = 3 - 2r, while x <= y, the horizontal lines from (cx + x, cy
// +- y) to (cx - x, cy +- y) and from (cx + y, cy +- x) to (cx - y, cy +- x),
// then if d >= 0: d += 4 (x - y) + 10, y -= 1, else d += 4x + 6; x += 1.
// Every line is centred on column cx, so on row cy +- e the lines together
// cover the widest of them: half[e] columns either side (-1: none). The
// half widths depend only on r; they are worked out once per radius and
// frame, for the rows e <= min(r, height): a centre lies on rows 0 ...
// height, so no farther row can fall inside the picture.
void discWidths(int64_t r, int32_t rows, std::vector<int32_t>& half) {
    const int64_t m = std::min<int64_t>(r, rows);
    half.assign(static_cast<size_t>(m) + 1, -1);
    int64_t x = 0, y = r, d = 3 - 2 * r;
    while (x <= y && x <= m) {
        if (y <= m) half[y] = std::max(half[y], static_cast<int32_t>(x));
        half[x] = std::max(half[x], static_cast<int32_t>(y));
        if (d >= 0) {
            d = d + 4 * (x - y) + 10;
            y = y - 1;
        } else {
            d = d + 4 * x + 6;
        }
        x = x + 1;
    }
}

// Discs much larger than a cell overlap many times over. For them every
// row keeps, per pixel, a link towards the next pixel that is not yet ink
// (followed with path halving), so that each pixel is painted once and a
// span over ink already costs next to nothing.
// Rows that are all ink are linked past the same way.
struct Unpainted {
    std::vector<int32_t> next;     // width + 1 links a row; a pixel linked to itself is not ink
    std::vector<int32_t> openRow;  // height + 1 links; a row linked to itself is not all ink
    std::vector<int32_t> rowLeft;  // pixels of each row not yet ink
    int32_t rowsLeft = 0;

    static int32_t find(int32_t* link, int32_t i) {
        while (link[i] != i) {
            link[i] = link[link[i]];
            i = link[i];
        }
        return i;
    }
};

// Discs from this radius on paint through Unpainted.
constexpr int64_t kLargeDisc = 16;

// Draws the disc row by row; true when the whole picture is now ink, so that
// no later mark can change it.
bool drawDisc(const Target& t, const std::vector<int32_t>& half, int64_t cx, int64_t cy,
              uint32_t ink, Unpainted* unpainted) {
    const int64_t m = static_cast<int64_t>(half.size()) - 1;
    const int32_t y0 = static_cast<int32_t>(std::max<int64_t>(cy - m, 0));
    const int32_t y1 = static_cast<int32_t>(std::min<int64_t>(cy + m, t.height - 1));
    if (y0 > y1) return false;
    int32_t fullRows = 0;
    int32_t* openRow = unpainted ? unpainted->openRow.data() : nullptr;
    for (int32_t y = openRow ? Unpainted::find(openRow, y0) : y0; y <= y1;
         y = openRow ? Unpainted::find(openRow, y + 1) : y + 1) {
        const int32_t h = half[static_cast<size_t>(y < cy ? cy - y : y - cy)];
        if (h < 0) continue;
        const int64_t lo = std::max<int64_t>(cx - h, 0);
        const int64_t hi = std::min<int64_t>(cx + h, t.width - 1);
        if (lo > hi) continue;
        uint32_t* row = t.pixels + static_cast<ptrdiff_t>(y) * t.pitch;
        if (!unpainted) {
            std::fill(row + lo, row + hi + 1, ink);
            fullRows += lo == 0 && hi == t.width - 1;
            continue;
        }
        int32_t* link = unpainted->next.data() + static_cast<size_t>(y) * (t.width + 1u);
        int32_t painted = 0;
        for (int32_t x = Unpainted::find(link, static_cast<int32_t>(lo)); x <= hi;
             x = Unpainted::find(link, x + 1)) {
            row[x] = ink;
            link[x] = x + 1;
            ++painted;
        }
        if ((unpainted->rowLeft[y] -= painted) == 0) {
            openRow[y] = y + 1;
            --unpainted->rowsLeft;
        }
    }
    return unpainted ? unpainted->rowsLeft == 0 : fullRows == t.height;
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

// What one frame's marks need, worked out before the cells are visited:
// the mark size of every key, the spiral, and the disc of each radius in
// use (built when a cell first needs it).
struct Marks {
    const uint32_t* src;
    int32_t stride;
    Target t;
    uint32_t ink;
    bool spirals;
    int64_t size[256];  // circle radius or spiral length by key; a mark when >= 1
    Spiral spiral;
    int32_t discOf[256];  // index into discs by key, -1 while not built
    std::vector<std::vector<int32_t>> discs;
    bool largeDiscs = false;  // some key's disc reaches kLargeDisc
    Unpainted unpainted;      // made when the first disc is drawn

    // The mark of the cell with these bounds; true when the picture is now
    // all ink, so that no later mark can change it.
    bool draw(int32_t left, int32_t top, int32_t right, int32_t bottom) {
        return drawKey(
            brightnessKey(cellAverage(src, stride, t.width, t.height, left, top, right, bottom)),
            left, top, right, bottom);
    }

    // The same, for a cell whose average's key is known.
    bool drawKey(int32_t key, int32_t left, int32_t top, int32_t right, int32_t bottom) {
        const int64_t s = size[key];
        if (s < 1) return false;
        const int64_t cx = (static_cast<int64_t>(left) + right) >> 1;
        const int64_t cy = (static_cast<int64_t>(top) + bottom) >> 1;
        if (spirals) {
            drawSpiral(t, spiral, cx, cy, s, ink);
            return false;
        }
        if (discOf[key] < 0) {
            for (int32_t k = 0; k < 256; ++k) {
                if (discOf[k] >= 0 && size[k] == s) discOf[key] = discOf[k];
            }
            if (discOf[key] < 0) {
                discOf[key] = static_cast<int32_t>(discs.size());
                discs.emplace_back();
                discWidths(s, t.height, discs.back());
            }
        }
        if (largeDiscs && unpainted.next.empty()) {
            const size_t rowLength = t.width + 1u;
            unpainted.next.resize(rowLength * static_cast<size_t>(t.height));
            for (size_t y = 0; y < static_cast<size_t>(t.height); ++y) {
                for (size_t x = 0; x < rowLength; ++x) {
                    unpainted.next[y * rowLength + x] = static_cast<int32_t>(x);
                }
            }
            unpainted.openRow.resize(static_cast<size_t>(t.height) + 1);
            for (int32_t y = 0; y <= t.height; ++y) unpainted.openRow[y] = y;
            unpainted.rowLeft.assign(static_cast<size_t>(t.height), t.width);
            unpainted.rowsLeft = t.height;
        }
        return drawDisc(t, discs[static_cast<size_t>(discOf[key])], cx, cy, ink,
                        largeDiscs ? &unpainted : nullptr);
    }
};

// On a grid finer than the picture with every disc below kLargeDisc the
// groups (about 8 million at 1080p) are too many to draw one by one. Every
// group's centre is a pixel position (0 ... width, 0 ... height), and a disc
// of the midpoint rule holds every smaller disc of the same centre (true for
// all radii below kLargeDisc), so a centre keeps only its largest radius.
// Then, row by row, each centre column takes the widest half width of the
// discs that reach the row, and the row's ink is the union of those spans:
// the same pixels as drawing every group, in time bounded by the picture.
void drawSmallDiscs(const Marks& marks, const std::vector<Band>& rows,
                    const std::vector<Band>& cols, int32_t largest) {
    const Target& t = marks.t;
    const size_t across = t.width + 1u;
    std::vector<uint8_t> radius(across * (t.height + 1u), 0);  // 0: no mark
    for (const Band& r : rows) {
        uint8_t* centres = radius.data() + static_cast<size_t>((r.lo + r.hi) >> 1) * across;
        for (const Band& c : cols) {
            if ((r.parities & c.parities) == 0) continue;
            const int64_t s = marks.size[brightnessKey(
                cellAverage(marks.src, marks.stride, t.width, t.height, c.lo, r.lo, c.hi, r.hi))];
            uint8_t& at = centres[(c.lo + c.hi) >> 1];
            if (s > at) at = static_cast<uint8_t>(s);
        }
    }
    // reach[e x (largest + 1) + s]: the half width of a disc of radius s on
    // the row e away from its centre, -1 where it has none.
    const size_t sizes = static_cast<size_t>(largest) + 1;
    std::vector<int32_t> reach(sizes * sizes, -1);
    std::vector<int32_t> half;
    for (int32_t s = 1; s <= largest; ++s) {
        discWidths(s, t.height, half);
        for (size_t e = 0; e < half.size(); ++e) reach[e * sizes + s] = half[e];
    }
    std::vector<int32_t> widest(across), furthest(static_cast<size_t>(t.width));
    for (int32_t y = 0; y < t.height; ++y) {
        std::fill(widest.begin(), widest.end(), -1);
        const int32_t last = std::min(y + largest, t.height);
        for (int32_t cy = std::max(y - largest, 0); cy <= last; ++cy) {
            const int32_t* row = reach.data() + static_cast<size_t>(std::abs(y - cy)) * sizes;
            const uint8_t* centres = radius.data() + static_cast<size_t>(cy) * across;
            for (size_t cx = 0; cx < across; ++cx) {
                widest[cx] = std::max(widest[cx], row[centres[cx]]);
            }
        }
        // furthest[x]: the right end of the furthest reaching span from x.
        std::fill(furthest.begin(), furthest.end(), -1);
        for (int32_t cx = 0; cx <= t.width; ++cx) {
            const int32_t h = widest[static_cast<size_t>(cx)];
            const int32_t lo = std::max(cx - h, 0), hi = std::min(cx + h, t.width - 1);
            if (h < 0 || lo > hi) continue;
            furthest[static_cast<size_t>(lo)] = std::max(furthest[static_cast<size_t>(lo)], hi);
        }
        uint32_t* out = t.pixels + static_cast<ptrdiff_t>(y) * t.pitch;
        for (int32_t x = 0, inkTo = -1; x < t.width; ++x) {
            inkTo = std::max(inkTo, furthest[static_cast<size_t>(x)]);
            if (x <= inkTo) out[x] = marks.ink;
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

    for (int32_t y = 0; y < height; ++y) std::fill_n(dst + y * t.pitch, width, paper);
    if (!src) return;

    // N below 1 (a "Resolution" above 1) is an empty grid: plain paper.
    const int64_t n = gridSize(width, paramValue(block, kNewsPrintResolution));
    if (n < 1) return;
    const float cellWidth = cellSize(width, n);
    const float cellHeight = cellSize(height, n);
    const float brightness = brightnessFactor(paramValue(block, kNewsPrintBrightness));
    const double contrast = paramValue(block, kNewsPrintContrast);
    const float scale =
        spirals ? spiralScale(cellWidth, contrast) : circleScale(cellWidth, contrast);

    Marks marks{src, ctx->stride, t, ink, spirals, {}, {}, {}, {}, false, {}};
    // When no key at all gives a mark the picture stays paper, however many
    // cells there are.
    bool anyMark = false;
    for (int32_t key = 0; key < 256; ++key) {
        marks.size[key] =
            spirals ? spiralLength(key, brightness, scale) : circleRadius(key, brightness, scale);
        anyMark = anyMark || marks.size[key] >= 1;
        marks.largeDiscs = marks.largeDiscs || (!spirals && marks.size[key] >= kLargeDisc);
        marks.discOf[key] = -1;
    }
    if (!anyMark) return;
    if (spirals) buildSpiral(marks.spiral, cellWidth, t);

    if (n > kCellByCell) {
        const std::vector<Band> rows = bands(cellHeight, n, height);
        const std::vector<Band> cols = bands(cellWidth, n, width);
        if (!spirals && !marks.largeDiscs) {
            int64_t largest = 0;
            for (int32_t key = 0; key < 256; ++key) largest = std::max(largest, marks.size[key]);
            drawSmallDiscs(marks, rows, cols, static_cast<int32_t>(largest));
            return;
        }
        for (const Band& r : rows) {
            for (const Band& c : cols) {
                if ((r.parities & c.parities) != 0 && marks.draw(c.lo, r.lo, c.hi, r.hi)) return;
            }
        }
        return;
    }

    std::vector<int32_t> colEdge(static_cast<size_t>(n) + 1);
    for (int64_t c = 0; c <= n; ++c) colEdge[c] = cellBoundary(c, cellWidth, n, width);
    // The last column and row are left out of every average.
    const int32_t summed = width - 1;
    ColumnSums cs;
    cs.s0.resize(static_cast<size_t>(std::max(summed, 0)));
    cs.s1.resize(cs.s0.size());
    cs.s2.resize(cs.s0.size());
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
        cs.rows = std::max(std::min(bottom, height - 1) - top, 0);
        if (cs.rows > 0 && summed > 0) {
            sumColumns(src, t.pitch, summed, top, top + cs.rows, cs.s0.data(), cs.s1.data(),
                       cs.s2.data());
        }
        for (int64_t c = r & 1; c < n; c += 2) {
            const int32_t left = colEdge[c], right = colEdge[c + 1];
            const uint32_t average =
                averageFromColumns(cs, src, ctx->stride, width, height, left, top, right, bottom);
            if (marks.drawKey(brightnessKey(average), left, top, right, bottom)) return;
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
