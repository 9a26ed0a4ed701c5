// Shotcut's generated filter folders against what they name: the MLT
// services melt lists, the frei0r plug-ins' own parameter names
// (f0r_get_param_info), QML syntax (qmllint), and a melt render of a project
// set through the QML's property names against the host library's frames.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

extern "C" {
#include <frei0r.h>
}

#include "support.h"

namespace {

namespace fs = std::filesystem;
using reelfx::Picture;

const fs::path kFilters = REELFX_SHOTCUT_DIR;

std::string slurp(const fs::path& p) {
    std::ifstream f(p, std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

using Outcome = reelfx::test::CommandOutcome;

Outcome run(const std::string& line) {
    return reelfx::test::runCommand("FREI0R_PATH=" REELFX_FREI0R_DIR " " + line);
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
    while (!out.empty() && out.back() == '_') out.pop_back();
    return out;
}

// The single-quoted strings that follow `call` in `text`: filter.set('X', ...).
std::set<std::string> namesAfter(const std::string& text, const std::string& call) {
    std::set<std::string> names;
    for (size_t at = text.find(call); at != std::string::npos; at = text.find(call, at + 1)) {
        const size_t open = at + call.size();
        if (open >= text.size() || text[open] != '\'') continue;
        const size_t close = text.find('\'', open + 1);
        names.insert(text.substr(open + 1, close - open - 1));
    }
    return names;
}

// The parameter names the frei0r plug-in itself reports.
std::set<std::string> pluginParameters(const std::string& slug) {
    std::set<std::string> names;
    const std::string path = std::string(REELFX_FREI0R_DIR) + "/reelfx_" + slug + ".so";
    void* h = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!h) {
        ADD_FAILURE() << dlerror();
        return names;
    }
    using Init = int (*)();
    using PluginInfo = void (*)(f0r_plugin_info_t*);
    using ParamInfo = void (*)(f0r_param_info_t*, int);
    reinterpret_cast<Init>(dlsym(h, "f0r_init"))();
    f0r_plugin_info_t info{};
    reinterpret_cast<PluginInfo>(dlsym(h, "f0r_get_plugin_info"))(&info);
    for (int i = 0; i < info.num_params; ++i) {
        f0r_param_info_t p{};
        reinterpret_cast<ParamInfo>(dlsym(h, "f0r_get_param_info"))(&p, i);
        names.insert(p.name);
    }
    return names;  // left loaded: the adapter library stays for the process
}

TEST(ShotcutFilters, EveryEffectHasAFolderNamingAServiceMeltLists) {
    const Outcome filters = run("melt -query filters");
    ASSERT_EQ(filters.status, 0) << filters.out;
    for (const reelfx::EffectInfo& e : reelfx::test::module().catalogue()) {
        const fs::path dir = kFilters / ("reelfx_" + slug(e.name));
        ASSERT_TRUE(fs::exists(dir / "ui.qml")) << dir;
        const std::string meta = slurp(dir / "meta.qml");
        const std::string service = "frei0r.reelfx_" + slug(e.name);
        EXPECT_NE(meta.find("mlt_service: '" + service + "'"), std::string::npos) << meta;
        EXPECT_NE(meta.find("name: 'reelfx: " + e.name + "'"), std::string::npos) << meta;
        EXPECT_NE(filters.out.find("  - " + service + "\n"), std::string::npos) << service;
        EXPECT_EQ(meta.find("threads"), std::string::npos);
        EXPECT_EQ(slurp(dir / "ui.qml").find("threads"), std::string::npos);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(kFilters), fs::directory_iterator()), 25);
}

// Every parameter the panel and the keyframes name is one the plug-in has,
// and every parameter of the plug-in is on the panel.
TEST(ShotcutFilters, PropertyNamesArePluginParameters) {
    for (const reelfx::EffectInfo& e : reelfx::test::module().catalogue()) {
        const std::string s = slug(e.name);
        const std::set<std::string> plugin = pluginParameters(s);
        const std::string ui = slurp(kFilters / ("reelfx_" + s) / "ui.qml");
        const std::string meta = slurp(kFilters / ("reelfx_" + s) / "meta.qml");
        const std::set<std::string> set = namesAfter(ui, "filter.set(");
        EXPECT_EQ(set, plugin) << e.name;
        for (const char* call : {"filter.getDouble(", "updateFilter(", "filter.get("}) {
            for (const std::string& n : namesAfter(ui, call)) EXPECT_TRUE(plugin.count(n)) << n;
        }
        for (const std::string& n : namesAfter(meta, "property: "))
            EXPECT_TRUE(plugin.count(n)) << n;
        EXPECT_TRUE(namesAfter(meta, "property: ").count("Progress")) << e.name;
    }
}

TEST(ShotcutFilters, QmlSyntaxIsValid) {
    std::string files;
    for (const auto& dir : fs::directory_iterator(kFilters)) {
        files += " '" + (dir.path() / "meta.qml").string() + "' '" +
                 (dir.path() / "ui.qml").string() + "'";
    }
    const Outcome lint = run("/usr/lib/qt5/bin/qmllint" + files);
    EXPECT_EQ(lint.status, 0) << lint.out;
    EXPECT_EQ(lint.out, "");
}

// A project as Shotcut saves it: Lantern with the values the panel stores
// for Fading 25 and Spot Radius 10.5, Progress keyframed 0 -> 1.
TEST(ShotcutFilters, MeltRenderOfAProjectEqualsTheHostsFrames) {
    std::string pattern = (fs::temp_directory_path() / "reelfx-shotcut-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    const fs::path dir = pattern;
    const int w = 64, h = 48;
    std::string raw;
    for (int f = 0; f < 3; ++f) {
        const Picture p = reelfx::makeTestPicture(w, h, f);
        raw.append(reinterpret_cast<const char*>(p.words.data()), p.words.size() * 4);
    }
    std::ofstream(dir / "in.raw", std::ios::binary) << raw;
    const std::string d = dir.string();
    ASSERT_EQ(run("ffmpeg -nostdin -v error -f rawvideo -pix_fmt bgra -s 64x48 -r 25 -i " + d +
                  "/in.raw -c:v ffv1 -pix_fmt bgra " + d + "/in.mkv")
                  .status,
              0);
    const std::string ui = slurp(kFilters / "reelfx_lantern" / "ui.qml");
    ASSERT_NE(ui.find("filter.set('Fading'"), std::string::npos);
    ASSERT_NE(ui.find("filter.set('Spot Radius'"), std::string::npos);
    std::ofstream(dir / "project.mlt")
        << "<?xml version=\"1.0\"?>\n<mlt>\n"
           "  <profile width=\"64\" height=\"48\" frame_rate_num=\"25\" frame_rate_den=\"1\" "
           "progressive=\"1\" sample_aspect_num=\"1\" sample_aspect_den=\"1\" "
           "display_aspect_num=\"4\" display_aspect_den=\"3\" colorspace=\"601\"/>\n"
           "  <producer id=\"clip\" in=\"0\" out=\"2\">\n"
           "    <property name=\"resource\">" +
               d +
               "/in.mkv</property>\n"
               "    <filter mlt_service=\"frei0r.reelfx_lantern\">\n"
               "      <property name=\"Fading\">0.25</property>\n"
               "      <property name=\"Spot Radius\">0.5</property>\n"
               "      <property name=\"Progress\">0=0;2=1</property>\n"
               "    </filter>\n  </producer>\n</mlt>\n";
    const Outcome melt = run("melt -silent " + d + "/project.mlt -consumer avformat:" + d +
                             "/out.raw f=rawvideo vcodec=rawvideo pix_fmt=bgra real_time=-1");
    ASSERT_EQ(melt.status, 0) << melt.out;
    const std::string out = slurp(dir / "out.raw");
    ASSERT_EQ(out.size(), raw.size()) << melt.out;

    reelfx::Instance lantern(reelfx::test::module(), reelfx::test::effectIndex("Lantern"), w, h);
    lantern.setParameter("Fading", 25);
    lantern.setParameter("Spot Radius", 10.5);
    for (int f = 0; f < 3; ++f) {
        const Picture source = reelfx::makeTestPicture(w, h, f);
        Picture expected(w, h);
        lantern.render(&source, expected, {.progress = f * 0.5});
        EXPECT_EQ(std::memcmp(out.data() + static_cast<size_t>(f) * w * h * 4,
                              expected.words.data(), static_cast<size_t>(w) * h * 4),
                  0)
            << "frame " << f;
    }
    fs::remove_all(dir);
}

}  // namespace
