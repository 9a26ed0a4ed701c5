// The crop family: a margin is cut off each side of the picture and the
// rectangle that remains is copied in place or centred ("Crop"), enlarged
// as far as it fits with its proportions kept ("Crop Scale To Fit"), or
// stretched over the whole picture ("Crop Scale To Fill"). The destination
// is painted opaque black first; the scaler does all the pixel work.
#include <algorithm>
#include <cstdint>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "pixel/numeric.h"
#include "pixel/resizer.h"

namespace {

constexpr int32_t kBlockWidth = 4;
constexpr int32_t kBlockHeight = 2;
constexpr int32_t kBlockStride = kBlockWidth * 4;

// The kept rectangle: origin (left, top) in the source, cw x ch pixels.
struct Kept {
    int64_t top;
    int64_t left;
    int32_t cw;
    int32_t ch;
};

// Paints the destination black and works out the kept rectangle. Returns
// false when the frame is to stay as it is now: no destination, no source
// (then it is opaque white), or a kept rectangle under 8 x 2 pixels (black).
// A negative margin counts as 0, so the rectangle never leaves the source.
bool beginCrop(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width, int32_t height,
               int32_t top, int32_t right, int32_t bottom, int32_t left, uint32_t format,
               Kept& kept) {
    if (!haveBothPictures(dst, src, stride, width, height, format)) return false;
    uint32_t black[kBlockWidth * kBlockHeight];
    std::fill_n(black, kBlockWidth * kBlockHeight, 0xFF000000u);
    Resizer(0, kFourccArgb, black, kBlockStride, kBlockWidth, kBlockHeight, format, dst, stride,
            width, height, 0, 0);

    kept.top = std::max(top, 0);
    kept.left = std::max(left, 0);
    const int64_t ch = int64_t{height} - kept.top - std::max(bottom, 0);
    if (ch < 2) return false;
    const int64_t cw = int64_t{width} - std::max(right, 0) - kept.left;
    if (cw < 8) return false;
    kept.ch = static_cast<int32_t>(ch);
    kept.cw = static_cast<int32_t>(cw);
    return true;
}

const uint32_t* keptOrigin(const uint32_t* src, int32_t stride, const Kept& kept) {
    return src + kept.top * (stride >> 2) + kept.left;
}

uint32_t* pixelAt(uint32_t* dst, int32_t stride, int64_t x, int64_t y) {
    return dst + y * (stride >> 2) + x;
}

}  // namespace

void renderCrop(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width, int32_t height,
                int32_t top, int32_t right, int32_t bottom, int32_t left, int32_t mode,
                uint32_t format) {
    Kept kept;
    if (!beginCrop(dst, src, stride, width, height, top, right, bottom, left, format, kept)) {
        return;
    }
    // Centred, an odd total margin leaves the extra pixel to the right or below.
    const int64_t x = mode == 0 ? kept.left : (width - kept.cw) >> 1;
    const int64_t y = mode == 0 ? kept.top : (height - kept.ch) >> 1;
    Resizer(0, format, keptOrigin(src, stride, kept), stride, kept.cw, kept.ch, format,
            pixelAt(dst, stride, x, y), stride, kept.cw, kept.ch, 0, 0);
}

void renderCropScaleToFit(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                          int32_t height, int32_t top, int32_t right, int32_t bottom, int32_t left,
                          uint32_t format) {
    Kept kept;
    if (!beginCrop(dst, src, stride, width, height, top, right, bottom, left, format, kept)) {
        return;
    }
    // Full width when the rectangle, scaled to the width, is not too tall;
    // full height otherwise. Both sizes come out between the kept size and
    // the frame size, as cw <= W and ch <= H.
    const int64_t fitW = truncToInt64(static_cast<double>(height) * kept.cw / kept.ch);
    const int64_t fitH = truncToInt64(static_cast<double>(width) * kept.ch / kept.cw);
    const int64_t dw = fitH <= height ? width : fitW;
    const int64_t dh = fitH <= height ? fitH : height;
    Resizer(0, format, keptOrigin(src, stride, kept), stride, kept.cw, kept.ch, format,
            pixelAt(dst, stride, (width - dw) >> 1, (height - dh) >> 1), stride,
            static_cast<int32_t>(dw), static_cast<int32_t>(dh), 0, 1);
}

void renderCropScaleToFill(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                           int32_t height, int32_t top, int32_t right, int32_t bottom, int32_t left,
                           uint32_t format) {
    Kept kept;
    if (!beginCrop(dst, src, stride, width, height, top, right, bottom, left, format, kept)) {
        return;
    }
    Resizer(0, format, keptOrigin(src, stride, kept), stride, kept.cw, kept.ch, format, dst, stride,
            width, height, 0, 1);
}
