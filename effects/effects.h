// The renderers, one per effect or family, with the argument lists the
// routing table of the entry calls them with. Only the entry calls them.
//
// "Picture values" are, in order: destination (active top-left pixel),
// source (likewise, may be null), stride in bytes shared by both pictures,
// active width, active height. Colours arrive as ARGB words; `format` is
// kFourccArgb or kFourccAyuv.
#pragma once

#include <cstdint>

#include "plugin/frame_context.h"
#include "plugin/host_records.h"

// The effects in catalogue order: the index a host passes to xqPluginCall.
// The catalogue, the parameter declarations and the routing table are all
// indexed by these names; a new effect goes before kEffectEnd.
enum EffectIndex : uint32_t {
    kEffectAgedFilm,
    kEffectIncognito,
    kEffectMosaic,
    kEffectNewsPrint,
    kEffectFadeToBlack,
    kEffectFadeToGrey,
    kEffectFadeToWhite,
    kEffectFadeToSepia,
    kEffectFadeToColor,
    kEffectMultiPrismLens,
    kEffectRandomRotateSquares,
    kEffectBinoculars,
    kEffectNightVision,
    kEffectDream,
    kEffectCrop,
    kEffectCropScaleToFit,
    kEffectCropScaleToFill,
    kEffectGreyscale,
    kEffectSepiascale,
    kEffectColorscale,
    kEffectColorCircleShift,
    kEffectFlipXY,
    kEffectFlood,
    kEffectStainedGlass,
    kEffectLantern,
    kEffectEnd,
};
static_assert(kEffectEnd == kEffectCount, "the host records' effect count and the list agree");

// "Aged Film"
void renderAgedFilm(const FrameContext* ctx, const ParameterBlock* block, double progress,
                    uint32_t format);
// "Incognito"
void renderIncognito(const FrameContext* ctx, const ParameterBlock* block, uint32_t format);
// "Mosaic"
void renderMosaic(const FrameContext* ctx, const ParameterBlock* block, uint32_t format);
// "NewsPrint": spirals for "Dot Shape" exactly 1.0, circles otherwise.
void renderNewsPrintNonUniform(const FrameContext* ctx, const ParameterBlock* block,
                               uint32_t format);
void renderNewsPrintUniform(const FrameContext* ctx, const ParameterBlock* block, uint32_t format);
// Fades: `amount` is the share of `colour` in the output.
void renderFade(const FrameContext* ctx, const ParameterBlock* block, uint32_t colour,
                double amount, uint32_t format);
// "Multi-Prism Lens": the map is built by the entry's cache upkeep and
// applied per frame. A map entry is two int16 (dx, dy) per pixel, laid out
// like a picture with mapStride bytes per row.
void BuildPrismMap(uint8_t* map, int32_t mapStride, int32_t width, int32_t height,
                   int32_t facetCount, double centerRadius, double refraction, double centerOffsetX,
                   double centerOffsetY);
void ApplyPrismMap(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                   int32_t height, const uint8_t* map, int32_t mapStride, uint32_t borderColour,
                   uint32_t format);
// "Random-Rotate Squares"
void renderRandomRotateSquares(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                               int32_t height, double scale, uint32_t format);
// "Binoculars"
void renderBinoculars(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                      int32_t height, double radius, double distance, int32_t background,
                      uint32_t format);
// "Night Vision"
void renderNightVision(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                       int32_t height, double intensity, double redGreenMix, double brightnessGain,
                       double brightnessBase, uint32_t format);
// "Dream": glare picture in *workBuffer; stores the geometry into the
// cached fields when there is no buffer.
void renderDream(uint32_t* dst, const uint32_t* src, uint8_t** workBuffer, int32_t stride,
                 int32_t width, int32_t height, int32_t* cachedStride, int32_t* cachedWidth,
                 int32_t* cachedHeight, double blurIntensity, double glareIntensity,
                 uint32_t format);
// "Crop", "Crop Scale To Fit", "Crop Scale To Fill"
void renderCrop(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width, int32_t height,
                int32_t top, int32_t right, int32_t bottom, int32_t left, int32_t mode,
                uint32_t format);
void renderCropScaleToFit(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                          int32_t height, int32_t top, int32_t right, int32_t bottom, int32_t left,
                          uint32_t format);
void renderCropScaleToFill(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                           int32_t height, int32_t top, int32_t right, int32_t bottom, int32_t left,
                           uint32_t format);
// Tone maps: "Greyscale", "Sepiascale", "Colorscale"
void renderToneMap(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                   int32_t height, double progress, double intensity, int32_t profile,
                   uint32_t colour, uint32_t format);
// "Color Circle Shift"
void renderColorCircleShift(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                            int32_t height, double progress, double offset, double period,
                            uint32_t format);
// "Flip XY": `format` only picks the white painted without a source.
void renderFlipXY(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width, int32_t height,
                  int32_t flipX, int32_t flipY, uint32_t format);
// "Flood"
void renderFlood(const FrameContext* ctx, const ParameterBlock* block, uint32_t format);
// "Stained Glass"
void renderStainedGlass(const FrameContext* ctx, const ParameterBlock* block, uint32_t format);
// "Lantern"
void renderLantern(const FrameContext* ctx, const ParameterBlock* block, double progress,
                   uint32_t format);
