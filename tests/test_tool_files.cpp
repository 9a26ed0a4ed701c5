// What the reelfx program promises about files, signals and exit codes,
// tried as a careless or hostile user would: existing files and -n, numbered
// pictures, two runs at once, killed runs, signals during blocked reads, full
// disks and closed pipes, memory limits, inputs that shrink or restart.
//
// Runs that must overlap are held at a gate instead of timed: their input is
// a FIFO whose writer waits on another FIFO until the test opens it.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tool_support.h"

namespace {

namespace fs = std::filesystem;
using reelfx::tooltest::Outcome;
using reelfx::tooltest::quote;
using reelfx::tooltest::slurp;
using reelfx::tooltest::tool;

// Waits (at most 30 s) until `condition` holds in sh; part of a shell line.
std::string until(const std::string& condition) {
    return "i=0; until " + condition +
           "; do [ $i -lt 600 ] || break; sleep 0.05; i=$((i+1)); done; ";
}
// Waits until process $pid has reelfx's signal handlers installed: SIGINT
// and SIGURG (the wake-up) caught, which the shell's child before exec does
// not have.
const std::string kHandlersInstalled = until(
    "[ $(( 0x$(sed -n 's/^SigCgt:\\s*//p' /proc/$pid/status 2>/dev/null || echo 0) & 0x400002 "
    ")) -eq $((0x400002)) ]");
// Waits until process $pid is gone (at most 10 s), then reports its status.
const std::string kStatusOfPid =
    "i=0; while kill -0 $pid 2>/dev/null && [ $i -lt 200 ]; do sleep 0.05; i=$((i+1)); done; "
    "kill -KILL $pid 2>/dev/null; wait $pid; echo status $?";

class ToolFiles : public reelfx::tooltest::ToolFolder {
protected:
    Outcome reelfx(const std::vector<std::string>& args) const { return shell(tool(args)); }
    // The files whose names start with a dot: temporaries.
    std::vector<std::string> hidden(const fs::path& in = {}) const {
        std::vector<std::string> out;
        for (const auto& e : fs::directory_iterator(in.empty() ? dir_ : in)) {
            const std::string name = e.path().filename().string();
            if (name[0] == '.' && name != ".out" && name != ".err") out.push_back(name);
        }
        return out;
    }
    // Every name in the folder, sorted, temporaries and test files left out.
    std::vector<std::string> names(const std::string& prefix) const {
        std::vector<std::string> out;
        for (const auto& e : fs::directory_iterator(dir_)) {
            const std::string name = e.path().filename().string();
            if (name.rfind(prefix, 0) == 0) out.push_back(name);
        }
        std::sort(out.begin(), out.end());
        return out;
    }
    void write(const std::string& name, const std::string& text) const {
        std::ofstream(path(name), std::ios::binary) << text;
    }
    // A gated input: FIFO `name` carries `clip` (YUV4MPEG2), then stays open
    // until open(name + ".gate") is called.
    std::string gatedInput(const std::string& name, const std::string& clip) const {
        return "mkfifo " + name + " " + name + ".gate; { cat " + clip + "; cat " + name +
               ".gate; } >" + name + " & ";
    }
    static std::string open(const std::string& gateOf) { return ": >" + gateOf + ".gate; "; }
    void makeClip(const std::string& name, const std::string& size = "32x24",
                  const std::string& seconds = "0.4") const {
        ffmpeg("-f lavfi -i testsrc2=size=" + size + ":rate=10:duration=" + seconds +
               " -f yuv4mpegpipe " + name);
    }
};

const std::vector<std::string> kClip = {"--size", "16x8", "--duration", "0.4", "--fps", "10", "-q"};
std::vector<std::string> render(const std::string& output, std::vector<std::string> more = {}) {
    std::vector<std::string> args = {"render", "Flip XY"};
    args.insert(args.end(), kClip.begin(), kClip.end());
    args.insert(args.end(), {"-o", output});
    args.insert(args.end(), more.begin(), more.end());
    return args;
}

// -n, and the default off a terminal, keep every existing name the output
// would take: every picture of a numbered output, not only the first; a video
// whose name holds a number pattern is one file of that literal name. -y
// replaces them all.
TEST_F(ToolFiles, ExistingNamesAreKeptUnlessReplacingIsAllowed) {
    for (const char* name : {"out_0002.png", "out_0003.png", "out_0004.png"})
        write(name, "earlier");
    for (const std::vector<std::string>& policy :
         std::vector<std::vector<std::string>>{{"-n"}, {}}) {
        const Outcome r = reelfx(render("out_%04d.png", policy));
        EXPECT_EQ(r.status, 1) << r.err;
        EXPECT_NE(r.err.find("out_0002.png and 2 more pictures of out_%04d.png already exist"),
                  std::string::npos)
            << r.err;
        EXPECT_EQ(names("out_"),
                  (std::vector<std::string>{"out_0002.png", "out_0003.png", "out_0004.png"}));
        EXPECT_EQ(slurp(path("out_0004.png")), "earlier");
    }
    ASSERT_EQ(reelfx(render("out_%04d.png", {"-y"})).status, 0);
    EXPECT_EQ(names("out_").size(), 4u);
    EXPECT_NE(slurp(path("out_0004.png")), "earlier");

    ASSERT_EQ(reelfx(render("take%d.mp4")).status, 0);
    EXPECT_EQ(names("take"), std::vector<std::string>{"take%d.mp4"});
    const std::string first = slurp(path("take%d.mp4"));
    const Outcome again = reelfx(render("take%d.mp4", {"-n"}));
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.err.find("take%d.mp4 already exists; not overwritten (-n)"), std::string::npos)
        << again.err;
    EXPECT_EQ(slurp(path("take%d.mp4")), first);
    EXPECT_EQ(hidden(), std::vector<std::string>{});
}

