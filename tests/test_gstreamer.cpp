// The GStreamer plug-in (libgstreelfx.so) from the build tree, through the
// real gst-inspect-1.0 and gst-launch-1.0 and, for what a command line cannot
// do (controlled properties, GLib's refusals), GStreamer's own API in this
// process: every frame must equal the host library's render of the same
// source, parameters and progress.
#include <gst/check/gstharness.h>
#include <gst/controller/gstdirectcontrolbinding.h>
#include <gst/controller/gstinterpolationcontrolsource.h>
#include <gst/gst.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "support.h"

namespace {

namespace fs = std::filesystem;
using reelfx::Instance;
using reelfx::Picture;
using reelfx::test::effectIndex;
using reelfx::test::module;

// The plug-in from the build tree, with a registry of the tests' own, for
// the programs run here (beside GStreamer's installed plug-ins) and for this
// process (the plug-in alone, scanned here, so that sanitizers see only it).
const std::string kProgramEnvironment =
    "env -u GST_PLUGIN_SYSTEM_PATH_1_0 -u GST_REGISTRY_FORK GST_PLUGIN_PATH=" REELFX_GST_PLUGIN_DIR
    " GST_REGISTRY=" REELFX_BUILD_DIR "/tests/gst-registry.bin ";

void useBuildTreeHere() {
    setenv("GST_PLUGIN_PATH", REELFX_GST_PLUGIN_DIR, 1);
    setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "", 1);
    setenv("GST_REGISTRY", REELFX_BUILD_DIR "/tests/gst-registry-here.bin", 1);
    setenv("GST_REGISTRY_FORK", "no", 1);
}

using Outcome = reelfx::test::CommandOutcome;

Outcome run(const std::string& line) {
    return reelfx::test::runCommand(kProgramEnvironment + line);
}

