#include "effects/effects.h"

// Not drawn yet: only the frame border appears.
void renderStainedGlass(const FrameContext*, const ParameterBlock*, uint32_t) {}
