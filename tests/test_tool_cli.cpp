// The reelfx program end to end: it is run through its path on small inputs
// the tests make (PNG through libpng, video through the ffmpeg program), and
// what it writes is decoded back and compared with rendering the same
// pictures through the host library directly.
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support.h"
#include "tools/image_io.h"
#include "tools/params.h"
#include "tools/test_clip.h"

namespace reelfx::tool {
namespace {

namespace fs = std::filesystem;
using test::module;

std::string quote(const std::string& s) {
    std::string out = "'";
    for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

std::string slurp(const fs::path& p) {
    std::ifstream f(p, std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

class ToolCli : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "reelfx-cli-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }

    fs::path path(const std::string& name) const { return dir_ / name; }

    // Runs a shell command line in the test's folder.
    Outcome shell(const std::string& line) const {
        const std::string cmd = "cd " + quote(dir_.string()) + " && { " + line + " ; } >" +
                                quote(path(".out").string()) + " 2>" + quote(path(".err").string());
        Outcome r;
        const int raw = std::system(cmd.c_str());
        r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
        r.out = slurp(path(".out"));
        r.err = slurp(path(".err"));
        fs::remove(path(".out"));
        fs::remove(path(".err"));
        return r;
    }

    static std::string tool(const std::vector<std::string>& args) {
        std::string line = quote(REELFX_TOOL_PATH);
        for (const std::string& a : args) line += " " + quote(a);
        return line;
    }

    Outcome reelfx(const std::vector<std::string>& args) const { return shell(tool(args)); }

    void ffmpeg(const std::string& args) const {
        const Outcome r = shell("ffmpeg -nostdin -v error -y " + args);
        ASSERT_EQ(r.status, 0) << "ffmpeg " << args << "\n" << r.err;
    }

    std::string probe(const std::string& file, const std::string& entries) const {
        return shell("ffprobe -v error -select_streams v " + entries + " -of csv=p=0 " +
                     quote(file))
            .out;
    }

    // Every frame of `file` as raw planes of `pixFmt` (bgra, yuv444p or yuva444p).
    std::vector<std::string> rawFrames(const std::string& file, const std::string& pixFmt,
                                       int32_t w, int32_t h) const {
        ffmpeg("-i " + quote(file) + " -map 0:v -f rawvideo -pix_fmt " + pixFmt + " raw.bin");
        const std::string all = slurp(path("raw.bin"));
        fs::remove(path("raw.bin"));
        const size_t planes = pixFmt == "yuv444p" ? 3 : 4;
        const size_t frameBytes = static_cast<size_t>(w) * static_cast<size_t>(h) * planes;
        std::vector<std::string> frames;
        for (size_t at = 0; at + frameBytes <= all.size(); at += frameBytes) {
            frames.push_back(all.substr(at, frameBytes));
        }
        EXPECT_EQ(all.size() % frameBytes, 0u);
        return frames;
    }

    std::vector<Picture> bgraFrames(const std::string& file, int32_t w, int32_t h) const {
        std::vector<Picture> out;
        for (const std::string& f : rawFrames(file, "bgra", w, h)) {
            Picture p(w, h);
            std::memcpy(p.data(), f.data(), f.size());
            out.push_back(std::move(p));
        }
        return out;
    }

    // Planar Y, U, V (and A) packed into AYUV words; alpha 255 without a plane.
    std::vector<Picture> ayuvFrames(const std::string& file, const std::string& pixFmt, int32_t w,
                                    int32_t h) const {
        std::vector<Picture> out;
        const size_t n = static_cast<size_t>(w) * static_cast<size_t>(h);
        for (const std::string& f : rawFrames(file, pixFmt, w, h)) {
            Picture p(w, h);
            for (size_t i = 0; i < n; ++i) {
                const auto byte = [&](size_t plane) {
                    return static_cast<uint32_t>(static_cast<uint8_t>(f[plane * n + i]));
                };
                const uint32_t a = pixFmt == "yuva444p" ? byte(3) : 0xFFu;
                p.words[i] = a << 24 | byte(0) << 16 | byte(1) << 8 | byte(2);
            }
            out.push_back(std::move(p));
        }
        return out;
    }

    // No file under `name`, and no temporary file left in the folder.
    ::testing::AssertionResult nothingWritten(const std::string& name) const {
        if (fs::exists(path(name))) return ::testing::AssertionFailure() << name << " exists";
        for (const auto& e : fs::directory_iterator(dir_)) {
            if (e.path().extension() == ".part") {
                return ::testing::AssertionFailure() << "left behind: " << e.path();
            }
        }
        return ::testing::AssertionSuccess();
    }

    fs::path dir_;
};

// The clip frames drawn here load fonts; their caches are released before
// exit as the program does, so leak checkers stay quiet.
class FontCaches : public ::testing::Environment {
    void TearDown() override { releaseFontCaches(); }
};
[[maybe_unused]] ::testing::Environment* const kFontCaches =
    ::testing::AddGlobalTestEnvironment(new FontCaches);

Picture opaque(Picture p) {
    for (uint32_t& w : p.words) w |= 0xFF000000u;
    return p;
}

TEST_F(ToolCli, PngRoundTripIsExactWithAndWithoutAlpha) {
    const Picture alpha = makeTestPicture(37, 23, 3);
    writePng(path("alpha.png").string(), alpha);
    EXPECT_TRUE(readPng(path("alpha.png").string()).samePixels(alpha));
    const Picture solid = opaque(makeTestPicture(37, 23, 5));
    writePng(path("solid.png").string(), solid);
    EXPECT_TRUE(readPng(path("solid.png").string()).samePixels(solid));
    // FFmpeg's own PNG decoder reads the same pixels.
    const auto decoded = bgraFrames("alpha.png", 37, 23);
    ASSERT_EQ(decoded.size(), 1u);
    EXPECT_TRUE(decoded[0].samePixels(alpha));
}

TEST_F(ToolCli, PngStillEqualsRenderingThroughTheHost) {
    const Picture source = makeTestPicture(120, 90, 1);
    writePng(path("in.png").string(), source);
    const Outcome r =
        reelfx({"render", "Flip XY", "in.png", "-o", "out.png", "-p", "flip x axis=Yes",
                "--picture-aspect", "16:9", "--progress", "0.25", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");  // --quiet
    const Picture out = readPng(path("out.png").string());

    Instance inst(module(), test::effectIndex("Flip XY"), 120, 90);
    inst.setParameter("Flip X Axis", 1.0);
    RenderOptions o;
    o.progress = 0.25;
    o.aspectFitting = true;
    o.aspectPreset = 3;
    Picture expected(120, 90);
    ASSERT_EQ(inst.render(&source, expected, o), 0);
    EXPECT_TRUE(out.samePixels(expected));
    // 120 x 90 shown as 4:3 with a 16:9 picture: letterbox bars of 11 and 12 rows.
    EXPECT_EQ(out.at(0, 0), 0xFF000000u);
    EXPECT_EQ(out.at(119, 89), 0xFF000000u);

    // Other still images FFmpeg reads are stills too, written as PNG by default.
    ffmpeg("-i in.png -pix_fmt bgra in.bmp");
    const Outcome bmp = reelfx({"render", "Flip XY", "in.bmp", "-p", "flip x axis=Yes",
                                "--picture-aspect", "16:9", "--progress", "0.25", "-q"});
    ASSERT_EQ(bmp.status, 0) << bmp.err;
    EXPECT_TRUE(readPng(path("in-flip-xy.png").string()).samePixels(expected));
}

TEST_F(ToolCli, AyuvStillWithKeyframesAtTheGivenProgress) {
    const Picture source = makeTestPicture(96, 64, 2);
    writePng(path("in.png").string(), source);
    const Outcome r = reelfx({"render", "stained glass", "in.png", "-o", "out.png", "--format",
                              "AYUV", "-p", "Intensity=10@0,30@1", "--progress", "0.25",
                              "--display-aspect", "16:9", "--picture-aspect", "4:3", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;

    Instance inst(module(), test::effectIndex("Stained Glass"), 96, 64);
    inst.setParameter("Intensity", 15.0);  // a quarter of the way from 10 to 30
    RenderOptions o;
    o.progress = 0.25;
    o.format = kFourccAyuv;
    o.displayAspect = 16.0 / 9.0;
    o.aspectFitting = true;
    o.aspectPreset = 2;
    const Picture ayuv = toAyuv(source);
    Picture expected(96, 64);
    ASSERT_EQ(inst.render(&ayuv, expected, o), 0);
    EXPECT_TRUE(readPng(path("out.png").string()).samePixels(toArgb(expected)));
}

// 12 frames at 10 per second with a 4:3 picture in a 16:9 frame; Mosaic runs
// over the span 0.3 to 0.8 s (frames 3 to 7) with a keyframed resolution;
// the audio goes along untouched.
TEST_F(ToolCli, LosslessVideoMatchesTheModuleFrameByFrame) {
    ffmpeg(
        "-f lavfi -i testsrc2=size=160x90:rate=10:duration=1.2 -f lavfi -i "
        "sine=frequency=440:duration=1.2 "
        "-c:v ffv1 -pix_fmt bgra -c:a flac in.mkv");
    const Outcome r =
        reelfx({"render", "Mosaic", "in.mkv", "-o", "out.mkv", "-p", "Resolution=0.2@0,0.8@1", "-p",
                "overlap=3", "--picture-aspect", "4:3", "--span", "0.3:0.8"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(probe("out.mkv", "-show_entries stream=codec_name,pix_fmt"), "ffv1,bgra\n");

    const auto input = bgraFrames("in.mkv", 160, 90);
    const auto output = bgraFrames("out.mkv", 160, 90);
    ASSERT_EQ(input.size(), 12u);
    ASSERT_EQ(output.size(), 12u);

    Instance inst(module(), test::effectIndex("Mosaic"), 160, 90);
    const ParameterSetting resolution =
        parseSetting("Mosaic", inst.parameters(), "Resolution=0.2@0,0.8@1");
    inst.setParameter("Overlap", 3.0);
    for (size_t k = 0; k < input.size(); ++k) {
        if (k < 3 || k > 7) {
            EXPECT_TRUE(output[k].samePixels(input[k])) << "frame " << k << " should pass through";
            continue;
        }
        const double progress = static_cast<double>(k - 3) / 4.0;
        inst.setParameter("Resolution", valueAt(resolution, progress));
        RenderOptions o;
        o.progress = progress;
        o.aspectFitting = true;
        o.aspectPreset = 2;
        Picture expected(160, 90);
        ASSERT_EQ(inst.render(&input[k], expected, o), 0);
        EXPECT_TRUE(output[k].samePixels(expected)) << "frame " << k;
        // Pillarbox bars: the effect really ran on this frame.
        EXPECT_EQ(output[k].at(0, 45), 0xFF000000u);
        EXPECT_FALSE(output[k].samePixels(input[k]));
    }

    const Outcome hashIn = shell("ffmpeg -v error -i in.mkv -map 0:a -c copy -f hash -");
    const Outcome hashOut = shell("ffmpeg -v error -i out.mkv -map 0:a -c copy -f hash -");
    ASSERT_EQ(hashIn.status, 0);
    EXPECT_NE(hashIn.out, "");
    EXPECT_EQ(hashOut.out, hashIn.out);
}

TEST_F(ToolCli, AyuvVideoKeepsFullChromaAndAlpha) {
    ffmpeg("-f lavfi -i testsrc2=size=96x54:rate=5:duration=1 -c:v ffv1 -pix_fmt yuv444p in.mkv");
    const Outcome r = reelfx({"render", "NewsPrint", "in.mkv", "-o", "out.mkv", "--format", "ayuv",
                              "-p", "Brightness=0.5@0,1.5@1", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(probe("out.mkv", "-show_entries stream=codec_name,pix_fmt"), "ffv1,yuva444p\n");

    const auto input = ayuvFrames("in.mkv", "yuv444p", 96, 54);
    const auto output = ayuvFrames("out.mkv", "yuva444p", 96, 54);
    ASSERT_EQ(input.size(), 5u);
    ASSERT_EQ(output.size(), 5u);
    Instance inst(module(), test::effectIndex("NewsPrint"), 96, 54);
    const ParameterSetting brightness =
        parseSetting("NewsPrint", inst.parameters(), "Brightness=0.5@0,1.5@1");
    for (size_t k = 0; k < input.size(); ++k) {
        RenderOptions o;
        o.progress = static_cast<double>(k) / 4.0;
        inst.setParameter("Brightness", valueAt(brightness, o.progress));
        o.format = kFourccAyuv;
        Picture expected(96, 54);
        ASSERT_EQ(inst.render(&input[k], expected, o), 0);
        EXPECT_TRUE(output[k].samePixels(expected)) << "frame " << k;
    }
}

TEST_F(ToolCli, BuiltInClipAndStillsBecomeVideo) {
    // The built-in clip, losslessly: each frame is the module's output for
    // that clip frame.
    Outcome r = reelfx({"render", "Fade To White", "-o", "clip.mkv", "--size", "64x36",
                        "--duration", "0.4", "--fps", "10", "--picture-aspect", "4:3", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    const auto clip = bgraFrames("clip.mkv", 64, 36);
    ASSERT_EQ(clip.size(), 4u);
    const ClipSettings builtIn{64, 36, 10.0, 0.4};
    Instance fade(module(), test::effectIndex("Fade To White"), 64, 36);
    for (int32_t k = 0; k < 4; ++k) {
        const Picture source = makeClipFrame(builtIn, k);
        RenderOptions o;
        o.progress = k / 3.0;
        o.aspectFitting = true;
        o.aspectPreset = 2;
        Picture expected(64, 36);
        ASSERT_EQ(fade.render(&source, expected, o), 0);
        EXPECT_TRUE(clip[static_cast<size_t>(k)].samePixels(expected)) << "frame " << k;
    }

    // H.264 in MP4 by default.
    r = reelfx({"render", "Fade To White", "-o", "clip.mp4", "--size", "64x36", "--duration", "0.4",
                "--fps", "10"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("wrote clip.mp4: 4 frames, 4 with Fade To White"), std::string::npos)
        << r.err;
    EXPECT_EQ(r.err.find('\r'), std::string::npos) << "no progress bar off a terminal";
    EXPECT_EQ(probe("clip.mp4",
                    "-count_frames -show_entries stream=codec_name,width,height,nb_read_frames"),
              "h264,64,36,4\n");

    // A still repeated: one frame per 1/10 s, progress over all of them.
    const Picture still = makeTestPicture(40, 30, 4);
    writePng(path("still.png").string(), still);
    r = reelfx({"render", "Crop", "still.png", "-o", "still.mkv", "--duration", "0.3", "--fps",
                "10", "-p", "Top (Pixel)=10", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    const auto frames = bgraFrames("still.mkv", 40, 30);
    ASSERT_EQ(frames.size(), 3u);
    Instance crop(module(), test::effectIndex("Crop"), 40, 30);
    crop.setParameter("Top (Pixel)", 10.0);
    for (size_t k = 0; k < 3; ++k) {
        RenderOptions o;
        o.progress = static_cast<double>(k) / 2.0;
        Picture expected(40, 30);
        ASSERT_EQ(crop.render(&still, expected, o), 0);
        EXPECT_TRUE(frames[k].samePixels(expected)) << "frame " << k;
    }
}

TEST_F(ToolCli, Yuv4mpegThroughPipes) {
    const Outcome r = shell(
        "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=64x48:rate=5:duration=0.8 -pix_fmt "
        "yuv444p "
        "-f yuv4mpegpipe - | " +
        tool({"render", "Flip XY", "-", "-o", "-", "--format", "ayuv"}) +
        " | ffmpeg -v error -y -i - -c:v ffv1 piped.mkv && ffmpeg -nostdin -v error -y -f lavfi -i "
        "testsrc2=size=64x48:rate=5:duration=0.8 -pix_fmt yuv444p -c:v ffv1 in.mkv");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(probe("piped.mkv", "-show_entries stream=pix_fmt"), "yuv444p\n");
    const auto input = ayuvFrames("in.mkv", "yuv444p", 64, 48);
    const auto output = ayuvFrames("piped.mkv", "yuv444p", 64, 48);
    ASSERT_EQ(input.size(), 4u);
    ASSERT_EQ(output.size(), 4u);
    Instance inst(module(), test::effectIndex("Flip XY"), 64, 48);
    for (size_t k = 0; k < input.size(); ++k) {
        RenderOptions o;
        o.progress = static_cast<double>(k) / 3.0;
        o.format = kFourccAyuv;
        Picture expected(64, 48);
        ASSERT_EQ(inst.render(&input[k], expected, o), 0);
        for (uint32_t& w : expected.words) w |= 0xFF000000u;  // YUV4MPEG2 carries no alpha
        EXPECT_TRUE(output[k].samePixels(expected)) << "frame " << k;
    }
}

TEST_F(ToolCli, StillFromVideoTakesTheFrameNearestTheProgress) {
    ffmpeg("-f lavfi -i testsrc2=size=80x60:rate=10:duration=1 -c:v ffv1 -pix_fmt bgra in.mkv");
    const Outcome r = reelfx({"render", "Night Vision", "in.mkv", "-o", "frame.png", "--progress",
                              "0.5", "--span", "0.2:", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    // Frames 2 to 9 lie in the span; half way is the 5th of them, frame 6 (0.6 s).
    const auto input = bgraFrames("in.mkv", 80, 60);
    ASSERT_EQ(input.size(), 10u);
    Instance inst(module(), test::effectIndex("Night Vision"), 80, 60);
    RenderOptions o;
    o.progress = 0.5;
    Picture expected(80, 60);
    ASSERT_EQ(inst.render(&input[6], expected, o), 0);
    EXPECT_TRUE(readPng(path("frame.png").string()).samePixels(expected));
}

TEST_F(ToolCli, ListInfoAndSheet) {
    Outcome r = reelfx({"list", "--json"});
    ASSERT_EQ(r.status, 0) << r.err;
    const auto list = nlohmann::json::parse(r.out);
    ASSERT_EQ(list.size(), 25u);
    EXPECT_EQ(list[24]["name"], "Lantern");
    r = reelfx({"list"});
    EXPECT_NE(r.out.find("Random-Rotate Squares  Video Effect  *,Birthday"), std::string::npos)
        << r.out;

    r = reelfx({"info", "spot", "--json"});
    EXPECT_EQ(r.status, 2);
    r = reelfx({"info", "Lantern", "--json"});
    ASSERT_EQ(r.status, 0) << r.err;
    const auto info = nlohmann::json::parse(r.out);
    EXPECT_EQ(info["parameters"][1]["name"], "Spot Radius");
    EXPECT_EQ(info["parameters"][1]["minimum"], 1.0);
    EXPECT_EQ(info["parameters"][1]["maximum"], 20.0);
    r = reelfx({"info", "incognito"});
    EXPECT_NE(r.out.find("Shape"), std::string::npos);
    EXPECT_NE(r.out.find("Round | Squared"), std::string::npos) << r.out;

    r = reelfx({"sheet", "-o", "sheet.png", "--tile-width", "64", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    const Picture sheet = readPng(path("sheet.png").string());
    // Five columns of 64 x 36 tiles with 18-pixel labels and 12-pixel margins.
    EXPECT_EQ(sheet.width, 12 + 5 * (64 + 12));
    EXPECT_EQ(sheet.height, 30 + 12 + 5 * (36 + 18 + 12));
    // From a picture of another shape the tiles keep its aspect: 4:3 tiles are taller.
    writePng(path("square.png").string(), makeTestPicture(64, 48));
    r = reelfx(
        {"sheet", "square.png", "-o", "sheet2.png", "--tile-width", "64", "--columns", "25", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    const Picture wide = readPng(path("sheet2.png").string());
    EXPECT_EQ(wide.width, 12 + 25 * (64 + 12));
    EXPECT_EQ(wide.height, 30 + 12 + (48 + 18 + 12));
}

TEST_F(ToolCli, MistakesExitWithAMessageAndWriteNothing) {
    writePng(path("in.png").string(), makeTestPicture(32, 24));
    ffmpeg(
        "-f lavfi -i sine=duration=0.5 -f lavfi -i testsrc2=size=32x24:rate=5:duration=0.5 -c:a "
        "pcm_s16le "
        "-c:v ffv1 pcm.mkv");
    std::ofstream(path("junk.mkv")) << "this is not a video file at all";
    ffmpeg("-f lavfi -i sine=duration=0.2 tone.wav");
    fs::create_directory(path("folder"));
    // A video whose codec tag FFmpeg does not know.
    ffmpeg("-f lavfi -i testsrc2=size=32x24:rate=5:duration=0.4 -c:v ffv1 ffv1.mkv");
    std::string bytes = slurp(path("ffv1.mkv"));
    const size_t tag = bytes.find("FFV1");
    ASSERT_NE(tag, std::string::npos);
    bytes.replace(tag, 4, "QQQ1");
    std::ofstream(path("unknown.mkv"), std::ios::binary) << bytes;
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string message;
        std::string output;
    };
    const std::vector<Case> cases = {
        {{"render", "Mosiac", "in.png", "-o", "o.png"}, 2, "did you mean \"Mosaic\"?", "o.png"},
        {{"render", "Lantern", "in.png", "-o", "o.png", "-p", "Spot Radius=25"},
         2,
         "\"Spot Radius\" takes a number from 1 to 20, not \"25\"",
         "o.png"},
        {{"render", "Incognito", "in.png", "-o", "o.png", "-p", "Shape=Oval"},
         2,
         "takes one of \"Round\", \"Squared\"",
         "o.png"},
        {{"render", "Lantern", "in.png", "-o", "o.png", "-p", "Radius=3"},
         2,
         "did you mean \"Spot Radius\"?",
         "o.png"},
        {{"render", "Lantern", "missing.png", "-o", "o.png"},
         1,
         "cannot read missing.png: No such file",
         "o.png"},
        {{"render", "Lantern", "junk.mkv", "-o", "o.mkv"},
         1,
         "cannot read junk.mkv as a picture or video",
         "o.mkv"},
        {{"render", "Lantern", "tone.wav", "-o", "o.mkv"},
         1,
         "tone.wav holds no video stream",
         "o.mkv"},
        {{"render", "Lantern", "folder", "-o", "o.mkv"},
         1,
         "cannot read folder: it is a folder",
         "o.mkv"},
        {{"render", "Lantern", "unknown.mkv", "-o", "o.mkv"},
         1,
         "unknown.mkv: its video is in a codec FFmpeg does not know (tag QQQ1)",
         "o.mkv"},
        {{"--module", "nowhere.so", "list"}, 1, "cannot load module", "o.png"},
        {{"info", "lanten"}, 2, "unknown effect \"lanten\"; did you mean \"Lantern\"?", "o.png"},
        {{"render", "Lantern", "in.png", "-o", "o.png", "-p", "Spot Radius"},
         2,
         "needs NAME=VALUE",
         "o.png"},
        {{"render", "Lantern", "in.png", "-o", "o.png", "-p", "Spot Radius=4@0,30@1"},
         2,
         "\"Spot Radius\" takes a number from 1 to 20, not \"30\"",
         "o.png"},
        {{"render", "Lantern", "in.png", "-o", "o.png", "-p", "Spot Radius=4@0.5,8@0.2"},
         2,
         "keyframe positions of \"Spot Radius\" must increase",
         "o.png"},
        {{"render", "Lantern", "in.png", "-o", "o.png", "--display-aspect", "wide"},
         2,
         "--display-aspect takes a ratio such as 16:9",
         "o.png"},
        {{"render", "Lantern", "in.png", "-o", "o.png", "--picture-aspect", "0"},
         2,
         "--picture-aspect takes a ratio",
         "o.png"},
        {{"render", "Lantern", "-o", "o.mp4", "--fps", "0"},
         2,
         "--fps takes a frame rate",
         "o.mp4"},
        {{"render", "Lantern", "-o", "o.mp4", "--size", "0x5"},
         2,
         "--size takes WIDTHxHEIGHT",
         "o.mp4"},
        {{"render", "Lantern", "in.png", "-o", "o.png", "--progress", "1.5"},
         2,
         "--progress takes a value from 0 to 1",
         "o.png"},
        {{"render", "Lantern", "in.png", "-o", "o.xyz"},
         2,
         "cannot tell a video format from the name o.xyz",
         "o.xyz"},
        {{"render", "Lantern", "in.png", "-o", "o.mp4", "--codec", "nosuchcodec"},
         2,
         "unknown video encoder \"nosuchcodec\"",
         "o.mp4"},
        {{"render", "Lantern", "in.png", "-o", "o.mp4", "--pix-fmt", "bgra"},
         2,
         "the libx264 encoder takes none of \"bgra\"",
         "o.mp4"},
        {{"render", "Lantern", "in.png", "-o", "nofolder/o.png"},
         1,
         "folder nofolder does not exist",
         "nofolder"},
        {{"render", "Lantern", "-o", "o.mp4", "--progress", "0.5"},
         2,
         "--progress renders a still",
         "o.mp4"},
        {{"render", "Lantern", "-o", "o.mp4", "--span", "9:10"},
         2,
         "no frame of the built-in test clip lies in --span 9:10",
         "o.mp4"},
        {{"render", "Lantern", "in.png", "-o", "o.png", "--span", "1:2"},
         2,
         "--span needs a video",
         "o.png"},
        {{"render", "Lantern", "in.png", "-o", "o.mp4", "--size", "64x48"},
         2,
         "--size sets the size",
         "o.mp4"},
        {{"render", "Lantern", "pcm.mkv", "-o", "o.mp4"},
         2,
         "the mp4 container cannot hold the pcm_s16le audio of pcm.mkv; write .mkv, or leave the "
         "audio out with "
         "--no-audio",
         "o.mp4"},
        {{"render", "Lantern", "pcm.mkv", "-o", "o.mkv", "--fps", "10"},
         2,
         "--duration and --fps make a clip",
         "o.mkv"},
        {{"render", "Lantern", "in.png", "-o", "in.png"},
         2,
         "the output would overwrite the input",
         "o.png"},
        {{"render", "Lantern", "--format", "rgb"}, 2, "--format", "lantern.mp4"},
        {{"render"}, 2, "effect is required", "o.png"},
        {{}, 2, "A subcommand is required", "o.png"},
        {{"sheet", "-o", "sheet.jpg"}, 2, "the contact sheet is a PNG", "sheet.jpg"},
        {{"sheet", "-o", "sheet.png", "--columns", "0"}, 2, "--columns takes 1 to 25", "sheet.png"},
        {{"sheet", "-o", "sheet.png", "--progress", "2"},
         2,
         "--progress takes a value from 0 to 1",
         "sheet.png"},
    };
    for (const Case& c : cases) {
        const Outcome r = reelfx(c.args);
        std::string joined;
        for (const std::string& a : c.args) joined += a + " ";
        EXPECT_EQ(r.status, c.status) << joined << "\n" << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << joined << "\n" << r.err;
        EXPECT_TRUE(nothingWritten(c.output)) << joined;
    }
    // The pcm audio is fine in Matroska, or left out.
    EXPECT_EQ(reelfx({"render", "Lantern", "pcm.mkv", "-o", "o.mp4", "--no-audio", "-q"}).status,
              0);
    EXPECT_EQ(probe("o.mp4", "-show_entries stream=codec_name"), "h264\n");
}

TEST_F(ToolCli, AFailedRenderLeavesAnEarlierOutputAlone) {
    ffmpeg(
        "-f lavfi -i sine=duration=0.5 -f lavfi -i testsrc2=size=32x24:rate=5:duration=0.5 -c:a "
        "pcm_s16le "
        "-c:v ffv1 pcm.mkv");
    std::ofstream(path("o.mp4")) << "earlier";
    // The output file is opened before the audio turns out not to fit.
    const Outcome r = reelfx({"render", "Lantern", "pcm.mkv", "-o", "o.mp4"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(slurp(path("o.mp4")), "earlier");
    EXPECT_TRUE(nothingWritten("never.mp4"));
}

// On a terminal (a pseudo-terminal made by script(1)) video gets a progress
// bar, and YUV4MPEG2 is not poured onto the screen.
TEST_F(ToolCli, ProgressBarAndPipesOnATerminal) {
    if (shell("script -qec true /dev/null").status != 0) GTEST_SKIP() << "no pseudo-terminals here";
    const auto onTerminal = [&](const std::vector<std::string>& args) {
        return shell("script -qec " + quote(tool(args)) + " /dev/null");
    };
    Outcome r = onTerminal({"render", "Fade To White", "-o", "clip.mkv", "--size", "32x18",
                            "--duration", "0.4", "--fps", "10"});
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("\r[##############################] 4/4 frames"), std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("wrote clip.mkv"), std::string::npos) << r.out;
    r = onTerminal({"render", "Fade To White", "-o", "quiet.mkv", "--size", "32x18", "--duration",
                    "0.4", "--fps", "10", "--quiet"});
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out, "");
    r = onTerminal({"render", "Lantern", "-o", "-", "--size", "32x18"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.out.find("writes YUV4MPEG2 video to standard output, which is a terminal"),
              std::string::npos)
        << r.out;
}

// Stopped half way, a render removes its temporary file and leaves nothing
// under the output name.
TEST_F(ToolCli, InterruptedRenderLeavesNothingBehind) {
    const Outcome r = shell(
        tool({"render", "Lantern", "-o", "long.mkv", "--size", "32x18", "--duration", "3000"}) +
        " & pid=$!; i=0; while ! ls .long.mkv.*.part >/dev/null 2>&1 && [ $i -lt 600 ]; do sleep "
        "0.05; i=$((i+1)); done; kill -TERM $pid; wait $pid; echo status $?");
    EXPECT_EQ(r.out, "status 130\n") << r.err;
    EXPECT_NE(r.err.find("interrupted; nothing written"), std::string::npos) << r.err;
    EXPECT_TRUE(nothingWritten("long.mkv"));
}

}  // namespace
}  // namespace reelfx::tool