std::string slurp(const fs::path& p) {
    std::ifstream f(p, std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

// "Multi-Prism Lens" -> "reelfx-multi-prism-lens".
std::string elementName(const std::string& effect) {
    std::string out = "reelfx-";
    for (const unsigned char c : effect) {
        if (std::isalnum(c)) {
            out += static_cast<char>(std::tolower(c));
        } else if (out.back() != '-') {
            out += '-';
        }
    }
    return out;
}

TEST(GstInspect, ListsEveryEffectWithItsProperties) {
    const Outcome all = run("gst-inspect-1.0 reelfx");
    ASSERT_EQ(all.status, 0) << all.out;
    EXPECT_NE(all.out.find("25 elements"), std::string::npos) << all.out;
    for (const reelfx::EffectInfo& e : module().catalogue()) {
        EXPECT_NE(all.out.find("  " + elementName(e.name) + ": reelfx " + e.name),
                  std::string::npos)
            << e.name;
    }
    const Outcome lantern = run("gst-inspect-1.0 reelfx-lantern");
    ASSERT_EQ(lantern.status, 0) << lantern.out;
    for (const char* expected :
         {"Filter/Effect/Video", "(string)BGRA, (string)VUYA", "auto-progress"}) {
        EXPECT_NE(lantern.out.find(expected), std::string::npos) << expected;
    }
    // gst-inspect pads numbers with spaces: compare with runs of spaces as one.
    std::string squeezed;
    for (const char c : lantern.out) {
        if (c != ' ' || squeezed.empty() || squeezed.back() != ' ') squeezed += c;
    }
    EXPECT_NE(squeezed.find("spot-radius : Spot Radius\n flags: readable, writable, controllable\n"
                            " Double. Range: 1 - 20 Default: 10 "),
              std::string::npos)
        << lantern.out;
}

// Frames through gst-launch-1.0 against the host library.
class GstFrames : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "reelfx-gst-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }

    struct Case {
        std::string effect;
        uint32_t format;
        std::string properties;  // gst-launch's
        std::function<void(Instance&)> setHost;
        std::vector<double> progress;  // per frame
        int strideBytes = 0;           // of the frames handed in; 0 tight
    };

    // Renders three test frames through the element and through one host
    // instance; each frame must be the same bytes.
    void expectSameFrames(const Case& c) {
        const int w = 64, h = 48;
        const int frames = static_cast<int>(c.progress.size());
        const bool ayuv = c.format == kFourccAyuv;
        std::string input;
        std::vector<Picture> sources;
        for (int f = 0; f < frames; ++f) {
            sources.push_back(reelfx::test::testPicture(w, h, c.format, f, c.strideBytes));
            const Picture& s = sources.back();
            input.append(reinterpret_cast<const char*>(s.words.data()), s.words.size() * 4);
        }
        std::ofstream(dir_ / "in.raw", std::ios::binary) << input;
        std::string parse = "rawvideoparse width=" + std::to_string(w) +
                            " height=" + std::to_string(h) + " format=" + (ayuv ? "vuya" : "bgra") +
                            " framerate=25/1";
        if (c.strideBytes) {
            parse += " plane-strides=\"<" + std::to_string(c.strideBytes) +
                     ">\" frame-size=" + std::to_string(c.strideBytes * h);
        }
        const Outcome r = run("gst-launch-1.0 -q filesrc location=" + (dir_ / "in.raw").string() +
                              " ! " + parse + " ! " + elementName(c.effect) + " " + c.properties +
                              " ! video/x-raw,format=" + (ayuv ? "VUYA" : "BGRA") +
                              " ! filesink location=" + (dir_ / "out.raw").string());
        ASSERT_EQ(r.status, 0) << r.out;
        const std::string out = slurp(dir_ / "out.raw");
        ASSERT_EQ(out.size(), static_cast<size_t>(frames) * w * h * 4) << r.out;

        Instance inst(module(), effectIndex(c.effect), w, h);
        c.setHost(inst);
        for (int f = 0; f < frames; ++f) {
            const Picture source =
                c.strideBytes ? reelfx::test::testPicture(w, h, c.format, f) : sources[f];
            Picture target(w, h);
            inst.render(&source, target, {.progress = c.progress[f], .format = c.format});
            EXPECT_EQ(std::memcmp(out.data() + static_cast<size_t>(f) * w * h * 4,
                                  target.words.data(), static_cast<size_t>(w) * h * 4),
                      0)
                << c.effect << " " << reelfx::test::formatName(c.format) << " frame " << f;
        }
    }

    fs::path dir_;
};

TEST_F(GstFrames, RealAndChoiceParametersInBothFormats) {
    for (const uint32_t format : {kFourccArgb, kFourccAyuv}) {
        expectSameFrames({"Lantern",
                          format,
                          "spot-radius=12.5 fading=40 progress=0.3",
                          [](Instance& i) {
                              i.setParameter("Spot Radius", 12.5);
                              i.setParameter("Fading", 40);
                          },
                          {0.3, 0.3, 0.3}});
        expectSameFrames({"NewsPrint",
                          format,
                          "resolution=0.3 dot-shape=uniform progress=0.7",
                          [](Instance& i) {
                              i.setParameter("Resolution", 0.3);
                              i.setChoice("Dot Shape", "Uniform");
                          },
                          {0.7, 0.7, 0.7}});
    }
}

TEST_F(GstFrames, ColourWholeNumbersAndSharedStateEffects) {
    expectSameFrames({"Fade To Color",
                      kFourccAyuv,
                      "color=0xFF2080C0 direction=color-to-video progress=0.4",
                      [](Instance& i) {
                          i.setParameter("Color", static_cast<double>(0xFF2080C0u));
                          i.setChoice("Direction", "Color To Video");
                      },
                      {0.4, 0.4, 0.4}});
    expectSameFrames({"Multi-Prism Lens",
                      kFourccArgb,
                      "prism-count=9 progress=0.6",
                      [](Instance& i) { i.setParameter("Prism Count", 9); },
                      {0.6, 0.6, 0.6}});
    expectSameFrames({"Aged Film",
                      kFourccAyuv,
                      "sepia-intensity=1.5 progress=0.5",
                      [](Instance& i) { i.setParameter("Sepia Intensity", 1.5); },
                      {0.5, 0.5, 0.5}});
}

// GStreamer's row strides are kept: padded rows come in, and frame-size
// margins are in pixels of the frame.
TEST_F(GstFrames, PaddedRowsAndPixelMargins) {
    for (const uint32_t format : {kFourccArgb, kFourccAyuv}) {
        expectSameFrames({"Crop",
                          format,
                          "top-pixel=5 left-pixel=7 mode=crop-re-center",
                          [](Instance& i) {
                              i.setParameter("Top (Pixel)", 5);
                              i.setParameter("Left (Pixel)", 7);
                              i.setChoice("Mode", "Crop & Re-Center");
                          },
                          {0.5, 0.5, 0.5},
                          64 * 4 + 48});
    }
}

// Three elements in streaming threads of their own (a tee into queues): each
// branch gives the frames one host instance renders alone. (Two Aged Film
// instances would not: their frames depend on the order in which they draw
// from the tables they share.)
TEST_F(GstFrames, ElementsRenderInParallelThreads) {
    const int w = 64, h = 48, frames = 4;
    std::string input;
    for (int f = 0; f < frames; ++f) {
        const Picture s = reelfx::makeTestPicture(w, h, f);
        input.append(reinterpret_cast<const char*>(s.words.data()), s.words.size() * 4);
    }
    std::ofstream(dir_ / "in.raw", std::ios::binary) << input;
    const std::string d = dir_.string();
    const char* branches[] = {"reelfx-aged-film sepia-intensity=2", "reelfx-newsprint",
                              "reelfx-lantern"};
    std::string line = "gst-launch-1.0 -q filesrc location=" + d +
                       "/in.raw ! rawvideoparse width=64 height=48 format=bgra framerate=25/1 "
                       "! tee name=t";
    for (int b = 0; b < 3; ++b) {
        line += " t. ! queue ! " + std::string(branches[b]) +
                " progress=0.4 ! filesink location=" + d + "/out" + std::to_string(b) + ".raw";
    }
    const Outcome r = run(line);
    ASSERT_EQ(r.status, 0) << r.out;
    const char* effects[] = {"Aged Film", "NewsPrint", "Lantern"};
    for (int b = 0; b < 3; ++b) {
        const std::string out = slurp(dir_ / ("out" + std::to_string(b) + ".raw"));
        ASSERT_EQ(out.size(), input.size()) << b;
        Instance inst(module(), effectIndex(effects[b]), w, h);
        if (b == 0) inst.setParameter("Sepia Intensity", 2);
        for (int f = 0; f < frames; ++f) {
            const Picture source = reelfx::makeTestPicture(w, h, f);
            Picture target(w, h);
            inst.render(&source, target, {.progress = 0.4});
            EXPECT_EQ(std::memcmp(out.data() + static_cast<size_t>(f) * w * h * 4,
                                  target.words.data(), static_cast<size_t>(w) * h * 4),
                      0)
                << branches[b] << " frame " << f;
        }
    }
}

// Margins beyond the frame count as the whole frame, which is what lets a
// property declared up to the largest frame stand for "up to the height".
TEST(GstBounds, MarginsBeyondTheFrameCountAsTheFrame) {
    const Picture source = reelfx::test::testPicture(64, 48, kFourccArgb);
    const auto a = reelfx::test::renderEffect("Crop", source, {{"Top (Pixel)", 48}});
    const auto b = reelfx::test::renderEffect("Crop", source, {{"Top (Pixel)", 32767}});
    EXPECT_TRUE(a.target.samePixels(b.target));
}

TEST(GstCaps, OnlyBgraAndVuyaPassWithoutConversion) {
    const std::string src =
        "gst-launch-1.0 -q videotestsrc num-buffers=2 ! video/x-raw,width=32,height=24,format=";
    const Outcome i420 = run(src + "I420 ! reelfx-mosaic ! fakesink");
    EXPECT_NE(i420.status, 0) << "I420 linked without a conversion";
    EXPECT_NE(i420.out.find("can't handle caps"), std::string::npos) << i420.out;
    const Outcome converted = run(src + "I420 ! videoconvert ! reelfx-mosaic ! fakesink");
    EXPECT_EQ(converted.status, 0) << converted.out;
    // VUYA in, VUYA out, nothing between: the caps after the element say so.
    const Outcome vuya =
        run("gst-launch-1.0 -v videotestsrc num-buffers=2 ! "
            "video/x-raw,width=32,height=24,format=VUYA ! reelfx-mosaic ! "
            "video/x-raw,format=VUYA ! fakesink");
    EXPECT_EQ(vuya.status, 0) << vuya.out;
    EXPECT_NE(vuya.out.find("GstReelfxMosaic:reelfxmosaic0.GstPad:src: caps = video/x-raw, "
                            "format=(string)VUYA"),
              std::string::npos)
        << vuya.out;
}

// In this process: GLib refuses values outside the declared bounds, and a
// controlled property takes its value at each buffer's time.
class GstInProcess : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        useBuildTreeHere();
        gst_init(nullptr, nullptr);
    }
    static void countWarning(const gchar*, GLogLevelFlags, const gchar* message, gpointer data) {
        static_cast<std::vector<std::string>*>(data)->push_back(message);
    }
};

