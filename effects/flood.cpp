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
#include <memory>
#include <vector>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

namespace {

// The picture being walked: a packed copy (w words per row), the key of
// every pixel, the first step of the walk from every pixel (0: the walk
// stops there; 1 to 4: above, below, left, right) and per pixel a position
// on its walk, which ends as the drain. Indices are 32-bit: the renderer
// keeps pictures of more than INT32_MAX pixels out of the walk.
struct FloodPlane {
    int32_t w, h;
    // The planes every pass writes in full before reading are left
    // uninitialised; `ahead` starts zeroed, as the first jumps of a pass
    // read (and drop) places not yet written.
    std::unique_ptr<uint32_t[]> words;
    std::unique_ptr<uint8_t[]> keys;
    std::vector<uint8_t> steps;
    std::vector<int32_t> ahead;
    std::vector<int32_t> next;           // one row
    std::unique_ptr<int32_t[]> pending;  // pixels still on their way, one sweep to the next
};

__attribute__((target_clones("avx2", "default"))) void keysOf(const uint32_t* words,
                                                                uint8_t* keys, int32_t count) {
    for (int32_t i = 0; i < count; ++i) keys[i] = static_cast<uint8_t>(brightnessKey(words[i]));
}

// The first step from each interior pixel of a row, as the index of the
// pixel it moves to (the pixel itself where the walk stops): the strictly
// darkest of its four neighbours, the first of equals (above, below, left,
// right).
__attribute__((target_clones("avx2", "default"))) void stepsOfRow(const uint8_t* keys,
                                                                   int32_t w, int32_t rowStart,
                                                                   uint8_t* steps,
                                                                   int32_t* next) {
    const uint8_t* k = keys + rowStart;
    const uint8_t* above = k - w;
    const uint8_t* below = k + w;
    for (int32_t x = 1; x < w - 1; ++x) {
        uint8_t best = k[x], step = 0;
        if (above[x] < best) best = above[x], step = 1;
        if (below[x] < best) best = below[x], step = 2;
        if (k[x - 1] < best) best = k[x - 1], step = 3;
        if (k[x + 1] < best) step = 4;
        steps[x] = step;
    }
    for (int32_t x = 1; x < w - 1; ++x) {
        const int32_t c = steps[x];
        next[x] = rowStart + x + (c == 2) * w - (c == 1) * w + (c == 4) - (c == 3);
    }
}

// Every position ahead on a walk continues exactly like the walk started
// there, so a position can jump to the position ahead of it; where the walk
// stops, the position is the pixel itself. The rows are first taken top to
// bottom with each pixel's first step, jumping at once where that step goes
// up or left (to a pixel already done); then sweeps jump every interior
// pixel not yet there once until every position is a pixel where its walk
// stops: the drain. Each sweep at least halves what is left of a walk (at
// most 255 steps, as every step lowers the key), and the walks that keep
// one direction are done in the first two.
void jumpToDrains(FloodPlane& f) {
    const int32_t w = f.w, count = w * f.h;
    int32_t* ahead = f.ahead.data();
    for (int32_t x = 0; x < w; ++x) {
        ahead[x] = x;
        ahead[count - w + x] = count - w + x;
    }
    for (int32_t i = w; i < count - w; i += w) {
        stepsOfRow(f.keys.get(), w, i, f.steps.data(), f.next.data());
        ahead[i] = i;
        ahead[i + w - 1] = i + w - 1;
        for (int32_t x = 1; x < w - 1; ++x) {
            // A step down or right goes to a pixel not yet done this pass:
            // what its place holds is read but not taken.
            const int32_t q = f.next[x];
            const int32_t done = -static_cast<int32_t>(q < i + x);
            ahead[i + x] = (ahead[q] & done) | (q & ~done);
        }
    }
    // One sweep up the picture; the pixels whose position is not yet a drain
    // are listed, and only they take the further sweeps.
    int32_t* pending = f.pending.get();
    int32_t n = 0;
    for (int32_t p = count - w - 1; p >= w; --p) {
        const int32_t r = ahead[ahead[p]];
        ahead[p] = r;
        pending[n] = p;
        n += ahead[r] != r;
    }
    while (n > 0) {
        int32_t kept = 0;
        for (int32_t j = 0; j < n; ++j) {
            const int32_t p = pending[j];
            const int32_t r = ahead[ahead[p]];
            ahead[p] = r;
            pending[kept] = p;
            kept += ahead[r] != r;
        }
        n = kept;
    }
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
    int32_t passes = truncToInt32(paramValue(block, kFloodIntensity));
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

    FloodPlane f{width, height, {}, {}, {}, {}, {}, {}};
    const int32_t count = width * height;
    f.words.reset(new uint32_t[count]);
    f.keys.reset(new uint8_t[count]);
    f.steps.resize(width);
    f.ahead.resize(count);
    f.next.resize(width);
    f.pending.reset(new int32_t[count]);
    for (int32_t y = 0; y < height; ++y) {
        std::copy_n(src + y * pitch, width, f.words.get() + int64_t{y} * width);
    }

    for (int32_t pass = 0; pass < passes; ++pass) {
        keysOf(f.words.get(), f.keys.get(), count);
        jumpToDrains(f);

        uint32_t changed = 0;
        for (int32_t y = 1; y < height - 1; ++y) {
            uint32_t* out = dst + y * pitch;
            const int32_t rowStart = y * width;
            for (int32_t x = 1; x < width - 1; ++x) {
                const uint32_t v = f.words[f.ahead[rowStart + x]];
                changed |= v ^ f.words[rowStart + x];
                out[x] = v;
            }
        }
        // The edges of the destination and the working copy agree from the
        // start, so a pass that changed nothing leaves the two equal and every
        // further pass would repeat it: the result is final.
        if (changed == 0 || pass == passes - 1) break;
        for (int32_t y = 1; y < height - 1; ++y) {
            std::copy_n(dst + y * pitch + 1, width - 2, f.words.get() + y * width + 1);
        }
    }
}
