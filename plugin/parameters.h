// Parameter declarations and the one accessor renderers use to read them.
#pragma once

#include <cstdint>

#include "pixel/numeric.h"
#include "plugin/host_records.h"

// P[j]: the current value of the effect's j-th declared parameter.
inline double paramValue(const ParameterBlock* block, int j) {
    return block->slot[j].value;
}

// int(P[j]): P[j] truncated toward zero to 64 bits, low 32 bits kept.
inline int32_t paramInt(const ParameterBlock* block, int j) {
    return truncToInt64Low32(paramValue(block, j));
}

// A renderer's working range for a value: below lo gives lo, above hi gives
// hi; NaN, which is neither, is taken as lo.
inline double clampParam(double v, double lo, double hi) {
    if (!(v >= lo)) return lo;
    return v > hi ? hi : v;
}

// Writes the parameter records of effect `effectIndex` into the host's
// EffectState, slot 0 first. Crop bounds come from the frame size. An index
// outside 0-24 declares nothing.
void declareParameters(EffectState* state, uint32_t effectIndex, int32_t frameWidth,
                       int32_t frameHeight);
