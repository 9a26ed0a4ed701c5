// Reads the catalogue and the parameter declarations into what the plug-in
// registers. Two instances of different frame sizes show which bounds follow
// the frame's width or height; such a property is declared from its minimum
// to kMaxSide and the module limits it to the frame it renders.
#include "adapters/gstreamer/describe.h"

#include <cctype>
#include <cstdio>
#include <stdexcept>

#include "host/names.h"

namespace reelfx::gst {

std::string dashed(const std::string& text) { return effectSlug(text, '-'); }

std::string camel(const std::string& text) {
    std::string out;
    bool upper = true;
    for (const unsigned char c : text) {
        if (!std::isalnum(c)) {
            upper = true;
            continue;
        }
        out += static_cast<char>(upper ? std::toupper(c) : c);
        upper = false;
    }
    return out;
}

namespace {

std::string number(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", v);
    return text;
}

// Names GObject would refuse or that the base classes already use.
std::string propertyName(const std::string& label, const std::vector<Property>& taken) {
    std::string name = dashed(label);
    if (name.empty() || !std::isalpha(static_cast<unsigned char>(name[0]))) name = "p-" + name;
    static const char* const reserved[] = {"name", "parent", "qos", "progress", "auto-progress"};
    for (const char* r : reserved) {
        if (name == r) name += "-value";
    }
    for (const Property& p : taken) {
        if (p.name == name) name += "-" + std::to_string(taken.size());
    }
    return name;
}

std::string blurb(const Property& p) {
    switch (p.kind) {
        case kParameterKindChoice: return p.label;
        case kParameterKindColour: return p.label + " (ARGB, 0xAARRGGBB)";
        default: {
            std::string b = p.label;
            if (p.scales != Scales::none) {
                b += " (" + number(p.minimum) + " to the frame " +
                     (p.scales == Scales::height ? "height" : "width") +
                     " in pixels; larger values count as the whole frame)";
            }
            return b;
        }
    }
}

void registerEnum(const Element& e, Property& p) {
    for (const std::string& c : p.choices) {
        std::string nick = dashed(c);
        if (nick.empty()) nick = "choice-" + std::to_string(p.choiceNicks.size());
        p.choiceNicks.push_back(nick);
    }
    for (size_t i = 0; i < p.choices.size(); ++i) {
        p.enumValues.push_back(
            {static_cast<gint>(i), p.choices[i].c_str(), p.choiceNicks[i].c_str()});
    }
    p.enumValues.push_back({0, nullptr, nullptr});
    const std::string typeName = e.typeName + camel(p.label);
    p.enumType = g_type_from_name(typeName.c_str());
    if (!p.enumType) p.enumType = g_enum_register_static(typeName.c_str(), p.enumValues.data());
}

Element describe(const Module& module, const EffectInfo& info) {
    Element e;
    e.effect = info.index;
    e.name = info.name;
    e.elementName = "reelfx-" + dashed(info.name);
    e.typeName = "GstReelfx" + camel(info.name);
    e.description = "reelfx \"" + info.name + "\" (" + info.category + ")";
    if (!info.tags.empty()) e.description += ", tags " + info.tags;
    e.sharesState = info.sharesState;
    const Instance small(module, info.index, 64, 48), large(module, info.index, 80, 96);
    const std::vector<ParameterInfo> a = small.parameters(), b = large.parameters();
    for (size_t j = 0; j < a.size(); ++j) {
        Property p;
        p.label = a[j].name;
        p.name = propertyName(p.label, e.properties);
        p.slot = a[j].index;
        p.kind = a[j].kind;
        p.minimum = a[j].minimum;
        p.maximum = a[j].maximum;
        p.initial = a[j].initial;
        p.choices = a[j].choices;
        if (j < b.size() && a[j].maximum != b[j].maximum) {
            p.scales = a[j].maximum == 48 && b[j].maximum == 96 ? Scales::height : Scales::width;
            p.maximum = kMaxSide;
            if (a[j].initial != b[j].initial) {
                throw std::runtime_error(info.name + ": \"" + p.label +
                                         "\" has an initial value that follows the frame size");
            }
        }
        p.blurb = blurb(p);
        e.properties.push_back(std::move(p));
    }
    return e;
}

}  // namespace

std::deque<Element> describeAll(const Module& module, const std::vector<EffectInfo>& catalogue) {
    std::deque<Element> out;
    for (const EffectInfo& info : catalogue) {
        out.push_back(describe(module, info));
        Element& e = out.back();
        for (Property& p : e.properties) {
            if (p.kind == kParameterKindChoice) registerEnum(e, p);
        }
    }
    return out;
}

}  // namespace reelfx::gst
