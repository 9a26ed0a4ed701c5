#include "effects/effects.h"

// Not drawn yet: only the frame border appears.
void renderNewsPrintNonUniform(const FrameContext*, const ParameterBlock*, uint32_t) {}
void renderNewsPrintUniform(const FrameContext*, const ParameterBlock*, uint32_t) {}
