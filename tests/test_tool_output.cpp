// What the reelfx program writes, end to end on small clips made by the
// ffmpeg program and checked with ffprobe: containers and picture names,
// what a file carries besides its pictures, stills of every PNG kind,
// sequences, truncated files, streams on standard input, existing files,
// signals.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using reelfx::tooltest::Outcome;
using reelfx::tooltest::quote;
using reelfx::tooltest::slurp;

class ToolOutput : public reelfx::tooltest::ToolFolder {
protected:
    // The reelfx command line for `args`, separated by '|'.
    static std::string tool(const std::string& args) {
        std::string line = quote(REELFX_TOOL_PATH);
        std::stringstream ss(args);
        for (std::string a; std::getline(ss, a, '|');) line += " " + quote(a);
        return line;
    }
    Outcome reelfx(const std::string& args) const { return shell(tool(args)); }
    // Files in the folder whose names start with a dot (temporary files).
    std::vector<std::string> hidden() const {
        std::vector<std::string> out;
        for (const auto& e : fs::directory_iterator(dir_)) {
            const std::string name = e.path().filename().string();
            if (name[0] == '.' && name != ".out" && name != ".err") out.push_back(name);
        }
        return out;
    }
};

// Every stream a container takes is copied, with the tags and the rotation;
// the ones it cannot take are named in one line. The timecode track goes as
// the timecode tag, from which MP4 and QuickTime make their track again.
TEST_F(ToolOutput, TagsRotationFieldOrderAndStreamsCarryOver) {
    std::ofstream(path("s.srt")) << "1\n00:00:00,000 --> 00:00:00,200\nhello\n";
    ffmpeg(
        "-f lavfi -i testsrc2=size=64x48:rate=10:duration=0.3 -f lavfi -i sine=duration=0.3 -i "
        "s.srt -map 0 -map 1 -map 2 -c:v libx264 -flags +ildct+ilme -top 1 -c:a aac -c:s mov_text "
        "-timecode 01:00:00:00 "
        "-metadata title=Holiday -metadata creation_time=2020-01-02T03:04:05Z "
        "-metadata:s:v:0 language=fra -shortest plain.mov");
    // ffmpeg's copy drops the creation time: it is set again.
    ffmpeg(
        "-i plain.mov -map 0 -c copy -metadata:s:v:0 rotate=90 "
        "-metadata creation_time=2020-01-02T03:04:05Z in.mov");
    const struct {
        const char *output, *video, *streams, *leftOut;
    } cases[] = {
        {"o.mp4", "h264,tt,fra,90", "video\naudio\nsubtitle\ndata\n", ""},
        {"o.mov", "h264,tt,fra,90", "video\naudio\nsubtitle\ndata\n", ""},
        // Matroska cannot hold MP4's subtitles (nor, in this FFmpeg, a rotation).
        {"o.mkv", "ffv1,tt,fra", "video\naudio\n",
         "left out of o.mkv: subtitle stream 2 (mov_text): matroska cannot hold mov_text\n"},
    };
    for (const auto& c : cases) {
        const Outcome r = reelfx(std::string("render|Flip XY|in.mov|-o|") + c.output);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err.find("left out") != std::string::npos, *c.leftOut != 0) << r.err;
        EXPECT_NE(r.err.find(c.leftOut), std::string::npos) << r.err;
        EXPECT_EQ(probe(c.output,
                        "stream=codec_name,field_order:stream_tags=language:stream_side_data="
                        "rotation",
                        "v:0"),
                  std::string(c.video) + "\n")
            << c.output;
        EXPECT_EQ(shell("ffprobe -v error -show_entries stream=codec_type -of default=nw=1:nk=1 " +
                        std::string(c.output))
                      .out,
                  c.streams)
            << c.output;
        const std::string tags = shell(
                                     "ffprobe -v error -show_entries format_tags=title,"
                                     "creation_time -of csv=p=0 " +
                                     std::string(c.output))
                                     .out;
        EXPECT_NE(tags.find("Holiday"), std::string::npos) << c.output << tags;
        EXPECT_EQ(probe(c.output, "stream_tags=timecode", "v:0").rfind("01:00:00:0", 0), 0u)
            << c.output;
        EXPECT_NE(tags.find("2020-01-02T03:04:05"), std::string::npos) << c.output << tags;
    }
}

