#include "plugin/catalogue.h"

#include <cstring>

namespace {

struct CatalogueEntry {
    const char* name;
    const char* tags;
};

constexpr CatalogueEntry kEntries[kEffectCount] = {
    {"Aged Film", ""},
    {"Incognito", ""},
    {"Mosaic", ""},
    {"NewsPrint", ""},
    {"Fade To Black", ""},
    {"Fade To Grey", ""},
    {"Fade To White", ""},
    {"Fade To Sepia", ""},
    {"Fade To Color", ""},
    {"Multi-Prism Lens", "*,Wedding"},
    {"Random-Rotate Squares", "*,Birthday"},
    {"Binoculars", ""},
    {"Night Vision", ""},
    {"Dream", "*,Wedding"},
    {"Crop", ""},
    {"Crop Scale To Fit", ""},
    {"Crop Scale To Fill", ""},
    {"Greyscale", ""},
    {"Sepiascale", ""},
    {"Colorscale", ""},
    {"Color Circle Shift", ""},
    {"Flip XY", ""},
    {"Flood", ""},
    {"Stained Glass", ""},
    {"Lantern", ""},
};

// Theme names the tags draw from; kept for hosts that list themes, unused here.
[[maybe_unused]] constexpr const char* kThemes[9] = {
    "", "Autumn", "Birthday Party", "Christmas", "Graduation", "Spring", "Summer", "Wedding", "Winter",
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
