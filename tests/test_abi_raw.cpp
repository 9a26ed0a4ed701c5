// The binary interface a 32-bit host sees: records built as raw byte arrays
// at their documented offsets (not through host_records.h), the module loaded
// with dlopen like any independent host would.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "effects/effects.h"
#include "host/host.h"

namespace {

#if defined(__i386__)

using Entry = intptr_t (*)(void*, int32_t, int32_t);

struct RawModule {
    void* handle = dlopen(REELFX_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    Entry entry = handle ? reinterpret_cast<Entry>(dlsym(handle, "xqPluginCall")) : nullptr;
    ~RawModule() {
        if (handle) dlclose(handle);
    }
};

RawModule& raw() {
    static RawModule m;
    return m;
}

template <typename T>
void put(std::vector<uint8_t>& rec, size_t offset, T value) {
    std::memcpy(rec.data() + offset, &value, sizeof value);
}
template <typename T>
T get(const uint8_t* rec, size_t offset) {
    T v;
    std::memcpy(&v, rec + offset, sizeof v);
    return v;
}
uint32_t addr(const void* p) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p)); }
const uint8_t* ptr(uint32_t a) {
    return reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(a));
}

// One host's records: call block 0x150 bytes, host effect, effect state with
// seven parameter slots, two frames.
struct RawHost {
    std::vector<uint8_t> block = std::vector<uint8_t>(0x150, 0);
    std::vector<uint8_t> effect = std::vector<uint8_t>(0x14, 0);
    std::vector<uint8_t> state = std::vector<uint8_t>(0xA0 + 7 * 56, 0);
    std::vector<uint8_t> source = std::vector<uint8_t>(0x1C, 0);
    std::vector<uint8_t> target = std::vector<uint8_t>(0x1C, 0);
    double displayAspect = 4.0 / 3.0;

    RawHost(int32_t w, int32_t h) {
        put(effect, 0x10, addr(state.data()));
        put(block, 0x08, addr(effect.data()));
        put(block, 0x0C, addr(&displayAspect));
        put(block, 0x20, w);
        put(block, 0x24, h);
    }
    void frame(std::vector<uint8_t>& f, int32_t format, int32_t w, int32_t h, int32_t stride,
               uint32_t* pixels) {
        put(f, 0x08, format);
        put(f, 0x0C, w);
        put(f, 0x10, h);
        put(f, 0x14, stride);
        put(f, 0x18, addr(pixels));
    }
    intptr_t call(int32_t effectIndex, int32_t command) {
        return raw().entry(block.data(), effectIndex, command);
    }
    const uint8_t* slot(int j) const { return state.data() + 0xA0 + 56 * j; }
};

TEST(RawAbi, CatalogueRecordsAtTheirOffsets) {
    ASSERT_NE(raw().entry, nullptr) << dlerror();
    const uint8_t* rec = ptr(static_cast<uint32_t>(raw().entry(nullptr, 0, 8)));
    for (int i = 0; i < 25; ++i) {
        ASSERT_NE(rec, nullptr);
        EXPECT_STREQ(reinterpret_cast<const char*>(rec), "Video Effect");
        EXPECT_EQ(get<uint32_t>(rec, 676), 1u);
        EXPECT_EQ(get<uint32_t>(rec, 680), 2u);
        EXPECT_EQ(get<uint32_t>(rec, 684), static_cast<uint32_t>(i));
        const uint32_t next = get<uint32_t>(rec, 688);
        if (i < 24) {
            EXPECT_EQ(next, addr(rec + 692));  // one table, 692-byte records
        }
        if (i == 9) {
            EXPECT_STREQ(reinterpret_cast<const char*>(rec + 80), "*,Wedding");
        }
        if (i == 24) {
            EXPECT_STREQ(reinterpret_cast<const char*>(rec + 40), "Lantern");
            EXPECT_EQ(next, 0u);
        }
        rec = ptr(next);
    }
}

