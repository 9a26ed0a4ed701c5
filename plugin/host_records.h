// Host records: the structures a host hands to xqPluginCall, and the two
// records the module hands back (catalogue entries and parameter records).
//
// The host owns these records; their layout is fixed by the host for a 32-bit
// process (4-byte pointers, little-endian, doubles aligned to 4 bytes). Every
// byte the module does not use is declared as an explicit reserved gap, so the
// declarations below reproduce the host's layout on i386 exactly; the
// static_asserts at the bottom pin every offset the module relies on.
//
// On LP64 (x86-64) the same declarations give a natural 64-bit layout:
// pointers and pointer-sized gaps are 8 bytes and doubles are 8-byte aligned.
// That layout is what a 64-bit host built against this header uses; it is
// pinned by a second set of static_asserts so it never drifts.
//
//   record               i386 size   LP64 size
//   PluginCallBlock         0x150       0x160
//   HostEffect              0x14        0x28
//   HostFrame               0x1C        0x20
//   ParameterDescriptor     56          72
//   EffectState             0x228       0x2A8   (seven parameter slots)
//   EffectDescriptor        692         696
#pragma once

#include <cstddef>
#include <cstdint>

struct PluginInstance;
struct EffectState;

// Pixel format codes (FourCC) handed to renderers.
inline constexpr uint32_t kFourccArgb = 0x41524742;  // 'ARGB'
inline constexpr uint32_t kFourccAyuv = 0x41595556;  // 'AYUV'

// HostFrame.format value that selects AYUV; any other value means ARGB.
inline constexpr int32_t kHostFormatAyuv = 3;

// A host-side picture description.
struct HostFrame {
    uint8_t reserved00[8];
    int32_t format;    // 3 = AYUV, anything else = ARGB
    int32_t width;     // pixels per row
    int32_t height;    // rows
    int32_t stride;    // bytes from one row to the next
    uint32_t* pixels;  // top-left pixel
};

// One declared parameter. The host keeps the parameter's current value in
// `value`; renderers read it through paramValue()/paramInt() below.
struct ParameterDescriptor {
    const char* name;
    int32_t kind;  // 1 real, 2 choice, 3 colour, 8 whole number
    double value;
    double minimum;
    double maximum;
    double defaultValue;    // kind 2: always 0.0
    const char* choices;    // kind 2: packed list ("A\0B\0\0"), otherwise null
    int32_t choiceFlag;     // -1 for kind 2, 0 otherwise
    uint8_t valid;          // always 1
    uint8_t reserved49[7];  // host-owned, never written by the module
};

inline constexpr int kParameterKindReal = 1;
inline constexpr int kParameterKindChoice = 2;
inline constexpr int kParameterKindColour = 3;
inline constexpr int kParameterKindWhole = 8;

// The largest parameter list ("Incognito") has seven records; hosts must
// provide at least that many slots.
inline constexpr int kParameterSlots = 7;

// The parameter block: the part of the EffectState handed to renderers that
// read their own parameters. Slot j holds the j-th declared parameter.
struct ParameterBlock {
    uint8_t reserved48[0x58];  // EffectState 0x48-0x9F, host-owned
    ParameterDescriptor slot[kParameterSlots];
};

// Per-instance host state.
struct EffectState {
    uint32_t cleared00;      // set to 0 on create
    HostFrame* sourceFrame;  // input picture
    uintptr_t reserved08;
    HostFrame* targetFrame;  // output picture
    double pictureAspect;    // used when fitting is on without a preset
    uint8_t reserved18[0x10];
    double progress;  // 0.0 at the start of the effect, 1.0 at its end
    uint8_t reserved30[0x08];
    uint32_t cleared38;  // set to 0 on create
    uint32_t reserved3C;
    uint32_t cleared40;  // set to 0 on create
    uint32_t reserved44;
    ParameterBlock parameters;  // starts at 0x48
};

struct HostEffect {
    uintptr_t reserved00[4];  // four pointer-sized host words
    EffectState* state;       // null when the host has none
};

