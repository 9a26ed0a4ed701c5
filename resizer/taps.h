// Fixed-point resampling weights along one axis, computed once per call.
#pragma once

#include <cstdint>
#include <vector>

namespace resizer {

// Weights are 14-bit fixed point; every output position's weights sum to
// exactly kWeightOne, so a flat source stays exactly flat.
inline constexpr int kWeightBits = 14;
inline constexpr int32_t kWeightOne = 1 << kWeightBits;

enum class Kernel {
    Triangle,  // bilinear when enlarging, a widened tent when reducing
    Cubic,     // Catmull-Rom when enlarging, widened by the scale when reducing
};

// For output position i, source positions start[i] .. start[i] + taps - 1
// (always inside 0 .. srcSize - 1) are weighted by weight[i * taps + t].
struct TapTable {
    int32_t taps = 0;
    std::vector<int32_t> start;
    std::vector<int16_t> weight;
};

// Fills `table` for mapping srcSize positions onto dstSize (both > 0). Taps
// that fall outside the source are folded onto the nearest edge position.
// Returns false, leaving the table unusable, when it would hold more than
// maxElements weights.
bool buildTapTable(int32_t srcSize, int32_t dstSize, Kernel kernel, uint64_t maxElements,
                   TapTable& table);

}  // namespace resizer
