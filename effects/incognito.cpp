#include "effects/effects.h"

// Not drawn yet: only the frame border appears.
void renderIncognito(const FrameContext*, const ParameterBlock*, uint32_t) {}
