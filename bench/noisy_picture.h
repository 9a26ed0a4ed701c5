// The benchmarks' source picture: smooth diagonal shading with independent
// noise of -32 to +31 on every channel of every pixel, opaque, so nearly
// every pixel has a colour of its own, as in camera footage.
#pragma once

#include "host/host.h"

inline reelfx::Picture noisyPicture(int32_t w, int32_t h) {
    reelfx::Picture p(w, h);
    uint32_t seed = 0x9E3779B9u;
    for (int32_t y = 0; y < h; ++y) {
        uint32_t* row = p.row(y);
        for (int32_t x = 0; x < w; ++x) {
            const int32_t base[3] = {40 + 170 * x / w, 40 + 170 * y / h,
                                     210 - 85 * (x + y) / (w + h)};
            uint32_t c = 0xFF000000u;
            for (int i = 0; i < 3; ++i) {
                seed = seed * 1664525u + 1013904223u;
                const int32_t v = base[i] + static_cast<int32_t>(seed >> 26) - 32;
                c |= static_cast<uint32_t>(v < 0 ? 0 : v > 255 ? 255 : v) << (16 - 8 * i);
            }
            row[x] = c;
        }
    }
    return p;
}
