#include "effects/effects.h"

// Not drawn yet: only the frame border appears.
void renderFlipXY(uint32_t*, const uint32_t*, int32_t, int32_t, int32_t, int32_t, int32_t) {}
