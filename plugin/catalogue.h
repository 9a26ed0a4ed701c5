#pragma once

#include <cstdint>

#include "plugin/host_records.h"

// Rewrites the whole catalogue table and returns the record of `index`, or
// null when the index is outside 0-24.
const EffectDescriptor* queryCatalogue(int32_t index);
