// The exported entry: command dispatch, instance lifecycle, and the routing
// of render calls to the renderers.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "effects/aged_film.h"
#include "effects/effects.h"
#include "plugin/catalogue.h"
#include "plugin/frame_context.h"
#include "plugin/host_records.h"
#include "plugin/instance.h"
#include "plugin/parameters.h"

namespace {

// Exact 4:3 and 16:9, so that a preset equal to the display aspect compares
// equal and paints no border.
constexpr double kAspect4x3 = 1.3333333333333333;   // 0x3ff5555555555555
constexpr double kAspect16x9 = 1.7777777777777777;  // 0x3ffc71c71c71c71c

// Released memory is filled with this pattern by some allocators; a geometry
// that reads like it is taken for a dangling frame and gets no map.
constexpr int32_t kReleasedPattern = static_cast<int32_t>(0xFEEEFEEEu);

EffectState* effectState(const PluginCallBlock* block) {
    return block->hostEffect ? block->hostEffect->state : nullptr;
}

void releaseWorkBuffer(PluginInstance* inst) {
    std::free(inst->workBuffer);
    inst->workBuffer = nullptr;
    inst->workBufferBytes = 0;
}

// Allocates the work buffer; on exhaustion the buffer stays null and the
// effect draws what it can without it instead of taking the host down.
void allocateWorkBuffer(PluginInstance* inst, int64_t bytes) {
    if (bytes <= 0 || static_cast<uint64_t>(bytes) > SIZE_MAX) return;
    inst->workBuffer = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(bytes)));
    inst->workBufferBytes = inst->workBuffer ? static_cast<size_t>(bytes) : 0;
}

intptr_t create(PluginCallBlock* block, uint32_t effectIndex) {
    auto* inst = static_cast<PluginInstance*>(std::calloc(1, sizeof(PluginInstance)));
    if (!inst) return 0;
    inst->cachedCenterRadius = 0.0;
    inst->cachedRefraction = 0.0;
    block->instance = inst;

    // A host without an EffectState gets an instance with no parameters.
    EffectState* state = effectState(block);
    if (!state) return 0;
    state->cleared00 = 0;
    state->cleared40 = 0;
    state->cleared38 = 0;
    if (effectIndex >= static_cast<uint32_t>(kEffectCount)) return 0;

    declareParameters(state, effectIndex, block->frameWidth, block->frameHeight);

    if (effectIndex == kEffectDream) {
        // The glare copy of a frame: width x height x 4 bytes. A size that is
        // not positive or does not fit 32 bits gets no buffer; the effect then
        // shows its base blur only. The pixel count of two positive 32-bit
        // sides fits 64 bits; four times it need not, so the count is
        // checked before it is multiplied.
        const int64_t pixels = static_cast<int64_t>(block->frameHeight) * block->frameWidth;
        if (block->frameWidth > 0 && block->frameHeight > 0 && pixels <= INT32_MAX / 4) {
            allocateWorkBuffer(inst, pixels * 4);
        }
    }
    return 0;
}

intptr_t destroy(PluginCallBlock* block) {
    PluginInstance* inst = block->instance;
    if (inst) {
        std::free(inst->spareBuffer);
        inst->spareBuffer = nullptr;
        releaseWorkBuffer(inst);
        std::free(inst);
    }
    block->instance = nullptr;
    return 0;
}

// A frame is drawn only when its rows can be addressed safely: a positive
// size, a stride that is a whole number of pixels and holds a full row. Rows
// that overlap or run backwards are not drawn (the renderers and the map
// cache assume rows laid out top to bottom).
bool usableGeometry(const HostFrame* f) {
    if (!f->pixels || f->width <= 0 || f->height <= 0) return false;
    if (f->stride % 4 != 0) return false;
    return static_cast<int64_t>(f->stride) >= static_cast<int64_t>(f->width) * 4;
}

void buildPrismMap(PluginInstance* inst, const ParameterBlock* block) {
    inst->cachedRefraction = paramValue(block, kPrismRefraction);
    inst->cachedCenterRadius = paramValue(block, kPrismCenterRadius);
    inst->cachedPrisms = paramInt(block, kPrismCount);
    BuildPrismMap(inst->workBuffer, inst->cachedStride, inst->cachedWidth, inst->cachedHeight,
                  inst->cachedPrisms, inst->cachedCenterRadius, inst->cachedRefraction, 0.0, 0.0);
    ++inst->prismMapBuilds;
}