// Common output names from a clip of odd size with audio: browsers' MP4
// (4:2:0 High, padded to even), transport streams, pictures of every kind,
// numbered sequences, containers without audio, and a plain refusal.
TEST_F(ToolOutput, EveryCommonNameWorksOrSaysWhy) {
    ffmpeg(
        "-f lavfi -i testsrc2=size=64x48:rate=10:duration=0.3 -f lavfi -i sine=duration=0.3 "
        "-vf format=rgb24,crop=33:19:0:0 -c:v ffv1 -c:a aac in.mkv");
    const struct {
        const char *output, *file;
        int status;
        const char *video, *message;
    } cases[] = {
        {"o.mp4", "o.mp4", 0, "h264,High,34,20,yuv420p",
         "33x19 padded to 34x20 for yuv420p (the last column or row repeated)"},
        {"o.ts", "o.ts", 0, "h264,High,34,20,yuv420p", "1 other stream(s) copied"},
        {"o.gif", "o.gif", 0, "gif,",
         "left out of o.gif: audio stream 1 (aac): gif holds no audio"},
        {"o.webp", "o.webp", 0, "webp,", "webp holds no audio"},
        {"o.jpg", "o.jpg", 0, "mjpeg,Baseline,33,19,yuvj444p", "wrote o.jpg"},
        {"o.tif", "o.tif", 0, "tiff,unknown,33,19,rgba", "wrote o.tif"},
        {"o_%02d.png", "o_03.png", 0, "png,unknown,33,19,rgba", "wrote o_%02d.png: 3 frames"},
        {"o.mpg", "o.mpg", 1, nullptr,
         "the mpeg container refused mpeg2video video, aac audio (Invalid argument); .mkv holds "
         "them all, or leave streams out with --no-audio"},
    };
    for (const auto& c : cases) {
        const Outcome r = reelfx(std::string("render|Flip XY|in.mkv|-o|") + c.output);
        EXPECT_EQ(r.status, c.status) << c.output << "\n" << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.output << "\n" << r.err;
        EXPECT_EQ(fs::exists(path(c.file)), c.status == 0) << c.output;
        if (c.video) {
            EXPECT_EQ(probe(c.file, "stream=codec_name,profile,pix_fmt,width,height", "v:0")
                          .rfind(c.video, 0),
                      0u)
                << c.output << ": "
                << probe(c.file, "stream=codec_name,profile,pix_fmt,width,height", "v:0");
        }
        EXPECT_EQ(hidden(), std::vector<std::string>{}) << c.output;
    }
    EXPECT_TRUE(fs::exists(path("o_01.png")) && !fs::exists(path("o_04.png")));
}

