#include "pixel/block.h"

// Placeholder until block sampling lands.
uint32_t blockAverage(const uint32_t*, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t,
                      int32_t) {
    return 0xFF000000u;
}
void drawLine(uint32_t*, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, uint32_t) {}
