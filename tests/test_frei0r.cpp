// The frei0r adapter, loaded in-process like a frei0r host does, and driven
// end to end through ffmpeg's frei0r filter.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include <frei0r.h>
}

#include "support.h"

namespace {

#ifdef REELFX_FREI0R_DIR

const std::string kDir = REELFX_FREI0R_DIR;

struct Frei0rPlugin {
    void* handle = nullptr;
    int (*init)();
    void (*deinit)();
    void (*pluginInfo)(f0r_plugin_info_t*);
    void (*paramInfo)(f0r_param_info_t*, int);
    f0r_instance_t (*construct)(unsigned, unsigned);
    void (*destruct)(f0r_instance_t);
    void (*setParam)(f0r_instance_t, f0r_param_t, int);
    void (*getParam)(f0r_instance_t, f0r_param_t, int);
    void (*update)(f0r_instance_t, double, const uint32_t*, uint32_t*);

    explicit Frei0rPlugin(const std::string& slug) {
        handle = dlopen((kDir + "/reelfx_" + slug + ".so").c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) return;
        auto sym = [this](const char* name) { return dlsym(handle, name); };
        init = reinterpret_cast<decltype(init)>(sym("f0r_init"));
        deinit = reinterpret_cast<decltype(deinit)>(sym("f0r_deinit"));
        pluginInfo = reinterpret_cast<decltype(pluginInfo)>(sym("f0r_get_plugin_info"));
        paramInfo = reinterpret_cast<decltype(paramInfo)>(sym("f0r_get_param_info"));
        construct = reinterpret_cast<decltype(construct)>(sym("f0r_construct"));
        destruct = reinterpret_cast<decltype(destruct)>(sym("f0r_destruct"));
        setParam = reinterpret_cast<decltype(setParam)>(sym("f0r_set_param_value"));
        getParam = reinterpret_cast<decltype(getParam)>(sym("f0r_get_param_value"));
        update = reinterpret_cast<decltype(update)>(sym("f0r_update"));
    }
    ~Frei0rPlugin() {
        if (handle) dlclose(handle);
    }
};

TEST(Frei0r, DescribesTheEffectAndItsParameters) {
    Frei0rPlugin p("lantern");
    ASSERT_NE(p.handle, nullptr) << dlerror();
    ASSERT_EQ(p.init(), 1);
    f0r_plugin_info_t info{};
    p.pluginInfo(&info);
    EXPECT_STREQ(info.name, "reelfx Lantern");
    EXPECT_EQ(info.plugin_type, F0R_PLUGIN_TYPE_FILTER);
    EXPECT_EQ(info.color_model, F0R_COLOR_MODEL_BGRA8888);
    EXPECT_EQ(info.num_params, 4);  // three of its own and "Progress"
    f0r_param_info_t param{};
    p.paramInfo(&param, 1);
    EXPECT_STREQ(param.name, "Spot Radius");
    EXPECT_EQ(param.type, F0R_PARAM_DOUBLE);
    p.paramInfo(&param, 3);
    EXPECT_STREQ(param.name, "Progress");
    p.deinit();
}

// A frei0r value set through the plug-in renders like the declared value the
// mapping names, on an instance of the plug-in's own frame size: 0..1 onto
// the bounds declared for that size (crop margins up to the whole frame),
// whole numbers truncated, choices by text in any case or by index.
struct Frei0rValue {
    int index;
    double number;  // used when text and colour are null
    const char* text;
    const f0r_param_color* colour = nullptr;
};
const f0r_param_color kColour{0.2f, 0.4f, 0.6f};
struct MappingCase {
    const char* slug;
    const char* effect;
    int32_t width, height;
    std::vector<Frei0rValue> frei0r;
    std::vector<std::pair<std::string, double>> declared;
};

TEST(Frei0r, ValuesMapOntoTheInstancesDeclaredBounds) {
    const std::vector<MappingCase> cases = {
        {"crop",
         "Crop",
         40,
         100,
         {{0, 1.0, nullptr}, {3, 0.26, nullptr}},
         {{"Top (Pixel)", 100}, {"Left (Pixel)", 10}}},
        {"crop",
         "Crop",
         40,
         100,
         {{0, 0.5, nullptr}, {2, 0.0, nullptr}, {4, 0, "crop & re-center"}},
         {{"Top (Pixel)", 50}, {"Mode", 1}}},
        // 100 of 576 rows as a host writes it back, six digits: 99.999936
        {"crop", "Crop", 40, 576, {{0, 0.173611, nullptr}}, {{"Top (Pixel)", 100}}},
        {"multi_prism_lens",
         "Multi-Prism Lens",
         48,
         32,
         {{0, 0.99, nullptr}, {1, 7.0, nullptr}},
         {{"Prism Count", 19}, {"Center Radius", 1.0}}},
        {"lantern",
         "Lantern",
         48,
         32,
         {{1, 0.5, nullptr}, {0, -3.0, nullptr}},
         {{"Spot Radius", 10.5}, {"Fading", 0}}},
        {"incognito",
         "Incognito",
         48,
         32,
         {{2, 0.0, nullptr}, {6, 0, "Round"}},
         {{"X Position", -1}, {"Shape", 0}}},
        {"flip_xy",
         "Flip XY",
         48,
         32,
         {{0, 0, "1"}, {1, 0, "No"}},
         {{"Flip X Axis", 1}, {"Flip Y Axis", 0}}},
        // colours keep the declared alpha byte
        {"fade_to_color",
         "Fade To Color",
         48,
         32,
         {{0, 0, "Color To Video"}, {1, 0, nullptr, &kColour}},
         {{"Direction", 0}, {"Color", static_cast<double>(0xFF336699u)}}},
    };
    for (const MappingCase& c : cases) {
        SCOPED_TRACE(c.slug);
        Frei0rPlugin p(c.slug);
        ASSERT_NE(p.handle, nullptr) << dlerror();
        ASSERT_EQ(p.init(), 1);
        f0r_instance_t inst = p.construct(c.width, c.height);
        ASSERT_NE(inst, nullptr);
        for (const Frei0rValue& v : c.frei0r) {
            double number = v.number;
            const char* text = v.text;
            f0r_param_color colour = v.colour ? *v.colour : f0r_param_color{};
            p.setParam(inst,
                       v.colour ? static_cast<f0r_param_t>(&colour)
                       : v.text ? static_cast<f0r_param_t>(&text)
                                : static_cast<f0r_param_t>(&number),
                       v.index);
        }
        const reelfx::Picture src = reelfx::makeTestPicture(c.width, c.height);
        reelfx::Picture viaFrei0r(c.width, c.height);
        p.update(inst, 0.0, src.words.data(), viaFrei0r.data());
        p.destruct(inst);

        reelfx::Instance direct(reelfx::test::module(), reelfx::test::effectIndex(c.effect),
                                c.width, c.height);
        for (const auto& [name, value] : c.declared) direct.setParameter(name, value);
        reelfx::Picture expected(c.width, c.height);
        reelfx::RenderOptions o;
        o.progress = 0.5;
        direct.render(&src, expected, o);
        EXPECT_EQ(viaFrei0r.words, expected.words);
    }
}

// Choice texts handed back belong to the instance: reading another
// instance's choice does not change a text already handed out.
TEST(Frei0r, ChoiceTextsBelongToTheInstance) {
    Frei0rPlugin p("flip_xy");
    ASSERT_NE(p.handle, nullptr) << dlerror();
    ASSERT_EQ(p.init(), 1);
    f0r_instance_t a = p.construct(8, 8), b = p.construct(8, 8);
    const char* yes = "Yes";
    const char* no = "No";
    p.setParam(a, &yes, 0);
    p.setParam(b, &no, 0);
    f0r_param_string textA = nullptr, textB = nullptr;
    p.getParam(a, &textA, 0);
    p.getParam(b, &textB, 0);
    EXPECT_STREQ(textA, "Yes");
    EXPECT_STREQ(textB, "No");
    p.destruct(a);
    p.destruct(b);
}

// An unknown choice text leaves the value as it was and is reported once,
// naming the accepted texts.
TEST(Frei0r, UnknownChoiceTextIsReportedOnce) {
    Frei0rPlugin p("incognito");
    ASSERT_NE(p.handle, nullptr) << dlerror();
    ASSERT_EQ(p.init(), 1);
    f0r_instance_t inst = p.construct(8, 8);
    const char* text = "Oval";
    testing::internal::CaptureStderr();
    for (int i = 0; i < 3; ++i) p.setParam(inst, &text, 6);
    const std::string err = testing::internal::GetCapturedStderr();
    f0r_param_string got = nullptr;
    p.getParam(inst, &got, 6);
    EXPECT_STREQ(got, "Squared");
    EXPECT_NE(err.find("\"Oval\""), std::string::npos) << err;
    EXPECT_NE(err.find("\"Round\", \"Squared\""), std::string::npos) << err;
    EXPECT_EQ(err.find("Oval"), err.rfind("Oval")) << "reported more than once: " << err;
    p.destruct(inst);
}

TEST(Frei0r, RefusesEmptyFrames) {
    Frei0rPlugin p("lantern");
    ASSERT_NE(p.handle, nullptr) << dlerror();
    ASSERT_EQ(p.init(), 1);
    EXPECT_EQ(p.construct(0, 16), nullptr);
    EXPECT_EQ(p.construct(16, 0), nullptr);
}

// ffmpeg's frei0r filter finds the plug-in through FREI0R_PATH and renders a
// raw BGRA frame exactly as the module does; a crop margin at 1.0 covers the
// whole frame height (taller than any fixed probe size).
TEST(Frei0r, RunsInsideFfmpeg) {
    if (std::system("command -v ffmpeg >/dev/null 2>&1") != 0) GTEST_SKIP() << "no ffmpeg";
    struct Case {
        const char* filter;
        const char* effect;
        std::vector<std::pair<std::string, double>> declared;
    };
    const std::vector<Case> cases = {
        {"reelfx_flip_xy:filter_params=Yes|No|0.5",
         "Flip XY",
         {{"Flip X Axis", 1}, {"Flip Y Axis", 0}}},
        {"reelfx_crop:filter_params=1.0|0|0|0|0|0.5", "Crop", {{"Top (Pixel)", 96}}},
    };
    const int32_t W = 64, H = 96;
    const reelfx::Picture src = reelfx::makeTestPicture(W, H);
    const auto dir =
        std::filesystem::temp_directory_path() / ("reelfx_frei0r_" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    const auto in = dir / "in.raw";
    const auto out = dir / "out.raw";
    std::ofstream(in, std::ios::binary)
        .write(reinterpret_cast<const char*>(src.words.data()), src.words.size() * 4);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.filter);
        const std::string cmd = "FREI0R_PATH='" + kDir +
                                "' ffmpeg -hide_banner -loglevel error -y " +
                                "-f rawvideo -pix_fmt bgra -s 64x96 -i '" + in.string() +
                                "' -vf 'frei0r=filter_name=" + c.filter + "' " +
                                "-f rawvideo -pix_fmt bgra '" + out.string() + "'";
        ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
        reelfx::Picture viaFfmpeg(W, H);
        std::ifstream(out, std::ios::binary)
            .read(reinterpret_cast<char*>(viaFfmpeg.data()), viaFfmpeg.words.size() * 4);
        reelfx::Instance direct(reelfx::test::module(), reelfx::test::effectIndex(c.effect), W, H);
        for (const auto& [name, value] : c.declared) direct.setParameter(name, value);
        reelfx::Picture expected(W, H);
        reelfx::RenderOptions o;
        o.progress = 0.5;
        direct.render(&src, expected, o);
        EXPECT_EQ(viaFfmpeg.words, expected.words);
    }
    // The crop's last frame: nothing of the picture is left in any row.
    reelfx::Picture cropped(W, H);
    std::ifstream(out, std::ios::binary)
        .read(reinterpret_cast<char*>(cropped.data()), cropped.words.size() * 4);
    EXPECT_EQ(std::count(cropped.words.begin(), cropped.words.end(), cropped.words[0]), W * H);
    EXPECT_EQ(cropped.words[0] & 0xFFFFFF, 0u);
    std::filesystem::remove_all(dir);
}

#else

TEST(Frei0r, NotBuilt) { GTEST_SKIP() << "the frei0r adapter is not part of this build"; }

#endif

}  // namespace
