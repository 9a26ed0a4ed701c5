// "Flood": dark areas run out over their surroundings. Every interior pixel
// follows the steepest way down the brightness key, one neighbour at a time
// (above, below, left, right; the strictly darkest wins, the first of equals),
// until no neighbour is darker, the key is 0 or the walk reaches the edge of
// the picture, and takes the colour found there. Each pass reads a working
// copy of the previous result and writes the destination.
//
// The walk never writes the outermost rows and columns. They are copied from
// the source before the first pass, so the result never depends on what the
// target held before the call (and a picture narrower or shorter than three
// pixels comes out as a copy of the source).
#include <algorithm>
#include <cstdint>
#include <vector>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

namespace {

// The picture being walked: a packed copy (w words per row), the key of
// every pixel, and per pixel the index of its drain once known (-1 before).
// Indices are 32-bit: the renderer keeps pictures of more than INT32_MAX
// pixels out of the walk.
struct FloodPlane {
    int32_t w, h;
    std::vector<uint32_t> words;
    std::vector<uint8_t> keys;
    std::vector<int32_t> drains;
};

// The next position of a walk at interior index p: the strictly darkest of
// its four neighbours, the first of equals (above, below, left, right), or p
// itself where the walk stops.
int32_t stepFrom(const FloodPlane& f, int32_t p) {
    int best = f.keys[p];
    int32_t next = p;
    const int32_t around[4] = {p - f.w, p + f.w, p - 1, p + 1};
    for (int32_t q : around) {
        if (f.keys[q] < best) {
            best = f.keys[q];
            next = q;
        }
    }
    return next;
}

// Where the walk from p ends. A walk that moves on continues exactly like the
// walk started from its next position, so the drain found is kept for every
// pixel of the path; a path is at most 255 steps long, as every step lowers
// the key. Edge pixels are made their own drains before the walks of a pass,
// so only interior pixels are ever stepped from.
int32_t drainOf(FloodPlane& f, int32_t p) {
    int32_t path[256];
    int n = 0;
    while (f.drains[p] < 0) {
        const int32_t q = stepFrom(f, p);
        if (q == p) {
            f.drains[p] = p;
            break;
        }
        path[n++] = p;
        p = q;
    }
    const int32_t d = f.drains[p];
    while (n > 0) f.drains[path[--n]] = d;
    return d;
}

}  // namespace

void renderFlood(const FrameContext* ctx, const ParameterBlock* block, uint32_t format) {
    uint32_t* dst = ctx->destination;
    const uint32_t* src = ctx->source;
    const int32_t width = ctx->width;
    const int32_t height = ctx->height;
    const int64_t pitch = ctx->stride >> 2;
    if (!haveBothPictures(dst, src, ctx->stride, width, height, format)) return;
    if (width <= 0 || height <= 0) return;

    // NaN and values beyond 32 bits truncate to INT32_MIN: one pass.
    int32_t passes = truncToInt32(paramValue(block, 0));
    if (passes < 1) passes = 1;

    // The edge rows and columns, which no walk writes.
    for (int32_t y = 0; y < height; ++y) {
        const uint32_t* in = src + y * pitch;
        uint32_t* out = dst + y * pitch;
        if (y == 0 || y == height - 1) {
            std::copy_n(in, width, out);
        } else {
            out[0] = in[0];
            out[width - 1] = in[width - 1];
        }
    }
    // Without interior pixels the edges are the whole picture: a copy.
    if (width < 3 || height < 3) return;
    // A picture of more than INT32_MAX pixels (over 8 GiB) is not flooded
    // but copied, rather than indexed past 32 bits.
    if (int64_t{width} * height > INT32_MAX) {
        for (int32_t y = 1; y < height - 1; ++y) {
            std::copy_n(src + y * pitch + 1, width - 2, dst + y * pitch + 1);
        }
        return;
    }

    FloodPlane f{width, height, {}, {}, {}};
    const int32_t count = width * height;
    f.words.resize(count);
    f.keys.resize(count);
    f.drains.resize(count);
    for (int32_t y = 0; y < height; ++y) {
        std::copy_n(src + y * pitch, width, f.words.data() + int64_t{y} * width);
    }

    for (int32_t pass = 0; pass < passes; ++pass) {
        for (int32_t i = 0; i < count; ++i) {
            f.keys[i] = static_cast<uint8_t>(brightnessKey(f.words[i]));
        }
        std::fill(f.drains.begin(), f.drains.end(), -1);
        for (int32_t x = 0; x < width; ++x) {
            f.drains[x] = x;
            f.drains[count - width + x] = count - width + x;
        }
        for (int32_t i = width; i < count - width; i += width) {
            f.drains[i] = i;
            f.drains[i + width - 1] = i + width - 1;
        }

        bool changed = false;
        for (int32_t y = 1; y < height - 1; ++y) {
            uint32_t* out = dst + y * pitch;
            const int32_t rowStart = y * width;
            for (int32_t x = 1; x < width - 1; ++x) {
                const uint32_t v = f.words[drainOf(f, rowStart + x)];
                changed |= v != f.words[rowStart + x];
                out[x] = v;
            }
        }
        // The edges of the destination and the working copy agree from the
        // start, so a pass that changed nothing leaves the two equal and every
        // further pass would repeat it: the result is final.
        if (!changed || pass == passes - 1) break;
        for (int32_t y = 1; y < height - 1; ++y) {
            std::copy_n(dst + y * pitch + 1, width - 2, f.words.data() + y * width + 1);
        }
    }
}
