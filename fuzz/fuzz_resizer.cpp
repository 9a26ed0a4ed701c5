// libFuzzer target for the companion scaling library on its own: any
// rectangle sizes (empty, negative, enlarging, reducing, up to 2048 on a
// side), strides of every kind on both sides, both pixel formats and unknown
// codes, the blend flag and other bits, every resampling mode, sources that
// are uniform, flat blocks or noise.
//
// Checked after every call: the result; the source untouched and never read
// outside its rows (AddressSanitizer traps its padding and guards); nothing
// outside the destination rows written; and what the module relies on: a
// uniform source gives one uniform value, equal sizes in one format copy
// exactly, a composite of alpha 0 leaves the destination as it was, and the
// triangle filter never leaves the range of the source's channel values.
//
// Cost per input is bounded: source and destination together hold at most
// 2^18 pixels (larger sizes shrink to 64 on a side); sizes above 48 on a side are
// chosen for one size in 128.
#include "fuzz/fuzz_support.h"
#include "pixel/resizer.h"

namespace {

using fuzz::GuardedPicture;

constexpr uint32_t kArgb = 0x41524742;
constexpr uint32_t kAyuv = 0x41595556;
constexpr int64_t kPixelBudget = int64_t{1} << 18;

uint32_t pickFourCC(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange<int>(0, 4)) {
        case 0:
        case 1: return kArgb;
        case 2:
        case 3: return kAyuv;
        default: return in.ConsumeIntegral<uint32_t>();
    }
}

void pickSize(FuzzedDataProvider& in, int32_t& w, int32_t& h) {
    switch (in.ConsumeIntegralInRange<int>(0, 127)) {
        case 0:
            w = in.ConsumeIntegralInRange<int32_t>(-3, 1);
            h = in.ConsumeIntegralInRange<int32_t>(-3, 2);
            return;
        case 1:
            w = in.ConsumeIntegralInRange<int32_t>(1, 2048);
            h = in.ConsumeIntegralInRange<int32_t>(1, 2048);
            return;
        case 2:
        case 3:  // the colour blocks the module scales
            w = in.ConsumeBool() ? 4 : 2;
            h = 2;
            return;
        default:
            w = in.ConsumeIntegralInRange<int32_t>(1, 48);
            h = in.ConsumeIntegralInRange<int32_t>(1, 48);
            return;
    }
}

int64_t area(int32_t w, int32_t h) { return w > 0 && h > 0 ? int64_t{w} * h : 0; }

uint8_t channel(uint32_t p, int k) { return static_cast<uint8_t>(p >> (8 * k)); }