// First argument of every call.
struct PluginCallBlock {
    uint32_t reserved00;
    PluginInstance* instance;  // written by create, read by render, cleared by destroy
    HostEffect* hostEffect;
    const double* displayAspect;  // width / height of the output frame as shown
    uint8_t reserved10[0x10];
    int32_t frameWidth;   // read by create only
    int32_t frameHeight;  // read by create only
    uint8_t reserved28[0x11C];
    int32_t aspectPreset;   // 2 = 4:3, 3 = 16:9, other = EffectState.pictureAspect
    uint8_t aspectFitting;  // non-zero: fit the picture by its own aspect
    uint8_t reserved149[3];
    int32_t aspectFitMode;  // 1 switches fitting off
};

// Catalogue record, returned by the catalogue query and read in place.
struct EffectDescriptor {
    char category[40];
    char name[40];
    char tags[596];
    uint32_t code1;  // always 1
    uint32_t code2;  // always 2
    uint32_t index;
    const EffectDescriptor* next;  // record index + 1, null after the last
};

inline constexpr int kEffectCount = 25;

// Exported entry. Commands: 0 create, 1 destroy, 4 render, 8 catalogue.
inline constexpr int32_t kCommandCreate = 0;
inline constexpr int32_t kCommandDestroy = 1;
inline constexpr int32_t kCommandRender = 4;
inline constexpr int32_t kCommandCatalogue = 8;

extern "C" intptr_t xqPluginCall(PluginCallBlock* block, int32_t effectIndex, int32_t command);
using XqPluginCallFn = intptr_t (*)(PluginCallBlock*, int32_t, int32_t);

// ---- layout checks ----------------------------------------------------------
#if defined(__i386__)
static_assert(sizeof(void*) == 4);
static_assert(offsetof(PluginCallBlock, instance) == 0x04);
static_assert(offsetof(PluginCallBlock, hostEffect) == 0x08);
static_assert(offsetof(PluginCallBlock, displayAspect) == 0x0C);
static_assert(offsetof(PluginCallBlock, frameWidth) == 0x20);
static_assert(offsetof(PluginCallBlock, frameHeight) == 0x24);
static_assert(offsetof(PluginCallBlock, aspectPreset) == 0x144);
static_assert(offsetof(PluginCallBlock, aspectFitting) == 0x148);
static_assert(offsetof(PluginCallBlock, aspectFitMode) == 0x14C);
static_assert(sizeof(PluginCallBlock) == 0x150);

static_assert(offsetof(HostEffect, state) == 0x10);
static_assert(sizeof(HostEffect) == 0x14);

static_assert(offsetof(EffectState, cleared00) == 0x00);
static_assert(offsetof(EffectState, sourceFrame) == 0x04);
static_assert(offsetof(EffectState, targetFrame) == 0x0C);
static_assert(offsetof(EffectState, pictureAspect) == 0x10);
static_assert(offsetof(EffectState, progress) == 0x28);
static_assert(offsetof(EffectState, cleared38) == 0x38);
static_assert(offsetof(EffectState, cleared40) == 0x40);
static_assert(offsetof(EffectState, parameters) == 0x48);
static_assert(offsetof(EffectState, parameters) + offsetof(ParameterBlock, slot) == 0xA0);
static_assert(offsetof(ParameterBlock, slot) + offsetof(ParameterDescriptor, value) == 0x60);
static_assert(sizeof(EffectState) == 0xA0 + 7 * 56);

static_assert(offsetof(HostFrame, format) == 0x08);
static_assert(offsetof(HostFrame, width) == 0x0C);
static_assert(offsetof(HostFrame, height) == 0x10);
static_assert(offsetof(HostFrame, stride) == 0x14);
static_assert(offsetof(HostFrame, pixels) == 0x18);
static_assert(sizeof(HostFrame) == 0x1C);

