// The exported entry: commands, catalogue, parameter declarations and the
// instance lifecycle, driven through real host records.
#include <gtest/gtest.h>

#include <cfloat>
#include <cstring>
#include <string>
#include <vector>

#include "effects/effects.h"
#include "plugin/instance.h"
#include "support.h"

namespace {

using reelfx::Instance;
using reelfx::Picture;
using reelfx::RenderOptions;
using reelfx::test::module;

const EffectDescriptor* catalogueRecord(int32_t index) {
    return reinterpret_cast<const EffectDescriptor*>(module().call(nullptr, index, 8));
}

// Records built by hand, so a test controls every byte the host owns.
struct HostRecords {
    PluginCallBlock block{};
    HostEffect effect{};
    EffectState state{};
    HostFrame target{};
    double aspect = 4.0 / 3.0;
    HostRecords() {
        effect.state = &state;
        block.hostEffect = &effect;
        block.displayAspect = &aspect;
        block.frameWidth = 720;
        block.frameHeight = 576;
    }
};

// ---- catalogue ----------------------------------------------------------------

const char* const kNames[25] = {
    "Aged Film",
    "Incognito",
    "Mosaic",
    "NewsPrint",
    "Fade To Black",
    "Fade To Grey",
    "Fade To White",
    "Fade To Sepia",
    "Fade To Color",
    "Multi-Prism Lens",
    "Random-Rotate Squares",
    "Binoculars",
    "Night Vision",
    "Dream",
    "Crop",
    "Crop Scale To Fit",
    "Crop Scale To Fill",
    "Greyscale",
    "Sepiascale",
    "Colorscale",
    "Color Circle Shift",
    "Flip XY",
    "Flood",
    "Stained Glass",
    "Lantern",
};

// Every text is NUL-terminated and followed by zeros to the end of its field.
void expectField(const char* field, size_t size, const std::string& text) {
    ASSERT_EQ(std::string(field), text);
    for (size_t i = text.size(); i < size; ++i) ASSERT_EQ(field[i], 0) << text << " byte " << i;
}

TEST(Catalogue, RecordsAreCompleteAndLinkedInIndexOrder) {
    const EffectDescriptor* d = catalogueRecord(0);
    ASSERT_NE(d, nullptr);
    for (int i = 0; i < 25; ++i, d = d->next) {
        ASSERT_NE(d, nullptr);
        expectField(d->category, sizeof d->category, "Video Effect");
        expectField(d->name, sizeof d->name, kNames[i]);
        const std::string tags = (i == 9 || i == 13) ? "*,Wedding" : (i == 10 ? "*,Birthday" : "");
        expectField(d->tags, sizeof d->tags, tags);
        EXPECT_EQ(d->code1, 1u);
        EXPECT_EQ(d->code2, 2u);
        EXPECT_EQ(d->index, static_cast<uint32_t>(i));
        EXPECT_EQ(d, catalogueRecord(i));  // same address on every query
    }
    EXPECT_EQ(d, nullptr);  // record 24 ends the list
}

TEST(Catalogue, OutOfRangeQueriesReturnNullButRestoreTheTable) {
    auto* lantern = const_cast<EffectDescriptor*>(catalogueRecord(24));
    ASSERT_NE(lantern, nullptr);
    EXPECT_EQ(std::string(lantern->name), "Lantern");
    std::strcpy(lantern->name, "Lamp");  // a host altering the record (within the text)
    lantern->index = 99;
    EXPECT_EQ(catalogueRecord(25), nullptr);
    EXPECT_EQ(catalogueRecord(-1), nullptr);
    EXPECT_EQ(catalogueRecord(INT32_MIN), nullptr);
    expectField(lantern->name, sizeof lantern->name, "Lantern");
    EXPECT_EQ(lantern->index, 24u);
}

// ---- commands -------------------------------------------------------------------

TEST(Entry, UnknownCommandsDoNothing) {
    HostRecords h;
    std::vector<uint8_t> before(sizeof h.state);
    std::memcpy(before.data(), &h.state, sizeof h.state);
    for (int32_t command : {2, 3, 5, 6, 7, 9, -1, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(module().call(&h.block, 0, command), 0) << command;
    }
    EXPECT_EQ(h.block.instance, nullptr);
    EXPECT_EQ(std::memcmp(before.data(), &h.state, sizeof h.state), 0);
}

TEST(Entry, CreateOutsideTheCatalogueMakesAParameterlessInstance) {
    HostRecords h;
    h.state.cleared00 = h.state.cleared38 = h.state.cleared40 = 0xDEADBEEF;
    std::memset(h.state.parameters.slot, 0xAB, sizeof h.state.parameters.slot);
    EXPECT_EQ(module().call(&h.block, kEffectCount + 5, 0), 0);
    EXPECT_NE(h.block.instance, nullptr);
    EXPECT_EQ(h.state.cleared00, 0u);
    EXPECT_EQ(h.state.cleared38, 0u);
    EXPECT_EQ(h.state.cleared40, 0u);
    const auto* raw = reinterpret_cast<const uint8_t*>(h.state.parameters.slot);
    for (size_t i = 0; i < sizeof h.state.parameters.slot; ++i) ASSERT_EQ(raw[i], 0xAB);
    EXPECT_EQ(module().call(&h.block, kEffectCount + 5, 1), 0);
    EXPECT_EQ(h.block.instance, nullptr);
    EXPECT_EQ(module().call(&h.block, kEffectCount + 5, 1), 0);  // destroy twice: still fine
}

TEST(Entry, RenderRefusesWithoutStateTargetOrInstance) {
    HostRecords h;
    ASSERT_EQ(module().call(&h.block, kEffectGreyscale, 0), 0);
    Picture pic(8, 8, 0, 0x11223344);
    h.target = {{}, 0, 8, 8, 32, pic.data()};

    EXPECT_EQ(module().call(&h.block, kEffectGreyscale, 4), 1);  // no target frame
    h.state.targetFrame = &h.target;
    h.effect.state = nullptr;
    EXPECT_EQ(module().call(&h.block, kEffectGreyscale, 4), 1);  // no EffectState
    h.effect.state = &h.state;
    PluginInstance* inst = h.block.instance;
    h.block.instance = nullptr;
    EXPECT_EQ(module().call(&h.block, kEffectGreyscale, 4), 1);  // render before create
    h.block.instance = inst;
    for (uint32_t w : pic.words) ASSERT_EQ(w, 0x11223344u);
    module().call(&h.block, kEffectGreyscale, 1);
}

// Geometry that cannot be addressed safely is a frame with nothing to draw.
TEST(Entry, RenderDrawsNothingForUnusableGeometry) {
    HostRecords h;
    ASSERT_EQ(module().call(&h.block, kEffectFlipXY, 0), 0);
    Picture pic(8, 8, 64, 0x11223344);
    Picture src(8, 8, 64, 0x55667788);
    HostFrame source{{}, 0, 8, 8, 64, src.data()};
    h.state.sourceFrame = &source;
    h.state.targetFrame = &h.target;
    struct Geometry {
        int32_t w, h, stride;
    };
    for (Geometry g : {Geometry{0, 8, 64}, Geometry{8, 0, 64}, Geometry{-8, 8, 64},
                       Geometry{8, -1, 64}, Geometry{8, 8, 28}, Geometry{8, 8, -64},
                       Geometry{8, 8, 30}, Geometry{INT32_MAX, 8, 64}}) {
        h.target = {{}, 0, g.w, g.h, g.stride, pic.data()};
        EXPECT_EQ(module().call(&h.block, kEffectFlipXY, 4), 0)
            << g.w << "x" << g.h << "/" << g.stride;
    }
    h.target = {{}, 0, 8, 8, 64, nullptr};
    EXPECT_EQ(module().call(&h.block, kEffectFlipXY, 4), 0);
    for (uint32_t w : pic.words) ASSERT_EQ(w, 0x11223344u);
    module().call(&h.block, kEffectFlipXY, 1);
}

TEST(Entry, RenderOutsideTheCatalogueOnlyPaintsTheBorder) {
    Instance inst(module(), kEffectCount, 120, 90);
    Picture target(120, 90, 0, 0x01020304);
    RenderOptions o;
    o.displayAspect = 4.0 / 3.0;
    o.aspectFitting = true;
    o.aspectPreset = 3;
    EXPECT_EQ(inst.render(nullptr, target, o), 0);
    EXPECT_EQ(target.at(0, 10), 0xFF000000u);
    EXPECT_EQ(target.at(0, 11), 0x01020304u);  // active rectangle untouched
    EXPECT_EQ(target.at(0, 78), 0xFF000000u);
}

// ---- parameter declarations -------------------------------------------------------

TEST(Parameters, IncognitoFillsSevenSlotsWithExactRecords) {
    Instance inst(module(), kEffectIncognito, 720, 576);
    const ParameterDescriptor* s = inst.state().parameters.slot;
    const char* names[7] = {"Intensity", "Noise",  "X Position", "Y Position",
                            "X Size",    "Y Size", "Shape"};
    for (int j = 0; j < 7; ++j) {
        EXPECT_STREQ(s[j].name, names[j]);
        EXPECT_EQ(s[j].valid, 1);
    }
    EXPECT_EQ(s[0].value, 0.9);
    EXPECT_EQ(s[0].defaultValue, 0.9);
    EXPECT_EQ(s[2].minimum, -1.0);
    EXPECT_EQ(s[6].kind, 2);
    EXPECT_EQ(s[6].value, 1.0);
    EXPECT_EQ(s[6].defaultValue, 0.0);
    EXPECT_EQ(s[6].choiceFlag, -1);
    EXPECT_EQ(s[6].minimum, -DBL_MAX);
    EXPECT_EQ(s[6].maximum, DBL_MAX);
    EXPECT_EQ(std::memcmp(s[6].choices, "Round\0Squared\0\0", 15), 0);
    EXPECT_EQ(s[0].choices, nullptr);
    EXPECT_EQ(s[0].choiceFlag, 0);
}

TEST(Parameters, CropBoundsComeFromTheFrameSize) {
    for (int32_t effect : {14, 15, 16}) {
        Instance inst(module(), effect, 720, 576);
        const auto p = inst.parameters();
        ASSERT_EQ(p.size(), effect == 14 ? 5u : 4u);
        EXPECT_EQ(p[0].maximum, 576.0);
        EXPECT_EQ(p[1].maximum, 720.0);
        EXPECT_EQ(p[2].maximum, 576.0);
        EXPECT_EQ(p[3].maximum, 720.0);
        EXPECT_EQ(p[0].kind, 8);
        EXPECT_EQ(p[3].name, "Left (Pixel)");
    }
    Instance crop(module(), kEffectCrop, 720, 576);
    EXPECT_EQ(crop.parameters()[4].choices,
              (std::vector<std::string>{"Crop only", "Crop & Re-Center"}));
}

TEST(Parameters, ColoursAndProfileLists) {
    Instance fade(module(), kEffectFadeToColor, 720, 576);
    const ParameterDescriptor& colour = fade.state().parameters.slot[1];
    EXPECT_STREQ(colour.name, "Color");
    EXPECT_EQ(colour.kind, 3);
    EXPECT_EQ(colour.value, 4278190080.0);
    EXPECT_EQ(colour.defaultValue, 4278190080.0);
    EXPECT_EQ(colour.choices, nullptr);
    EXPECT_EQ(colour.choiceFlag, 0);
    EXPECT_EQ(colour.minimum, -DBL_MAX);

    Instance grey(module(), kEffectGreyscale, 720, 576);
    EXPECT_EQ(
        grey.parameters()[1].choices,
        (std::vector<std::string>{"Constant", "No FX -> Full FX", "Full FX -> No FX",
                                  "Full FX -> No FX -> Full FX", "No FX -> Full FX -> No FX"}));
    Instance colorscale(module(), kEffectColorscale, 720, 576);
    EXPECT_EQ(colorscale.parameters()[0].value, 4294967295.0);
}

TEST(Parameters, OnlyDeclaredSlotsAreWritten) {
    HostRecords h;
    std::memset(h.state.parameters.slot, 0xCD, sizeof h.state.parameters.slot);
    ASSERT_EQ(module().call(&h.block, kEffectRandomRotateSquares, 0), 0);  // one slot
    EXPECT_STREQ(h.state.parameters.slot[0].name, "Scale");
    // The last seven bytes of a written slot stay the host's.
    for (uint8_t b : h.state.parameters.slot[0].reserved49) EXPECT_EQ(b, 0xCD);
    const auto* slot1 = reinterpret_cast<const uint8_t*>(&h.state.parameters.slot[1]);
    for (size_t i = 0; i < sizeof(ParameterDescriptor); ++i) ASSERT_EQ(slot1[i], 0xCD);
    module().call(&h.block, kEffectRandomRotateSquares, 1);
}

TEST(Parameters, EveryEffectDeclaresItsList) {
    const size_t counts[25] = {3, 7, 2, 4, 1, 1, 1, 1, 2, 3, 1, 3, 4,
                               2, 5, 4, 4, 2, 2, 3, 2, 2, 1, 1, 3};
    for (int32_t e = 0; e < 25; ++e) {
        Instance inst(module(), e, 720, 576);
        EXPECT_EQ(inst.parameters().size(), counts[e]) << kNames[e];
    }
    Instance prism(module(), kEffectMultiPrismLens, 720, 576);
    EXPECT_EQ(prism.parameters()[0].kind, 8);
    EXPECT_EQ(prism.parameters()[0].minimum, 2.0);
    EXPECT_EQ(prism.parameters()[0].maximum, 20.0);
    Instance flip(module(), kEffectFlipXY, 720, 576);
    EXPECT_EQ(flip.parameter(0), 0.0);
    EXPECT_EQ(flip.parameter(1), 1.0);
}

// ---- instance lifecycle ---------------------------------------------------------------

TEST(Instance, DreamOwnsAFrameSizedBufferFromCreateToDestroy) {
    Instance dream(module(), kEffectDream, 720, 576);
    const auto* inst = dream.block().instance;
    ASSERT_NE(inst, nullptr);
    EXPECT_NE(inst->workBuffer, nullptr);
    EXPECT_EQ(inst->workBufferBytes, 720u * 576u * 4u);
    for (int32_t e : {0, 9, 12, 24}) {
        Instance other(module(), e, 720, 576);
        EXPECT_EQ(other.block().instance->workBuffer, nullptr) << kNames[e];
    }
    // A size that does not fit the 32-bit product gets no buffer rather than a short one.
    Instance huge(module(), kEffectDream, 65536, 65536);
    EXPECT_EQ(huge.block().instance->workBuffer, nullptr);
}

}  // namespace
