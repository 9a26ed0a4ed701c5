#include "effects/effects.h"

// Not drawn yet: only the frame border appears.
void renderDream(uint32_t*, const uint32_t*, uint8_t**, int32_t, int32_t, int32_t, int32_t*, int32_t*, int32_t*, double, double, uint32_t) {}
