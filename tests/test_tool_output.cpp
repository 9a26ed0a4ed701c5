// What the reelfx program writes, end to end on small clips made by the
// ffmpeg program and checked with ffprobe: containers and picture names,
// what a file carries besides its pictures, existing files, signals.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;

std::string quote(const std::string& s) {
    std::string out = "'";
    for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string slurp(const fs::path& p) {
    std::ifstream f(p, std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

struct Outcome {
    int status = -1;
    std::string out, err;
};

class ToolOutput : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "reelfx-out-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }
    fs::path path(const std::string& name) const { return dir_ / name; }

    // `line` run by sh in the test's folder, standard input from /dev/null.
    Outcome shell(const std::string& line) const {
        const std::string cmd =
            "cd " + quote(dir_.string()) + " && { " + line + " ; } </dev/null >.out 2>.err";
        const int raw = std::system(cmd.c_str());
        Outcome r{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(path(".out")), slurp(path(".err"))};
        fs::remove(path(".out"));
        fs::remove(path(".err"));
        return r;
    }
    // The reelfx command line for `args`, separated by '|'.
    static std::string tool(const std::string& args) {
        std::string line = quote(REELFX_TOOL_PATH);
        std::stringstream ss(args);
        for (std::string a; std::getline(ss, a, '|');) line += " " + quote(a);
        return line;
    }
    Outcome reelfx(const std::string& args) const { return shell(tool(args)); }
    void ffmpeg(const std::string& args) const {
        const Outcome r = shell("ffmpeg -nostdin -v error -y " + args);
        ASSERT_EQ(r.status, 0) << "ffmpeg " << args << "\n" << r.err;
    }
    // ffprobe's values of `entries` (csv, no keys).
    std::string probe(const std::string& file, const std::string& entries,
                      const std::string& select = "v") const {
        return shell("ffprobe -v error -select_streams " + select + " -show_entries " + entries +
                     " -of csv=p=0 " + quote(file))
            .out;
    }
    // Files in the folder whose names start with a dot (temporary files).
    std::vector<std::string> hidden() const {
        std::vector<std::string> out;
        for (const auto& e : fs::directory_iterator(dir_)) {
            const std::string name = e.path().filename().string();
            if (name[0] == '.' && name != ".out" && name != ".err") out.push_back(name);
        }
        return out;
    }

    fs::path dir_;
};

// Every stream a container takes is copied, with the tags and the rotation;
// the ones it cannot take are named in one line.
TEST_F(ToolOutput, TagsRotationFieldOrderAndStreamsCarryOver) {
    std::ofstream(path("s.srt")) << "1\n00:00:00,000 --> 00:00:00,200\nhello\n";
    ffmpeg(
        "-f lavfi -i testsrc2=size=64x48:rate=10:duration=0.3 -f lavfi -i sine=duration=0.3 -i "
        "s.srt -map 0 -map 1 -map 2 -c:v libx264 -flags +ildct+ilme -top 1 -c:a aac -c:s mov_text "
        "-metadata title=Holiday -metadata creation_time=2020-01-02T03:04:05Z "
        "-metadata:s:v:0 language=fra -shortest plain.mp4");
    // ffmpeg's copy drops the creation time: it is set again.
    ffmpeg("-i plain.mp4 -map 0 -c copy -metadata:s:v:0 rotate=90 "
           "-metadata creation_time=2020-01-02T03:04:05Z in.mp4");
    const struct {
        const char *output, *video, *streams, *leftOut;
    } cases[] = {
        {"o.mp4", "h264,tt,fra,90", "video\naudio\nsubtitle\n", ""},
        {"o.mov", "h264,tt,fra,90", "video\naudio\nsubtitle\n", ""},
        // Matroska cannot hold MP4's subtitles (nor, in this FFmpeg, a rotation).
        {"o.mkv", "ffv1,tt,fra", "video\naudio\n",
         "left out of o.mkv: subtitle stream 2 (mov_text): matroska cannot hold mov_text\n"},
    };
    for (const auto& c : cases) {
        const Outcome r = reelfx(std::string("render|Flip XY|in.mp4|-o|") + c.output);
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
// for a still's frame, end the run with 130 and leave no file behind.
TEST_F(ToolOutput, SignalsLeaveNoPartialFile) {
    const std::string video = "render|Lantern|--size|32x18|--duration|3000|-o|long.mkv";
    const std::string still = "render|Lantern|--size|32x18|--duration|3000|--progress|1|-o|s.png";
    // Waits for the temporary file (or a moment, for the still) before the signal.
    const std::string waitPart =
        "i=0; while ! ls .long.mkv.*.part >/dev/null 2>&1 && [ $i -lt 600 ]; do sleep 0.05; "
        "i=$((i+1)); done";
    const struct {
        const char *signal, *args;
        std::string wait;
    } cases[] = {
        {"INT", video.c_str(), waitPart},
        {"TERM", video.c_str(), waitPart},
        {"HUP", video.c_str(), waitPart},
        {"INT", still.c_str(), "sleep 0.5"},
    };
    for (const auto& c : cases) {
        const Outcome r = shell(tool(c.args) + " & pid=$!; " + c.wait + "; kill -" + c.signal +
                                " $pid; wait $pid; echo status $?");
        EXPECT_EQ(r.out, "status 130\n") << c.signal << " " << c.args << "\n" << r.err;
        EXPECT_NE(r.err.find("interrupted; nothing written"), std::string::npos) << r.err;
        EXPECT_FALSE(fs::exists(path("long.mkv")) || fs::exists(path("s.png"))) << c.signal;
        EXPECT_EQ(hidden(), std::vector<std::string>{}) << c.signal;
    }
}

}  // namespace
