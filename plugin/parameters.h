// Parameter declarations and the one accessor renderers use to read them.
#pragma once

#include <cstdint>

#include "pixel/numeric.h"
#include "plugin/host_records.h"

// Each effect's parameter slots, in the order its declarations list them
// (the rows in parameters.cpp); renderers and the routing table read values
// by these names. Effects of one family share one list.
enum AgedFilmSlot : int {
    kAgedFilmDustParticles,  // "Number of dust particles"
    kAgedFilmParticleSize,   // "Average particle size"
    kAgedFilmSepiaIntensity,
    kAgedFilmSlots,
};
enum IncognitoSlot : int {
    kIncognitoIntensity,
    kIncognitoNoise,
    kIncognitoXPosition,
    kIncognitoYPosition,
    kIncognitoXSize,
    kIncognitoYSize,
    kIncognitoShape,
    kIncognitoSlots,
};
enum MosaicSlot : int {
    kMosaicResolution,
    kMosaicOverlap,
    kMosaicSlots,
};
enum NewsPrintSlot : int {
    kNewsPrintResolution,
    kNewsPrintBrightness,
    kNewsPrintContrast,
    kNewsPrintDotShape,
    kNewsPrintSlots,
};
// The five fades; only "Fade To Color" has the colour.
enum FadeSlot : int {
    kFadeDirection,
    kFadeColor,
    kFadeToColorSlots,
};
enum MultiPrismLensSlot : int {
    kPrismCount,
    kPrismCenterRadius,
    kPrismRefraction,
    kMultiPrismLensSlots,
};
enum RandomRotateSquaresSlot : int {
    kRandomRotateScale,
    kRandomRotateSquaresSlots,
};
enum BinocularsSlot : int {
    kBinocularsRadius,
    kBinocularsDistance,
    kBinocularsBackgroundColor,
    kBinocularsSlots,
};
enum NightVisionSlot : int {
    kNightVisionIntensity,
    kNightVisionRedGreenMix,
    kNightVisionBrightnessGain,
    kNightVisionBrightnessBase,
    kNightVisionSlots,
};
enum DreamSlot : int {
    kDreamBlurIntensity,
    kDreamGlareIntensity,
    kDreamSlots,
};
// "Crop" has all five; the two scaling crops stop before the mode.
enum CropSlot : int {
    kCropTop,
    kCropRight,
    kCropBottom,
    kCropLeft,
    kCropMode,
    kCropSlots,
};
// "Greyscale" and "Sepiascale".
enum ToneMapSlot : int {
    kToneMapIntensity,
    kToneMapProfile,
    kToneMapSlots,
};
enum ColorscaleSlot : int {
    kColorscaleBaseColor,
    kColorscaleIntensity,
    kColorscaleProfile,
    kColorscaleSlots,
};
enum ColorCircleShiftSlot : int {
    kColorCircleShiftOffset,
    kColorCircleShiftPeriod,
    kColorCircleShiftSlots,
};
enum FlipXYSlot : int {
    kFlipXAxis,
    kFlipYAxis,
    kFlipXYSlots,
};
enum FloodSlot : int {
    kFloodIntensity,
    kFloodSlots,
};
enum StainedGlassSlot : int {
    kStainedGlassIntensity,
    kStainedGlassSlots,
};
enum LanternSlot : int {
    kLanternFading,
    kLanternSpotRadius,
    kLanternAntiAliasing,
    kLanternSlots,
};

// P[j]: the current value of the effect's j-th declared parameter.
inline double paramValue(const ParameterBlock* block, int j) { return block->slot[j].value; }

// int(P[j]): P[j] truncated toward zero to 64 bits, low 32 bits kept.
inline int32_t paramInt(const ParameterBlock* block, int j) {
    return truncToInt64Low32(paramValue(block, j));
}

// A renderer's working range for a value: below lo gives lo, above hi gives
// hi; NaN, which is neither, is taken as lo.
inline double clampParam(double v, double lo, double hi) {
    if (!(v >= lo)) return lo;
    return v > hi ? hi : v;
}

// Writes the parameter records of effect `effectIndex` into the host's
// EffectState, slot 0 first. Crop bounds come from the frame size. An index
// outside 0-24 declares nothing.
void declareParameters(EffectState* state, uint32_t effectIndex, int32_t frameWidth,
                       int32_t frameHeight);
