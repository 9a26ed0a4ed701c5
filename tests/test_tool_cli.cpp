// The reelfx program end to end on small inputs the tests make (PNG through
// libpng, video through the ffmpeg program): what it writes is decoded by
// FFmpeg and compared with rendering the same pictures through the host.
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "support.h"
#include "tool_support.h"
#include "tools/builtin_clip.h"
#include "tools/image_io.h"
#include "tools/params.h"

namespace reelfx::tool {
namespace {

namespace fs = std::filesystem;
using test::module;
using tooltest::Outcome;
using tooltest::quote;
using tooltest::slurp;
using tooltest::tool;

// Each output frame equals the module's rendering of the matching input
// through the host at progress k / (n - 1), passed through `post`; `setup`
// adjusts frame k.
using Setup = std::function<void(Instance&, RenderOptions&, size_t)>;
void expectRendered(const std::string& effect, const std::vector<Picture>& in,
                    const std::vector<Picture>& out, const Setup& setup,
                    Picture (*post)(const Picture&) = nullptr) {
    ASSERT_EQ(out.size(), in.size());
    Instance inst(module(), test::effectIndex(effect), in.at(0).width, in.at(0).height);
    for (size_t k = 0; k < in.size(); ++k) {
        RenderOptions o;
        o.progress = in.size() > 1 ? double(k) / double(in.size() - 1) : 0.0;
        setup(inst, o, k);
        Picture expected(in[k].width, in[k].height);
        ASSERT_EQ(inst.render(&in[k], expected, o), 0);
        EXPECT_TRUE(out[k].samePixels(post ? post(expected) : expected)) << effect << " " << k;
    }
}

// YUV4MPEG2 carries no alpha.
Picture opaque(const Picture& p) {
    Picture q = p;
    for (uint32_t& w : q.words) w |= 0xFF000000u;
    return q;
}

class ToolCli : public tooltest::ToolFolder {
protected:
    ToolCli() { keepStdin_ = true; }

    Outcome reelfx(const std::vector<std::string>& args) const { return shell(tool(args)); }
    // Every frame of `file` decoded by FFmpeg: bgra as ARGB words, yuv444p or
    // yuva444p planes packed into AYUV words (alpha 255 without a plane).
    std::vector<Picture> frames(const std::string& file, const std::string& pixFmt, int32_t w,
                                int32_t h) const {
        ffmpeg("-i " + quote(file) + " -map 0:v -f rawvideo -pix_fmt " + pixFmt + " raw.bin");
        const std::string all = slurp(path("raw.bin"));
        const size_t n = size_t(w) * size_t(h), planes = pixFmt == "yuv444p" ? 3 : 4;
        std::vector<Picture> out;
        for (size_t at = 0; at + n * planes <= all.size(); at += n * planes) {
            Picture p(w, h);
            auto byte = [&](size_t i) { return uint32_t(uint8_t(all[at + i])); };
            for (size_t i = 0; i < n; ++i) {
                p.words[i] = pixFmt == "bgra"
                                 ? byte(4 * i) | byte(4 * i + 1) << 8 | byte(4 * i + 2) << 16 |
                                       byte(4 * i + 3) << 24
                                 : (planes == 4 ? byte(3 * n + i) : 0xFFu) << 24 | byte(i) << 16 |
                                       byte(n + i) << 8 | byte(2 * n + i);
            }
            out.push_back(std::move(p));
        }
        return out;
    }

