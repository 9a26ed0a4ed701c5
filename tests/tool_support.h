// What the tests of the reelfx program share: shell quoting, whole files,
// and a fixture that runs command lines in a temporary folder of its own.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace reelfx::tooltest {

namespace fs = std::filesystem;

inline std::string quote(const std::string& s) {
    std::string out = "'";
    for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

inline std::string slurp(const fs::path& p) {
    std::ifstream f(p, std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

// The reelfx command line for `args`.
inline std::string tool(const std::vector<std::string>& args) {
    std::string line = quote(REELFX_TOOL_PATH);
    for (const std::string& a : args) line += " " + quote(a);
    return line;
}

struct Outcome {
    int status = -1;
    std::string out, err;
};

class ToolFolder : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "reelfx-tool-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }
    fs::path path(const std::string& name) const { return dir_ / name; }

    // `line` run by sh in the test's folder; standard input from /dev/null
    // unless the fixture keeps the test's own.
    Outcome shell(const std::string& line) const {
        const std::string cmd = "cd " + quote(dir_.string()) + " && { " + line + " ; }" +
                                (keepStdin_ ? "" : " </dev/null") + " >.out 2>.err";
        const int raw = std::system(cmd.c_str());
        Outcome r{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(path(".out")), slurp(path(".err"))};
        fs::remove(path(".out"));
        fs::remove(path(".err"));
        return r;
    }
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

    fs::path dir_;
    bool keepStdin_ = false;
};

}  // namespace reelfx::tooltest