// Stills of every PNG kind keep their values: two pixels written exactly
// by ffmpeg from raw bytes (8 and 16 bits, grey, alpha; palette through
// palettegen, which keeps two colours exact) come back unchanged through an
// effect that leaves them as they are.
TEST_F(ToolOutput, PngValuesOfEveryDepthAndKind) {
    const std::string want8 = std::string("\x80\x40\x20\x7f\x01\xfe\x7f\xff", 8);
    const struct {
        const char* pixFmt;
        std::string raw;
        std::string rgba;  // the two pixels the output PNG holds
        const char* filter;
    } cases[] = {
        {"rgb24", std::string("\x80\x40\x20\x01\xfe\x7f", 6),
         std::string("\x80\x40\x20\xff\x01\xfe\x7f\xff", 8), ""},
        {"rgb48be", std::string("\x80\x80\x40\x40\x20\x20\x01\x01\xfe\xfe\x7f\x7f", 12),
         std::string("\x80\x40\x20\xff\x01\xfe\x7f\xff", 8), ""},
        {"rgba", want8, want8, ""},
        {"rgba64be",
         std::string("\x80\x80\x40\x40\x20\x20\x7f\x7f\x01\x01\xfe\xfe\x7f\x7f\xff\xff", 16), want8,
         ""},
        {"gray", std::string("\x80\x01", 2), std::string("\x80\x80\x80\xff\x01\x01\x01\xff", 8),
         ""},
        {"gray16be", std::string("\x80\x80\x01\x01", 4),
         std::string("\x80\x80\x80\xff\x01\x01\x01\xff", 8), ""},
        {"ya8", std::string("\x80\x7f\x01\xff", 4),
         std::string("\x80\x80\x80\x7f\x01\x01\x01\xff", 8), ""},
        {"ya16be", std::string("\x80\x80\x7f\x7f\x01\x01\xff\xff", 8),
         std::string("\x80\x80\x80\x7f\x01\x01\x01\xff", 8), ""},
        {"rgb24", std::string("\x80\x40\x20\x01\xfe\x7f", 6),
         std::string("\x80\x40\x20\xff\x01\xfe\x7f\xff", 8),
         " -vf 'split[a][b];[a]palettegen=max_colors=4:reserve_transparent=0[p];[b][p]paletteuse'"
         " -pix_fmt pal8"},
    };
    for (const auto& c : cases) {
        std::ofstream(path("in.raw"), std::ios::binary) << c.raw;
        ffmpeg(std::string("-f rawvideo -pix_fmt ") + c.pixFmt + " -s 2x1 -i in.raw" + c.filter +
               " in.png");
        const std::string kind = probe("in.png", "stream=pix_fmt");
        const Outcome r = reelfx("render|Flip XY|-p|Flip Y Axis=No|in.png|-o|out.png|-q|-y");
        ASSERT_EQ(r.status, 0) << kind << r.err;
        ffmpeg("-i out.png -f rawvideo -pix_fmt rgba out.rgba");
        EXPECT_EQ(slurp(path("out.rgba")), c.rgba) << kind;
    }
}

// Numbered pictures in (at --fps, 25 without) and out, as ffmpeg names them.
TEST_F(ToolOutput, ImageSequencesInAndOut) {
    ffmpeg("-f lavfi -i testsrc2=size=32x24:rate=10:duration=0.6 in_%03d.png");
    const struct {
        const char *args, *file, *rate;
    } cases[] = {
        {"|--fps|5|-o|o.mkv", "o.mkv", "5/1,6\n"},
        {"|-o|o.mkv", "o.mkv", "25/1,6\n"},
        {"|--fps|5|-o|out_%04d.png", "out_0006.png", nullptr},
    };
    for (const auto& c : cases) {
        const Outcome r = reelfx(std::string("render|Flip XY|in_%03d.png|-q|-y") + c.args);
        ASSERT_EQ(r.status, 0) << c.args << "\n" << r.err;
        EXPECT_TRUE(fs::exists(path(c.file))) << c.args;
        if (c.rate) {
            EXPECT_EQ(shell("ffprobe -v error -count_frames -show_entries "
                            "stream=r_frame_rate,nb_read_frames -of csv=p=0 o.mkv")
                          .out,
                      c.rate);
        }
    }
    EXPECT_FALSE(fs::exists(path("out_0007.png")));
    EXPECT_EQ(hidden(), std::vector<std::string>{});
}