static_assert(offsetof(ParameterDescriptor, name) == 0);
static_assert(offsetof(ParameterDescriptor, kind) == 4);
static_assert(offsetof(ParameterDescriptor, value) == 8);
static_assert(offsetof(ParameterDescriptor, minimum) == 16);
static_assert(offsetof(ParameterDescriptor, maximum) == 24);
static_assert(offsetof(ParameterDescriptor, defaultValue) == 32);
static_assert(offsetof(ParameterDescriptor, choices) == 40);
static_assert(offsetof(ParameterDescriptor, choiceFlag) == 44);
static_assert(offsetof(ParameterDescriptor, valid) == 48);
static_assert(sizeof(ParameterDescriptor) == 56);

static_assert(offsetof(EffectDescriptor, name) == 40);
static_assert(offsetof(EffectDescriptor, tags) == 80);
static_assert(offsetof(EffectDescriptor, code1) == 676);
static_assert(offsetof(EffectDescriptor, code2) == 680);
static_assert(offsetof(EffectDescriptor, index) == 684);
static_assert(offsetof(EffectDescriptor, next) == 688);
static_assert(sizeof(EffectDescriptor) == 692);
#elif defined(__x86_64__) || defined(__LP64__)
static_assert(sizeof(void*) == 8);
static_assert(offsetof(PluginCallBlock, instance) == 0x08);
static_assert(offsetof(PluginCallBlock, hostEffect) == 0x10);
static_assert(offsetof(PluginCallBlock, displayAspect) == 0x18);
static_assert(offsetof(PluginCallBlock, frameWidth) == 0x30);
static_assert(offsetof(PluginCallBlock, frameHeight) == 0x34);
static_assert(offsetof(PluginCallBlock, aspectPreset) == 0x154);
static_assert(offsetof(PluginCallBlock, aspectFitting) == 0x158);
static_assert(offsetof(PluginCallBlock, aspectFitMode) == 0x15C);
static_assert(sizeof(PluginCallBlock) == 0x160);

static_assert(offsetof(HostEffect, state) == 0x20);
static_assert(sizeof(HostEffect) == 0x28);

static_assert(offsetof(EffectState, sourceFrame) == 0x08);
static_assert(offsetof(EffectState, targetFrame) == 0x18);
static_assert(offsetof(EffectState, pictureAspect) == 0x20);
static_assert(offsetof(EffectState, progress) == 0x38);
static_assert(offsetof(EffectState, cleared38) == 0x48);
static_assert(offsetof(EffectState, cleared40) == 0x50);
static_assert(offsetof(EffectState, parameters) == 0x58);
static_assert(offsetof(ParameterBlock, slot) == 0x58);
static_assert(sizeof(EffectState) == 0x58 + 0x58 + 7 * 72);

static_assert(offsetof(HostFrame, format) == 0x08);
static_assert(offsetof(HostFrame, width) == 0x0C);
static_assert(offsetof(HostFrame, height) == 0x10);
static_assert(offsetof(HostFrame, stride) == 0x14);
static_assert(offsetof(HostFrame, pixels) == 0x18);
static_assert(sizeof(HostFrame) == 0x20);

static_assert(offsetof(ParameterDescriptor, kind) == 8);
static_assert(offsetof(ParameterDescriptor, value) == 16);
static_assert(offsetof(ParameterDescriptor, minimum) == 24);
static_assert(offsetof(ParameterDescriptor, maximum) == 32);
static_assert(offsetof(ParameterDescriptor, defaultValue) == 40);
static_assert(offsetof(ParameterDescriptor, choices) == 48);
static_assert(offsetof(ParameterDescriptor, choiceFlag) == 56);
static_assert(offsetof(ParameterDescriptor, valid) == 60);
static_assert(sizeof(ParameterDescriptor) == 72);

static_assert(offsetof(EffectDescriptor, code1) == 676);
static_assert(offsetof(EffectDescriptor, index) == 684);
static_assert(offsetof(EffectDescriptor, next) == 688);
static_assert(sizeof(EffectDescriptor) == 696);
#endif