TEST_F(GstInProcess, ValuesOutsideTheBoundsAreRefused) {
    GstElement* lantern = gst_element_factory_make("reelfx-lantern", nullptr);
    ASSERT_NE(lantern, nullptr);
    GParamSpec* pspec = g_object_class_find_property(G_OBJECT_GET_CLASS(lantern), "spot-radius");
    ASSERT_NE(pspec, nullptr);
    EXPECT_TRUE(pspec->flags & GST_PARAM_CONTROLLABLE);
    EXPECT_EQ(G_PARAM_SPEC_DOUBLE(pspec)->minimum, 1.0);
    EXPECT_EQ(G_PARAM_SPEC_DOUBLE(pspec)->maximum, 20.0);

    std::vector<std::string> warnings;
    const guint handler = g_log_set_handler(
        "GLib-GObject", static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL),
        countWarning, &warnings);
    g_object_set(lantern, "spot-radius", 50.0, nullptr);
    g_object_set(lantern, "progress", 1.5, nullptr);
    g_log_remove_handler("GLib-GObject", handler);
    EXPECT_EQ(warnings.size(), 2u);
    double radius = 0, progress = 0;
    g_object_get(lantern, "spot-radius", &radius, "progress", &progress, nullptr);
    EXPECT_EQ(radius, 10.0);
    EXPECT_EQ(progress, 0.5);
    g_object_set(lantern, "spot-radius", 20.0, nullptr);
    g_object_get(lantern, "spot-radius", &radius, nullptr);
    EXPECT_EQ(radius, 20.0);
    gst_object_unref(lantern);

    GstElement* prism = gst_element_factory_make("reelfx-multi-prism-lens", nullptr);
    ASSERT_NE(prism, nullptr);
    warnings.clear();
    const guint again = g_log_set_handler(
        "GLib-GObject", static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL),
        countWarning, &warnings);
    g_object_set(prism, "prism-count", 1, nullptr);
    g_log_remove_handler("GLib-GObject", again);
    EXPECT_EQ(warnings.size(), 1u);
    int count = 0;
    g_object_get(prism, "prism-count", &count, nullptr);
    EXPECT_EQ(count, 6);
    gst_object_unref(prism);
}

