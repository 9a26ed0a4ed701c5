// The reelfx program on damaged files: small PNG and MP4 files made by the
// ffmpeg program are damaged in a few hundred ways (bit flips, truncation,
// wrong chunk and box sizes, header fields and sample tables with valid
// checksums) and rendered. Each run must end by itself, without a signal,
// with either a render (status 0, an output file) or a readable error
// (status 1, a "reelfx:" message, nothing left under the output name), and
// without memory out of proportion to the file. The damage is a function of
// the variant number, so a failing variant is reproduced by its name; its
// files are kept in the directory the failure names.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

constexpr int kVariants = 40;  // per format and kind of damage
constexpr auto kDeadline = std::chrono::seconds(20);
// A 48 x 32 picture or clip needs a few MB; a reader that believes a damaged
// header and reserves the claimed picture (16384 x 16384 x 4 is 1 GiB) does not
// stay under this.
constexpr long kMaxRssKb = 400 * 1024;

Bytes slurp(const fs::path& p) {
    std::ifstream f(p, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(f), {});
}

void spill(const fs::path& p, const Bytes& b) {
    std::ofstream(p, std::ios::binary).write(reinterpret_cast<const char*>(b.data()), b.size());
}

uint32_t be32(const Bytes& b, size_t at) {
    return uint32_t(b[at]) << 24 | uint32_t(b[at + 1]) << 16 | uint32_t(b[at + 2]) << 8 | b[at + 3];
}

void putBe32(Bytes& b, size_t at, uint32_t v) {
    for (int k = 0; k < 4; ++k) b[at + k] = uint8_t(v >> (24 - 8 * k));
}

uint32_t crc32(const uint8_t* p, size_t n) {
    uint32_t c = 0xFFFFFFFFu;
    for (size_t i = 0; i < n; ++i) {
        c ^= p[i];
        for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1)));
    }
    return ~c;
}

struct Span {
    size_t at, size;  // header offset and the size the header states
};

// PNG chunks: offset of the length field and the data length.
std::vector<Span> pngChunks(const Bytes& b) {
    std::vector<Span> out;
    for (size_t at = 8; at + 12 <= b.size();) {
        const uint32_t n = be32(b, at);
        out.push_back({at, n});
        if (n > b.size() - at - 12) break;
        at += 12 + n;
    }
    return out;
}

// The chunk's checksum made right again, so that the damage reaches the decoder.
void resealChunk(Bytes& b, const Span& c) {
    if (c.at + 12 + c.size <= b.size())
        putBe32(b, c.at + 8 + c.size, crc32(&b[c.at + 4], 4 + c.size));
}

// MP4 boxes, descending into the containers down to the sample tables.
void mp4Boxes(const Bytes& b, size_t from, size_t to, std::vector<Span>& out) {
    static const std::string containers[] = {"moov", "trak", "mdia", "minf", "stbl", "edts"};
    for (size_t at = from; at + 8 <= to;) {
        const uint32_t n = be32(b, at);
        if (n < 8 || n > to - at) break;
        out.push_back({at, n});
        const std::string type(b.begin() + at + 4, b.begin() + at + 8);
        for (const std::string& c : containers)
            if (type == c) mp4Boxes(b, at + 8, at + n, out);
        at += n;
    }
}

bool isSampleTable(const Bytes& b, const Span& box) {
    const std::string type(b.begin() + box.at + 4, b.begin() + box.at + 8);
    return type == "stsz" || type == "stco" || type == "stsc" || type == "stts" || type == "stss" ||
           type == "ctts" || type == "avcC" || type == "tkhd" || type == "mdhd";
}

enum class Damage { BitFlips, Truncation, Structure };

struct Rng {
    std::mt19937 engine;
    uint32_t operator()() { return uint32_t(engine()); }
};

uint32_t oddSize(Rng& rng, uint32_t size) {
    const uint32_t choices[] = {0,        1,        7,          8,          size - 1,
                                size + 1, size * 2, 0x7FFFFFFF, 0xFFFFFFFF, rng()};
    return choices[rng() % std::size(choices)];
}