// Two runs to one name, both with -n, both past the first check before
// either finishes: the first to finish writes the file, the second is
// refused at the move and its result is not put over the first's.
TEST_F(ToolFiles, TwoRunsToOneNameNeverBothWrite) {
    makeClip("a.y4m");
    makeClip("b.y4m", "48x24");
    const Outcome r =
        shell(gatedInput("fa", "a.y4m") + gatedInput("fb", "b.y4m") +
              tool({"render", "Flip XY", "fa", "-n", "-o", "same.mkv"}) + " 2>a.err & a=$!; " +
              tool({"render", "Flip XY", "fb", "-n", "-o", "same.mkv"}) + " 2>b.err & b=$!; " +
              until("[ $(ls -A | grep -c '^\\.reelfx-') -eq 2 ]") + open("fa") +
              "wait $a; echo a $?; " + open("fb") + "wait $b; echo b $?; cat a.err b.err >&2");
    EXPECT_EQ(r.out, "a 0\nb 1\n") << r.err;
    EXPECT_NE(r.err.find("same.mkv already exists; not overwritten (-n)"), std::string::npos)
        << r.err;
    EXPECT_EQ(probe("same.mkv", "stream=width"), "32\n");
    EXPECT_EQ(hidden(), std::vector<std::string>{});
}

// Numbered pictures are moved to their names only when every name is free:
// a folder in the way, or a picture that appeared while rendering (found at
// the move, the stream's length being unknown at the start), leaves every
// name as it was.
TEST_F(ToolFiles, NumberedPicturesAreWrittenAllOrNone) {
    fs::create_directory(path("out_0030.png"));
    const Outcome folder = reelfx(
        {"render", "Flip XY", "--size", "16x8", "--duration", "4", "-y", "-o", "out_%04d.png"});
    EXPECT_EQ(folder.status, 1);
    EXPECT_NE(folder.err.find("cannot write out_0030.png: it is a folder"), std::string::npos)
        << folder.err;
    EXPECT_EQ(names("out_"), std::vector<std::string>{"out_0030.png"});
    fs::remove(path("out_0030.png"));

    makeClip("c.y4m");
    const Outcome appeared = shell(
        gatedInput("in", "c.y4m") + tool({"render", "Flip XY", "in", "-n", "-o", "p_%02d.png"}) +
        " & pid=$!; " + until("ls -A | grep -q '^\\.reelfx-'") + "echo later >p_03.png; " +
        open("in") + "wait $pid; echo status $?");
    EXPECT_EQ(appeared.out, "status 1\n") << appeared.err;
    EXPECT_NE(appeared.err.find("p_03.png already exists; not overwritten (-n); none of the "
                                "pictures was written"),
              std::string::npos)
        << appeared.err;
    EXPECT_EQ(names("p_"), std::vector<std::string>{"p_03.png"});
    EXPECT_EQ(slurp(path("p_03.png")), "later\n");
    EXPECT_EQ(hidden(), std::vector<std::string>{});
}