TEST_F(GstInProcess, ControlledPropertyChangesThePictureOverTime) {
    const int w = 64, h = 48;
    GstHarness* harness = gst_harness_new("reelfx-lantern");
    gst_harness_set_src_caps_str(harness,
                                 "video/x-raw,format=BGRA,width=64,height=48,framerate=25/1");
    GstElement* lantern = harness->element;
    // Spot Radius from 1 (control value 0) at 0 s to 20 (1) at 80 ms.
    GstControlSource* keys = gst_interpolation_control_source_new();
    g_object_set(keys, "mode", GST_INTERPOLATION_MODE_LINEAR, nullptr);
    auto* timed = GST_TIMED_VALUE_CONTROL_SOURCE(keys);
    gst_timed_value_control_source_set(timed, 0, 0.0);
    gst_timed_value_control_source_set(timed, 80 * GST_MSECOND, 1.0);
    gst_object_add_control_binding(
        GST_OBJECT(lantern),
        gst_direct_control_binding_new(GST_OBJECT(lantern), "spot-radius", keys));
    g_object_set(lantern, "progress", 0.5, nullptr);

    Instance host(module(), effectIndex("Lantern"), w, h);
    const Picture source = reelfx::makeTestPicture(w, h);
    std::vector<Picture> rendered;
    const double radius[] = {1.0, 10.5, 20.0};
    for (int f = 0; f < 3; ++f) {
        GstBuffer* in = gst_buffer_new_memdup(source.words.data(), source.words.size() * 4);
        GST_BUFFER_PTS(in) = f * 40 * GST_MSECOND;
        GST_BUFFER_DURATION(in) = 40 * GST_MSECOND;
        GstBuffer* out = gst_harness_push_and_pull(harness, in);
        ASSERT_NE(out, nullptr);
        Picture got(w, h);
        ASSERT_EQ(gst_buffer_extract(out, 0, got.words.data(), got.words.size() * 4),
                  got.words.size() * 4);
        gst_buffer_unref(out);
        host.setParameter("Spot Radius", radius[f]);
        Picture expected(w, h);
        host.render(&source, expected, {.progress = 0.5});
        EXPECT_TRUE(got.samePixels(expected)) << "frame " << f << ", radius " << radius[f];
        rendered.push_back(std::move(got));
    }
    EXPECT_FALSE(rendered[0].samePixels(rendered[2]));
    gst_object_unref(keys);
    gst_harness_teardown(harness);
}