Bytes damage(const Bytes& good, bool png, Damage kind, int variant) {
    Rng rng{std::mt19937(uint32_t(variant) * 7919u + uint32_t(kind) * 104729u + (png ? 1u : 2u))};
    Bytes b = good;
    switch (kind) {
        case Damage::BitFlips: {
            const int flips = 1 + int(rng() % 8);
            for (int i = 0; i < flips; ++i) {
                const size_t at = rng() % b.size();
                b[at] ^= uint8_t(1u << (rng() % 8));
            }
            break;
        }
        case Damage::Truncation: b.resize(rng() % b.size()); break;
        case Damage::Structure:
            if (png) {
                const std::vector<Span> chunks = pngChunks(b);
                const Span c = chunks[rng() % chunks.size()];
                const bool ihdr = b[c.at + 4] == 'I' && b[c.at + 5] == 'H';
                switch (rng() % 3) {
                    case 0:  // the length field
                        putBe32(b, c.at, oddSize(rng, c.size));
                        break;
                    case 1:  // header fields (size, depth, colour type) or data, sealed again
                        if (ihdr) {
                            const uint32_t sides[] = {0, 1, 16384, 65535, 0x7FFFFFFF, rng()};
                            putBe32(b, c.at + 8 + 4 * (rng() % 2), sides[rng() % std::size(sides)]);
                            if (rng() % 2) b[c.at + 16 + rng() % 5] = uint8_t(rng());
                        } else if (c.size > 0) {
                            b[c.at + 8 + rng() % c.size] ^= uint8_t(1 + rng() % 255);
                        }
                        resealChunk(b, c);
                        break;
                    default:  // a chunk dropped or repeated
                        if (rng() % 2)
                            b.erase(b.begin() + c.at,
                                    b.begin() + std::min(b.size(), c.at + 12 + c.size));
                        else
                            b.insert(b.begin() + c.at, good.begin() + c.at,
                                     good.begin() + std::min(good.size(), c.at + 12 + c.size));
                        break;
                }
            } else {
                std::vector<Span> boxes;
                mp4Boxes(b, 0, b.size(), boxes);
                std::vector<Span> tables;
                for (const Span& s : boxes)
                    if (isSampleTable(b, s)) tables.push_back(s);
                if (rng() % 2 || tables.empty()) {  // a box size
                    const Span box = boxes[rng() % boxes.size()];
                    putBe32(b, box.at, oddSize(rng, box.size));
                } else {  // words of a sample table or track header: counts, sizes, offsets
                    const Span t = tables[rng() % tables.size()];
                    const int words = 1 + int(rng() % 3);
                    for (int i = 0; i < words && t.size >= 12; ++i) {
                        const uint32_t values[] = {0, 1, 0x7FFFFFFF, 0xFFFFFFFF, 0x10000, rng()};
                        putBe32(b, t.at + 8 + 4 * (rng() % ((t.size - 8) / 4)),
                                values[rng() % std::size(values)]);
                    }
                }
            }
            break;
    }
    return b;
}

struct Outcome {
    bool hung = false;
    int signal = 0;
    int status = -1;
    long maxRssKb = 0;
    std::string err;
};