// No output replaces a file the run reads, whatever the policy: a numbered
// output naming any picture of a numbered input is refused like a single
// file, and formats that write files of their own beside the one named
// (DASH, HLS) are refused before anything is written.
TEST_F(ToolFiles, InputsAndMultiFileFormatsAreRefused) {
    ffmpeg("-f lavfi -i testsrc2=size=16x8:rate=10:duration=0.5 -start_number 2 f_%03d.png");
    const std::string before = slurp(path("f_004.png"));
    const struct {
        std::vector<std::string> args;
        const char* message;
    } cases[] = {
        {{"render", "Flip XY", "f_%03d.png", "-y", "-o", "f_%03d.png"},
         "the output f_%03d.png would overwrite f_002.png, a picture of the input"},
        {{"render", "Flip XY", "f_003.png", "-y", "-o", "f_003.png"},
         "the output would overwrite the input"},
        {render("a.mpd", {"-y"}), "cannot write a.mpd: DASH"},
        {render("a.m3u8", {"-y"}), "cannot write a.m3u8: Apple HTTP Live Streaming"},
    };
    for (const auto& c : cases) {
        const Outcome r = reelfx(c.args);
        EXPECT_EQ(r.status, 2) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    }
    EXPECT_EQ(slurp(path("f_004.png")), before);
    EXPECT_EQ(names("f_").size(), 5u);
    EXPECT_EQ(names("a."), std::vector<std::string>{});
    EXPECT_EQ(hidden(), std::vector<std::string>{});
}

// Temporaries have short names (any name valid for the output works) and
// hold a lock while their run lives: the next run in the folder removes
// those of killed runs, file or folder, and leaves a live run's alone.
TEST_F(ToolFiles, KilledRunsLeaveNothingForLong) {
    const std::string longest = std::string(251, 'x') + ".mkv";
    ASSERT_EQ(reelfx(render(longest)).status, 0);
    EXPECT_TRUE(fs::exists(path(longest)));

    // A run killed during a video leaves its file; the next run, killed
    // during numbered pictures, removes it and leaves its own folder.
    for (const auto& [output, made] : {std::pair{"k.mkv", "-f"}, {"k_%03d.png", "-d"}}) {
        const Outcome killed = shell(
            tool({"render", "Lantern", "--size", "32x18", "--duration", "3000", "-o", output}) +
            " & pid=$!; " +
            until("for t in .reelfx-*; do [ " + std::string(made) +
                  " \"$t\" ] && break; false; done") +
            "kill -KILL $pid; wait $pid");
        const std::vector<std::string> left = hidden();
        ASSERT_EQ(left.size(), 1u) << output << killed.err;
        EXPECT_EQ(fs::is_directory(path(left[0])), std::string(made) == "-d");
    }
    const std::string stale = hidden()[0];
    makeClip("c.y4m");
    const Outcome r =
        shell(gatedInput("live", "c.y4m") + tool({"render", "Flip XY", "live", "-o", "live.mkv"}) +
              " & pid=$!; " + until("[ ! -e " + stale + " ] && ls -A | grep -q '^\\.reelfx-'") +
              tool(render("next.mkv")) + "; echo next $?; ls -A | grep -c '^\\.reelfx-'; " +
              open("live") + "wait $pid; echo live $?");
    EXPECT_EQ(r.out, "next 0\n1\nlive 0\n") << r.err;
    EXPECT_TRUE(fs::exists(path("live.mkv")));
    EXPECT_EQ(hidden(), std::vector<std::string>{});
}