TEST(RawAbi, CreateWritesParameterRecordsAtTheirOffsets) {
    RawHost h(720, 576);
    put(h.state, 0x00, 0xFFFFFFFFu);
    put(h.state, 0x38, 0xFFFFFFFFu);
    put(h.state, 0x40, 0xFFFFFFFFu);
    std::memset(h.state.data() + 0xA0, 0xEE, 7 * 56);
    ASSERT_EQ(h.call(kEffectIncognito, 0), 0);
    EXPECT_NE(get<uint32_t>(h.block.data(), 0x04), 0u);  // instance stored
    EXPECT_EQ(get<uint32_t>(h.state.data(), 0x00), 0u);
    EXPECT_EQ(get<uint32_t>(h.state.data(), 0x38), 0u);
    EXPECT_EQ(get<uint32_t>(h.state.data(), 0x40), 0u);

    const uint8_t* intensity = h.slot(0);
    EXPECT_STREQ(reinterpret_cast<const char*>(ptr(get<uint32_t>(intensity, 0))), "Intensity");
    EXPECT_EQ(get<int32_t>(intensity, 4), 1);
    EXPECT_EQ(get<double>(intensity, 8), 0.9);
    EXPECT_EQ(get<double>(intensity, 16), 0.0);
    EXPECT_EQ(get<double>(intensity, 24), 1.0);
    EXPECT_EQ(get<double>(intensity, 32), 0.9);
    EXPECT_EQ(get<uint32_t>(intensity, 40), 0u);
    EXPECT_EQ(get<int32_t>(intensity, 44), 0);
    EXPECT_EQ(intensity[48], 1);
    for (int i = 49; i < 56; ++i) EXPECT_EQ(intensity[i], 0xEE);  // host-owned tail

    const uint8_t* shape = h.slot(6);
    EXPECT_EQ(get<int32_t>(shape, 4), 2);
    EXPECT_EQ(get<double>(shape, 8), 1.0);
    EXPECT_EQ(get<uint64_t>(shape, 16), 0xffefffffffffffffull);
    EXPECT_EQ(get<uint64_t>(shape, 24), 0x7fefffffffffffffull);
    EXPECT_EQ(get<double>(shape, 32), 0.0);
    EXPECT_EQ(std::memcmp(ptr(get<uint32_t>(shape, 40)), "Round\0Squared\0\0", 15), 0);
    EXPECT_EQ(get<int32_t>(shape, 44), -1);

    ASSERT_EQ(h.call(kEffectIncognito, 1), 0);
    EXPECT_EQ(get<uint32_t>(h.block.data(), 0x04), 0u);
}

// Fitting settings at 0x144/0x148/0x14C and the frame fields at 0x08-0x18
// decide which rows are painted; the parameter value at slot offset 8 and
// progress at 0x28 reach the renderer exactly as the host library's do.
TEST(RawAbi, RenderReadsFramesFittingAndValuesAtTheirOffsets) {
    const int32_t W = 120, H = 90, S = W * 4 + 16;
    reelfx::Picture src = reelfx::makeTestPicture(W, H, 0, S);
    for (const int32_t effect : {int32_t{kEffectFlipXY}, int32_t{kEffectGreyscale}, kEffectCount}) {
        RawHost h(W, H);
        ASSERT_EQ(h.call(effect, 0), 0);
        reelfx::Picture dst(W, H, S, 0x0BADF00D);
        h.frame(h.source, 0, W, H, S, src.data());
        h.frame(h.target, 0, W, H, S, dst.data());
        put(h.state, 0x04, addr(h.source.data()));
        put(h.state, 0x0C, addr(h.target.data()));
        put(h.state, 0x10, 1.0);   // picture aspect, overridden by the preset
        put(h.state, 0x28, 0.25);  // progress
        put(h.block, 0x144, 3);    // 16:9 preset
        h.block[0x148] = 1;        // fitting on
        put(h.block, 0x14C, 0);
        if (effect == kEffectGreyscale) put(h.state, 0xA0 + 8, 0.5);  // "Intensity"
        ASSERT_EQ(h.call(effect, 4), 0);

        // 120 x 90 at 4:3 showing 16:9: rows 0-10 and 78-89 are border.
        EXPECT_EQ(dst.at(5, 10), 0xFF000000u);
        EXPECT_EQ(dst.at(5, 78), 0xFF000000u);
        EXPECT_EQ(dst.row(40)[W], 0x0BADF00Du);  // padding untouched

        // The same render through the host library's records.
        reelfx::Module m(REELFX_MODULE_PATH);
        reelfx::Instance inst(m, effect, W, H);
        if (effect == kEffectGreyscale) inst.setParameter("Intensity", 0.5);
        reelfx::Picture viaHost(W, H, S, 0x0BADF00D);
        reelfx::RenderOptions o;
        o.progress = 0.25;
        o.displayAspect = 4.0 / 3.0;
        o.aspectFitting = true;
        o.aspectPreset = 3;
        o.pictureAspect = 1.0;
        inst.render(&src, viaHost, o);
        EXPECT_EQ(dst.words, viaHost.words) << "effect " << effect;
        h.call(effect, 1);
    }
}

TEST(RawAbi, AyuvFormatCodeSelectsTheAyuvBorder) {
    const int32_t W = 64, H = 48;
    RawHost h(W, H);
    ASSERT_EQ(h.call(kEffectCount, 0), 0);
    reelfx::Picture dst(W, H, 0, 0);
    h.frame(h.target, 3, W, H, W * 4, dst.data());
    put(h.state, 0x0C, addr(h.target.data()));
    put(h.state, 0x10, 2.0);
    h.block[0x148] = 1;
    ASSERT_EQ(h.call(kEffectCount, 4), 0);
    EXPECT_EQ(dst.at(0, 0), 0xFF0F8080u);
    h.call(kEffectCount, 1);
}

#else

TEST(RawAbi, OnlyOnI386) { GTEST_SKIP() << "the raw 32-bit layout is checked in the i386 build"; }

#endif

}  // namespace
