// The instruction-set clones of the hot loops, chosen once when the module
// is loaded by what the CPU has. The 64-bit build adds an AVX-512 clone; the
// 32-bit build, which has only eight vector registers, keeps AVX2 and the
// SSE2 default.
#pragma once

#if defined(__clang__)
// clang names the clones' resolver apart from the plain symbol, so a clone
// called from another file would not link; its builds (the fuzz targets)
// compile the one portable body instead.
#define REELFX_CLONES
#elif defined(__x86_64__)
#define REELFX_CLONES __attribute__((target_clones("arch=x86-64-v4", "avx2", "default")))
#else
#define REELFX_CLONES __attribute__((target_clones("avx2", "default")))
#endif
