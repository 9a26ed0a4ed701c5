// The reelfx tool's command-line values: effect and parameter names against
// the module's real declarations, values of every kind, keyframes, spans,
// aspects, sizes and frame rates, and the text of every mistake.
#include <cmath>
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

std::vector<ParameterInfo> declared(const std::string& effect, int32_t w = 640, int32_t h = 360) {
    Instance inst(module(), test::effectIndex(effect), w, h);
    return inst.parameters();
}

ParameterSetting setting(const std::string& effect, const std::string& assignment, int32_t w = 640,
                         int32_t h = 360) {
    return parseSetting(effect, declared(effect, w, h), assignment);
}

double constant(const std::string& effect, const std::string& assignment) {
    const ParameterSetting s = setting(effect, assignment);
    EXPECT_EQ(s.keys.size(), 1u);
    return s.keys.at(0).value;
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

uint64_t bits(double d) {
    uint64_t b;
    std::memcpy(&b, &d, sizeof b);
    return b;
}

TEST(ToolEffectNames, FoundByNameCaseSlugOrIndex) {
    const auto catalogue = module().catalogue();
    EXPECT_EQ(findEffect(catalogue, "Lantern"), 24);
    EXPECT_EQ(findEffect(catalogue, "multi-prism lens"), 9);
    EXPECT_EQ(findEffect(catalogue, "fade-to-black"), 4);
    EXPECT_EQ(findEffect(catalogue, "RandomRotateSquares"), 10);
    EXPECT_EQ(findEffect(catalogue, "13"), 13);
    EXPECT_EQ(findEffect(catalogue, "Crop"), 14);  // not "Crop Scale To Fit"
}

TEST(ToolEffectNames, UnknownNamesSuggestTheNearest) {
    const auto catalogue = module().catalogue();
    EXPECT_EQ(
        usageError([&] { findEffect(catalogue, "Mosiac"); }),
        "unknown effect \"Mosiac\"; did you mean \"Mosaic\"? ('reelfx list' shows all 25 effects)");
    const std::string fades = usageError([&] { findEffect(catalogue, "fade"); });
    for (const char* name :
         {"Fade To Black", "Fade To Grey", "Fade To White", "Fade To Sepia", "Fade To Color"}) {
        EXPECT_NE(fades.find(std::string("\"") + name + "\""), std::string::npos) << fades;
    }
    EXPECT_EQ(usageError([&] { findEffect(catalogue, "qqqqqqqq"); }),
              "unknown effect \"qqqqqqqq\" ('reelfx list' shows all 25 effects)");
    EXPECT_NE(usageError([&] { findEffect(catalogue, "25"); }).find("unknown effect \"25\""),
              std::string::npos);
}

TEST(ToolParameterNames, MatchedIgnoringCaseAndSpacing) {
    EXPECT_EQ(setting("Lantern", "spot radius=12").slot, 1);
    EXPECT_EQ(setting("Lantern", "SpotRadius=12").slot, 1);
    EXPECT_EQ(setting("Lantern", "  AntiAliasing = 30 ").keys[0].value, 30.0);
    EXPECT_EQ(setting("Crop", "top (pixel)=5").slot, 0);
    EXPECT_EQ(setting("Night Vision", "red/green mix=0.5").slot, 1);
}

TEST(ToolParameterNames, MistakesNameWhatToType) {
    EXPECT_EQ(
        usageError([] { setting("Lantern", "Radius=4"); }),
        "\"Lantern\" has no parameter \"Radius\"; did you mean \"Spot Radius\"? (its parameters: "
        "\"Fading\", \"Spot Radius\", \"AntiAliasing\")");
    EXPECT_EQ(usageError([] { setting("Lantern", "Spot Radius"); }),
              "parameter setting \"Spot Radius\" needs NAME=VALUE, as in -p \"Spot Radius=12\"");
    EXPECT_EQ(usageError([] { setting("Lantern", "spot radius= "); }),
              "no value given for \"Spot Radius\": write -p \"Spot Radius=VALUE\"");
    EXPECT_EQ(usageError([] {
                  parseSettings("Lantern", declared("Lantern"), {"Spot Radius=4", "spot radius=5"});
              }),
              "\"Spot Radius\" is set twice");
}

TEST(ToolParameterValues, RealNumbersWithinTheDeclaredRange) {
    EXPECT_EQ(constant("Lantern", "Spot Radius=1"), 1.0);
    EXPECT_EQ(constant("Lantern", "Spot Radius=20"), 20.0);
    EXPECT_EQ(constant("Lantern", "Spot Radius=+2.5"), 2.5);
    EXPECT_EQ(constant("Greyscale", "Intensity=-1"), -1.0);
    EXPECT_EQ(constant("Mosaic", "Resolution=1e-1"), 0.1);
    for (const char* bad : {"25", "0.5", "abc", "nan", "inf", "1,5", "3x"}) {
        EXPECT_EQ(usageError([&] { setting("Lantern", std::string("Spot Radius=") + bad); }),
                  std::string("\"Spot Radius\" takes a number from 1 to 20, not \"") + bad + "\"");
    }
}

TEST(ToolParameterValues, WholeNumbersFollowTheFrameSize) {
    EXPECT_EQ(constant("Multi-Prism Lens", "Prism Count=20"), 20.0);
    EXPECT_EQ(usageError([] { setting("Multi-Prism Lens", "Prism Count=2.5"); }),
              "\"Prism Count\" takes a whole number from 2 to 20, not \"2.5\"");
    EXPECT_EQ(usageError([] { setting("Multi-Prism Lens", "Prism Count=1"); }),
              "\"Prism Count\" takes a whole number from 2 to 20, not \"1\"");
    // The crop maxima are the frame's size.
    EXPECT_EQ(setting("Crop", "Top (Pixel)=240", 320, 240).keys[0].value, 240.0);
    EXPECT_EQ(usageError([] { setting("Crop", "Top (Pixel)=241", 320, 240); }),
              "\"Top (Pixel)\" takes a whole number from 0 to 240, not \"241\"");
    EXPECT_EQ(setting("Crop", "Left (Pixel)=320", 320, 240).keys[0].value, 320.0);
}

TEST(ToolParameterValues, ChoicesByTextOrIndex) {
    EXPECT_EQ(constant("Incognito", "Shape=round"), 0.0);
    EXPECT_EQ(constant("Incognito", "Shape=Squared"), 1.0);
    EXPECT_EQ(constant("Incognito", "Shape=0"), 0.0);
    EXPECT_EQ(constant("Greyscale", "Intensity Profile=no fx -> full fx"), 1.0);
    EXPECT_EQ(constant("Greyscale", "Intensity Profile=Full FX -> No FX -> Full FX"), 3.0);
    EXPECT_EQ(constant("Crop", "Mode=Crop & Re-Center"), 1.0);
    EXPECT_EQ(constant("Fade To Black", "Direction=Color To Video"), 0.0);
    EXPECT_EQ(constant("Flip XY", "Flip X Axis=yes"), 1.0);
    for (const char* bad : {"Oval", "2", "-1", "0.5"}) {
        EXPECT_EQ(
            usageError([&] { setting("Incognito", std::string("Shape=") + bad); }),
            std::string(
                "\"Shape\" takes one of \"Round\", \"Squared\" (or an index from 0 to 1), not \"") +
                bad + "\"");
    }
}

TEST(ToolParameterValues, ColoursAsHexOrNumbers) {
    EXPECT_EQ(constant("Fade To Color", "Color=#FF8000"), 4294934528.0);  // 0xFFFF8000
    EXPECT_EQ(constant("Fade To Color", "Color=#80ff8000"), static_cast<double>(0x80FF8000u));
    EXPECT_EQ(constant("Fade To Color", "Color=0x12345678"), static_cast<double>(0x12345678u));
    EXPECT_EQ(constant("Fade To Color", "Color=4294967295"), 4294967295.0);
    EXPECT_EQ(constant("Binoculars", "Background Color=0"), 0.0);
    for (const char* bad : {"#FFF", "#GG0000", "-1", "4294967296", "red", "1.5", "#FF00000000"}) {
        EXPECT_EQ(
            usageError([&] { setting("Fade To Color", std::string("Color=") + bad); }),
            std::string(
                "\"Color\" takes a colour as #RRGGBB, #AARRGGBB or a number from 0 to 4294967295, "
                "not \"") +
                bad + "\"");
    }
}

TEST(ToolKeyframes, RealValuesAreLinearInProgressAndHeldOutside) {
    const ParameterSetting s = setting("Lantern", "Spot Radius=4@0.2,16@0.8");
    ASSERT_EQ(s.keys.size(), 2u);
    EXPECT_EQ(valueAt(s, 0.0), 4.0);
    EXPECT_EQ(valueAt(s, 0.2), 4.0);
    EXPECT_DOUBLE_EQ(valueAt(s, 0.5), 10.0);
    EXPECT_DOUBLE_EQ(valueAt(s, 0.35), 7.0);
    EXPECT_EQ(valueAt(s, 0.8), 16.0);
    EXPECT_EQ(valueAt(s, 1.0), 16.0);
    // 0 to 1 over the whole span is the progress itself, bit for bit.
    const ParameterSetting unit = setting("Greyscale", "Intensity=0@0,1@1");
    for (double p : {0.0, 0.1, 0.25, 1.0 / 3.0, 0.7, 1.0}) EXPECT_EQ(valueAt(unit, p), p);
}

TEST(ToolKeyframes, SeveralSegments) {
    const ParameterSetting s = setting("Mosaic", "Resolution=0@0, 1@0.5, 0.5@1");
    ASSERT_EQ(s.keys.size(), 3u);
    EXPECT_DOUBLE_EQ(valueAt(s, 0.25), 0.5);
    EXPECT_EQ(valueAt(s, 0.5), 1.0);
    EXPECT_DOUBLE_EQ(valueAt(s, 0.75), 0.75);
}

TEST(ToolKeyframes, WholeNumbersColoursAndChoices) {
    // Whole numbers round to the nearest whole.
    const ParameterSetting prisms = setting("Multi-Prism Lens", "Prism Count=2@0,5@1");
    EXPECT_EQ(valueAt(prisms, 0.5), 4.0);
    EXPECT_EQ(valueAt(prisms, 0.4), 3.0);
    // Colours move channel by channel, alpha included.
    const ParameterSetting colour = setting("Fade To Color", "Color=#00000000@0,#FF8040FF@1");
    EXPECT_EQ(valueAt(colour, 0.5), static_cast<double>(0x80402080u));
    EXPECT_EQ(valueAt(colour, 1.0), static_cast<double>(0xFF8040FFu));
    // Choices hold until the next key.
    const ParameterSetting shape = setting("Incognito", "Shape=Round@0,Squared@0.5");
    EXPECT_EQ(valueAt(shape, 0.49), 0.0);
    EXPECT_EQ(valueAt(shape, 0.5), 1.0);
}

TEST(ToolKeyframes, MistakesNameWhatToType) {
    EXPECT_EQ(usageError([] { setting("Lantern", "Spot Radius=4@0,16"); }),
              "keyframe \"16\" of \"Spot Radius\" needs a position: VALUE@PROGRESS, as in \"Spot "
              "Radius=0.2@0,0.8@1\"");
    EXPECT_EQ(usageError([] { setting("Lantern", "Spot Radius=4@0,16@x"); }),
              "keyframe position \"x\" of \"Spot Radius\" must be a progress from 0 to 1");
    EXPECT_EQ(usageError([] { setting("Lantern", "Spot Radius=4@1.5"); }),
              "keyframe position \"1.5\" of \"Spot Radius\" must be a progress from 0 to 1");
    EXPECT_EQ(usageError([] { setting("Lantern", "Spot Radius=4@0.5,16@0.2"); }),
              "keyframe positions of \"Spot Radius\" must increase: 0.2 comes after 0.5");
    EXPECT_EQ(usageError([] { setting("Lantern", "Spot Radius=4@0.5,16@0.5"); }),
              "keyframe positions of \"Spot Radius\" must increase: 0.5 comes after 0.5");
    EXPECT_EQ(usageError([] { setting("Lantern", "Spot Radius=4@0,40@1"); }),
              "\"Spot Radius\" takes a number from 1 to 20, not \"40\"");
}

TEST(ToolSpans, SecondsWithOpenEnds) {
    const Span s = parseSpan("1.5:4");
    EXPECT_EQ(s.start, 1.5);
    EXPECT_EQ(s.end, 4.0);
    EXPECT_TRUE(s.contains(1.5));
    EXPECT_TRUE(s.contains(3.999));
    EXPECT_FALSE(s.contains(4.0));  // the end is exclusive
    EXPECT_FALSE(s.contains(1.4));
    EXPECT_EQ(parseSpan(":2").start, 0.0);
    EXPECT_TRUE(std::isinf(parseSpan("2:").end));
    for (const char* bad : {"3", "a:b", "-1:2", "1:-2"}) {
        EXPECT_EQ(
            usageError([&] { parseSpan(bad); }),
            std::string(
                "--span takes START:END in seconds, as in 1.5:4 (either may be left out), not \"") +
                bad + "\"");
    }
    EXPECT_EQ(usageError([] { parseSpan("4:1"); }), "--span 4:1 ends before it starts");
    EXPECT_EQ(usageError([] { parseSpan("2:2"); }), "--span 2:2 ends before it starts");
}

TEST(ToolAspects, PresetsAndRatios) {
    // The presets carry the exact doubles the module compares against.
    const PictureAspect wide = parsePictureAspect("16:9");
    EXPECT_EQ(wide.preset, 3);
    EXPECT_EQ(bits(wide.aspect), 0x3ffc71c71c71c71cull);
    const PictureAspect tv = parsePictureAspect("4:3");
    EXPECT_EQ(tv.preset, 2);
    EXPECT_EQ(bits(tv.aspect), 0x3ff5555555555555ull);
    const PictureAspect scope = parsePictureAspect("2.35");
    EXPECT_EQ(scope.preset, 0);
    EXPECT_EQ(scope.aspect, 2.35);
    EXPECT_EQ(parsePictureAspect("1.85:1").aspect, 1.85);
    EXPECT_EQ(bits(parseAspect("16:9", "--display-aspect")), 0x3ffc71c71c71c71cull);
    for (const char* bad : {"0:1", "x", "16:0", "-2", ""}) {
        EXPECT_EQ(usageError([&] { parseAspect(bad, "--display-aspect"); }),
                  std::string("--display-aspect takes a ratio such as 16:9, 4:3 or 1.85, not \"") +
                      bad + "\"");
    }
    EXPECT_NE(usageError([] { parsePictureAspect("wide"); }).find("--picture-aspect takes a ratio"),
              std::string::npos);
}

TEST(ToolSizesAndRates, ParsedStrictly) {
    const Size s = parseSize("640x360");
    EXPECT_EQ(s.width, 640);
    EXPECT_EQ(s.height, 360);
    EXPECT_EQ(parseSize("32X18").width, 32);
    for (const char* bad : {"640", "0x10", "10x0", "axb", "20000x10", "1.5x2"}) {
        EXPECT_EQ(usageError([&] { parseSize(bad); }),
                  std::string("--size takes WIDTHxHEIGHT, as in 640x360, not \"") + bad + "\"");
    }
    const FrameRate ntsc = parseFrameRate("29.97");
    EXPECT_EQ(ntsc.num, 30000);
    EXPECT_EQ(ntsc.den, 1001);
    EXPECT_EQ(parseFrameRate("23.976").num, 24000);
    const FrameRate half = parseFrameRate("12.5");
    EXPECT_EQ(half.num, 25);
    EXPECT_EQ(half.den, 2);
    const FrameRate exact = parseFrameRate("30000/1001");
    EXPECT_EQ(exact.num, 30000);
    EXPECT_EQ(exact.den, 1001);
    EXPECT_EQ(parseFrameRate("25").num, 25);
    for (const char* bad : {"0", "-5", "fast", "1/0", "2000"}) {
        EXPECT_EQ(usageError([&] { parseFrameRate(bad); }),
                  std::string("--fps takes a frame rate such as 25, 29.97 or 30000/1001, not \"") +
                      bad + "\"");
    }
}

TEST(ToolText, NumbersColoursAndValuesAsPeopleReadThem) {
    EXPECT_EQ(formatNumber(0.54), "0.54");
    EXPECT_EQ(formatNumber(20), "20");
    EXPECT_EQ(formatNumber(-1), "-1");
    EXPECT_EQ(formatColour(0xFFE5CC99u), "#FFE5CC99");
    const auto incognito = declared("Incognito");
    EXPECT_EQ(describeValue(incognito.at(6), 1.0), "Squared");
    EXPECT_EQ(describeValue(incognito.at(0), 0.9), "0.9");
    EXPECT_EQ(describeValue(declared("Fade To Color").at(1), 4278190080.0), "#FF000000");
    EXPECT_EQ(effectSlug("Multi-Prism Lens"), "multi-prism-lens");
    EXPECT_EQ(effectSlug("Red/Green (x)"), "red-green-x");
    EXPECT_EQ(defaultOutputName("", false, "Fade To Black"), "fade-to-black.mp4");
    EXPECT_EQ(defaultOutputName("dir/holiday.mov", false, "Lantern"), "holiday-lantern.mov");
    EXPECT_EQ(defaultOutputName("shot.png", true, "Flip XY"), "shot-flip-xy.png");
    EXPECT_EQ(defaultOutputName("-", false, "Lantern"), "-");
    EXPECT_EQ(progressLine(5, 10, 2.0, 10), "[#####.....] 5/10 frames   2.5 fps  0:02 left");
    EXPECT_EQ(progressLine(10, 10, 4.0, 4), "[####] 10/10 frames   2.5 fps  0:04 total");
}

TEST(ToolText, CatalogueAndParametersForScripts) {
    const auto catalogue = module().catalogue();
    const nlohmann::json list = listJson(catalogue);
    ASSERT_EQ(list.size(), 25u);
    EXPECT_EQ(list[9]["name"], "Multi-Prism Lens");
    EXPECT_EQ(list[9]["tags"], "*,Wedding");
    EXPECT_EQ(list[24]["index"], 24);

    Instance crop(module(), 14, 320, 240);
    const nlohmann::json info = infoJson(catalogue[14], crop.parameters(), 320, 240);
    ASSERT_EQ(info["parameters"].size(), 5u);
    EXPECT_EQ(info["parameters"][0]["name"], "Top (Pixel)");
    EXPECT_EQ(info["parameters"][0]["kind"], "whole");
    EXPECT_EQ(info["parameters"][0]["maximum"], 240.0);
    EXPECT_EQ(info["parameters"][4]["choices"], nlohmann::json({"Crop only", "Crop & Re-Center"}));
    const std::string text = infoText(catalogue[14], crop.parameters(), 320, 240);
    EXPECT_NE(text.find("Crop only | Crop & Re-Center"), std::string::npos) << text;
    EXPECT_NE(text.find("320x240"), std::string::npos) << text;
}

}  // namespace
}  // namespace reelfx::tool
