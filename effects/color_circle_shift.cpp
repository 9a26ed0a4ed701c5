#include "effects/effects.h"

// Not drawn yet: only the frame border appears.
void renderColorCircleShift(uint32_t*, const uint32_t*, int32_t, int32_t, int32_t, double, double, double, uint32_t) {}