    // No file under `name`, and no temporary file left in the folder.
    ::testing::AssertionResult nothingWritten(const std::string& name) const {
        if (fs::exists(path(name))) return ::testing::AssertionFailure() << name << " exists";
        for (const auto& e : fs::directory_iterator(dir_)) {
            if (e.path().filename().string().rfind(".reelfx-", 0) == 0)
                return ::testing::AssertionFailure() << e.path();
        }
        return ::testing::AssertionSuccess();
    }
};

// Clip frames load fonts; their caches are released before exit as the
// program does, so leak checkers stay quiet.
class FontCaches : public ::testing::Environment {
    void TearDown() override { releaseFontCaches(); }
};
[[maybe_unused]] ::testing::Environment* const kFontCaches =
    ::testing::AddGlobalTestEnvironment(new FontCaches);

// PNG in, PNG out (read back by FFmpeg's own decoder, so libpng mistakes made
// both ways cannot cancel out), a BMP still, and an AYUV still with
// keyframes at the given progress.
TEST_F(ToolCli, StillsEqualRenderingThroughTheHost) {
    const Picture source = makeTestPicture(60, 45, 1);
    writePng(path("in.png").string(), source);
    Outcome r = reelfx({"render", "Flip XY", "in.png", "-o", "out.png", "-p", "flip x axis=Yes",
                        "--picture-aspect", "16:9", "--progress", "0.25", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    auto flip = [](Instance& inst, RenderOptions& o, size_t) {
        inst.setParameter("Flip X Axis", 1.0);
        o = {.progress = 0.25, .aspectFitting = true, .aspectPreset = 3};
    };
    expectRendered("Flip XY", {source}, frames("out.png", "bgra", 60, 45), flip);
    ffmpeg("-i in.png -pix_fmt bgra in.bmp");  // written as in-flip-xy.png by default
    r = reelfx({"render", "Flip XY", "in.bmp", "-p", "flip x axis=Yes", "--picture-aspect", "16:9",
                "--progress", "0.25", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    expectRendered("Flip XY", {source}, {readImage(path("in-flip-xy.png").string())}, flip);

    r = reelfx({"render", "stained glass", "in.png", "-o", "ayuv.png", "--format", "AYUV", "-p",
                "Intensity=10@0,30@1", "--progress", "0.25", "--display-aspect", "16:9",
                "--picture-aspect", "4:3", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    expectRendered(
        "Stained Glass", {toAyuv(source)}, {readImage(path("ayuv.png").string())},
        [](Instance& inst, RenderOptions& o, size_t) {
            inst.setParameter("Intensity", 15.0);  // a quarter from 10 to 30
            o = {.progress = 0.25,
                 .format = kFourccAyuv,
                 .displayAspect = 16.0 / 9.0,
                 .aspectFitting = true,
                 .aspectPreset = 2};
        },
        toArgb);
}

// 8 frames at 10 per second, a 4:3 picture in a 16:9 frame; Mosaic runs
// over the span 0.2 to 0.6 s (frames 2 to 5) with a keyframed resolution,
// the other frames pass through, the audio goes along untouched.
TEST_F(ToolCli, LosslessVideoSpanAndAudio) {
    ffmpeg(
        "-f lavfi -i testsrc2=size=96x54:rate=10:duration=0.8 -f lavfi -i "
        "sine=duration=0.8 -c:v ffv1 -pix_fmt bgra -c:a flac in.mkv");
    const Outcome r =
        reelfx({"render", "Mosaic", "in.mkv", "-o", "out.mkv", "-p", "Resolution=0.2@0,0.8@1", "-p",
                "overlap=3", "--picture-aspect", "4:3", "--span", "0.2:0.6", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(probe("out.mkv", "stream=codec_name,pix_fmt"), "ffv1,bgra\n");
    const auto in = frames("in.mkv", "bgra", 96, 54), out = frames("out.mkv", "bgra", 96, 54);
    ASSERT_EQ(in.size(), 8u);
    ASSERT_EQ(out.size(), 8u);
    for (size_t k : {0, 1, 6, 7}) EXPECT_TRUE(out[k].samePixels(in[k])) << k;
    Instance probeInst(module(), test::effectIndex("Mosaic"), 96, 54);
    const ParameterSetting res =
        parseSetting("Mosaic", probeInst.parameters(), "Resolution=0.2@0,0.8@1");
    expectRendered("Mosaic", {in.begin() + 2, in.begin() + 6}, {out.begin() + 2, out.begin() + 6},
                   [&](Instance& inst, RenderOptions& o, size_t) {
                       inst.setParameter("Resolution", valueAt(res, o.progress));
                       inst.setParameter("Overlap", 3.0);
                       o.aspectFitting = true;
                       o.aspectPreset = 2;
                   });
    const std::string hash = "ffmpeg -v error -i in.mkv -map 0:a -c copy -f hash -";
    const Outcome a = shell(hash),
                  b = shell("ffmpeg -v error -i out.mkv -map 0:a -c copy -f hash -");
    EXPECT_TRUE(a.status == 0 && !a.out.empty() && a.out == b.out) << a.out << b.out;
}

// AYUV keeps full chroma and alpha in Matroska; YUV4MPEG2 goes through pipes.
TEST_F(ToolCli, AyuvVideoAndPipes) {
    ffmpeg("-f lavfi -i testsrc2=size=48x32:rate=5:duration=0.6 -c:v ffv1 -pix_fmt yuv444p in.mkv");
    Outcome r = reelfx({"render", "NewsPrint", "in.mkv", "-o", "out.mkv", "--format", "ayuv", "-p",
                        "Brightness=0.5@0,1.5@1", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(probe("out.mkv", "stream=pix_fmt"), "yuva444p\n");
    const auto in = frames("in.mkv", "yuv444p", 48, 32);
    ASSERT_EQ(in.size(), 3u);
    expectRendered("NewsPrint", in, frames("out.mkv", "yuva444p", 48, 32),
                   [](Instance& inst, RenderOptions& o, size_t) {
                       inst.setParameter("Brightness", 0.5 + o.progress);
                       o.format = kFourccAyuv;
                   });
    r = shell("ffmpeg -nostdin -v error -i in.mkv -f yuv4mpegpipe - | " +
              tool({"render", "Flip XY", "-", "-o", "-", "--format", "ayuv"}) +
              " | ffmpeg -v error -y -i - -c:v ffv1 piped.mkv");
    ASSERT_EQ(r.status, 0) << r.err;
    expectRendered(
        "Flip XY", in, frames("piped.mkv", "yuv444p", 48, 32),
        [](Instance&, RenderOptions& o, size_t) { o.format = kFourccAyuv; }, opaque);
}

// The built-in clip (H.264 in MP4 by default, or lossless), a still made
// into video, and a still taken from a video at the frame nearest the
// progress within the span.
TEST_F(ToolCli, ClipsStillsAndFramesOfVideos) {
    Outcome r = reelfx({"render", "Fade To White", "-o", "clip.mp4", "--size", "32x18",
                        "--duration", "0.4", "--fps", "10"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("wrote clip.mp4: 4 frames, 4 with Fade To White"), std::string::npos);
    EXPECT_EQ(r.err.find('\r'), std::string::npos) << "no progress bar off a terminal";
    EXPECT_EQ(probe("clip.mp4", "stream=codec_name,width,height"), "h264,32,18\n");
    r = reelfx({"render", "Fade To White", "-o", "clip.mkv", "--size", "32x18", "--duration", "0.4",
                "--fps", "10", "--picture-aspect", "4:3", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    std::vector<Picture> clip;
    for (int32_t k = 0; k < 4; ++k) clip.push_back(makeClipFrame({32, 18, 10.0, 0.4}, k));
    expectRendered("Fade To White", clip, frames("clip.mkv", "bgra", 32, 18),
                   [](Instance&, RenderOptions& o, size_t) {
                       o.aspectFitting = true;
                       o.aspectPreset = 2;
                   });

    const Picture still = makeTestPicture(40, 30, 4);
    writePng(path("still.png").string(), still);
    r = reelfx({"render", "Crop", "still.png", "-o", "still.mkv", "--duration", "0.3", "--fps",
                "10", "-p", "Top (Pixel)=10", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    expectRendered("Crop", {still, still, still}, frames("still.mkv", "bgra", 40, 30),
                   [](Instance& inst, RenderOptions&, size_t) { inst.setParameter(0, 10.0); });

    // Frames 2 to 9 of in.mkv lie in the span; half way is frame 6 (0.6 s).
    ffmpeg("-f lavfi -i testsrc2=size=40x30:rate=10:duration=1 -c:v ffv1 -pix_fmt bgra in.mkv");
    r = reelfx({"render", "Night Vision", "in.mkv", "-o", "frame.png", "--progress", "0.5",
                "--span", "0.2:", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    expectRendered("Night Vision", {frames("in.mkv", "bgra", 40, 30).at(6)},
                   {readImage(path("frame.png").string())},
                   [](Instance&, RenderOptions& o, size_t) { o.progress = 0.5; });
}

// The contact sheet: five columns of 64 x 36 tiles with 18-pixel labels and
// 12-pixel margins below a 30-pixel title.
TEST_F(ToolCli, ContactSheet) {
    const Outcome r = reelfx({"sheet", "-o", "sheet.png", "--tile-width", "64", "-q"});
    ASSERT_EQ(r.status, 0) << r.err;
    const Picture sheet = readImage(path("sheet.png").string());
    EXPECT_EQ(sheet.width, 12 + 5 * (64 + 12));
    EXPECT_EQ(sheet.height, 30 + 12 + 5 * (36 + 18 + 12));
}

// Mistakes on the command line exit with 2, files that cannot be read or
// written with 1; either way the message names the problem and nothing is
// left under the output name (an earlier file there stays as it was).
TEST_F(ToolCli, MistakesExitWithAMessageAndWriteNothing) {
    writePng(path("in.png").string(), makeTestPicture(32, 24));
    ffmpeg(
        "-f lavfi -i sine=duration=0.2 -f lavfi -i testsrc2=size=32x24:rate=5:duration=0.2 "
        "-c:a pcm_s16le -c:v ffv1 pcm.mkv");
    ffmpeg("-f lavfi -i sine=duration=0.1 tone.wav");
    std::ofstream(path("junk.mkv")) << "this is not a video file at all";
    std::ofstream(path("earlier.mp4")) << "earlier";
    fs::create_directory(path("folder"));
    std::string bytes = slurp(path("pcm.mkv"));  // a codec tag FFmpeg does not know
    bytes.replace(bytes.find("FFV1"), 4, "QQQ1");
    std::ofstream(path("unknown.mkv"), std::ios::binary) << bytes;
    // Arguments are separated by '|'.
    const struct {
        int status;
        const char *output, *args, *message;
    } cases[] = {
        // clang-format off
        {2, "o.png", "render|Mosiac|in.png|-o|o.png", "did you mean \"Mosaic\"?"},
        {2, "o.png", "render|Lantern|in.png|-o|o.png|-p|Spot Radius=25",
         "\"Spot Radius\" takes a number from 1 to 20, not \"25\""},
        {1, "o.png", "render|Lantern|missing.png|-o|o.png",
         "cannot read missing.png as a picture or video: No such file"},
        {1, "o.mkv", "render|Lantern|junk.mkv|-o|o.mkv",
         "cannot read junk.mkv as a picture or video"},
        {1, "o.mkv", "render|Lantern|tone.wav|-o|o.mkv", "tone.wav holds no video stream"},
        {1, "o.mkv", "render|Lantern|folder|-o|o.mkv", "cannot read folder: it is a folder"},
        {1, "o.mkv", "render|Lantern|unknown.mkv|-o|o.mkv",
         "unknown.mkv: its video is in a codec FFmpeg does not know (tag QQQ1)"},
        {1, "nofolder", "render|Lantern|in.png|-o|nofolder/o.png",
         "folder nofolder does not exist"},
        {1, "o.png", "--module|nowhere.so|list", "cannot load module"},
        {2, "o.png", "render|Lantern|in.png|-o|o.png|--progress|1.5",
         "--progress takes a value from 0 to 1"},
        {2, "o.xyz", "render|Lantern|in.png|-o|o.xyz",
         "cannot tell a video format from the name o.xyz"},
        {2, "o.mp4", "render|Lantern|in.png|-o|o.mp4|--codec|nosuch",
         "unknown video encoder \"nosuch\""},
        {2, "o.mp4", "render|Lantern|in.png|-o|o.mp4|--pix-fmt|bgra",
         "the libx264 encoder takes none of \"bgra\""},
        {2, "o.mp4", "render|Lantern|-o|o.mp4|--progress|0.5", "--progress renders a still"},
        {2, "o.mp4", "render|Lantern|-o|o.mp4|--span|9:10",
         "no frame of the built-in test clip lies in --span 9:10"},
        {2, "o.png", "render|Lantern|in.png|-o|o.png|--span|1:2", "--span needs a video"},
        {2, "o.mp4", "render|Lantern|in.png|-o|o.mp4|--size|64x48", "--size sets the size"},
        {2, "o.mp4", "render|Lantern|pcm.mkv|-o|earlier.mp4|-y",
         "the mp4 container cannot hold the pcm_s16le audio of pcm.mkv; write .mkv, or leave the "
         "audio out with --no-audio"},
        {2, "o.mkv", "render|Lantern|pcm.mkv|-o|o.mkv|--fps|10",
         "--duration and --fps make a clip"},
        {2, "o.png", "render|Lantern|in.png|-o|in.png", "the output would overwrite the input"},
        {2, "o.png", "", "A subcommand is required"},
        {2, "sheet.jpg", "sheet|-o|sheet.jpg", "the contact sheet is a PNG"},
        // clang-format on
    };
    for (const auto& c : cases) {
        std::vector<std::string> args;
        for (std::stringstream ss(c.args); ss.good();) {
            if (std::getline(ss, args.emplace_back(), '|'), args.back().empty()) args.pop_back();
        }
        const Outcome r = reelfx(args);
        EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.args << "\n" << r.err;
        EXPECT_TRUE(nothingWritten(c.output)) << c.args;
    }
    EXPECT_EQ(slurp(path("earlier.mp4")), "earlier");
}

// On a terminal (a pseudo-terminal made by script(1)) video gets a progress
// bar, and YUV4MPEG2 is not poured onto the screen.
TEST_F(ToolCli, ProgressBarAndPipesOnATerminal) {
    if (shell("script -qec true /dev/null").status != 0) GTEST_SKIP() << "no pseudo-terminals here";
    auto onTerminal = [&](const std::vector<std::string>& args) {
        return shell("script -qec " + quote(tool(args)) + " /dev/null");
    };
    Outcome r = onTerminal({"render", "Fade To White", "-o", "clip.mkv", "--size", "32x18",
                            "--duration", "0.4", "--fps", "10"});
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("\r[##############################] 4/4 frames"), std::string::npos)
        << r.out;
    r = onTerminal({"render", "Lantern", "-o", "-", "--size", "32x18"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.out.find("writes YUV4MPEG2 video to standard output, which is a terminal"),
              std::string::npos)
        << r.out;
}

}  // namespace
}  // namespace reelfx::tool
