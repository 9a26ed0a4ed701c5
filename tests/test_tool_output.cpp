// What the reelfx program writes, end to end on small clips made by the
// ffmpeg program and checked with ffprobe: existing files, signals.
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