// A signal ends a run whose read waits on a pipe's writer at once (standard
// input from a writer that sends nothing, a FIFO nobody opened) with 130 and
// nothing left; so do two signals close together during numbered pictures,
// the second removing the temporary folder itself.
TEST_F(ToolFiles, SignalsEndBlockedReadsAndLeaveNothing) {
    // Standard input from a writer that holds the pipe open and sends nothing.
    const std::string kSilentWriter = "mkfifo f; sleep 30 >f & writer=$!; ";
    const struct {
        const char* signal;
        std::string start;
    } cases[] = {
        {"INT", kSilentWriter + tool({"render", "Flip XY", "-", "-o", "o.mkv"}) + " <f & pid=$!; "},
        {"TERM",
         kSilentWriter + tool({"render", "Flip XY", "-", "-o", "o.mkv"}) + " <f & pid=$!; "},
        {"HUP", "mkfifo f; " + tool({"render", "Flip XY", "f", "-o", "o.mkv"}) + " & pid=$!; "},
        {"INT",
         "mkfifo f; " + tool({"render", "Flip XY", "f", "-o", "o_%03d.png"}) + " & pid=$!; "},
    };
    for (const auto& c : cases) {
        const Outcome r = shell(c.start + kHandlersInstalled + "kill -" + c.signal + " $pid; " +
                                kStatusOfPid + "; [ -z \"$writer\" ] || kill $writer; rm -f f");
        EXPECT_EQ(r.out, "status 130\n") << c.signal << " " << c.start << "\n" << r.err;
        EXPECT_NE(r.err.find("interrupted; nothing written"), std::string::npos) << r.err;
        EXPECT_EQ(names("o"), std::vector<std::string>{}) << c.start;
        EXPECT_EQ(hidden(), std::vector<std::string>{}) << c.start;
    }
    const Outcome twice = shell(
        tool({"render", "Lantern", "--size", "64x36", "--duration", "3000", "-o", "t_%05d.png"}) +
        " & pid=$!; " + until("ls -A .reelfx-*/ 2>/dev/null | grep -q png") +
        "kill -INT $pid; kill -INT $pid; " + kStatusOfPid);
    EXPECT_EQ(twice.out, "status 130\n") << twice.err;
    EXPECT_EQ(names("t_"), std::vector<std::string>{});
    EXPECT_EQ(hidden(), std::vector<std::string>{});
}

// A full disk or a closed pipe is an error (exit 1) that names the user's
// file and the cause, whatever is written: listings on standard output,
// pictures, video. The small disk is a tmpfs, which needs root.
TEST_F(ToolFiles, FullDisksAndClosedPipesAreErrors) {
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {"list"}, {"list", "--json"}, {"info", "Mosaic", "--json"}}) {
        const Outcome r = shell(tool(args) + " >/dev/full");
        EXPECT_EQ(r.status, 1) << args.back() << "\n" << r.err;
        EXPECT_NE(r.err.find("cannot write to standard output: No space left on device"),
                  std::string::npos)
            << r.err;
    }
    const Outcome pipe =
        shell("{ " + tool({"render", "Lantern", "--size", "64x36", "--duration", "60", "-o", "-"}) +
              "; echo $? >status; } | head -c 1000 >/dev/null; cat status");
    EXPECT_EQ(pipe.out, "1\n") << pipe.err;
    EXPECT_NE(pipe.err.find("cannot write - (standard output): Broken pipe"), std::string::npos)
        << pipe.err;

    fs::create_directory(path("small"));
    if (shell("mount -t tmpfs -o size=48k tmpfs small").status != 0)
        GTEST_SKIP() << "no tmpfs can be mounted here (not root)";
    for (const char* name : {"small/big.png", "small/big.jpg", "small/big.mkv"}) {
        std::vector<std::string> args = {"render", "Incognito", "--size", "640x360", "-o", name};
        if (!std::string(name).ends_with(".mkv")) args.insert(args.end(), {"--progress", "0.5"});
        const Outcome r = reelfx(args);
        EXPECT_EQ(r.status, 1) << name << "\n" << r.err;
        EXPECT_NE(r.err.find(std::string("cannot write ") + name + ": No space left on device"),
                  std::string::npos)
            << r.err;
        EXPECT_EQ(hidden(path("small")), std::vector<std::string>{}) << name;
        EXPECT_FALSE(fs::exists(path(name)));
    }
    shell("umount small");
}

