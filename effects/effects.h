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

// "Aged Film" (0)
void renderAgedFilm(const FrameContext* ctx, const ParameterBlock* block, double progress,
                    uint32_t format);
// "Incognito" (1)
void renderIncognito(const FrameContext* ctx, const ParameterBlock* block, uint32_t format);
// "Mosaic" (2)
void renderMosaic(const FrameContext* ctx, const ParameterBlock* block, uint32_t format);
// "NewsPrint" (3): spirals for "Dot Shape" exactly 1.0, circles otherwise.
void renderNewsPrintNonUniform(const FrameContext* ctx, const ParameterBlock* block,
                               uint32_t format);
void renderNewsPrintUniform(const FrameContext* ctx, const ParameterBlock* block, uint32_t format);
// Fades (4-8): `amount` is the share of `colour` in the output.
void renderFade(const FrameContext* ctx, const ParameterBlock* block, uint32_t colour,
                double amount, uint32_t format);
// "Multi-Prism Lens" (9): the map is built by the entry's cache upkeep and
// applied per frame. A map entry is two int16 (dx, dy) per pixel, laid out
// like a picture with mapStride bytes per row.
void BuildPrismMap(uint8_t* map, int32_t mapStride, int32_t width, int32_t height,
                   int32_t facetCount, double centerRadius, double refraction,
                   double centerOffsetX, double centerOffsetY);
void ApplyPrismMap(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                   int32_t height, const uint8_t* map, int32_t mapStride, uint32_t borderColour,
                   uint32_t format);
// "Random-Rotate Squares" (10)
void renderRandomRotateSquares(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                               int32_t height, double scale, uint32_t format);
// "Binoculars" (11)
void renderBinoculars(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                      int32_t height, double radius, double distance, int32_t background,
                      uint32_t format);
// "Night Vision" (12)
void renderNightVision(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                       int32_t height, double intensity, double redGreenMix,
                       double brightnessGain, double brightnessBase, uint32_t format);
// "Dream" (13): glare picture in *workBuffer; stores the geometry into the
// cached fields when there is no buffer.
void renderDream(uint32_t* dst, const uint32_t* src, uint8_t** workBuffer, int32_t stride,
                 int32_t width, int32_t height, int32_t* cachedStride, int32_t* cachedWidth,
                 int32_t* cachedHeight, double blurIntensity, double glareIntensity,
                 uint32_t format);
// "Crop" (14), "Crop Scale To Fit" (15), "Crop Scale To Fill" (16)
void renderCrop(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width, int32_t height,
                int32_t top, int32_t right, int32_t bottom, int32_t left, int32_t mode,
                uint32_t format);
void renderCropScaleToFit(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                          int32_t height, int32_t top, int32_t right, int32_t bottom,
                          int32_t left, uint32_t format);
void renderCropScaleToFill(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                           int32_t height, int32_t top, int32_t right, int32_t bottom,
                           int32_t left, uint32_t format);
// Tone maps: "Greyscale" (17), "Sepiascale" (18), "Colorscale" (19)
void renderToneMap(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                   int32_t height, double progress, double intensity, int32_t profile,
                   uint32_t colour, uint32_t format);
// "Color Circle Shift" (20)
void renderColorCircleShift(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                            int32_t height, double progress, double offset, double period,
                            uint32_t format);
// "Flip XY" (21): `format` only picks the white painted without a source.
void renderFlipXY(uint32_t* dst, const uint32_t* src, int32_t stride, int32_t width,
                  int32_t height, int32_t flipX, int32_t flipY, uint32_t format);
// "Flood" (22)
void renderFlood(const FrameContext* ctx, const ParameterBlock* block, uint32_t format);
// "Stained Glass" (23)
void renderStainedGlass(const FrameContext* ctx, const ParameterBlock* block, uint32_t format);
// "Lantern" (24)
void renderLantern(const FrameContext* ctx, const ParameterBlock* block, double progress,
                   uint32_t format);
