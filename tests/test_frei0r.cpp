// The frei0r adapter, loaded in-process like a frei0r host does, and driven
// end to end through ffmpeg's frei0r filter.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

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
    EXPECT_STREQ(info.name, "Lantern");
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

// Values set through frei0r land in the instance as the documented mapping,
// and a frame updated through frei0r equals the module's own render.
TEST(Frei0r, RendersLikeTheModuleWithMappedParameters) {
    Frei0rPlugin p("fade_to_color");
    ASSERT_NE(p.handle, nullptr) << dlerror();
    ASSERT_EQ(p.init(), 1);
    const int32_t W = 48, H = 32;
    f0r_instance_t inst = p.construct(W, H);
    ASSERT_NE(inst, nullptr);

    const char* direction = "Color To Video";
    p.setParam(inst, &direction, 0);
    f0r_param_color colour{0.2f, 0.4f, 0.6f};
    p.setParam(inst, &colour, 1);
    double progress = 0.3;
    p.setParam(inst, &progress, 2);

    f0r_param_string got = nullptr;
    p.getParam(inst, &got, 0);
    EXPECT_STREQ(got, "Color To Video");

    const reelfx::Picture src = reelfx::makeTestPicture(W, H);
    reelfx::Picture viaFrei0r(W, H, 0, 0);
    p.update(inst, 0.0, src.words.data(), viaFrei0r.data());

    reelfx::Instance direct(reelfx::test::module(), reelfx::test::effectIndex("Fade To Color"), W, H);
    direct.setParameter("Direction", 0.0);
    direct.setParameter("Color", static_cast<double>(0xFF336699u));
    reelfx::Picture expected(W, H, 0, 0);
    reelfx::RenderOptions o;
    o.progress = 0.3;
    direct.render(&src, expected, o);
    EXPECT_EQ(viaFrei0r.words, expected.words);

    p.destruct(inst);
    p.deinit();
}

TEST(Frei0r, RealParametersMapOntoTheDeclaredBounds) {
    Frei0rPlugin p("lantern");
    ASSERT_NE(p.handle, nullptr) << dlerror();
    ASSERT_EQ(p.init(), 1);
    f0r_instance_t inst = p.construct(16, 16);
    double v = 0.5;
    p.setParam(inst, &v, 1);  // "Spot Radius" 1..20
    double back = -1.0;
    p.getParam(inst, &back, 1);
    EXPECT_DOUBLE_EQ(back, 0.5);
    v = 7.0;  // out of range: clamped to the upper bound
    p.setParam(inst, &v, 1);
    p.getParam(inst, &back, 1);
    EXPECT_DOUBLE_EQ(back, 1.0);
    p.destruct(inst);
    EXPECT_EQ(p.construct(0, 16), nullptr);
    p.deinit();
}

// ffmpeg's frei0r filter finds the plugin through FREI0R_PATH and renders a
// raw BGRA frame exactly as the module does.
TEST(Frei0r, RunsInsideFfmpeg) {
    if (std::system("command -v ffmpeg >/dev/null 2>&1") != 0) GTEST_SKIP() << "no ffmpeg";
    const int32_t W = 64, H = 48;
    const reelfx::Picture src = reelfx::makeTestPicture(W, H);
    const auto dir = std::filesystem::temp_directory_path() / ("reelfx_frei0r_" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    const auto in = dir / "in.raw";
    const auto out = dir / "out.raw";
    std::ofstream(in, std::ios::binary)
        .write(reinterpret_cast<const char*>(src.words.data()), src.words.size() * 4);
    const std::string cmd = "FREI0R_PATH='" + kDir + "' ffmpeg -hide_banner -loglevel error -y " +
                            "-f rawvideo -pix_fmt bgra -s 64x48 -i '" + in.string() +
                            "' -vf 'frei0r=filter_name=reelfx_flip_xy:filter_params=Yes|No|0.5' " +
                            "-f rawvideo -pix_fmt bgra '" + out.string() + "'";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;

    reelfx::Picture viaFfmpeg(W, H);
    std::ifstream(out, std::ios::binary)
        .read(reinterpret_cast<char*>(viaFfmpeg.data()), viaFfmpeg.words.size() * 4);
    reelfx::Instance direct(reelfx::test::module(), reelfx::test::effectIndex("Flip XY"), W, H);
    direct.setParameter("Flip X Axis", 1.0);
    direct.setParameter("Flip Y Axis", 0.0);
    reelfx::Picture expected(W, H);
    reelfx::RenderOptions o;
    o.progress = 0.5;
    direct.render(&src, expected, o);
    EXPECT_EQ(viaFfmpeg.words, expected.words);
    std::filesystem::remove_all(dir);
}

#else

TEST(Frei0r, NotBuilt) { GTEST_SKIP() << "the frei0r adapter is not part of this build"; }

#endif

}  // namespace