// Exit 2 is for mistakes on the command line only; what the machine refuses
// (memory, an encoder, a container) is 1 with FFmpeg's own words, and a
// memory limit says "out of memory".
TEST_F(ToolFiles, FailuresExitInTheirClass) {
#ifndef __SANITIZE_ADDRESS__  // AddressSanitizer's shadow memory needs more than any of these
    int limited = 0;
    for (const char* megabytes : {"200", "260", "320", "360", "420"}) {
        const Outcome r =
            shell("ulimit -v " + std::to_string(std::stoi(megabytes) * 1024) + " && " +
                  tool({"render", "Mosaic", "--size", "1920x1080", "--duration", "0.2", "-q", "-y",
                        "-o", "big.mp4"}));
        // 127: the loader could not map a shared library under the limit, so
        // the program never ran; how much that takes differs between machines.
        if (r.status == 127) continue;
        EXPECT_NE(r.status, 2) << megabytes << " MB\n" << r.err;
        if (r.status != 0) {
            ++limited;
            EXPECT_EQ(r.status, 1) << r.err;
            EXPECT_NE(r.err.find("out of memory"), std::string::npos) << megabytes << "\n" << r.err;
        }
    }
    EXPECT_GT(limited, 0);
#endif
    const struct {
        std::vector<std::string> args;
        int status;
        const char* message;
    } cases[] = {
        {render("v.mkv", {"--pix-fmt", "vaapi"}), 2, "\"vaapi\" is a hardware or bitstream"},
        {render("r.mkv", {"--codec", "rawvideo"}), 1,
         "cannot write r.mkv: the matroska container refused rawvideo video (Invalid argument); "
         "choose another --codec"},
        {{"render", "No Such Effect", "-o", "n.mkv"}, 2, "No Such Effect"},
    };
    for (const auto& c : cases) {
        const Outcome r = reelfx(c.args);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    }
    EXPECT_EQ(hidden(), std::vector<std::string>{});
}

// An input cut while it is read gives the frames read before the cut and
// says how many of how many; stamps that start again (two transport streams
// joined with cat) are made to run on, as ffmpeg does; a stream with a span
// end further than any stream goes is rendered whole.
TEST_F(ToolFiles, InputsThatShrinkOrRestart) {
    ffmpeg("-f lavfi -i testsrc2=size=320x240:rate=25:duration=4 -c:v ffv1 in.mkv");
    // The tool blocks writing to the pipe while the test cuts its input.
    const Outcome cut = shell(tool({"render", "Flip XY", "in.mkv", "-q", "-o", "-"}) +
                              " | { head -c 300000 >o.y4m; truncate -s $(( $(stat -c %s in.mkv) * "
                              "2 / 5 )) in.mkv; cat >>o.y4m; "
                              "}");
    EXPECT_EQ(cut.status, 0) << cut.err;
    EXPECT_NE(cut.err.find("warning: in.mkv shrank while it was read: wrote the"),
              std::string::npos)
        << cut.err;
    EXPECT_NE(cut.err.find("of its 100 frames that could be read"), std::string::npos) << cut.err;
    const std::string frames = shell(
                                   "ffprobe -v error -count_frames -show_entries "
                                   "stream=nb_read_frames -of csv=p=0 o.y4m")
                                   .out;
    EXPECT_GT(std::stoi("0" + frames), 2);
    EXPECT_LT(std::stoi("0" + frames), 90);
    EXPECT_NE(cut.err.find("wrote the " + frames.substr(0, frames.size() - 1) + " of its 100"),
              std::string::npos)
        << cut.err;

    ffmpeg(
        "-f lavfi -i testsrc2=size=32x24:rate=25:duration=1 -f lavfi -i sine=duration=1 "
        "-c:v libx264 -c:a aac a.ts");
    const Outcome joined = shell("cat a.ts a.ts >ab.ts && " +
                                 tool({"render", "Flip XY", "ab.ts", "-q", "-o", "ab.mp4"}));
    EXPECT_EQ(joined.status, 0) << joined.err;
    EXPECT_NE(joined.err.find("the timestamps of ab.ts start again"), std::string::npos)
        << joined.err;
    EXPECT_EQ(shell("ffprobe -v error -count_frames -select_streams v -show_entries "
                    "stream=nb_read_frames -of csv=p=0 ab.mp4")
                  .out,
              shell("ffmpeg -v quiet -i ab.ts -map 0:v -f framecrc - | grep -c '^0,'").out);

    makeClip("c.y4m");
    const Outcome span = shell(
        "cat c.y4m | " + tool({"render", "Flip XY", "-", "--span", "0:1e18", "-q", "-o", "s.mkv"}));
    EXPECT_EQ(span.status, 0) << span.err;
    EXPECT_EQ(probe("s.mkv", "stream=codec_name"), "ffv1\n");
}

}  // namespace
