// The host library keeps its side of the contract: the module takes both
// pictures' geometry from the target, so a source of any other size or
// stride (or a picture whose words do not hold its rows) is refused before
// the module is called.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>

#include "host/names.h"
#include "support.h"

namespace {

using reelfx::Instance;
using reelfx::Picture;
using reelfx::test::module;

TEST(HostContract, SourceMustHaveTheTargetsGeometry) {
    struct Case {
        const char* what;
        int32_t width, height, stride;  // of the source; the target is 32x24, stride 136
        const char* message;            // empty: accepted
    };
    const Case cases[] = {
        {"same geometry", 32, 24, 136, ""},
        {"narrower", 16, 24, 136,
         "the source picture 16x24 (stride 136) differs from the target 32x24 (stride 136): "
         "both must have the same size and stride"},
        {"fewer rows", 32, 12, 136, "differs from the target"},
        {"more rows", 32, 48, 136, "differs from the target"},
        {"tightly packed rows", 32, 24, 128, "differs from the target"},
        {"wider rows", 32, 24, 256, "differs from the target"},
    };
    for (const int32_t effect :
         {reelfx::test::effectIndex("Flip XY"), reelfx::test::effectIndex("Dream")}) {
        Instance inst(module(), effect, 32, 24);
        for (const Case& c : cases) {
            SCOPED_TRACE(c.what);
            const Picture source = reelfx::makeTestPicture(c.width, c.height, 0, c.stride);
            Picture target(32, 24, 136, 0x5A5A5A5A);
            if (!*c.message) {
                EXPECT_EQ(inst.render(&source, target), 0);
                EXPECT_FALSE(target.samePixels(Picture(32, 24, 136, 0x5A5A5A5A)));
                continue;
            }
            try {
                inst.render(&source, target);
                ADD_FAILURE() << "rendered";
            } catch (const std::invalid_argument& e) {
                EXPECT_NE(std::strstr(e.what(), c.message), nullptr) << e.what();
            }
            EXPECT_TRUE(target.samePixels(Picture(32, 24, 136, 0x5A5A5A5A))) << "target written";
        }
    }
}

// Picture's fields are public: words that do not cover the rows its fields
// describe are refused for either role.
TEST(HostContract, PicturesMustHoldTheirRows) {
    Instance inst(module(), reelfx::test::effectIndex("Flip XY"), 32, 24);
    Picture good = reelfx::makeTestPicture(32, 24);
    Picture shortWords = good;
    shortWords.words.resize(32 * 23);
    Picture oddStride = good;
    oddStride.stride = 130;
    for (const Picture* bad : {&shortWords, &oddStride}) {
        Picture target(32, 24);
        EXPECT_THROW(inst.render(bad, target), std::invalid_argument);
        Picture badTarget = *bad;
        EXPECT_THROW(inst.render(&good, badTarget), std::invalid_argument);
        EXPECT_THROW(inst.render(nullptr, badTarget), std::invalid_argument);
    }
}

// A destroyed instance is gone from the call block; destroying it again or
// letting the object go does not call the module a second time.
TEST(HostContract, DestroyReleasesTheInstanceOnce) {
    Instance inst(module(), reelfx::test::effectIndex("Dream"), 32, 24);
    ASSERT_NE(inst.block().instance, nullptr);
    inst.destroy();
    EXPECT_EQ(inst.block().instance, nullptr);
    EXPECT_NO_THROW(inst.destroy());
    Picture source = reelfx::makeTestPicture(32, 24), target(32, 24);
    EXPECT_EQ(inst.render(&source, target), 1) << "no instance left to render with";
}

// A source that is the target itself is read and written by one call: safe
// for memory in every effect (the asan build checks it), and the same picture
// as from a separate source except in the effects docs/hosting.md lists, which
// read pixels they have already written.
TEST(HostContract, SourceAndTargetInOneBuffer) {
    const std::set<std::string> readsWhatItWrote = {
        "Mosaic", "NewsPrint", "Multi-Prism Lens",  "Random-Rotate Squares",
        "Dream",  "Crop",      "Crop Scale To Fit", "Crop Scale To Fill",
        "Flip XY"};
    // A second copy of the module keeps its own module-wide state, so both
    // copies see the same call history (Aged Film carries tables across calls).
    const auto dir =
        std::filesystem::temp_directory_path() / ("reelfx-in-place-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    for (const char* lib : {REELFX_MODULE_PATH, REELFX_RESIZER_PATH}) {
        std::filesystem::copy_file(lib, dir / std::filesystem::path(lib).filename(),
                                   std::filesystem::copy_options::overwrite_existing);
    }
    {
        const reelfx::Module inPlace(
            (dir / std::filesystem::path(REELFX_MODULE_PATH).filename()).string());
        constexpr int32_t w = 97, h = 61, stride = 97 * 4 + 12;
        Picture noise(w, h, stride);
        uint32_t seed = 77;
        for (uint32_t& word : noise.words) {
            seed = seed * 1664525u + 1013904223u;
            word = seed ^ (seed >> 13);
        }
        for (const reelfx::EffectInfo& e : module().catalogue()) {
            for (const uint32_t format : {kFourccArgb, kFourccAyuv}) {
                for (const double share :
                     {-1.0, 0.37}) {  // initial values, then 37 % into each range
                    SCOPED_TRACE(e.name + " " + reelfx::test::formatName(format) + " " +
                                 std::to_string(share));
                    Instance apart(module(), e.index, w, h), same(inPlace, e.index, w, h);
                    for (const reelfx::ParameterInfo& p : apart.parameters()) {
                        const double v =
                            share < 0 ? p.initial : p.minimum + (p.maximum - p.minimum) * share;
                        apart.setParameter(p.index, v);
                        same.setParameter(p.index, v);
                    }
                    const reelfx::RenderOptions o{.progress = 0.3, .format = format};
                    Picture out(w, h, stride), buffer = noise;
                    std::srand(5);  // Incognito draws from the C library's generator
                    ASSERT_EQ(apart.render(noise.data(), out.data(), w, h, stride, o), 0);
                    std::srand(5);
                    ASSERT_EQ(same.render(buffer.data(), buffer.data(), w, h, stride, o), 0);
                    if (!readsWhatItWrote.count(e.name)) {
                        EXPECT_TRUE(buffer.samePixels(out));
                    }
                }
            }
        }
    }
    std::filesystem::remove_all(dir);
}

// Which effects share state with their other instances: the catalogue's
// answer and the by-index answer agree, and name exactly the two effects
// whose pictures depend on other instances' calls.
TEST(HostContract, EffectsThatShareState) {
    std::set<std::string> sharing, serialised;
    for (const reelfx::EffectInfo& e : module().catalogue()) {
        EXPECT_EQ(e.sharesState, reelfx::effectSharesState(e.index)) << e.name;
        EXPECT_EQ(e.callsSerialised, reelfx::effectCallsSerialised(e.index)) << e.name;
        if (e.sharesState) sharing.insert(e.name);
        if (e.callsSerialised) serialised.insert(e.name);
    }
    EXPECT_EQ(sharing, (std::set<std::string>{"Aged Film", "Incognito"}));
    EXPECT_EQ(serialised, (std::set<std::string>{"Aged Film"}));
}

}  // namespace

