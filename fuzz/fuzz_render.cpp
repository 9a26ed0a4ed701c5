// libFuzzer target: the fuzzer's bytes choose an effect, a frame geometry,
// pixel format, fitting settings, progress and every parameter value (raw
// doubles, so NaN, infinities and huge values come up), then render into a
// picture surrounded by guard words. Any write outside the picture aborts;
// reads outside it are caught by AddressSanitizer.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "plugin/host_records.h"

namespace {

struct Reader {
    const uint8_t* data;
    size_t size;
    template <typename T>
    T take() {
        T v{};
        const size_t n = size < sizeof v ? size : sizeof v;
        std::memcpy(&v, data, n);
        data += n;
        size -= n;
        return v;
    }
};

constexpr uint32_t kGuard = 0xA5C3E1F7;
constexpr int32_t kGuardRows = 1;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Reader in{data, size};
    const int32_t effect = in.take<uint8_t>() % 26;  // 25: outside the catalogue
    const int32_t w = 1 + in.take<uint8_t>() % 96;
    const int32_t h = 1 + in.take<uint8_t>() % 64;
    const int32_t pad = in.take<uint8_t>() % 4;
    const uint8_t flags = in.take<uint8_t>();
    const double progress = in.take<double>();
    const double pictureAspect = in.take<double>();
    double displayAspect = in.take<double>();

    const int32_t pitch = w + pad;
    std::vector<uint32_t> src(static_cast<size_t>(pitch) * (h + 2 * kGuardRows), kGuard);
    std::vector<uint32_t> dst(src.size(), kGuard);
    for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) {
            src[static_cast<size_t>(y + kGuardRows) * pitch + x] = in.take<uint32_t>() | (y * 977u + x);
            dst[static_cast<size_t>(y + kGuardRows) * pitch + x] = 0;
        }
    }

    PluginCallBlock block{};
    HostEffect hostEffect{};
    EffectState state{};
    hostEffect.state = &state;
    block.hostEffect = &hostEffect;
    block.displayAspect = &displayAspect;
    block.frameWidth = (flags & 0x40) ? w + 7 : w;  // a host may create at another size
    block.frameHeight = h;
    block.aspectFitting = flags & 1;
    block.aspectFitMode = (flags >> 1) & 1;
    block.aspectPreset = (flags >> 2) & 3;
    xqPluginCall(&block, effect, kCommandCreate);
    for (int j = 0; j < kParameterSlots; ++j) {
        if (in.size == 0) break;
        state.parameters.slot[j].value = in.take<double>();
    }

    HostFrame source{{}, 0, w, h, pitch * 4, src.data() + kGuardRows * pitch};
    HostFrame target{{}, (flags & 0x10) ? kHostFormatAyuv : 0, w, h, pitch * 4,
                     dst.data() + kGuardRows * pitch};
    state.sourceFrame = (flags & 0x20) ? nullptr : &source;
    state.targetFrame = &target;
    state.progress = progress;
    state.pictureAspect = pictureAspect;
    xqPluginCall(&block, effect, kCommandRender);
    xqPluginCall(&block, effect, kCommandRender);  // cached maps and buffers on a second frame
    xqPluginCall(&block, effect, kCommandDestroy);

    for (size_t i = 0; i < dst.size(); ++i) {
        const int32_t row = static_cast<int32_t>(i / pitch) - kGuardRows;
        const int32_t col = static_cast<int32_t>(i % pitch);
        if ((row < 0 || row >= h || col >= w) && dst[i] != kGuard) std::abort();
        if ((row < 0 || row >= h || col >= w) && src[i] != kGuard) std::abort();
    }
    return 0;
}
