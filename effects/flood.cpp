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
#include "pixel/clones.h"
#include "pixel/color.h"
#include "pixel/numeric.h"
#include "plugin/parameters.h"

namespace {

// The walks of one pass. Positions are indices y * pitch + x into the
// pictures a pass reads, so that a pass reads the source or the previous
// result where it lies. Per pixel a position on its walk, which ends as the
// drain; the edge pixels hold themselves from the start (no walk leaves
// them). The keys are kept for three rows at a time: the row whose first
// steps are taken and its neighbours.
struct FloodWalks {
    int32_t w, h, pitch;
    // The planes every pass writes in full before reading are left
    // uninitialised.
    std::unique_ptr<uint8_t[]> keys;  // three rows
    std::vector<uint8_t> steps;
    std::unique_ptr<int32_t[]> ahead;
    std::vector<int32_t> next;           // one row
    std::unique_ptr<int32_t[]> pending;  // pixels still on their way, one sweep to the next
};

REELFX_CLONES void keysOf(const uint32_t* words, uint8_t* keys, int32_t count) {
    for (int32_t i = 0; i < count; ++i) keys[i] = static_cast<uint8_t>(brightnessKey(words[i]));
}

// The first step from each interior pixel of a row (keys k, with the rows
// above and below), as the position it moves to (the pixel itself where the
// walk stops): the strictly darkest of its four neighbours, the first of
// equals (above, below, left, right).
REELFX_CLONES bool stepsOfRow(const uint8_t* above, const uint8_t* k, const uint8_t* below,
                              int32_t w, int32_t pitch, int32_t rowStart, uint8_t* steps,
                              int32_t* next) {
    for (int32_t x = 1; x < w - 1; ++x) {
        uint8_t best = k[x], step = 0;
        if (above[x] < best) best = above[x], step = 1;
        if (below[x] < best) best = below[x], step = 2;
        if (k[x - 1] < best) best = k[x - 1], step = 3;
        if (k[x + 1] < best) step = 4;
        steps[x] = step;
    }
    uint8_t any = 0;
    for (int32_t x = 1; x < w - 1; ++x) {
        const int32_t c = steps[x];
        any |= steps[x];
        next[x] = rowStart + x + (c == 2) * pitch - (c == 1) * pitch + (c == 4) - (c == 3);
    }
    return any != 0;
}

// Every position ahead on a walk continues exactly like the walk started
// there, so a position can jump to the position ahead of it; where the walk
// stops, the position is the pixel itself. The rows are first taken top to
// bottom, each pixel's position its first step; then sweeps jump every
// interior pixel not yet there once until every position is a pixel where
// its walk stops: the drain. The first sweep goes up the picture, so a step
// down or right lands on a position already taken further; each later sweep
// at least halves what is left of a walk (at most 255 steps, as every step
// lowers the key). A pixel's output is written as
// soon as its drain is known. Returns whether any pixel changed: every step
// lowers the key, so a pixel whose walk moves takes a word of another key,
// and a pass changes a pixel exactly when some walk takes a step.
bool floodPass(FloodWalks& f, const uint32_t* in, uint32_t* out, int64_t outPitch) {
    const int32_t w = f.w, h = f.h, pitch = f.pitch;
    int32_t* ahead = f.ahead.get();
    uint8_t* keyRow[3] = {f.keys.get(), f.keys.get() + w, f.keys.get() + 2 * w};
    keysOf(in, keyRow[0], w);
    keysOf(in + pitch, keyRow[1], w);
    int32_t moved = 0;
    for (int32_t y = 1; y < h - 1; ++y) {
        const int32_t i = y * pitch;
        keysOf(in + i + pitch, keyRow[(y + 1) % 3], w);
        moved |= stepsOfRow(keyRow[(y - 1) % 3], keyRow[y % 3], keyRow[(y + 1) % 3], w, pitch, i,
                            f.steps.data(), ahead + i);
    }
    // One sweep up the picture, writing the output of every pixel; the
    // pixels whose position is not yet a drain are listed, and only they take
    // the further sweeps, which write their output again until it is final.
    int32_t* pending = f.pending.get();
    int32_t n = 0;
    for (int32_t y = h - 2; y >= 1; --y) {
        const int32_t i = y * pitch;
        uint32_t* outRow = out + y * outPitch - i;
        for (int32_t p = i + w - 2; p > i; --p) {
            const int32_t r = ahead[ahead[p]];
            ahead[p] = r;
            const uint32_t open = ahead[r] != r;
            pending[n] = p;
            n += static_cast<int32_t>(open);
            outRow[p] = in[r];
        }
    }
    const bool samePitch = outPitch == pitch;
    while (n > 0) {
        int32_t kept = 0;
        for (int32_t j = 0; j < n; ++j) {
            const int32_t p = pending[j];
            const int32_t r = ahead[ahead[p]];
            ahead[p] = r;
            const uint32_t open = ahead[r] != r;
            pending[kept] = p;
            kept += static_cast<int32_t>(open);
            out[samePitch ? p : (p / pitch) * outPitch + p % pitch] = in[r];
        }
        n = kept;
    }
    return moved != 0;
}

// Copies the rows [y0, y1) of a w-wide picture, from one pitch to another.
void copyRows(const uint32_t* from, int64_t fromPitch, uint32_t* to, int64_t toPitch, int32_t w,
              int32_t y0, int32_t y1) {
    for (int32_t y = y0; y < y1; ++y) std::copy_n(from + y * fromPitch, w, to + y * toPitch);
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
        copyRows(src + 1, pitch, dst + 1, pitch, width - 2, 1, height - 1);
        return;
    }

