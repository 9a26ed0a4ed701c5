// The companion scaling library: fills, copies and rescales rectangles of
// 32-bit pixels, converts ARGB to AYUV, and composites by alpha.
//
// Behaviour beyond what the module asks for:
// - Only ARGB -> AYUV converts (with the module's own argbToAyuv, alpha
//   carried). Every other pair of codes, AYUV -> ARGB and unknown codes
//   included, moves the pixel words unchanged.
// - Only the blend bit 0x100 of `flags` is looked at; other bits are ignored.
// - `resampleMode` 1 selects the cubic kernel; any other value the triangle.
// - A null pointer, a source of zero or negative size, or sizes too large to
//   hold working rows and weight tables for (over 2^28 entries) write nothing
//   and return -1. A destination of zero or negative size writes nothing and
//   returns 0. Otherwise the whole destination rectangle is written and 0 is
//   returned. Strides are taken as given (negative ones walk upward).
// - Channels are resampled independently (straight, not premultiplied,
//   alpha), all four alike.
#include "pixel/resizer.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <vector>

#include "pixel/color.h"
#include "resizer/rows.h"
#include "resizer/taps.h"

static_assert(std::endian::native == std::endian::little,
              "pixel words are read as their four bytes, lowest channel first");

namespace {

using resizer::Kernel;
using resizer::TapTable;

// Largest working buffer or weight table a call may allocate, in entries.
constexpr uint64_t kMaxElements = uint64_t{1} << 28;

const uint8_t* rowAt(const void* origin, int32_t stride, int32_t y) {
    return static_cast<const uint8_t*>(origin) +
           static_cast<ptrdiff_t>(static_cast<int64_t>(y) * stride);
}

uint8_t* rowAt(void* origin, int32_t stride, int32_t y) {
    return static_cast<uint8_t*>(origin) + static_cast<ptrdiff_t>(static_cast<int64_t>(y) * stride);
}

// Rows may start at any byte, so words are read through memcpy.
uint32_t loadPixel(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Writes one finished row: a copy, or the composite over what is there.
void storeRow(const uint32_t* row, uint8_t* dst, int32_t width, bool blend) {
    if (blend) {
        resizer::blendRow(row, dst, width);
    } else {
        std::memcpy(dst, row, static_cast<size_t>(width) * 4);
    }
}

uint32_t convertPixel(uint32_t p, bool convert) { return convert ? argbToAyuv(p) : p; }

// True, with its value, when every source pixel holds the same word.
bool uniformValue(const void* src, int32_t stride, int32_t width, int32_t height, uint32_t& value) {
    value = loadPixel(rowAt(src, stride, 0));
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t* row = rowAt(src, stride, y);
        for (int32_t x = 0; x < width; ++x) {
            if (loadPixel(row + static_cast<size_t>(x) * 4) != value) return false;
        }
    }
    return true;
}

void fillRect(uint32_t value, void* dst, int32_t stride, int32_t width, int32_t height,
              bool blend) {
    const std::vector<uint32_t> row(static_cast<size_t>(width), value);
    for (int32_t y = 0; y < height; ++y) storeRow(row.data(), rowAt(dst, stride, y), width, blend);
}

// Same size: each destination pixel comes from the source pixel at its place.
void copyRect(const void* src, int32_t srcStride, void* dst, int32_t dstStride, int32_t width,
              int32_t height, bool convert, bool blend) {
    if (!convert && !blend) {
        for (int32_t y = 0; y < height; ++y) {
            std::memcpy(rowAt(dst, dstStride, y), rowAt(src, srcStride, y),
                        static_cast<size_t>(width) * 4);
        }
        return;
    }
    std::vector<uint32_t> row(static_cast<size_t>(width));
    for (int32_t y = 0; y < height; ++y) {
        const uint8_t* in = rowAt(src, srcStride, y);
        for (int32_t x = 0; x < width; ++x) {
            row[static_cast<size_t>(x)] =
                convertPixel(loadPixel(in + static_cast<size_t>(x) * 4), convert);
        }
        storeRow(row.data(), rowAt(dst, dstStride, y), width, blend);
    }
}

bool fits(uint64_t a, uint64_t b) { return a * b <= kMaxElements; }

// Two separable passes per output row: vertical over the source width, then
// horizontal into the destination width. Weight tables are built once.
int32_t scaleRect(const void* src, int32_t srcStride, int32_t srcWidth, int32_t srcHeight,
                  void* dst, int32_t dstStride, int32_t dstWidth, int32_t dstHeight, bool convert,
                  bool blend, Kernel kernel) {
    if (!fits(static_cast<uint64_t>(srcWidth), 4)) return -1;
    TapTable across;
    TapTable down;
    if (!resizer::buildTapTable(srcWidth, dstWidth, kernel, kMaxElements, across) ||
        !resizer::buildTapTable(srcHeight, dstHeight, kernel, kMaxElements, down)) {
        return -1;
    }

    // Conversion comes first, so filtering and compositing happen in the
    // destination's format.
    std::vector<uint32_t> converted;
    if (convert) {
        if (!fits(static_cast<uint64_t>(srcWidth), static_cast<uint64_t>(srcHeight))) return -1;
        converted.resize(static_cast<size_t>(srcWidth) * static_cast<size_t>(srcHeight));
        for (int32_t y = 0; y < srcHeight; ++y) {
            const uint8_t* in = rowAt(src, srcStride, y);
            uint32_t* out =
                converted.data() + static_cast<size_t>(y) * static_cast<size_t>(srcWidth);
            for (int32_t x = 0; x < srcWidth; ++x)
                out[x] = argbToAyuv(loadPixel(in + static_cast<size_t>(x) * 4));
        }
        src = converted.data();
        srcStride = srcWidth * 4;
    }

    const int32_t rowBytes = srcWidth * 4;
    std::vector<resizer::RowPair> pairs;
    std::vector<int16_t> column(static_cast<size_t>(rowBytes));
    std::vector<uint32_t> row(static_cast<size_t>(dstWidth));
    for (int32_t y = 0; y < dstHeight; ++y) {
        resizer::pairRows(down, y, src, srcStride, pairs);
        resizer::verticalPass(pairs, rowBytes, column.data());
        resizer::horizontalPass(column.data(), across, dstWidth, row.data());
        storeRow(row.data(), rowAt(dst, dstStride, y), dstWidth, blend);
    }
    return 0;
}

}  // namespace

