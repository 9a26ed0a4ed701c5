#include "effects/effects.h"

// Not drawn yet: only the frame border appears.
void BuildPrismMap(uint8_t*, int32_t, int32_t, int32_t, int32_t, double, double, double, double) {}
void ApplyPrismMap(uint32_t*, const uint32_t*, int32_t, int32_t, int32_t, const uint8_t*, int32_t, uint32_t, uint32_t) {}
