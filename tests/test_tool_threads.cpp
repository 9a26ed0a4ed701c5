// The reelfx program rendering frames on several workers at once: the same
// frames as one worker for every effect in both formats, and a run that
// fails in a worker or is interrupted ends as cleanly as one that does not.
#include <signal.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support.h"
#include "tool_support.h"

namespace {

using reelfx::tooltest::Outcome;
using reelfx::tooltest::quote;
using reelfx::tooltest::slurp;
using reelfx::tooltest::tool;
using reelfx::tooltest::fs::directory_iterator;

class ToolThreads : public reelfx::tooltest::ToolFolder {
protected:
    // Files the run left in the folder besides the fixture's own.
    std::vector<std::string> leftBehind() const {
        std::vector<std::string> out;
        for (const auto& e : directory_iterator(dir_)) {
            const std::string name = e.path().filename().string();
            if (name != ".out" && name != ".err" && name != "in.mkv") out.push_back(name);
        }
        return out;
    }
    // Frame lines only: the header names the ffmpeg version.
    std::string framemd5(const std::string& file) const {
        return shell("ffmpeg -nostdin -v error -i " + quote(file) + " -f framemd5 - | grep -v '^#'")
            .out;
    }
};

// Every effect of the catalogue, by the name the tool takes.
std::vector<std::string> allEffects() {
    std::vector<std::string> names;
    for (const reelfx::EffectInfo& e : reelfx::test::module().catalogue()) names.push_back(e.name);
    return names;
}

// Ten frames of the built-in clip, the effect on frames 2 to 7 (so frames
// passed through are interleaved with rendered ones), lossless FFV1: three
// workers write exactly the frames one writes, for every effect and format.
TEST_F(ToolThreads, ThreeWorkersWriteTheFramesOfOne) {
    for (const std::string format : {"argb", "ayuv"}) {
        for (const std::string& effect : allEffects()) {
            std::string md5[2];
            for (int k = 0; k < 2; ++k) {
                const std::string out = "t" + std::to_string(k) + ".mkv";
                const Outcome r =
                    shell(tool({"render", effect, "--size", "40x24", "--duration", "0.4", "--span",
                                "0.08:0.32", "--format", format, "--threads", k == 0 ? "1" : "3",
                                "-q", "-y", "-o", out}));
                ASSERT_EQ(r.status, 0) << effect << " " << format << "\n" << r.err;
                md5[k] = framemd5(out);
            }
            EXPECT_EQ(std::count(md5[0].begin(), md5[0].end(), '\n'), 10) << effect << md5[0];
            EXPECT_EQ(md5[0], md5[1]) << effect << " " << format;
        }
    }
}

// Keyframed parameters, a file read ahead by the decoder and standard
// input and output: three workers give the bytes one gives.
TEST_F(ToolThreads, KeyframesAndPipesWithThreeWorkers) {
    ffmpeg("-f lavfi -i testsrc2=size=48x32:rate=25 -frames:v 12 -c:v ffv1 in.mkv");
    std::string file[2], piped[2];
    for (int k = 0; k < 2; ++k) {
        const std::string threads = k == 0 ? "1" : "3";
        const Outcome r = shell(tool({"render", "Lantern", "in.mkv", "-p", "Spot Radius=2@0,18@1",
                                      "--threads", threads, "-q", "-y", "-o", "o.mkv"}));
        ASSERT_EQ(r.status, 0) << r.err;
        file[k] = framemd5("o.mkv");
        const Outcome p =
            shell("ffmpeg -nostdin -v error -i in.mkv -pix_fmt yuv444p -f yuv4mpegpipe - | " +
                  tool({"render", "Mosaic", "-", "-p", "Resolution=0.1@0,0.6@1", "--span", "0:0.48",
                        "--threads", threads, "-q", "-o", "-"}) +
                  " | md5sum");
        ASSERT_EQ(p.status, 0) << p.err;
        piped[k] = p.out;
    }
    EXPECT_EQ(std::count(file[0].begin(), file[0].end(), '\n'), 12) << file[0];
    EXPECT_EQ(file[0], file[1]);
    EXPECT_EQ(piped[0], piped[1]);
}

// Files decoded ahead in every layout the workers convert from (planar YUV
// at 4:2:0 and 4:4:4 with and without alpha, packed and deep RGB, grey),
// each written in an encoded layout the workers convert to (odd sizes
// padded to whole chroma samples), with frames passed through before and
// after the span: three workers give the frames one gives, in both formats.
TEST_F(ToolThreads, WorkersConvertEveryLayoutAsOneDoes) {
    struct Case {
        const char* input;   // pixel format of the file read
        const char* output;  // pixel format written
        const char* size;
    };
    const Case cases[] = {{"yuv420p", "yuv444p", "42x24"},   {"yuv444p", "yuv420p", "41x23"},
                          {"yuva444p", "yuva444p", "40x24"}, {"bgra", "yuv420p", "40x24"},
                          {"rgb48le", "bgra", "39x25"},      {"gray16le", "yuv422p", "40x24"}};
    for (const Case& c : cases) {
        ffmpeg("-y -f lavfi -i testsrc2=size=" + std::string(c.size) +
               ":rate=25 -frames:v 8 -pix_fmt " + c.input + " -c:v ffv1 in.mkv");
        for (const std::string format : {"argb", "ayuv"}) {
            std::string md5[2];
            for (int k = 0; k < 2; ++k) {
                const Outcome r =
                    shell(tool({"render", "Dream", "in.mkv", "--span", "0.08:0.2", "--format",
                                format, "--codec", "ffv1", "--pix-fmt", c.output, "--threads",
                                k == 0 ? "1" : "3", "-q", "-y", "-o", "o.mkv"}));
                ASSERT_EQ(r.status, 0) << c.input << " " << format << "\n" << r.err;
                md5[k] = framemd5("o.mkv");
            }
            EXPECT_EQ(std::count(md5[0].begin(), md5[0].end(), '\n'), 8) << c.input << md5[0];
            EXPECT_EQ(md5[0], md5[1]) << c.input << " to " << c.output << " " << format;
        }
    }
}

// Memory runs out inside the module a few frames into the render: the run
// ends with status 1, the module's message once, and no output.
TEST_F(ToolThreads, WorkerErrorEndsTheRun) {
#ifdef __SANITIZE_ADDRESS__
    // The sanitizer's runtime must come first among the preloaded libraries,
    // and then its own array new is the one every library finds.
    GTEST_SKIP() << "array new cannot be replaced by a preloaded library under AddressSanitizer";
#endif
    // Flood takes a few arrays per frame, so the 16th fails in the sixth frame or so.
    const Outcome r = shell("LD_PRELOAD=" + quote(REELFX_FAIL_NEW_ARRAY) +
                            " REELFX_FAIL_NEW_AFTER=15 timeout -s KILL 20 " +
                            tool({"render", "Flood", "--size", "40x24", "--duration", "4",
                                  "--threads", "3", "-y", "-o", "o.mkv"}));
    EXPECT_EQ(r.status, 1) << r.err;
    const std::string message = "Flood: out of memory while rendering a 40x24 frame";
    const size_t first = r.err.find(message);
    ASSERT_NE(first, std::string::npos) << r.err;
    EXPECT_EQ(r.err.find(message, first + 1), std::string::npos) << r.err;
    EXPECT_EQ(leftBehind(), std::vector<std::string>{});
}

// A signal part way through a render on three workers ends it with 130 and
// leaves nothing under the output name or a temporary one.
TEST_F(ToolThreads, SignalEndsAParallelRender) {
    for (const char* signal : {"INT", "TERM", "HUP"}) {
        const Outcome r =
            shell(tool({"render", "Dream", "--size", "64x36", "--duration", "3000", "--threads",
                        "3", "-o", "long.mkv"}) +
                  " & pid=$!; i=0; while ! ls .reelfx-* >/dev/null 2>&1 && [ $i -lt 600 ]; do "
                  "sleep 0.05; i=$((i+1)); done; sleep 0.3; kill -" +
                  signal +
                  " $pid; i=0; while kill -0 $pid 2>/dev/null && [ $i -lt 200 ]; do sleep 0.05; "
                  "i=$((i+1)); done; kill -KILL $pid 2>/dev/null; wait $pid; echo status $?");
        EXPECT_EQ(r.out, "status 130\n") << signal << "\n" << r.err;
        EXPECT_NE(r.err.find("interrupted; nothing written"), std::string::npos) << r.err;
        EXPECT_EQ(leftBehind(), std::vector<std::string>{}) << signal;
    }
}

}  // namespace
