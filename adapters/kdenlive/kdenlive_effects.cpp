// Writes Kdenlive's effect descriptions for the frei0r plug-ins, one XML file
// per effect, from the module's own catalogue and parameter declarations, so
// that they cannot drift from the plug-ins (run as a build step):
//
//   kdenlive_effects <module> <output folder>
//
// Kdenlive shows a frei0r value v as v * factor (and hands back shown /
// factor). With factor = maximum - minimum that is exactly the declared value
// the plug-in maps v onto when the minimum is 0; Kdenlive has no offset, so a
// parameter with another minimum is shown as the amount above its minimum
// (0 .. maximum - minimum), which its comment says. Bounds that follow the
// frame size use the profile's size, the frame size Kdenlive makes its
// instances for.
//
// Every number is keyframable ("animated"; whole numbers with no decimals).
// Progress starts as an animation over the clip, "0=0;-1=1": 0 on the first
// frame, 1 on the last (MLT counts negative positions from the end, as
// Kdenlive's own fade descriptions do). The format has no keyword field, so
// the effect's tags go into its description.
#include <cctype>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/names.h"

namespace {

std::string number(double v) {
    char text[40];
    const auto [end, ec] = std::to_chars(text, text + sizeof text, v);
    return ec == std::errc() ? std::string(text, end) : "0";
}

std::string escape(const std::string& s) {
    std::string out;
    for (const char c : s) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            default: out += c;
        }
    }
    return out;
}

// "Multi-Prism Lens" -> "multi_prism_lens": the plug-in file's name.
std::string slug(const std::string& name) { return reelfx::effectSlug(name, '_'); }

// "*,Wedding" -> {"Wedding"}: the catalogue's tags without the "*" marker.
std::vector<std::string> splitTags(const std::string& tags) {
    std::vector<std::string> out;
    std::string tag;
    for (const char c : tags + ",") {
        if (c != ',') {
            tag += c;
        } else {
            if (!tag.empty() && tag != "*") out.push_back(tag);
            tag.clear();
        }
    }
    return out;
}

std::string describeEffect(const reelfx::Module& module, const reelfx::EffectInfo& effect) {
    const std::string tag = "frei0r.reelfx_" + slug(effect.name);
    // Two frame sizes show which bounds follow the frame's width or height.
    const reelfx::Instance small(module, effect.index, 64, 48), large(module, effect.index, 80, 96);
    const std::vector<reelfx::ParameterInfo> params = small.parameters(),
                                             other = large.parameters();

    std::string x = "<?xml version=\"1.0\"?>\n<!DOCTYPE kpartgui>\n";
    x += "<effect tag=\"" + tag + "\" id=\"" + tag + "\" type=\"video\">\n";
    x += "    <name>reelfx: " + escape(effect.name) + "</name>\n";
    std::string tags;
    for (const std::string& t : splitTags(effect.tags)) tags += (tags.empty() ? "" : ", ") + t;
    x += "    <description>" + escape(effect.name) +
         ", a reelfx effect; Progress runs from 0 to 1 over the clip (set one value to hold it "
         "still)" +
         (tags.empty() ? std::string() : "; tags: " + escape(tags)) + "</description>\n";
    x += "    <author>reelfx developers</author>\n";
    for (size_t j = 0; j < params.size(); ++j) {
        const reelfx::ParameterInfo& p = params[j];
        const std::string name = escape(p.name);
        if (p.kind == kParameterKindChoice) {
            std::string values, display;
            for (size_t i = 0; i < p.choices.size(); ++i) {
                values += (i ? ";" : "") + std::to_string(i);
                display += (i ? "," : "") + escape(p.choices[i]);
            }
            x += "    <parameter type=\"list\" name=\"" + name + "\" default=\"" +
                 number(p.initial) + "\" paramlist=\"" + values + "\">\n";
            x += "        <paramlistdisplay>" + display + "</paramlistdisplay>\n";
        } else if (p.kind == kParameterKindColour) {
            // Kdenlive writes colours as 0xRRGGBBAA.
            const auto argb = static_cast<uint32_t>(p.initial);
            char text[16];
            std::snprintf(text, sizeof text, "0x%08x", (argb << 8) | (argb >> 24));
            x += "    <parameter type=\"color\" name=\"" + name + "\" default=\"" + text + "\">\n";
        } else {
            const double range = p.maximum - p.minimum;
            std::string max = number(range);
            if (j < other.size() && other[j].maximum != p.maximum) {
                // Follows the frame size: only whole-frame bounds from 0 can be said.
                if (p.minimum != 0 || (p.maximum != 48 && p.maximum != 64)) {
                    throw std::runtime_error(effect.name + ": \"" + p.name +
                                             "\" has bounds Kdenlive cannot show");
                }
                max = p.maximum == 48 ? "%maxHeight" : "%maxWidth";
            }
            const bool whole = p.kind == kParameterKindWhole;
            x += "    <parameter type=\"animated\" name=\"" + name + "\" default=\"" +
                 number(range > 0 ? (p.initial - p.minimum) / range : 0.0) + "\" min=\"0\" max=\"" +
                 max + "\" factor=\"" + max + "\"" + (whole ? " decimals=\"0\"" : "") + ">\n";
            if (p.minimum != 0) {
                x += "        <comment>" + name + " " + number(p.minimum) +
                     " plus the value shown (" + number(p.minimum) + " to " + number(p.maximum) +
                     ")</comment>\n";
            }
        }
        x += "        <name>" + name + "</name>\n";
        x += "    </parameter>\n";
    }
    x += "    <parameter type=\"animated\" name=\"Progress\" default=\"0=0;-1=1\" min=\"0\" "
         "max=\"1\" "
         "factor=\"1\" decimals=\"3\">\n";
    x += "        <name>Progress</name>\n";
    x += "    </parameter>\n";
    x += "</effect>\n";
    return x;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s <module> <output folder>\n", argv[0]);
        return 2;
    }
    try {
        const reelfx::Module module(argv[1]);
        const std::filesystem::path dir = argv[2];
        std::filesystem::create_directories(dir);
        for (const reelfx::EffectInfo& e : module.catalogue()) {
            const auto path = dir / ("reelfx_" + slug(e.name) + ".xml");
            std::ofstream out(path, std::ios::binary);
            out << describeEffect(module, e);
            if (!out.flush()) {
                std::fprintf(stderr, "cannot write %s\n", path.c_str());
                return 1;
            }
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "kdenlive_effects: %s\n", e.what());
        return 1;
    }
    return 0;
}