// The helpers every host shares: names as users type them, file names, and
// where the module is found.
namespace {

TEST(HostNames, CompareIgnoringCaseAndMakeFileNames) {
    EXPECT_TRUE(reelfx::equalsIgnoreCase("spot RADIUS", "Spot Radius"));
    EXPECT_TRUE(reelfx::equalsIgnoreCase("", ""));
    EXPECT_FALSE(reelfx::equalsIgnoreCase("Spot Radius", "Spot Radiu"));
    EXPECT_FALSE(reelfx::equalsIgnoreCase("Spot Radius", "Spot_Radius"));
    EXPECT_EQ(reelfx::toLower("Crop & Re-Center"), "crop & re-center");

    EXPECT_EQ(reelfx::effectSlug("Multi-Prism Lens", '-'), "multi-prism-lens");
    EXPECT_EQ(reelfx::effectSlug("Multi-Prism Lens", '_'), "multi_prism_lens");
    EXPECT_EQ(reelfx::effectSlug("  Crop & Re-Center!", '_'), "crop_re_center");
    EXPECT_EQ(reelfx::effectSlug("Flip XY", '-'), "flip-xy");
    // Every effect gets a distinct file name.
    std::set<std::string> slugs;
    for (const reelfx::EffectInfo& e : module().catalogue()) {
        EXPECT_TRUE(slugs.insert(reelfx::effectSlug(e.name, '_')).second) << e.name;
    }
}

// Restores $REELFX_MODULE when a test that changes it ends.
class ModuleVariable {
public:
    ModuleVariable() {
        if (const char* v = std::getenv("REELFX_MODULE")) saved_ = v;
    }
    ~ModuleVariable() {
        if (saved_) {
            ::setenv("REELFX_MODULE", saved_->c_str(), 1);
        } else {
            ::unsetenv("REELFX_MODULE");
        }
    }

private:
    std::optional<std::string> saved_;
};

TEST(HostNames, ModuleIsFoundInTheDocumentedOrder) {
    const ModuleVariable restore;
    const auto dir =
        std::filesystem::temp_directory_path() / ("reelfx-find-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    const std::string beside = (dir / "libreelfx.so").string();
    const std::string empty = (dir / "empty").string();
    std::filesystem::create_directories(empty);
    { std::ofstream(beside) << "x"; }

    ::unsetenv("REELFX_MODULE");
    EXPECT_EQ(reelfx::Module::find("/my/libreelfx.so", dir.string()), "/my/libreelfx.so");
    EXPECT_EQ(reelfx::Module::find({}, dir.string()), beside);
    // Nothing beside the caller: the build tree's module, which exists here.
    EXPECT_EQ(reelfx::Module::find({}, empty), REELFX_MODULE_PATH);
    EXPECT_EQ(reelfx::Module::defaultPath(), REELFX_MODULE_PATH);

    ::setenv("REELFX_MODULE", "/from/env.so", 1);
    EXPECT_EQ(reelfx::Module::find("/my/libreelfx.so", dir.string()), "/my/libreelfx.so");
    EXPECT_EQ(reelfx::Module::find({}, dir.string()), "/from/env.so");
    EXPECT_EQ(reelfx::Module::defaultPath(), "/from/env.so");
    ::setenv("REELFX_MODULE", "", 1);  // empty counts as unset
    EXPECT_EQ(reelfx::Module::find({}, dir.string()), beside);
    std::filesystem::remove_all(dir);
}

}  // namespace
