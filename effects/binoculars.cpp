#include "effects/effects.h"

// Not drawn yet: only the frame border appears.
void renderBinoculars(uint32_t*, const uint32_t*, int32_t, int32_t, int32_t, double, double, int32_t, uint32_t) {}
