#include "plugin/parameters.h"

#include <algorithm>
#include <array>
#include <cfloat>
#include <iterator>

#include "effects/effects.h"

namespace {

// Packed choice lists: entries as consecutive texts, closed by an empty text.
// The string literal's own terminator supplies the final NUL.
constexpr char kDirection[] = "Color To Video\0Video To Color\0";
constexpr char kShape[] = "Round\0Squared\0";
constexpr char kDotShape[] = "Uniform\0Non-Uniform\0";
constexpr char kCropModes[] = "Crop only\0Crop & Re-Center\0";
constexpr char kProfile[] =
    "Constant\0No FX -> Full FX\0Full FX -> No FX\0Full FX -> No FX -> Full FX\0"
    "No FX -> Full FX -> No FX\0";
constexpr char kNoYes[] = "No\0Yes\0";

constexpr int kReal = kParameterKindReal;
constexpr int kChoice = kParameterKindChoice;
constexpr int kColour = kParameterKindColour;
constexpr int kWhole = kParameterKindWhole;

// Bounds that stand for "the frame height" and "the frame width" in the crop rows.
constexpr double kFrameHeightBound = -1.0;
constexpr double kFrameWidthBound = -2.0;

struct ParameterRow {
    const char* name;
    int kind;
    double initial;
    double minimum;       // kinds 1 and 8
    double maximum;       // kinds 1 and 8; crop rows use the frame bounds above
    const char* choices;  // kind 2
};

struct EffectRows {
    const ParameterRow* rows;
    int count;
};

// One row per slot, in the order of the effect's slot list in parameters.h.
// clang-format off
constexpr ParameterRow kAgedFilm[] = {
    {"Number of dust particles", kReal, 10, 0, 100, nullptr},
    {"Average particle size", kReal, 30, 0, 100, nullptr},
    {"Sepia Intensity", kReal, 1, 0, 2, nullptr},
};
constexpr ParameterRow kIncognito[] = {
    {"Intensity", kReal, 0.9, 0, 1, nullptr},
    {"Noise", kReal, 0, 0, 1, nullptr},
    {"X Position", kReal, 0, -1, 1, nullptr},
    {"Y Position", kReal, 0, -1, 1, nullptr},
    {"X Size", kReal, 0.5, 0, 1, nullptr},
    {"Y Size", kReal, 0.5, 0, 1, nullptr},
    {"Shape", kChoice, 1, 0, 0, kShape},
};
constexpr ParameterRow kMosaic[] = {
    {"Resolution", kReal, 0.5, 0, 1, nullptr},
    {"Overlap", kReal, 2, 0, 10, nullptr},
};
constexpr ParameterRow kNewsPrint[] = {
    {"Resolution", kReal, 0.54, 0, 1, nullptr},
    {"Brightness", kReal, 0.83, 0, 2, nullptr},
    {"Contrast", kReal, 1.09, 0, 2, nullptr},
    {"Dot Shape", kChoice, 1, 0, 0, kDotShape},
};
constexpr ParameterRow kFade[] = {
    {"Direction", kChoice, 1, 0, 0, kDirection},
};
constexpr ParameterRow kFadeToColor[] = {
    {"Direction", kChoice, 1, 0, 0, kDirection},
    {"Color", kColour, 4278190080.0, 0, 0, nullptr},
};
constexpr ParameterRow kMultiPrism[] = {
    {"Prism Count", kWhole, 6, 2, 20, nullptr},
    {"Center Radius", kReal, 0.5, 0, 1, nullptr},
    {"Prism Refraction", kReal, 0.75, 0, 1, nullptr},
};
constexpr ParameterRow kRandomRotate[] = {
    {"Scale", kReal, 0.5, 0, 1, nullptr},
};
constexpr ParameterRow kBinoculars[] = {
    {"Radius", kReal, 0.5, 0, 1, nullptr},
    {"Distance", kReal, 0.3, 0, 1, nullptr},
    {"Background Color", kColour, 0, 0, 0, nullptr},
};
constexpr ParameterRow kNightVision[] = {
    {"Intensity", kReal, 1, 0, 1, nullptr},
    {"Red/Green Mix", kReal, 0, 0, 1, nullptr},
    {"Brightness Gain", kReal, 1, 0, 5, nullptr},
    {"Brightness Base", kReal, 0, 0, 1, nullptr},
};
constexpr ParameterRow kDream[] = {
    {"Blur Intensity", kReal, 0, 0, 1, nullptr},
    {"Glare Intensity", kReal, 0.5, 0, 1, nullptr},
};
constexpr ParameterRow kCrop[] = {
    {"Top (Pixel)", kWhole, 0, 0, kFrameHeightBound, nullptr},
    {"Right (Pixel)", kWhole, 0, 0, kFrameWidthBound, nullptr},
    {"Bottom (Pixel)", kWhole, 0, 0, kFrameHeightBound, nullptr},
    {"Left (Pixel)", kWhole, 0, 0, kFrameWidthBound, nullptr},
    {"Mode", kChoice, 0, 0, 0, kCropModes},
};
constexpr ParameterRow kGreyscale[] = {
    {"Intensity", kReal, 1, -1, 2, nullptr},
    {"Intensity Profile", kChoice, 0, 0, 0, kProfile},
};
constexpr ParameterRow kColorscale[] = {
    {"Scaling Base Color", kColour, 4294967295.0, 0, 0, nullptr},
    {"Intensity", kReal, 1, -1, 2, nullptr},
    {"Intensity Profile", kChoice, 0, 0, 0, kProfile},
};
constexpr ParameterRow kColorCircleShift[] = {
    {"Offset", kReal, 0.5, 0, 1, nullptr},
    {"Period", kReal, 1, 0, 999, nullptr},
};
constexpr ParameterRow kFlipXY[] = {
    {"Flip X Axis", kChoice, 0, 0, 0, kNoYes},
    {"Flip Y Axis", kChoice, 1, 0, 0, kNoYes},
};
constexpr ParameterRow kFlood[] = {
    {"Intensity", kReal, 2, 0, 100, nullptr},
};
constexpr ParameterRow kStainedGlass[] = {
    {"Intensity", kReal, 15, 2, 100, nullptr},
};
constexpr ParameterRow kLantern[] = {
    {"Fading", kReal, 30, 0, 100, nullptr},
    {"Spot Radius", kReal, 10, 1, 20, nullptr},
    {"AntiAliasing", kReal, 50, 0, 100, nullptr},
};

// clang-format on

template <int N>
constexpr EffectRows rows(const ParameterRow (&r)[N]) {
    return {r, N};
}

// Every row list names as many slots as its effect's slot list above.
static_assert(std::size(kAgedFilm) == kAgedFilmSlots);
static_assert(std::size(kIncognito) == kIncognitoSlots);
static_assert(std::size(kMosaic) == kMosaicSlots);
static_assert(std::size(kNewsPrint) == kNewsPrintSlots);
static_assert(std::size(kFade) == kFadeColor);
static_assert(std::size(kFadeToColor) == kFadeToColorSlots);
static_assert(std::size(kMultiPrism) == kMultiPrismLensSlots);
static_assert(std::size(kRandomRotate) == kRandomRotateSquaresSlots);
static_assert(std::size(kBinoculars) == kBinocularsSlots);
static_assert(std::size(kNightVision) == kNightVisionSlots);
static_assert(std::size(kDream) == kDreamSlots);
static_assert(std::size(kCrop) == kCropSlots);
static_assert(std::size(kGreyscale) == kToneMapSlots);
static_assert(std::size(kColorscale) == kColorscaleSlots);
static_assert(std::size(kColorCircleShift) == kColorCircleShiftSlots);
static_assert(std::size(kFlipXY) == kFlipXYSlots);
static_assert(std::size(kFlood) == kFloodSlots);
static_assert(std::size(kStainedGlass) == kStainedGlassSlots);
static_assert(std::size(kLantern) == kLanternSlots);

using EffectTable = std::array<EffectRows, kEffectCount>;

constexpr EffectTable kEffects = [] {
    EffectTable t{};
    t[kEffectAgedFilm] = rows(kAgedFilm);
    t[kEffectIncognito] = rows(kIncognito);
    t[kEffectMosaic] = rows(kMosaic);
    t[kEffectNewsPrint] = rows(kNewsPrint);
    t[kEffectFadeToBlack] = rows(kFade);
    t[kEffectFadeToGrey] = rows(kFade);
    t[kEffectFadeToWhite] = rows(kFade);
    t[kEffectFadeToSepia] = rows(kFade);
    t[kEffectFadeToColor] = rows(kFadeToColor);
    t[kEffectMultiPrismLens] = rows(kMultiPrism);
    t[kEffectRandomRotateSquares] = rows(kRandomRotate);
    t[kEffectBinoculars] = rows(kBinoculars);
    t[kEffectNightVision] = rows(kNightVision);
    t[kEffectDream] = rows(kDream);
    t[kEffectCrop] = rows(kCrop);
    t[kEffectCropScaleToFit] = {kCrop, kCropMode};  // the four edges without the mode
    t[kEffectCropScaleToFill] = {kCrop, kCropMode};
    t[kEffectGreyscale] = rows(kGreyscale);
    t[kEffectSepiascale] = rows(kGreyscale);
    t[kEffectColorscale] = rows(kColorscale);
    t[kEffectColorCircleShift] = rows(kColorCircleShift);
    t[kEffectFlipXY] = rows(kFlipXY);
    t[kEffectFlood] = rows(kFlood);
    t[kEffectStainedGlass] = rows(kStainedGlass);
    t[kEffectLantern] = rows(kLantern);
    return t;
}();
static_assert(std::ranges::all_of(kEffects, [](const EffectRows& e) { return e.rows != nullptr; }),
              "every effect has its rows");

// Copies every field but the last seven bytes, which stay the host's.
void store(ParameterDescriptor* slot, const ParameterDescriptor& r) {
    slot->name = r.name;
    slot->kind = r.kind;
    slot->value = r.value;
    slot->minimum = r.minimum;
    slot->maximum = r.maximum;
    slot->defaultValue = r.defaultValue;
    slot->choices = r.choices;
    slot->choiceFlag = r.choiceFlag;
    slot->valid = r.valid;
}

ParameterDescriptor numeric(const ParameterRow& row, double maximum) {
    ParameterDescriptor d{};
    d.name = row.name;
    d.kind = row.kind;
    d.value = row.initial;
    d.minimum = row.kind == kColour ? -DBL_MAX : row.minimum;
    d.maximum = row.kind == kColour ? DBL_MAX : maximum;
    d.defaultValue = row.initial;
    d.choices = nullptr;
    d.choiceFlag = 0;
    d.valid = 1;
    return d;
}

ParameterDescriptor choice(const ParameterRow& row) {
    ParameterDescriptor d{};
    d.name = row.name;
    d.kind = kChoice;
    d.value = row.initial;
    d.minimum = -DBL_MAX;
    d.maximum = DBL_MAX;
    d.defaultValue = 0.0;
    d.choices = row.choices;
    d.choiceFlag = -1;
    d.valid = 1;
    return d;
}

}  // namespace

void declareParameters(EffectState* state, uint32_t effectIndex, int32_t frameWidth,
                       int32_t frameHeight) {
    if (effectIndex >= static_cast<uint32_t>(kEffectCount)) return;
    const EffectRows& e = kEffects[effectIndex];
    for (int j = 0; j < e.count; ++j) {
        const ParameterRow& row = e.rows[j];
        double maximum = row.maximum;
        if (maximum == kFrameHeightBound) maximum = static_cast<double>(frameHeight);
        if (maximum == kFrameWidthBound) maximum = static_cast<double>(frameWidth);
        store(&state->parameters.slot[j],
              row.kind == kChoice ? choice(row) : numeric(row, maximum));
    }
}
