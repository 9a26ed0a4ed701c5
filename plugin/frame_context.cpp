#include "plugin/frame_context.h"

#include <cstddef>

#include "pixel/numeric.h"
#include "plugin/host_records.h"

namespace {

// Active size of a picture of aspect A in a W x H frame shown at aspect D.
// The order of the floating operations matters: every truncation depends on it.
void fitActiveSize(int32_t W, int32_t H, double A, double D, int32_t* outW, int32_t* outH) {
    const double r = 1.0 / A;
    const int32_t k = truncToInt32(static_cast<double>(W) * r);
    int32_t aw = W;
    int32_t ah = k;
    if (A > D) {
        // Letterbox: the picture is wider than the frame.
        aw = W;
        ah = truncToInt32((static_cast<double>(H) * r) * D);
    } else {
        if (W == 480 && (H == 576 || H == 480)) {
            const int32_t h = truncToInt32((static_cast<double>(H) * r) * D);
            if (h < H) {
                ah = h;
                aw = W;
            } else {
                aw = truncToInt32((480.0 / D) * A);
                ah = H;
            }
        } else {
            const double q = static_cast<double>(W) / D;
            if (static_cast<double>(k) < q) {
                aw = W;
                ah = k;
            } else {
                aw = truncToInt32(q * A);
                ah = H;
                // Small frames are taken to have square pixels.
                if (W < 150) {
                    if (A == static_cast<double>(W) / static_cast<double>(H)) {
                        aw = W;
                    } else {
                        aw = truncToInt32(static_cast<double>(H) * A);
                    }
                }
            }
        }
        if (aw > W) {
            aw = W;
            ah = k;
        }
    }
    // The active rectangle stays inside the frame: a height above the frame's
    // (a display aspect narrower than W / H) is cut to the frame, and the
    // INT32_MIN that a NaN or infinite aspect truncates to becomes an empty
    // rectangle, so the whole frame is painted.
    if (aw < 0) aw = 0;
    if (ah < 0) ah = 0;
    if (aw > W) aw = W;
    if (ah > H) ah = H;
    *outW = aw;
    *outH = ah;
}

void fillRow(uint32_t* row, int32_t count, uint32_t colour) {
    for (int32_t x = 0; x < count; ++x) row[x] = colour;
}

}  // namespace

void makeFrameContext(FrameContext* ctx, uint32_t* source, uint32_t* secondSource,
                      uint32_t* destination, uint32_t format, int32_t W, int32_t H, int32_t S,
                      int32_t bytesPerPixel, double A, double D) {
    ctx->size = sizeof(FrameContext);
    ctx->source = source;
    ctx->secondSource = secondSource;
    ctx->destination = destination;
    ctx->width = W;
    ctx->height = H;
    ctx->bytesPerPixel = bytesPerPixel;
    ctx->stride = S;
    ctx->aspect = A;
    ctx->insetX = 0;
    ctx->insetY = 0;

    if (A == D) return;

    int32_t aw = 0;
    int32_t ah = 0;
    fitActiveSize(W, H, A, D, &aw, &ah);
    const int32_t offX = (W - aw) >> 1;
    const int32_t offY = (H - ah) >> 1;

    const ptrdiff_t move = static_cast<ptrdiff_t>(offY) * S + 4 * static_cast<ptrdiff_t>(offX);
    auto moved = [move](uint32_t* p) {
        return p ? reinterpret_cast<uint32_t*>(reinterpret_cast<uint8_t*>(p) + move) : nullptr;
    };
    ctx->source = moved(source);
    ctx->secondSource = moved(secondSource);
    ctx->destination = moved(destination);
    ctx->width = aw;
    ctx->height = ah;

    if (!destination) return;
    const uint32_t colour = format == kFourccAyuv ? kBorderAyuv : kBorderArgb;
    auto row = [destination, S](int32_t y) {
        return reinterpret_cast<uint32_t*>(reinterpret_cast<uint8_t*>(destination) +
                                           static_cast<ptrdiff_t>(y) * S);
    };
    for (int32_t y = 0; y < offY; ++y) fillRow(row(y), W, colour);
    for (int32_t y = offY; y < offY + ah; ++y) {
        uint32_t* r = row(y);
        fillRow(r, offX, colour);
        fillRow(r + offX + aw, W - offX - aw, colour);
    }
    for (int32_t y = offY + ah; y < H; ++y) fillRow(row(y), W, colour);
}
