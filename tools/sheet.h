// The contact sheet: every effect at its initial parameters in a labelled grid.
#pragma once

#include <cstdint>

#include "host/host.h"

namespace reelfx::tool {

struct SheetOptions {
    double progress = 0.5;
    uint32_t format = kFourccArgb;  // pixels handed to the module
    int32_t columns = 5;
};

// `tile` (ARGB) is the picture every effect renders from, at tile size.
Picture makeSheet(const Module& module, const Picture& tile, const SheetOptions& options);

}  // namespace reelfx::tool
