#include "effects/effects.h"

// Not drawn yet: only the frame border appears.
void renderAgedFilm(const FrameContext*, const ParameterBlock*, double, uint32_t) {}
