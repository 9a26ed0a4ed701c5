#include "resizer/taps.h"

#include <algorithm>
#include <cmath>

#include "pixel/numeric.h"

namespace resizer {
namespace {

// Reductions beyond this factor stop widening the kernel: the widest filter
// then spans about 4 x 2048 source positions, which keeps every fixed-point
// sum of the two passes inside 32 bits. Only reductions beyond 2048:1 notice.
constexpr double kMaxWiden = 2048.0;

double kernelRadius(Kernel kernel) { return kernel == Kernel::Cubic ? 2.0 : 1.0; }

// Only +, -, *, / and comparisons: the weights come out identical in the
// 32-bit and 64-bit builds (no libm approximations involved).
double kernelAt(Kernel kernel, double x) {
    const double a = x < 0.0 ? -x : x;
    if (kernel == Kernel::Triangle) return a < 1.0 ? 1.0 - a : 0.0;
    // Keys' cubic convolution with a = -0.5 (Catmull-Rom): passes through the
    // samples and reproduces straight ramps exactly.
    if (a < 1.0) return (1.5 * a - 2.5) * a * a + 1.0;
    if (a < 2.0) return ((-0.5 * a + 2.5) * a - 4.0) * a + 2.0;
    return 0.0;
}

// Output position i covers source positions centred on `centre` (pixel
// centres aligned, both rectangles' edges meet); lo .. hi are the raw
// positions strictly inside centre +- support, before clamping.
struct Reach {
    double centre;
    int64_t lo;
    int64_t hi;
};

Reach reachOf(int32_t i, double scale, double support) {
    const double centre = (static_cast<double>(i) + 0.5) * scale - 0.5;
    return {centre, truncToInt64(std::floor(centre - support)) + 1,
            truncToInt64(std::ceil(centre + support)) - 1};
}

int32_t clampIndex(int64_t j, int32_t size) {
    return j < 0 ? 0 : (j >= size ? size - 1 : static_cast<int32_t>(j));
}

}  // namespace

bool buildTapTable(int32_t srcSize, int32_t dstSize, Kernel kernel, uint64_t maxElements,
                   TapTable& table) {
    table.taps = 0;
    table.start.clear();
    table.weight.clear();
    if (static_cast<uint64_t>(dstSize) > maxElements) return false;
    table.start.resize(static_cast<size_t>(dstSize));

    if (srcSize == dstSize) {
        // Same size along this axis: each output position is its source position alone.
        table.taps = 1;
        table.weight.assign(static_cast<size_t>(dstSize), static_cast<int16_t>(kWeightOne));
        for (int32_t i = 0; i < dstSize; ++i) table.start[static_cast<size_t>(i)] = i;
        return true;
    }

    // Enlarging uses the kernel as it is; reducing widens it by the scale so
    // that it averages over the whole area an output pixel covers.
    const double scale = static_cast<double>(srcSize) / static_cast<double>(dstSize);
    const double widen = scale > kMaxWiden ? kMaxWiden : (scale > 1.0 ? scale : 1.0);
    const double support = kernelRadius(kernel) * widen;

    // The widest clamped window sets the common tap count.
    int32_t taps = 1;
    for (int32_t i = 0; i < dstSize; ++i) {
        const Reach r = reachOf(i, scale, support);
        taps = std::max(taps, clampIndex(r.hi, srcSize) - clampIndex(r.lo, srcSize) + 1);
    }
    if (static_cast<uint64_t>(dstSize) * static_cast<uint64_t>(taps) > maxElements) return false;
    table.taps = taps;
    table.weight.assign(static_cast<size_t>(dstSize) * static_cast<size_t>(taps), 0);

    std::vector<double> raw(static_cast<size_t>(taps));
    for (int32_t i = 0; i < dstSize; ++i) {
        const Reach r = reachOf(i, scale, support);
        // A window near the far edge starts early so all its taps stay inside
        // the source; the extra taps keep weight 0.
        const int32_t first = clampIndex(r.lo, srcSize);
        const int32_t base = first + taps > srcSize ? srcSize - taps : first;
        std::fill(raw.begin(), raw.end(), 0.0);
        // Positions beyond an edge take the edge pixel's value: their weight
        // is folded onto it, so nothing outside the source is ever read.
        for (int64_t j = r.lo; j <= r.hi; ++j) {
            const double w = kernelAt(kernel, (static_cast<double>(j) - r.centre) / widen);
            raw[static_cast<size_t>(clampIndex(j, srcSize) - base)] += w;
        }
        double total = 0.0;
        for (int32_t t = 0; t < taps; ++t) total += raw[static_cast<size_t>(t)];

        // Normalise, round to 14 bits, and put the rounding remainder on the
        // largest tap so the weights sum to exactly one.
        int16_t* out = table.weight.data() + static_cast<size_t>(i) * static_cast<size_t>(taps);
        int32_t sum = 0;
        int32_t largest = 0;
        for (int32_t t = 0; t < taps; ++t) {
            const double scaled = raw[static_cast<size_t>(t)] / total * kWeightOne;
            out[t] = static_cast<int16_t>(truncToInt32(std::floor(scaled + 0.5)));
            sum += out[t];
            if (out[t] > out[largest]) largest = t;
        }
        out[largest] = static_cast<int16_t>(out[largest] + kWeightOne - sum);
        table.start[static_cast<size_t>(i)] = base;
    }
    return true;
}

}  // namespace resizer
