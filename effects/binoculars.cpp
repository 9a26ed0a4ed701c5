// "Binoculars": the picture seen through two overlapping circular openings
// side by side, centred on the picture; everything outside them is an opaque
// background colour, with a soft rim one pixel wide just inside each circle.
// The mask is worked out per pixel from the distances to the two centres.
#include <cmath>
#include <cstdint>

#include "effects/effects.h"
#include "pixel/block.h"
#include "pixel/color.h"
#include "plugin/parameters.h"

void renderBinoculars(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                      int32_t height, double radius, double distance, int32_t background,
                      uint32_t format) {
    if (!haveBothPictures(dst, src, stride, width, height, format)) return;
    if (width <= 0 || height <= 0) return;

    const double rf = clampParam(radius, 0.0, 1.0);
    const double df = clampParam(distance, 0.0, 1.0);
    const uint32_t bg = argbToFrame(static_cast<uint32_t>(background), format) | 0xFF000000u;

    // W * W + H * H in 32-bit arithmetic (wrapping like the machine does for
    // frames beyond any real size; a negative sum gives a NaN radius, which
    // makes every pixel background-mixed through the truncations, still
    // inside the pictures).
    const uint32_t w2 = static_cast<uint32_t>(width) * static_cast<uint32_t>(width);
    const uint32_t h2 = static_cast<uint32_t>(height) * static_cast<uint32_t>(height);
    const int32_t diag2 = static_cast<int32_t>(w2 + h2);
    const double r = std::sqrt(((diag2 * rf) * rf) * 0.25);
    const double d = r * df;
    const int32_t cx = width >> 1;
    const int32_t cy = height >> 1;
    const double leftX = cx - d;
    const double rightX = cx + d;

    // Most pixels lie well inside an opening or well outside both, where
    // m >= 1 or m <= 0 is certain from the squared distances alone; only
    // the band around the rims needs the two square roots. The margins are
    // a whole pixel wider than the exact tests, far beyond any rounding.
    const double inner = r - 2.0;
    const double inside2 = r > 2.0 ? inner * inner : -1.0;  // surely m >= 1 below this
    const double outer = r + 1.0;
    const double outside2 = outer * outer;  // surely m <= 0 above this

    const int64_t pitch = stride >> 2;
    for (int64_t y = 0; y < height; ++y) {
        const uint32_t* in = src + y * pitch;
        uint32_t* out = dst + y * pitch;
        const double dy = static_cast<double>(y - cy);
        const double dy2 = dy * dy;
        for (int32_t x = 0; x < width; ++x) {
            const double ex = x - leftX;
            const double fx = x - rightX;
            const double qL = (ex * ex) + dy2;
            const double qR = (fx * fx) + dy2;
            if (qL < inside2 || qR < inside2) {
                out[x] = in[x];
            } else if (qL > outside2 && qR > outside2) {
                out[x] = bg;
            } else {
                const double mL = r - std::sqrt(qL);
                const double mR = r - std::sqrt(qR);
                const double m = mL > mR ? mL : mR;
                out[x] = mixPixelEnds(bg, in[x], m);
            }
        }
    }
}
