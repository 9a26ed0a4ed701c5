#include "effects/effects.h"

// Not drawn yet: only the frame border appears.
void renderFade(const FrameContext*, const ParameterBlock*, uint32_t, double, uint32_t) {}
