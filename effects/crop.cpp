#include "effects/effects.h"

// Not drawn yet: only the frame border appears.
void renderCrop(uint32_t*, const uint32_t*, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, uint32_t) {}
void renderCropScaleToFit(uint32_t*, const uint32_t*, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, uint32_t) {}
void renderCropScaleToFill(uint32_t*, const uint32_t*, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, uint32_t) {}