// Nothing but the destination rows changes, and the pixels written hold
// what the module relies on.
FUZZ_UNCOUNTED void checkDestination(const GuardedPicture& src, const GuardedPicture& dst,
                                     const std::vector<uint8_t>& dstBefore, uint32_t flags,
                                     uint32_t srcFourCC, uint32_t dstFourCC, int32_t mode) {
    const int32_t sw = src.width(), sh = src.height(), dw = dst.width(), dh = dst.height();
    const int32_t dstStride = dst.stride();
    const std::vector<uint8_t>& after = dst.bytes();
    std::vector<uint8_t> pixel(after.size(), 0);
    for (int32_t y = 0; y < dh; ++y)
        std::memset(pixel.data() + dst.offsetOf(0, y), 1, size_t(dw) * 4);
    for (size_t i = 0; i < after.size(); ++i) {
        FUZZ_EXPECT(pixel[i] || after[i] == dstBefore[i], static_cast<long>(i));
    }
    // The remaining checks read each destination pixel as written once.
    if (!dst.plainRows() && !(dstStride < 0 && -int64_t{dstStride} >= int64_t{dw} * 4)) return;

    const bool blend = (flags & 0x100) != 0;
    const bool convert = srcFourCC == kArgb && dstFourCC == kAyuv;
    bool uniform = true;
    uint8_t low[4] = {255, 255, 255, 255};
    uint8_t high[4] = {0, 0, 0, 0};
    bool transparent = true;
    for (int32_t y = 0; y < sh; ++y) {
        for (int32_t x = 0; x < sw; ++x) {
            const uint32_t p = src.at(x, y);
            uniform = uniform && p == src.at(0, 0);
            transparent = transparent && channel(p, 3) == 0;
            for (int k = 0; k < 4; ++k) {
                low[k] = std::min(low[k], channel(p, k));
                high[k] = std::max(high[k], channel(p, k));
            }
        }
    }
    auto before = [&](int32_t x, int32_t y) {
        uint32_t v;
        std::memcpy(&v, dstBefore.data() + dst.offsetOf(x, y), 4);
        return v;
    };
    for (int32_t y = 0; y < dh; ++y) {
        for (int32_t x = 0; x < dw; ++x) {
            const uint32_t p = dst.at(x, y);
            if (blend && transparent) FUZZ_EXPECT(p == before(x, y), x, y);
            if (blend) continue;
            if (uniform) FUZZ_EXPECT(p == dst.at(0, 0) && (convert || p == src.at(0, 0)), x, y);
            if (!convert && sw == dw && sh == dh) FUZZ_EXPECT(p == src.at(x, y), x, y);
            if (!convert && mode != 1) {
                for (int k = 0; k < 4; ++k) {
                    FUZZ_EXPECT(channel(p, k) >= low[k] && channel(p, k) <= high[k], x, y);
                }
            }
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const uint32_t flags =
        in.ConsumeBool() ? 0u : (in.ConsumeBool() ? 0x100u : in.ConsumeIntegral<uint32_t>());
    const uint32_t srcFourCC = pickFourCC(in);
    const uint32_t dstFourCC = pickFourCC(in);
    int32_t sw = 0, sh = 0, dw = 0, dh = 0;
    pickSize(in, sw, sh);
    if (in.ConsumeIntegralInRange<int>(0, 3) == 0) {
        dw = sw;  // same size: the copy path
        dh = sh;
    } else {
        pickSize(in, dw, dh);
    }
    if (area(sw, sh) + area(dw, dh) > kPixelBudget) {
        sw = std::min(sw, 64);
        sh = std::min(sh, 64);
        dw = std::min(dw, 64);
        dh = std::min(dh, 64);
    }
    const int32_t srcStride = fuzz::pickStride(in, std::max(sw, 0));
    const int32_t dstStride = fuzz::pickStride(in, std::max(dw, 0));
    static const int32_t kModes[] = {0, 1, 2, -1, INT32_MIN};
    const int32_t mode = kModes[in.ConsumeIntegralInRange<size_t>(0, std::size(kModes) - 1)];
    const int32_t reserved = in.ConsumeBool() ? 0 : in.ConsumeIntegral<int32_t>();
    const int nulls = in.ConsumeIntegralInRange<int>(0, 31);  // 1: no source, 2: no destination

    GuardedPicture src(sw, sh, srcStride);
    const int srcKind = in.ConsumeIntegralInRange<int>(0, 4);
    src.fill(in.ConsumeIntegral<uint32_t>(), srcKind);
    GuardedPicture dst(dw, dh, dstStride);
    dst.fill(in.ConsumeIntegral<uint32_t>(), in.ConsumeIntegralInRange<int>(0, 4));
    const std::vector<uint8_t> srcBefore = src.bytes();
    const std::vector<uint8_t> dstBefore = dst.bytes();

    const void* srcPixels = nulls == 1 ? nullptr : src.origin();
    void* dstPixels = nulls == 2 ? nullptr : dst.origin();
    src.poisonOutside();
    dst.poisonOutside();
    const int32_t result = Resizer(flags, srcFourCC, srcPixels, srcStride, sw, sh, dstFourCC,
                                   dstPixels, dstStride, dw, dh, reserved, mode);
    src.unpoison();
    dst.unpoison();

    FUZZ_EXPECT(src.bytes() == srcBefore);
    const bool written = srcPixels && dstPixels && !dst.empty() && !src.empty();
    FUZZ_EXPECT(result == (!srcPixels || !dstPixels ? -1
                           : dst.empty()            ? 0
                           : src.empty()            ? -1
                                                    : 0),
                result);
    if (!written) {
        FUZZ_EXPECT(dst.bytes() == dstBefore);
        return 0;
    }
    checkDestination(src, dst, dstBefore, flags, srcFourCC, dstFourCC, mode);
    return 0;
}
