// The reelfx tool's command-line values against the module's real
// declarations: effect and parameter names, values of every kind,
// keyframes, spans, aspects, sizes, rates, and the text of every mistake.
#include <cstring>
#include <nlohmann/json.hpp>

#include "support.h"
#include "tools/describe.h"
#include "tools/params.h"
#include "tools/progress_bar.h"
#include "tools/render.h"

namespace reelfx::tool {
namespace {

using test::module;

std::vector<ParameterInfo> declared(const std::string& effect, int32_t w = 320, int32_t h = 240) {
    return Instance(module(), test::effectIndex(effect), w, h).parameters();
}

ParameterSetting setting(const std::string& effect, const std::string& assignment) {
    return parseSetting(effect, declared(effect), assignment);
}

// The message of the UsageError `f` throws, or a failure.
template <typename F>
std::string usageError(F&& f) {
    try {
        f();
    } catch (const UsageError& e) {
        return e.what();
    }
    ADD_FAILURE() << "no UsageError";
    return {};
}

TEST(ToolNames, EffectsByNameCaseSlugOrIndex) {
    const auto catalogue = module().catalogue();
    EXPECT_EQ(findEffect(catalogue, "Lantern"), 24);
    EXPECT_EQ(findEffect(catalogue, "multi-prism lens"), 9);
    EXPECT_EQ(findEffect(catalogue, "RandomRotateSquares"), 10);
    EXPECT_EQ(findEffect(catalogue, "13"), 13);
    EXPECT_EQ(findEffect(catalogue, "Crop"), 14);  // not "Crop Scale To Fit"
    EXPECT_EQ(
        usageError([&] { findEffect(catalogue, "Mosiac"); }),
        "unknown effect \"Mosiac\"; did you mean \"Mosaic\"? ('reelfx list' shows all 25 effects)");
    EXPECT_NE(usageError([&] { findEffect(catalogue, "fade"); }).find("\"Fade To Color\""),
              std::string::npos);
    EXPECT_EQ(usageError([&] { findEffect(catalogue, "25"); }),
              "unknown effect \"25\" ('reelfx list' shows all 25 effects)");
}

// Names ignore case and spacing; numbers stay in the declared range (the
// crop maxima are the frame's size); choices by text or index; colours as
// hex or numbers.
TEST(ToolSettings, AcceptedValues) {
    const struct {
        const char *effect, *text;
        int32_t slot;
        double value;
    } cases[] = {
        {"Lantern", "spot radius=12", 1, 12},
        {"Lantern", "  AntiAliasing = 30 ", 2, 30},
        {"Lantern", "SpotRadius=+2.5", 1, 2.5},
        {"Night Vision", "red/green mix=0.5", 1, 0.5},
        {"Greyscale", "Intensity=-1", 0, -1},
        {"Mosaic", "Resolution=1e-1", 0, 0.1},
        {"Multi-Prism Lens", "Prism Count=20", 0, 20},
        {"Crop", "top (pixel)=240", 0, 240},
        {"Crop", "Left (Pixel)=320", 3, 320},
        {"Incognito", "Shape=round", 6, 0},
        {"Incognito", "Shape=1", 6, 1},
        {"Greyscale", "Intensity Profile=Full FX -> No FX -> Full FX", 1, 3},
        {"Crop", "Mode=Crop & Re-Center", 4, 1},
        {"Flip XY", "Flip X Axis=yes", 0, 1},
        {"Fade To Color", "Color=#FF8000", 1, double(0xFFFF8000u)},
        {"Fade To Color", "Color=#80ff8000", 1, double(0x80FF8000u)},
        {"Fade To Color", "Color=0x12345678", 1, double(0x12345678u)},
        {"Fade To Color", "Color=4294967295", 1, 4294967295.0},
        {"Fade To Color", "Color=#F80", 1, double(0xFFFF8800u)},
        {"Fade To Color", "Color=orange", 1, double(0xFFFFA500u)},
        {"Fade To Color", "Color=Navy@0.5", 1, double(0x7F000080u)},
    };
    for (const auto& c : cases) {
        const ParameterSetting s = setting(c.effect, c.text);
        EXPECT_EQ(s.slot, c.slot) << c.text;
        ASSERT_EQ(s.keys.size(), 1u) << c.text;
        EXPECT_EQ(s.keys[0].value, c.value) << c.text;
    }
}

TEST(ToolSettings, MistakesSayWhatToType) {
    const std::string radius = "\"Spot Radius\" takes a number from 1 to 20, not \"";
    const std::string shape =
        "\"Shape\" takes one of \"Round\", \"Squared\" (or an index from 0 to 1), not \"";
    const std::string colour =
        "\"Color\" takes a colour as #RRGGBB, #AARRGGBB, #RGB, a name such as red or red@0.5, or "
        "a number from 0 to 4294967295, not \"";
    const struct {
        const char *effect, *text;
        std::string message;
    } cases[] = {
        {"Lantern", "Radius=4",
         "\"Lantern\" has no parameter \"Radius\"; did you mean \"Spot Radius\"? (its parameters: "
         "\"Fading\", \"Spot Radius\", \"AntiAliasing\")"},
        {"Lantern", "Spot Radius",
         "parameter setting \"Spot Radius\" needs NAME=VALUE, as in -p \"Spot Radius=12\""},
        {"Lantern",
         "spot radius= ", "no value given for \"Spot Radius\": write -p \"Spot Radius=VALUE\""},
        {"Lantern", "Spot Radius=25", radius + "25\""},
        {"Lantern", "Spot Radius=nan", radius + "nan\""},
        {"Lantern", "Spot Radius=1,5", radius + "1,5\""},
        {"Crop", "Top (Pixel)=241",
         "\"Top (Pixel)\" takes a whole number from 0 to 240, not \"241\""},
        {"Multi-Prism Lens", "Prism Count=2.5",
         "\"Prism Count\" takes a whole number from 2 to 20, not \"2.5\""},
        {"Incognito", "Shape=Oval", shape + "Oval\""},
        {"Incognito", "Shape=2", shape + "2\""},
        {"Fade To Color", "Color=#FFFF", colour + "#FFFF\""},
        {"Fade To Color", "Color=reddish", colour + "reddish\""},
        {"Fade To Color", "Color=random", colour + "random\""},
        {"Fade To Color", "Color=4294967296", colour + "4294967296\""},
        {"Fade To Color", "Color=-1", colour + "-1\""},
        {"Lantern", "Spot Radius=4@0,16",
         "keyframe \"16\" of \"Spot Radius\" needs a position: VALUE@PROGRESS, as in \"Spot "
         "Radius=0.2@0,0.8@1\""},
        {"Lantern", "Spot Radius=4@1.5",
         "keyframe position \"1.5\" of \"Spot Radius\" must be a progress from 0 to 1"},
        {"Lantern", "Spot Radius=4@0.5,16@0.5",
         "keyframe positions of \"Spot Radius\" must increase: 0.5 comes after 0.5"},
        {"Lantern", "Spot Radius=4@0,40@1", radius + "40\""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(usageError([&] { setting(c.effect, c.text); }), c.message) << c.text;
    }
    EXPECT_EQ(usageError([] {
                  parseSettings("Lantern", declared("Lantern"), {"Spot Radius=4", "spot radius=5"});
              }),
              "\"Spot Radius\" is set twice");
}

// Real values are linear in progress and held outside the keys; whole
// numbers round to the nearest whole; colours move channel by channel,
// alpha included; choices hold until the next key.
TEST(ToolSettings, KeyframesOfEveryKind) {
    const ParameterSetting radius = setting("Lantern", "Spot Radius=4@0.2,16@0.8");
    EXPECT_EQ(valueAt(radius, 0.0), 4.0);
    EXPECT_DOUBLE_EQ(valueAt(radius, 0.35), 7.0);
    EXPECT_EQ(valueAt(radius, 1.0), 16.0);
    const ParameterSetting unit = setting("Greyscale", "Intensity=0@0,1@1");
    for (double p : {0.1, 1.0 / 3.0, 0.7}) EXPECT_EQ(valueAt(unit, p), p);  // bit for bit
    const ParameterSetting three = setting("Mosaic", "Resolution=0@0, 1@0.5, 0.5@1");
    EXPECT_DOUBLE_EQ(valueAt(three, 0.75), 0.75);
    const ParameterSetting prisms = setting("Multi-Prism Lens", "Prism Count=2@0,5@1");
    EXPECT_EQ(valueAt(prisms, 0.5), 4.0);
    EXPECT_EQ(valueAt(prisms, 0.4), 3.0);
    const ParameterSetting colour = setting("Fade To Color", "Color=#00000000@0,#FF8040FF@1");
    EXPECT_EQ(valueAt(colour, 0.5), double(0x80402080u));
    const ParameterSetting named = setting("Fade To Color", "Color=navy@0.5@0, #F80@1");
    ASSERT_EQ(named.keys.size(), 2u);
    EXPECT_EQ(named.keys[0].value, double(0x7F000080u));
    EXPECT_EQ(named.keys[1].value, double(0xFFFF8800u));
    const ParameterSetting shape = setting("Incognito", "Shape=Round@0,Squared@0.5");
    EXPECT_EQ(valueAt(shape, 0.49), 0.0);
    EXPECT_EQ(valueAt(shape, 0.5), 1.0);
}

TEST(ToolSettings, SpansAspectsSizesAndRates) {
    const Span s = parseSpan("1.5:4");
    EXPECT_TRUE(s.contains(1.5) && s.contains(3.999) && !s.contains(4.0) && !s.contains(1.4));
    EXPECT_TRUE(parseSpan(":2").start == 0.0 && std::isinf(parseSpan("2:").end));
    EXPECT_EQ(usageError([] { parseSpan("-1:2"); }),
              "--span takes START:END in seconds, as in 1.5:4 (either may be left out), not "
              "\"-1:2\"");
    EXPECT_EQ(usageError([] { parseSpan("2:2"); }), "--span 2:2 ends before it starts");
    // The presets carry the exact doubles the module compares against.
    EXPECT_EQ(parsePictureAspect("16:9").preset, 3);
    EXPECT_EQ(parsePictureAspect("4:3").aspect, 4.0 / 3.0);
    EXPECT_EQ(parsePictureAspect("2.35").preset, 0);
    EXPECT_EQ(parsePictureAspect("1.85:1").aspect, 1.85);
    EXPECT_EQ(usageError([] { parseAspect("16:0", "--display-aspect"); }),
              "--display-aspect takes a ratio such as 16:9, 4:3 or 1.85, not \"16:0\"");
    EXPECT_EQ(parsePictureAspect("2.35:1").aspect, 2.35);
    EXPECT_EQ(parseAspect("32/18", "--display-aspect"), 16.0 / 9.0);
    EXPECT_EQ(parseSize("32X18").height, 18);
    EXPECT_EQ(parseSize("hd720").width, 1280);
    EXPECT_EQ(usageError([] { parseSize("20000x10"); }),
              "--size takes WIDTHxHEIGHT, as in 640x360, not \"20000x10\"");
    for (const auto& [text, num, den] : {std::tuple{"29.97", 30000, 1001},
                                         {"12.5", 25, 2},
                                         {"30000/1001", 30000, 1001},
                                         {"25", 25, 1},
                                         {"ntsc", 30000, 1001},
                                         {"59.94", 60000, 1001}}) {
        EXPECT_TRUE(parseFrameRate(text).num == num && parseFrameRate(text).den == den) << text;
    }
    EXPECT_EQ(usageError([] { parseFrameRate("1/0"); }),
              "--fps takes a frame rate such as 25, 29.97 or 30000/1001, not \"1/0\"");
    EXPECT_EQ(usageError([] { parseFrameRate("1001"); }),
              "--fps takes a frame rate such as 25, 29.97 or 30000/1001, not \"1001\"");
}

TEST(ToolText, NamesValuesAndTheProgressLine) {
    EXPECT_EQ(defaultOutputName("", false, "Fade To Black"), "fade-to-black.mp4");
    EXPECT_EQ(defaultOutputName("dir/holiday.mov", false, "Lantern"), "holiday-lantern.mov");
    EXPECT_EQ(describeValue(declared("Incognito").at(6), 1.0), "Squared");
    EXPECT_EQ(progressLine(5, 10, 2.0, 10), "[#####.....] 5/10 frames   2.5 fps  0:02 left");
    EXPECT_EQ(progressLine(10, 10, 4.0, 4), "[####] 10/10 frames   2.5 fps  0:04 total");
    // Fitted to the terminal: never the full width (the cursor would wrap),
    // the bar shrinks, then goes; streamed input has no total and no bar.
    for (const auto& [columns, done, total, line] :
         {std::tuple{80, 5, 10,
                     "[###############...............] 5/10 frames   2.5 fps  0:02 left"},
          {50, 5, 10, "[#######.......] 5/10 frames   2.5 fps  0:02 left"},
          {40, 5, 10, "5/10 frames   2.5 fps  0:02 left"},
          {20, 5, 10, "5/10 frames   2.5 f"},
          {40, 5, 0, "5 frames   2.5 fps  0:02"}}) {
        EXPECT_EQ(fittedProgressLine(done, total, 2.0, columns), line) << columns;
    }
    const auto catalogue = module().catalogue();
    EXPECT_EQ(listJson(catalogue)[9]["tags"], "*,Wedding");
    const nlohmann::json info = infoJson(catalogue[14], declared("Crop"), 320, 240);
    EXPECT_EQ(info["parameters"][0]["maximum"], 240.0);
    EXPECT_EQ(info["parameters"][4]["choices"], nlohmann::json({"Crop only", "Crop & Re-Center"}));
}

}  // namespace
}  // namespace reelfx::tool
