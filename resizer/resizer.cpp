#include "pixel/resizer.h"

// Placeholder until the scaler lands: writes nothing.
extern "C" int32_t Resizer(uint32_t, uint32_t, const void*, int32_t, int32_t, int32_t, uint32_t,
                           void*, int32_t, int32_t, int32_t, int32_t, int32_t) {
    return 0;
}
