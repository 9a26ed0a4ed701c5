// Kdenlive's effect descriptions written at build time: each is well-formed
// XML naming a frei0r plug-in that loads, and its parameters agree with the
// plug-in's f0r_get_param_info and the module's declarations (names, order,
// kinds, defaults, bounds, and a scale factor that undoes the plug-in's
// mapping of 0..1 onto the declared bounds).
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support.h"

#ifdef REELFX_KDENLIVE_DIR
#include <libxml/parser.h>
#include <libxml/tree.h>

extern "C" {
#include <frei0r.h>
}

namespace {

constexpr int32_t kWidth = 720, kHeight = 576;  // the profile Kdenlive would use

std::string attr(xmlNode* n, const char* name) {
    xmlChar* v = xmlGetProp(n, reinterpret_cast<const xmlChar*>(name));
    std::string s = v ? reinterpret_cast<const char*>(v) : "";
    xmlFree(v);
    return s;
}

std::string text(xmlNode* n) {
    xmlChar* v = xmlNodeGetContent(n);
    std::string s = v ? reinterpret_cast<const char*>(v) : "";
    xmlFree(v);
    return s;
}

std::vector<xmlNode*> children(xmlNode* n, const char* name) {
    std::vector<xmlNode*> out;
    for (xmlNode* c = n->children; c; c = c->next) {
        if (c->type == XML_ELEMENT_NODE && xmlStrcmp(c->name, BAD_CAST name) == 0) out.push_back(c);
    }
    return out;
}

std::vector<std::string> split(const std::string& s, char sep) {
    std::vector<std::string> out;
    std::stringstream in(s);
    for (std::string item; std::getline(in, item, sep);) out.push_back(item);
    return out;
}

// A number, or the profile size Kdenlive substitutes for its placeholders.
double value(const std::string& s) {
    if (s == "%maxHeight") return kHeight;
    if (s == "%maxWidth") return kWidth;
    size_t used = 0;
    const double v = std::stod(s, &used);
    EXPECT_EQ(used, s.size()) << "not a number: " << s;
    return v;
}

std::string slug(const std::string& name) {
    std::string out;
    for (const unsigned char c : name) {
        if (std::isalnum(c)) {
            out += static_cast<char>(std::tolower(c));
        } else if (!out.empty() && out.back() != '_') {
            out += '_';
        }
    }
    return out;
}

TEST(KdenliveEffects, AgreeWithThePluginsAndTheDeclarations) {
    std::set<std::string> displayNames;
    for (const reelfx::EffectInfo& e : reelfx::test::module().catalogue()) {
        SCOPED_TRACE(e.name);
        const std::string s = slug(e.name);
        const std::string path = std::string(REELFX_KDENLIVE_DIR) + "/reelfx_" + s + ".xml";
        xmlDoc* doc = xmlReadFile(path.c_str(), nullptr, XML_PARSE_NONET);
        ASSERT_NE(doc, nullptr) << path << " is not well-formed XML";
        xmlNode* root = xmlDocGetRootElement(doc);
        ASSERT_STREQ(reinterpret_cast<const char*>(root->name), "effect");
        EXPECT_EQ(attr(root, "tag"), "frei0r.reelfx_" + s);
        const std::string display = text(children(root, "name").at(0));
        EXPECT_EQ(display, "reelfx: " + e.name);
        EXPECT_TRUE(displayNames.insert(display).second) << "duplicate display name " << display;
        // The format has no keywords: the tags (without the "*" marker) are in the description.
        const std::string description = text(children(root, "description").at(0));
        for (const std::string& tag : split(e.tags, ',')) {
            if (!tag.empty() && tag != "*") {
                EXPECT_NE(description.find(tag), std::string::npos) << tag;
            }
        }

        // The plug-in the tag names (MLT names frei0r filters by file name).
        void* plugin = dlopen((std::string(REELFX_FREI0R_DIR) + "/reelfx_" + s + ".so").c_str(),
                              RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(plugin, nullptr) << dlerror();
        auto init = reinterpret_cast<int (*)()>(dlsym(plugin, "f0r_init"));
        auto pluginInfo =
            reinterpret_cast<void (*)(f0r_plugin_info_t*)>(dlsym(plugin, "f0r_get_plugin_info"));
        auto paramInfo =
            reinterpret_cast<void (*)(f0r_param_info_t*, int)>(dlsym(plugin, "f0r_get_param_info"));
        ASSERT_EQ(init(), 1);
        f0r_plugin_info_t info{};
        pluginInfo(&info);

        const std::vector<xmlNode*> params = children(root, "parameter");
        ASSERT_EQ(static_cast<int>(params.size()), info.num_params);
        const reelfx::Instance inst(reelfx::test::module(), e.index, kWidth, kHeight);
        const std::vector<reelfx::ParameterInfo> declared = inst.parameters();
        ASSERT_EQ(params.size(), declared.size() + 1);
        for (size_t j = 0; j < params.size(); ++j) {
            xmlNode* p = params[j];
            f0r_param_info_t pi{};
            paramInfo(&pi, static_cast<int>(j));
            SCOPED_TRACE(pi.name);
            EXPECT_EQ(attr(p, "name"), pi.name);
            const std::string type = attr(p, "type");
            if (j == declared.size()) {  // Progress, the plug-in's own
                EXPECT_STREQ(pi.name, "Progress");
                EXPECT_EQ(type, "animated");
                // An animation over the clip: 0 on the first frame, 1 on the last.
                EXPECT_EQ(attr(p, "default"), "0=0;-1=1");
                continue;
            }
            const reelfx::ParameterInfo& d = declared[j];
            EXPECT_EQ(pi.name, d.name);
            switch (d.kind) {
                case kParameterKindChoice: {
                    EXPECT_EQ(pi.type, F0R_PARAM_STRING);
                    EXPECT_EQ(type, "list");
                    const auto values = split(attr(p, "paramlist"), ';');
                    EXPECT_EQ(split(text(children(p, "paramlistdisplay").at(0)), ','), d.choices);
                    ASSERT_EQ(values.size(), d.choices.size());
                    for (size_t i = 0; i < values.size(); ++i)
                        EXPECT_EQ(values[i], std::to_string(i));
                    EXPECT_EQ(value(attr(p, "default")), d.initial);
                    break;
                }
                case kParameterKindColour: {
                    EXPECT_EQ(pi.type, F0R_PARAM_COLOR);
                    EXPECT_EQ(type, "color");
                    const auto argb = static_cast<uint32_t>(d.initial);
                    EXPECT_EQ(std::stoul(attr(p, "default"), nullptr, 16),
                              (argb << 8) | (argb >> 24));
                    break;
                }
                default: {
                    EXPECT_EQ(pi.type, F0R_PARAM_DOUBLE);
                    // Every number is keyframable; whole numbers show no decimals.
                    EXPECT_EQ(type, "animated");
                    if (d.kind == kParameterKindWhole) {
                        EXPECT_EQ(attr(p, "decimals"), "0");
                    }
                    // Kdenlive shows v * factor within min..max and has no
                    // offset: the amount above the declared minimum.
                    const double factor = value(attr(p, "factor"));
                    EXPECT_EQ(value(attr(p, "min")), 0);
                    EXPECT_EQ(value(attr(p, "max")), d.maximum - d.minimum);
                    EXPECT_EQ(factor, d.maximum - d.minimum);
                    EXPECT_NEAR(value(attr(p, "default")) * factor + d.minimum, d.initial, 1e-9);
                    EXPECT_EQ(children(p, "comment").size(), d.minimum != 0 ? 1u : 0u);
                    break;
                }
            }
        }
        dlclose(plugin);
        xmlFreeDoc(doc);
    }
    EXPECT_EQ(displayNames.size(), 25u);
}

}  // namespace

#else

TEST(KdenliveEffects, NotBuilt) { GTEST_SKIP() << "the frei0r adapter is not part of this build"; }

#endif
