// The scaling function of the companion library (libresizer.so): rectangle
// fills, copies and rescales, ARGB -> AYUV conversion of colour blocks, and
// the alpha composite. A host may supply its own library in its place; this
// declaration is the whole contract between the module and that library.
#pragma once

#include <cstdint>

#if defined(REELFX_BUILDING_RESIZER)
#define REELFX_RESIZER_API __attribute__((visibility("default")))
#else
#define REELFX_RESIZER_API
#endif

// flags: 0 replaces the destination; kResizerBlend composites the scaled
// source over it by the source's alpha.
inline constexpr uint32_t kResizerBlend = 0x100;

extern "C" REELFX_RESIZER_API int32_t Resizer(uint32_t flags, uint32_t srcFourCC, const void* src,
                                              int32_t srcStride, int32_t srcWidth,
                                              int32_t srcHeight, uint32_t dstFourCC, void* dst,
                                              int32_t dstStride, int32_t dstWidth,
                                              int32_t dstHeight, int32_t reserved,
                                              int32_t resampleMode);
