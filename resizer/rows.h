// Row operations of the scaler: the two resampling passes over 32-bit
// pixels (four channels alike) and the composite.
#pragma once

#include <cstdint>
#include <vector>

#include "resizer/taps.h"

namespace resizer {

// Fractional bits the vertical pass keeps for the horizontal pass.
inline constexpr int kColumnBits = 6;

// Two tapped source rows and their weights: the vertical pass works on
// pairs. An odd tap is paired with itself at weight 0.
struct RowPair {
    const uint8_t* a;
    const uint8_t* b;
    int32_t weights;  // weight of a in the low 16 bits, of b in the high 16
};

// Collects the rows output row y taps (zero weights skipped) into `pairs`.
void pairRows(const TapTable& down, int32_t y, const void* src, int32_t stride,
              std::vector<RowPair>& pairs);

// column[i] = the rows' weighted sum of byte i, with kColumnBits fractional
// bits, for i < rowBytes (a multiple of 4). The positive weights of one
// position add up to less than 1.2, so every value stays below 255 x 64 x 1.2
// and fits in 16 bits; the horizontal sums stay below 2^29.
void verticalPass(const std::vector<RowPair>& pairs, int32_t rowBytes, int16_t* column);

// out[x] = the weighted sum of the tapped column pixels, rounded and clamped
// to 0..255 per channel, for x < width.
void horizontalPass(const int16_t* column, const TapTable& across, int32_t width, uint32_t* out);

// The composite of `width` pixels of `row` over the pixels at `dst`: each
// colour channel becomes (s * a + d * (255 - a) + 127) / 255, a being the
// alpha of the row's pixel, i.e. the exact mix rounded to nearest (never a
// tie, 255 being odd). Alpha 0 keeps d, 255 gives s; in between the channel
// moves from d toward s in proportion. The destination keeps its own alpha.
void blendRow(const uint32_t* row, uint8_t* dst, int32_t width);

}  // namespace resizer
