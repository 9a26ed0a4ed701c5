// What the GStreamer plug-in registers for each effect, read once from the
// module when the plug-in loads: the element's name and description, and one
// property per declared parameter with GStreamer's name, bounds and default.
#pragma once

#include <glib-object.h>

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "host/host.h"

namespace reelfx::gst {

// Bounds that follow the frame size the instance is made for.
enum class Scales { none, width, height };

struct Property {
    std::string name;   // GStreamer style: "spot-radius", "top-pixel"
    std::string label;  // the declared name: "Spot Radius"
    std::string blurb;
    int32_t slot = 0;
    int32_t kind = 0;
    Scales scales = Scales::none;
    double minimum = 0;
    double maximum = 0;
    double initial = 0;
    std::vector<std::string> choices;
    std::vector<std::string> choiceNicks;  // "non-uniform"
    std::vector<GEnumValue> enumValues;    // points into the strings above
    GType enumType = 0;
};

struct Element {
    int32_t effect = 0;
    std::string name;         // the catalogue's name: "Multi-Prism Lens"
    std::string elementName;  // "reelfx-multi-prism-lens"
    std::string typeName;     // "GstReelfxMultiPrismLens"
    std::string description;
    bool sharesState = false;  // the host library's EffectInfo::sharesState
    std::vector<Property> properties;
};

// The largest frame side the elements accept; also the maximum of properties
// whose bounds follow the frame size.
inline constexpr int kMaxSide = 32767;

// "Multi-Prism Lens" -> "multi-prism-lens"; "Top (Pixel)" -> "top-pixel".
std::string dashed(const std::string& text);
// "Multi-Prism Lens" -> "MultiPrismLens" (for GType names).
std::string camel(const std::string& text);

// Describes every effect of the catalogue. Elements live in a deque, so the
// enum values' string pointers stay valid; registers the GEnum types.
std::deque<Element> describeAll(const Module& module, const std::vector<EffectInfo>& catalogue);

}  // namespace reelfx::gst
