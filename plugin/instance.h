// The module's per-instance state, created by command 0 and released by
// command 1. The host only keeps its address in PluginCallBlock.instance.
#pragma once

#include <cstddef>
#include <cstdint>

struct PluginInstance {
    uint8_t* spareBuffer;  // never set by an effect; released on destroy if set
    uint8_t* workBuffer;   // "Dream" glare picture or "Multi-Prism Lens" map
    int32_t cachedStride;  // geometry the work buffer was made or last seen for
    int32_t cachedWidth;
    int32_t cachedHeight;
    int32_t cachedPrisms;  // "Multi-Prism Lens" parameters the map was built for
    double cachedCenterRadius;
    double cachedRefraction;
    size_t workBufferBytes;   // allocated size of workBuffer
    uint32_t prismMapBuilds;  // how often the map was built; for diagnostics and tests
};