// The tool in a process of its own, with a deadline.
Outcome runTool(const fs::path& dir, const std::vector<std::string>& args) {
    std::vector<std::string> argv = {REELFX_TOOL_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> cargv;
    for (std::string& a : argv) cargv.push_back(a.data());
    cargv.push_back(nullptr);
    const std::string errPath = (dir / "stderr.txt").string();
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&fa, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = 0;
    Outcome r;
    const int spawned = posix_spawn(&pid, cargv[0], &fa, nullptr, cargv.data(), environ);
    posix_spawn_file_actions_destroy(&fa);
    if (spawned != 0) {
        ADD_FAILURE() << "cannot start " << cargv[0];
        return r;
    }
    const auto until = std::chrono::steady_clock::now() + kDeadline;
    int ws = 0;
    rusage ru{};
    while (wait4(pid, &ws, WNOHANG, &ru) == 0) {
        if (std::chrono::steady_clock::now() > until) {
            kill(pid, SIGKILL);
            wait4(pid, &ws, 0, &ru);
            r.hung = true;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    if (WIFSIGNALED(ws)) r.signal = WTERMSIG(ws);
    if (WIFEXITED(ws)) r.status = WEXITSTATUS(ws);
    r.maxRssKb = ru.ru_maxrss;
    const Bytes e = slurp(errPath);
    r.err.assign(e.begin(), e.end());
    return r;
}

// A message a person can read: the tool's own words, printable text.
bool readable(const std::string& err) {
    if (err.rfind("reelfx: ", 0) != 0) return false;
    for (unsigned char c : err)
        if (c != '\n' && c != '\t' && (c < 0x20 || c == 0x7F)) return false;
    return err.find("terminate called") == std::string::npos &&
           err.find("Sanitizer") == std::string::npos;
}

class ToolDamaged : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        std::string pattern = (fs::temp_directory_path() / "reelfx-damaged-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
        const std::string ff =
            "cd '" + dir_.string() + "' && ffmpeg -nostdin -v error -y -f lavfi ";
        ASSERT_EQ(std::system((ff + "-i testsrc2=size=48x32 -frames:v 1 good.png").c_str()), 0);
        ASSERT_EQ(std::system((ff + "-i testsrc2=size=48x32:rate=10 -frames:v 6 -c:v libx264 "
                                    "-pix_fmt yuv420p -g 3 good.mp4")
                                  .c_str()),
                  0);
    }
    static void TearDownTestSuite() {
        if (!::testing::UnitTest::GetInstance()->Failed()) fs::remove_all(dir_);
    }

    // Renders `input`; returns what went wrong, empty when nothing did.
    static std::string check(const std::string& name, const Bytes& input, const char* ext) {
        const fs::path in = dir_ / (name + "." + ext), out = dir_ / (name + ".out." + ext);
        spill(in, input);
        const Outcome r =
            runTool(dir_, {"render", "Mosaic", in.string(), "-o", out.string(), "-q"});
        std::ostringstream why;
        if (r.hung)
            why << "no end within the deadline";
        else if (r.signal)
            why << "killed by signal " << r.signal;
        else if (r.status == 0 && (!fs::exists(out) || fs::file_size(out) == 0))
            why << "status 0 without an output file";
        else if (r.status == 1 && !readable(r.err))
            why << "unreadable error: " << r.err;
        else if (r.status == 1 && fs::exists(out))
            why << "a failed render left " << out;
        else if (r.status != 0 && r.status != 1)
            why << "status " << r.status << ": " << r.err;
        else if (r.maxRssKb > kMaxRssKb)
            why << "peak memory " << r.maxRssKb / 1024 << " MB";
        if (!why.str().empty()) return name + " (" + in.string() + "): " + why.str();
        fs::remove(in);
        fs::remove(out);
        return {};
    }

    static void sweep(const char* ext, Damage kind) {
        const bool png = std::string(ext) == "png";
        const Bytes good = slurp(dir_ / (std::string("good.") + ext));
        ASSERT_GT(good.size(), 100u);
        for (int v = 0; v < kVariants; ++v) {
            const std::string name =
                std::string(ext) + "-" + std::to_string(int(kind)) + "-" + std::to_string(v);
            const std::string failure = check(name, damage(good, png, kind, v), ext);
            EXPECT_TRUE(failure.empty()) << failure;
        }
    }

    static fs::path dir_;
};
fs::path ToolDamaged::dir_;

TEST_F(ToolDamaged, PngBitFlips) { sweep("png", Damage::BitFlips); }
TEST_F(ToolDamaged, PngTruncated) { sweep("png", Damage::Truncation); }
TEST_F(ToolDamaged, PngChunksAndHeader) { sweep("png", Damage::Structure); }
TEST_F(ToolDamaged, Mp4BitFlips) { sweep("mp4", Damage::BitFlips); }
TEST_F(ToolDamaged, Mp4Truncated) { sweep("mp4", Damage::Truncation); }
TEST_F(ToolDamaged, Mp4BoxesAndTables) { sweep("mp4", Damage::Structure); }

// A 68-byte file whose header claims 16384 x 16384 and whose data holds one
// row: the claim must be checked against the data, not allocated.
TEST_F(ToolDamaged, PngClaimingAHugePictureWithTinyData) {
    Bytes b = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    auto chunk = [&b](const char* type, const Bytes& data) {
        const size_t at = b.size();
        b.resize(at + 12 + data.size());
        putBe32(b, at, uint32_t(data.size()));
        std::copy(type, type + 4, b.begin() + at + 4);
        std::copy(data.begin(), data.end(), b.begin() + at + 8);
        resealChunk(b, {at, data.size()});
    };
    chunk("IHDR", {0, 0, 0x40, 0, 0, 0, 0x40, 0, 8, 6, 0, 0, 0});
    chunk("IDAT",
          {0x78, 0x9C, 0x63, 0x60, 0x80, 0x00, 0x00, 0x00, 0x08, 0x00, 0x01});  // 8 zero bytes
    chunk("IEND", {});
    const std::string failure = check("huge-claim", b, "png");
    EXPECT_TRUE(failure.empty()) << failure;
}

}  // namespace