// A download broken off half way: the frames before the break are written,
// as many as ffmpeg itself decodes, with a warning; a file that stops making
// sense before its first frame is an error.
TEST_F(ToolOutput, TruncatedFilesGiveTheFramesThatExist) {
    for (const char* name : {"full.mp4", "full.mkv"}) {
        ffmpeg(std::string("-f lavfi -i testsrc2=size=64x48:rate=25:duration=4 -f lavfi -i "
                           "sine=duration=4 -c:v libx264 -g 10 -c:a aac -movflags +faststart ") +
               name);
        const std::string bytes = slurp(path(name));
        const std::string cut = std::string("cut") + fs::path(name).extension().string();
        std::ofstream(path(cut), std::ios::binary) << bytes.substr(0, bytes.size() / 2);
        const Outcome r = reelfx("render|Flip XY|" + cut + "|-o|o.mkv|-y");
        ASSERT_EQ(r.status, 0) << cut << "\n" << r.err;
        EXPECT_NE(r.err.find("warning: " + cut + " is damaged"), std::string::npos) << r.err;
        const std::string frames = shell(
                                       "ffprobe -v error -count_frames -select_streams v "
                                       "-show_entries stream=nb_read_frames -of csv=p=0 o.mkv")
                                       .out;
        const std::string byFfmpeg =
            shell("ffmpeg -v quiet -i " + cut + " -map 0:v -f framecrc - | grep -c '^0,'").out;
        EXPECT_GT(std::stoi(frames), 20) << cut;
        EXPECT_EQ(frames, byFfmpeg) << cut;
    }
    std::ofstream(path("cut.mkv"), std::ios::binary) << slurp(path("full.mkv")).substr(0, 600);
    const Outcome r = reelfx("render|Flip XY|cut.mkv|-o|none.mkv");
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_FALSE(fs::exists(path("none.mkv")));
}

// Standard input is rendered as it arrives: the first frame leaves reelfx
// while ffmpeg is still producing the clip at its own pace (-re), for 8-bit
// and for 10-bit 4:2:2 (ProRes) YUV4MPEG2 alike.
TEST_F(ToolOutput, StandardInputIsStreamed) {
    ffmpeg(
        "-f lavfi -i testsrc2=size=64x48:rate=10:duration=3 -c:v prores_ks -profile:v 3 "
        "-pix_fmt yuv422p10le pr.mov");
    const struct {
        const char *source, *pixFmt;
    } cases[] = {
        {"-f lavfi -i testsrc2=size=64x48:rate=10:duration=3 -f yuv4mpegpipe", "yuv420p"},
        {"-i pr.mov -strict -1 -f yuv4mpegpipe", "yuv422p"},
    };
    for (const auto& c : cases) {
        fs::remove(path("done"));
        // The first 64x48 frame is in the first 10 kB of the output.
        const Outcome r = shell("{ ffmpeg -nostdin -v error -re " + std::string(c.source) +
                                " - ; touch done; } | " + tool("render|Flip XY|-|-o|-|-q") +
                                " | { head -c 10000 >first.y4m; [ -e done ] && echo late || echo "
                                "live; cat >/dev/null; }");
        EXPECT_EQ(r.out, "live\n") << c.source << "\n" << r.err;
        EXPECT_EQ(probe("first.y4m", "stream=pix_fmt"), std::string(c.pixFmt) + "\n") << c.source;
    }
}

// ffmpeg's convention: off a terminal an existing file is kept unless -y
// is given; -n never replaces it; on a terminal reelfx asks.
TEST_F(ToolOutput, ExistingOutputIsReplacedOnlyWhenAllowed) {
    const std::string render = "render|Flip XY|--size|16x8|--duration|0.2|--fps|10|-q|-o|";
    const struct {
        const char *args, *file;
        int status;
        const char* message;  // on standard error; the file is kept when status != 0
    } cases[] = {
        {"", "o.mkv", 1, "o.mkv already exists; give -y to overwrite it"},
        {"|-n", "o.mkv", 1, "o.mkv already exists; not overwritten (-n)"},
        {"|-y|-n", "o.mkv", 2, "excludes"},
        {"|-y", "o.mkv", 0, ""},
        {"", "o.png", 1, "o.png already exists; give -y"},
    };
    for (const auto& c : cases) {
        std::ofstream(path(c.file)) << "earlier";
        const Outcome r = reelfx(render + c.file + c.args);
        EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.args << "\n" << r.err;
        EXPECT_EQ(slurp(path(c.file)) == "earlier", c.status != 0) << c.args;
        EXPECT_EQ(hidden(), std::vector<std::string>{}) << c.args;
    }
    if (shell("script -qec true /dev/null").status != 0) GTEST_SKIP() << "no pseudo-terminals here";
    for (const auto& [answer, replaced] : {std::pair{"y", true}, {"n", false}}) {
        std::ofstream(path("o.mkv")) << "earlier";
        const Outcome r = shell("echo " + std::string(answer) + " | script -qec " +
                                quote(tool(render + "o.mkv")) + " /dev/null");
        EXPECT_NE(r.out.find("o.mkv already exists. Overwrite? [y/N]"), std::string::npos) << r.out;
        EXPECT_EQ(slurp(path("o.mkv")) != "earlier", replaced) << answer << "\n" << r.out;
    }
}

