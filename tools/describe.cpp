#include "tools/describe.h"

#include <algorithm>

#include "tools/params.h"

namespace reelfx::tool {

namespace {

std::string pad(const std::string& s, size_t width) {
    return s.size() >= width ? s + " " : s + std::string(width - s.size(), ' ');
}

std::string rangeText(const ParameterInfo& p) {
    switch (p.kind) {
        case kParameterKindChoice: {
            std::string out;
            for (size_t i = 0; i < p.choices.size(); ++i) {
                if (i) out += " | ";
                out += p.choices[i];
            }
            return out;
        }
        case kParameterKindColour: return "#AARRGGBB";
        default: return formatNumber(p.minimum) + " to " + formatNumber(p.maximum);
    }
}

}  // namespace

std::string listText(const std::vector<EffectInfo>& catalogue) {
    size_t nameWidth = 6, categoryWidth = 8;
    for (const EffectInfo& e : catalogue) {
        nameWidth = std::max(nameWidth, e.name.size());
        categoryWidth = std::max(categoryWidth, e.category.size());
    }
    std::string out =
        pad(" #", 4) + pad("Effect", nameWidth + 2) + pad("Category", categoryWidth + 2) + "Tags\n";
    for (const EffectInfo& e : catalogue) {
        std::string index = std::to_string(e.index);
        if (index.size() < 2) index = " " + index;
        std::string line = pad(index, 4) + pad(e.name, nameWidth + 2) +
                           pad(e.category, categoryWidth + 2) + e.tags;
        while (!line.empty() && line.back() == ' ') line.pop_back();
        out += line + "\n";
    }
    return out;
}

nlohmann::json listJson(const std::vector<EffectInfo>& catalogue) {
    nlohmann::json out = nlohmann::json::array();
    for (const EffectInfo& e : catalogue) {
        out.push_back(
            {{"index", e.index}, {"name", e.name}, {"category", e.category}, {"tags", e.tags}});
    }
    return out;
}

std::string infoText(const EffectInfo& effect, const std::vector<ParameterInfo>& params,
                     int32_t frameWidth, int32_t frameHeight) {
    std::string out =
        effect.name + " (effect " + std::to_string(effect.index) + ", " + effect.category;
    if (!effect.tags.empty()) out += ", tags " + effect.tags;
    out += ")\n";
    if (params.empty()) return out + "No parameters.\n";
    size_t nameWidth = 9, rangeWidth = 5;
    for (const ParameterInfo& p : params) {
        nameWidth = std::max(nameWidth, p.name.size());
        rangeWidth = std::max(rangeWidth, rangeText(p).size());
    }
    out += "\n  " + pad("Parameter", nameWidth + 2) + pad("Kind", 8) +
           pad("Range", rangeWidth + 2) + "Initial\n";
    for (const ParameterInfo& p : params) {
        out += "  " + pad(p.name, nameWidth + 2) + pad(kindName(p.kind), 8) +
               pad(rangeText(p), rangeWidth + 2) + describeValue(p, p.initial) + "\n";
    }
    out += "\nSet with -p \"NAME=VALUE\"; keyframes over progress as -p \"NAME=V@0,V@1\".\n";
    const bool frameBound = std::any_of(params.begin(), params.end(), [&](const ParameterInfo& p) {
        return p.kind == kParameterKindWhole &&
               (p.maximum == frameWidth || p.maximum == frameHeight);
    });
    if (frameBound) {
        out += "Maxima shown for a " + std::to_string(frameWidth) + "x" +
               std::to_string(frameHeight) + " frame; they follow the frame size (--size WxH).\n";
    }
    return out;
}

nlohmann::json infoJson(const EffectInfo& effect, const std::vector<ParameterInfo>& params,
                        int32_t frameWidth, int32_t frameHeight) {
    nlohmann::json list = nlohmann::json::array();
    for (const ParameterInfo& p : params) {
        nlohmann::json j = {{"slot", p.index},
                            {"name", p.name},
                            {"kind", kindName(p.kind)},
                            {"kindCode", p.kind},
                            {"initial", p.initial}};
        if (p.kind == kParameterKindChoice) {
            j["choices"] = p.choices;
            j["initialText"] = describeValue(p, p.initial);
        } else if (p.kind == kParameterKindColour) {
            j["initialText"] = describeValue(p, p.initial);
        } else {
            j["minimum"] = p.minimum;
            j["maximum"] = p.maximum;
        }
        list.push_back(std::move(j));
    }
    return {{"index", effect.index},        {"name", effect.name},
            {"category", effect.category},  {"tags", effect.tags},
            {"frameWidth", frameWidth},     {"frameHeight", frameHeight},
            {"parameters", std::move(list)}};
}

}  // namespace reelfx::tool