// Keeps the refraction map in the work buffer matching the frame geometry
// and the three parameters; returns whether a map is available.
bool upkeepPrismMap(PluginInstance* inst, const FrameContext& ctx, const ParameterBlock* block) {
    const bool sameGeometry = inst->workBuffer && inst->cachedStride == ctx.stride &&
                              inst->cachedWidth == ctx.width && inst->cachedHeight == ctx.height;
    if (!sameGeometry) {
        releaseWorkBuffer(inst);
        if (ctx.stride != kReleasedPattern && ctx.width != kReleasedPattern &&
            ctx.height != kReleasedPattern) {
            allocateWorkBuffer(inst, static_cast<int64_t>(ctx.height) * ctx.stride);
            inst->cachedStride = ctx.stride;
            inst->cachedWidth = ctx.width;
            inst->cachedHeight = ctx.height;
        }
        if (!inst->workBuffer) return false;
        // Built from the current values: comparing them again could only
        // rebuild the same map (a fractional or NaN value never compares
        // equal to what was stored).
        buildPrismMap(inst, block);
        return true;
    }
    if (static_cast<double>(inst->cachedPrisms) != paramValue(block, kPrismCount) ||
        inst->cachedCenterRadius != paramValue(block, kPrismCenterRadius) ||
        inst->cachedRefraction != paramValue(block, kPrismRefraction)) {
        buildPrismMap(inst, block);
    }
    return true;
}

// The glare picture needs height x stride bytes; an instance whose frames
// grow beyond the size made at creation gets a larger buffer rather than a
// write past the old one.
void fitDreamBuffer(PluginInstance* inst, const FrameContext& ctx) {
    if (!inst->workBuffer) return;
    const int64_t needed = static_cast<int64_t>(ctx.height) * ctx.stride;
    if (needed > 0 && static_cast<uint64_t>(needed) <= inst->workBufferBytes) return;
    releaseWorkBuffer(inst);
    allocateWorkBuffer(inst, needed);
}

void route(uint32_t effectIndex, PluginInstance* inst, const FrameContext& ctx,
           const ParameterBlock* block, double t, uint32_t fmt) {
    uint32_t* dst = ctx.destination;
    const uint32_t* src = ctx.source;
    const int32_t s = ctx.stride;
    const int32_t w = ctx.width;
    const int32_t h = ctx.height;
    // Fades: f is the share of the colour; "Color To Video" (0.0) runs backwards.
    auto fade = [block, t] { return paramValue(block, kFadeDirection) == 0.0 ? 1.0 - t : t; };
    // P[j] and int(P[j]) of a slot named in plugin/parameters.h.
    auto value = [block](int slot) { return paramValue(block, slot); };
    auto whole = [block](int slot) { return paramInt(block, slot); };

    switch (effectIndex) {
        case kEffectAgedFilm: renderAgedFilm(&ctx, block, t, fmt); break;
        case kEffectIncognito: renderIncognito(&ctx, block, fmt); break;
        case kEffectMosaic: renderMosaic(&ctx, block, fmt); break;
        case kEffectNewsPrint:
            if (value(kNewsPrintDotShape) == 1.0) {
                renderNewsPrintNonUniform(&ctx, block, fmt);
            } else {
                renderNewsPrintUniform(&ctx, block, fmt);
            }
            break;
        case kEffectFadeToBlack: renderFade(&ctx, block, 0xFF000000u, fade(), fmt); break;
        case kEffectFadeToGrey: renderFade(&ctx, block, 0xFF808080u, fade(), fmt); break;
        case kEffectFadeToWhite: renderFade(&ctx, block, 0xFFFFFFFFu, fade(), fmt); break;
        case kEffectFadeToSepia: renderFade(&ctx, block, 0xFFE5CC99u, fade(), fmt); break;
        case kEffectFadeToColor:
            renderFade(&ctx, block, static_cast<uint32_t>(whole(kFadeColor)), fade(), fmt);
            break;
        case kEffectMultiPrismLens:
            if (upkeepPrismMap(inst, ctx, block)) {
                ApplyPrismMap(dst, src, s, w, h, inst->workBuffer, inst->cachedStride, 0xFF000000u,
                              fmt);
            }
            break;
        case kEffectRandomRotateSquares:
            renderRandomRotateSquares(dst, src, s, w, h, value(kRandomRotateScale), fmt);
            break;
        case kEffectBinoculars:
            renderBinoculars(dst, src, s, w, h, value(kBinocularsRadius),
                             value(kBinocularsDistance), whole(kBinocularsBackgroundColor), fmt);
            break;
        case kEffectNightVision:
            renderNightVision(dst, src, s, w, h, value(kNightVisionIntensity),
                              value(kNightVisionRedGreenMix), value(kNightVisionBrightnessGain),
                              value(kNightVisionBrightnessBase), fmt);
            break;
        case kEffectDream:
            fitDreamBuffer(inst, ctx);
            renderDream(dst, src, &inst->workBuffer, s, w, h, &inst->cachedStride,
                        &inst->cachedWidth, &inst->cachedHeight, value(kDreamBlurIntensity),
                        value(kDreamGlareIntensity), fmt);
            break;
        case kEffectCrop:
            renderCrop(dst, src, s, w, h, whole(kCropTop), whole(kCropRight), whole(kCropBottom),
                       whole(kCropLeft), whole(kCropMode), fmt);
            break;
        case kEffectCropScaleToFit:
            renderCropScaleToFit(dst, src, s, w, h, whole(kCropTop), whole(kCropRight),
                                 whole(kCropBottom), whole(kCropLeft), fmt);
            break;
        case kEffectCropScaleToFill:
            renderCropScaleToFill(dst, src, s, w, h, whole(kCropTop), whole(kCropRight),
                                  whole(kCropBottom), whole(kCropLeft), fmt);
            break;
        case kEffectGreyscale:
            renderToneMap(dst, src, s, w, h, t, value(kToneMapIntensity), whole(kToneMapProfile),
                          0xFFFFFFFFu, fmt);
            break;
        case kEffectSepiascale:
            renderToneMap(dst, src, s, w, h, t, value(kToneMapIntensity), whole(kToneMapProfile),
                          0xFFE5CC99u, fmt);
            break;
        case kEffectColorscale:
            renderToneMap(dst, src, s, w, h, t, value(kColorscaleIntensity),
                          whole(kColorscaleProfile),
                          static_cast<uint32_t>(whole(kColorscaleBaseColor)), fmt);
            break;
        case kEffectColorCircleShift:
            renderColorCircleShift(dst, src, s, w, h, t, value(kColorCircleShiftOffset),
                                   value(kColorCircleShiftPeriod), fmt);
            break;
        case kEffectFlipXY:
            renderFlipXY(dst, src, s, w, h, whole(kFlipXAxis), whole(kFlipYAxis), fmt);
            break;
        case kEffectFlood: renderFlood(&ctx, block, fmt); break;
        case kEffectStainedGlass: renderStainedGlass(&ctx, block, fmt); break;
        case kEffectLantern: renderLantern(&ctx, block, t, fmt); break;
        default: break;
    }
}