// SIGINT, SIGTERM and SIGHUP part way through a video, or through the search
// for a still's frame, end the run with 130 and leave no file behind; so
// does a signal while the encoding thread is stuck writing to a pipe nobody
// reads (the signal lands on another thread). A run still alive 10 s after
// the signal is killed and fails.
TEST_F(ToolOutput, SignalsLeaveNoPartialFile) {
    const std::string video = "render|Lantern|--size|32x18|--duration|3000|-o|long.mkv";
    const std::string still = "render|Lantern|--size|32x18|--duration|3000|--progress|1|-o|s.png";
    const std::string piped = "render|Lantern|--size|320x180|--duration|3000|-o|-";
    // Waits for the temporary file (or a moment, for the still) before the signal.
    const std::string waitPart =
        "i=0; while ! ls .reelfx-* >/dev/null 2>&1 && [ $i -lt 600 ]; do sleep 0.05; "
        "i=$((i+1)); done";
    const std::string stuckReader = "mkfifo p; sleep 30 <p & reader=$!; ";
    const struct {
        const char *signal, *args;
        std::string wait, before = "", output = "";
    } cases[] = {
        {"INT", video.c_str(), waitPart},
        {"TERM", video.c_str(), waitPart},
        {"HUP", video.c_str(), waitPart},
        {"INT", still.c_str(), "sleep 0.5"},
        {"INT", piped.c_str(), "sleep 1", stuckReader, " >p"},
        {"TERM", piped.c_str(), "sleep 1", stuckReader, " >p"},
    };
    for (const auto& c : cases) {
        const Outcome r = shell(
            c.before + tool(c.args) + c.output + " & pid=$!; " + c.wait + "; kill -" + c.signal +
            " $pid; i=0; while kill -0 $pid 2>/dev/null && [ $i -lt 200 ]; do sleep 0.05; "
            "i=$((i+1)); done; kill -KILL $pid 2>/dev/null; wait $pid; echo status $?; "
            "[ -z \"$reader\" ] || kill $reader; rm -f p");
        EXPECT_EQ(r.out, "status 130\n") << c.signal << " " << c.args << "\n" << r.err;
        EXPECT_NE(r.err.find("interrupted; nothing written"), std::string::npos) << r.err;
        EXPECT_FALSE(fs::exists(path("long.mkv")) || fs::exists(path("s.png"))) << c.signal;
        EXPECT_EQ(hidden(), std::vector<std::string>{}) << c.signal;
    }
}

// A write that fails part way (a full disk) ends the run with the writer's
// message although the encoding thread met it, not with success or a hang
// (a run still alive after 20 s is killed and fails).
TEST_F(ToolOutput, WriteErrorEndsTheRun) {
    const Outcome r =
        shell("timeout -s KILL 20 " + tool("render|Lantern|--size|320x180|--duration|60|-o|-") +
              " >/dev/full");
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_NE(r.err.find("cannot write - (standard output): No space left on device"),
              std::string::npos)
        << r.err;
}

}  // namespace
