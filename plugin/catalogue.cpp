#include "plugin/catalogue.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "effects/effects.h"

namespace {

struct CatalogueEntry {
    const char* name = nullptr;
    const char* tags = nullptr;
};

using CatalogueTable = std::array<CatalogueEntry, kEffectCount>;

constexpr CatalogueTable kEntries = [] {
    CatalogueTable t{};
    t[kEffectAgedFilm] = {"Aged Film", ""};
    t[kEffectIncognito] = {"Incognito", ""};
    t[kEffectMosaic] = {"Mosaic", ""};
    t[kEffectNewsPrint] = {"NewsPrint", ""};
    t[kEffectFadeToBlack] = {"Fade To Black", ""};
    t[kEffectFadeToGrey] = {"Fade To Grey", ""};
    t[kEffectFadeToWhite] = {"Fade To White", ""};
    t[kEffectFadeToSepia] = {"Fade To Sepia", ""};
    t[kEffectFadeToColor] = {"Fade To Color", ""};
    t[kEffectMultiPrismLens] = {"Multi-Prism Lens", "*,Wedding"};
    t[kEffectRandomRotateSquares] = {"Random-Rotate Squares", "*,Birthday"};
    t[kEffectBinoculars] = {"Binoculars", ""};
    t[kEffectNightVision] = {"Night Vision", ""};
    t[kEffectDream] = {"Dream", "*,Wedding"};
    t[kEffectCrop] = {"Crop", ""};
    t[kEffectCropScaleToFit] = {"Crop Scale To Fit", ""};
    t[kEffectCropScaleToFill] = {"Crop Scale To Fill", ""};
    t[kEffectGreyscale] = {"Greyscale", ""};
    t[kEffectSepiascale] = {"Sepiascale", ""};
    t[kEffectColorscale] = {"Colorscale", ""};
    t[kEffectColorCircleShift] = {"Color Circle Shift", ""};
    t[kEffectFlipXY] = {"Flip XY", ""};
    t[kEffectFlood] = {"Flood", ""};
    t[kEffectStainedGlass] = {"Stained Glass", ""};
    t[kEffectLantern] = {"Lantern", ""};
    return t;
}();
static_assert(std::ranges::all_of(kEntries,
                                  [](const CatalogueEntry& e) { return e.name != nullptr; }),
              "every effect has its name");

// Theme names the tags draw from; kept for hosts that list themes, unused here.
[[maybe_unused]] constexpr const char* kThemes[9] = {
    "",       "Autumn", "Birthday Party", "Christmas", "Graduation",
    "Spring", "Summer", "Wedding",        "Winter",
};

// Zero-initialised static storage: bytes no text reaches stay zero forever.
EffectDescriptor gCatalogue[kEffectCount];

void copyText(char* field, const char* text) { std::memcpy(field, text, std::strlen(text) + 1); }

}  // namespace

const EffectDescriptor* queryCatalogue(int32_t index) {
    // The whole table is rewritten on every query, restoring anything a host
    // may have changed in it.
    for (int i = 0; i < kEffectCount; ++i) {
        EffectDescriptor& d = gCatalogue[i];
        copyText(d.category, "Video Effect");
        copyText(d.name, kEntries[i].name);
        copyText(d.tags, kEntries[i].tags);
        d.code1 = 1;
        d.code2 = 2;
        d.index = static_cast<uint32_t>(i);
        d.next = i + 1 < kEffectCount ? &gCatalogue[i + 1] : nullptr;
    }
    if (index < 0 || index >= kEffectCount) return nullptr;
    return &gCatalogue[index];
}