// With auto-progress the segment's length sets the progress: 0 on its first
// frame, 1 on its last, whatever the progress property says.
TEST_F(GstInProcess, AutoProgressRunsFromFirstToLastFrame) {
    const int w = 64, h = 48;
    GstHarness* harness = gst_harness_new("reelfx-fade-to-black");
    gst_harness_set_src_caps_str(harness,
                                 "video/x-raw,format=VUYA,width=64,height=48,framerate=25/1");
    g_object_set(harness->element, "auto-progress", TRUE, "progress", 0.9, nullptr);
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    segment.stop = 120 * GST_MSECOND;
    ASSERT_TRUE(gst_harness_push_event(harness, gst_event_new_segment(&segment)));

    Instance host(module(), effectIndex("Fade To Black"), w, h);
    const double progress[] = {0.0, 0.5, 1.0};
    for (int f = 0; f < 3; ++f) {
        const Picture source = reelfx::test::testPicture(w, h, kFourccAyuv, f);
        GstBuffer* in = gst_buffer_new_memdup(source.words.data(), source.words.size() * 4);
        GST_BUFFER_PTS(in) = f * 40 * GST_MSECOND;
        GST_BUFFER_DURATION(in) = 40 * GST_MSECOND;
        GstBuffer* out = gst_harness_push_and_pull(harness, in);
        ASSERT_NE(out, nullptr);
        Picture got(w, h);
        ASSERT_EQ(gst_buffer_extract(out, 0, got.words.data(), got.words.size() * 4),
                  got.words.size() * 4);
        gst_buffer_unref(out);
        Picture expected(w, h);
        host.render(&source, expected, {.progress = progress[f], .format = kFourccAyuv});
        EXPECT_TRUE(got.samePixels(expected)) << "frame " << f;
    }
    gst_harness_teardown(harness);
}

}  // namespace