extern "C" int32_t Resizer(uint32_t flags, uint32_t srcFourCC, const void* src, int32_t srcStride,
                           int32_t srcWidth, int32_t srcHeight, uint32_t dstFourCC, void* dst,
                           int32_t dstStride, int32_t dstWidth, int32_t dstHeight,
                           int32_t /*reserved*/, int32_t resampleMode) {
    if (dst == nullptr || src == nullptr) return -1;
    if (dstWidth <= 0 || dstHeight <= 0) return 0;
    if (srcWidth <= 0 || srcHeight <= 0) return -1;
    if (!fits(static_cast<uint64_t>(dstWidth), 1) || !fits(static_cast<uint64_t>(srcWidth), 1)) {
        return -1;
    }

    const bool blend = (flags & kResizerBlend) != 0;
    const bool convert = srcFourCC == kFourccArgb && dstFourCC == kFourccAyuv;

    // A uniform source gives its (converted) value everywhere, whatever the
    // sizes: the filters below would give the same, as their weights sum to
    // one, but fills and composites of colour blocks take this short cut.
    uint32_t value = 0;
    if (uniformValue(src, srcStride, srcWidth, srcHeight, value)) {
        fillRect(convertPixel(value, convert), dst, dstStride, dstWidth, dstHeight, blend);
        return 0;
    }
    if (srcWidth == dstWidth && srcHeight == dstHeight) {
        copyRect(src, srcStride, dst, dstStride, dstWidth, dstHeight, convert, blend);
        return 0;
    }
    return scaleRect(src, srcStride, srcWidth, srcHeight, dst, dstStride, dstWidth, dstHeight,
                     convert, blend, resampleMode == 1 ? Kernel::Cubic : Kernel::Triangle);
}
