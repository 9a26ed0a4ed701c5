// Parameter declarations and the one accessor renderers use to read them.
#pragma once

#include <cstdint>

#include "pixel/numeric.h"
#include "plugin/host_records.h"

// P[j]: the current value of the effect's j-th declared parameter.
inline double paramValue(const ParameterBlock* block, int j) { return block->slot[j].value; }

// int(P[j]): P[j] truncated toward zero to 64 bits, low 32 bits kept.
inline int32_t paramInt(const ParameterBlock* block, int j) {
    return truncToInt64Low32(paramValue(block, j));
}

// Writes the parameter records of effect `effectIndex` into the host's
// EffectState, slot 0 first. Crop bounds come from the frame size. An index
// outside 0-24 declares nothing.
void declareParameters(EffectState* state, uint32_t effectIndex, int32_t frameWidth,
                       int32_t frameHeight);