intptr_t render(PluginCallBlock* block, uint32_t effectIndex) {
    PluginInstance* inst = block->instance;
    EffectState* state = effectState(block);
    if (!state || !state->targetFrame) return 1;
    // A render before create is answered like a missing target: nothing is
    // drawn. A frame that cannot be addressed safely (an empty or negative
    // size, a stride that does not hold a row) is a frame with nothing to
    // draw: the call succeeds and writes nothing.
    const HostFrame* target = state->targetFrame;
    if (!inst) return 1;

    const uint32_t fmt = target->format == kHostFormatAyuv ? kFourccAyuv : kFourccArgb;

    // Without a display aspect there is nothing to fit against: the picture
    // fills the frame.
    const double D = block->displayAspect ? *block->displayAspect : 1.0;
    double A = D;
    if (block->aspectFitting != 0 && block->aspectFitMode != 1) {
        A = state->pictureAspect;
        if (block->aspectPreset == 2) A = kAspect4x3;
        if (block->aspectPreset == 3) A = kAspect16x9;
    }

    uint32_t* source = state->sourceFrame ? state->sourceFrame->pixels : nullptr;
    FrameContext ctx;
    if (!usableGeometry(target)) {
        // "Aged Film" moves its module-wide hairs and scratches on in every
        // call that has both pictures, whatever their size; only the writes
        // are left out. The context is built without pictures, so nothing
        // is painted, just to learn the active size.
        if (effectIndex == kEffectAgedFilm && target->pixels && source) {
            makeFrameContext(&ctx, nullptr, nullptr, nullptr, fmt, target->width, target->height,
                             target->stride, 4, A, D);
            advanceAgedFilm(&ctx, &state->parameters, state->progress);
        }
        return 0;
    }
    makeFrameContext(&ctx, source, nullptr, target->pixels, fmt, target->width, target->height,
                     target->stride, 4, A, D);

    // An empty active rectangle (a degenerate aspect) leaves only the border;
    // "Aged Film" still advances its tables.
    if (effectIndex < static_cast<uint32_t>(kEffectCount)) {
        if (ctx.width > 0 && ctx.height > 0) {
            route(effectIndex, inst, ctx, &state->parameters, state->progress, fmt);
        } else if (effectIndex == kEffectAgedFilm) {
            renderAgedFilm(&ctx, &state->parameters, state->progress, fmt);
        }
    }
    return 0;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) intptr_t xqPluginCall(PluginCallBlock* block,
                                                                        int32_t effectIndex,
                                                                        int32_t command) {
    switch (command) {
        case kCommandCatalogue: return reinterpret_cast<intptr_t>(queryCatalogue(effectIndex));
        case kCommandCreate: return block ? create(block, static_cast<uint32_t>(effectIndex)) : 0;
        case kCommandDestroy: return block ? destroy(block) : 0;
        case kCommandRender: return block ? render(block, static_cast<uint32_t>(effectIndex)) : 1;
        default: return 0;
    }
}