    // Positions follow the host's rows where they fit in 32 bits, so passes
    // read the source and the destination where they lie; otherwise the
    // passes read packed copies and only the last writes the destination.
    const bool hostRows = int64_t{height} * pitch <= INT32_MAX;
    const int32_t walkPitch = hostRows ? static_cast<int32_t>(pitch) : width;
    const int64_t planeSize = int64_t{height} * walkPitch;
    FloodWalks f{width, height, walkPitch, {}, {}, {}, {}, {}};
    f.keys.reset(new uint8_t[3 * int64_t{width}]);
    f.steps.resize(width);
    f.next.resize(width);
    f.ahead.reset(new int32_t[planeSize]);
    f.pending.reset(new int32_t[planeSize]);
    for (int32_t y = 0; y < height; ++y) {
        const int32_t row = y * walkPitch;
        if (y == 0 || y == height - 1) {
            for (int32_t x = 0; x < width; ++x) f.ahead[row + x] = row + x;
        } else {
            f.ahead[row] = row;
            f.ahead[row + width - 1] = row + width - 1;
        }
    }

    // The first pass reads the source where it lies unless the destination
    // is the same picture. Passes between write a working picture or, where
    // the next pass can read it there, the destination, so that the last
    // writes the destination. Working pictures carry the source's edges.
    const bool readSource = hostRows && src != dst;
    std::unique_ptr<uint32_t[]> copy, spare;
    auto workingPicture = [&](std::unique_ptr<uint32_t[]>& plane, bool whole) {
        if (!plane) {
            plane.reset(new uint32_t[planeSize]);
            for (int32_t y = 0; y < height; ++y) {
                const uint32_t* from = src + y * pitch;
                uint32_t* to = plane.get() + int64_t{y} * walkPitch;
                if (whole || y == 0 || y == height - 1) {
                    std::copy_n(from, width, to);
                } else {
                    to[0] = from[0];
                    to[width - 1] = from[width - 1];
                }
            }
        }
        return plane.get();
    };
    const uint32_t* in = readSource ? src : workingPicture(copy, true);
    for (int32_t pass = 0; pass < passes; ++pass) {
        const int32_t left = passes - 1 - pass;
        uint32_t* out = dst;
        int64_t outPitch = pitch;
        if (left > 0) {
            if (hostRows && left % 2 == 0) {
                out = dst;
            } else {
                out = workingPicture(in == spare.get() ? copy : spare, false);
                outPitch = walkPitch;
            }
        }
        const bool changed = floodPass(f, in, out, outPitch);
        // A pass that changed nothing leaves its output equal to its input,
        // and every further pass would repeat it: the result is final.
        if (!changed || left == 0) {
            if (out != dst)
                copyRows(out + walkPitch + 1, walkPitch, dst + pitch + 1, pitch, width - 2, 0,
                         height - 2);
            break;
        }
        in = out;
    }
}
