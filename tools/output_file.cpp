#include "tools/output_file.h"

#include <signal.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <stdexcept>

extern "C" {
#include <libavformat/avformat.h>
}

namespace reelfx::tool {

namespace {

volatile std::sig_atomic_t gInterrupted = 0;
Overwrite gOverwrite = Overwrite::Ask;
std::set<std::string> gConfirmed;

// The temporary file being written, for the second signal's handler (which
// may only make async-signal-safe calls such as unlink).
char gPartPath[4096] = {};
volatile std::sig_atomic_t gPartSet = 0;

extern "C" void onInterrupt(int) {
    if (gInterrupted) {
        if (gPartSet) ::unlink(gPartPath);
        static const char kMessage[] = "\nreelfx: interrupted; nothing written\n";
        [[maybe_unused]] const ssize_t n = ::write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
        ::_exit(130);
    }
    gInterrupted = 1;
}

// Sent to one thread of ours to end its blocking call; ignored by default,
// so a process that never installed the handler is not hurt by it.
constexpr int kWakeSignal = SIGURG;
volatile std::sig_atomic_t gWakeInstalled = 0;
extern "C" void onWake(int) {}

void registerPart(const std::string& path) {
    gPartSet = 0;
    if (path.size() >= sizeof gPartPath) return;
    std::memcpy(gPartPath, path.c_str(), path.size() + 1);
    gPartSet = 1;
}

void forgetPart(const std::string& path) {
    if (gPartSet && path == gPartPath) gPartSet = 0;
}

namespace fs = std::filesystem;

// The name of picture `number` of a sequence pattern.
std::string sequenceName(const std::string& pattern, int number) {
    std::string name(pattern.size() + 32, '\0');
    if (av_get_frame_filename2(name.data(), static_cast<int>(name.size()), pattern.c_str(), number,
                               0) < 0)
        return pattern;
    name.resize(std::strlen(name.c_str()));
    return name;
}

}  // namespace

bool isSequenceName(const std::string& path) {
    char name[4096];
    return path != "-" && path.size() < 4000 &&
           av_get_frame_filename2(name, sizeof name, path.c_str(), 1, 0) == 0;
}

OutputFile::OutputFile(std::string finalPath) : final_(std::move(finalPath)) {
    if (isStdout()) {
        temp_ = final_;
        return;
    }
    const std::filesystem::path p(final_);
    const std::filesystem::path dir =
        p.has_parent_path() ? p.parent_path() : std::filesystem::path(".");
    std::error_code ec;
    if (!std::filesystem::is_directory(dir, ec)) {
        throw std::runtime_error("cannot write " + final_ + ": folder " + dir.string() +
                                 " does not exist");
    }
    confirmOverwrite(final_);
    if (isSequenceName(final_)) {
        // A picture sequence is written into a hidden folder beside it and
        // its pictures are moved out when all are done.
        sequenceFolder_ = (dir / (".reelfx-" + std::to_string(getpid()) + ".part")).string();
        if (!fs::create_directory(sequenceFolder_, ec) || ec) {
            throw std::runtime_error("cannot write " + final_ + ": cannot make the folder " +
                                     sequenceFolder_ + ": " + ec.message());
        }
        temp_ = (fs::path(sequenceFolder_) / p.filename()).string();
        return;
    }
    // Built piecewise: GCC 12 warns falsely (-Wrestrict) on "." + std::string.
    std::string name = ".";
    name += p.filename().string();
    name += '.';
    name += std::to_string(getpid());
    name += ".part";
    temp_ = (dir / name).string();
    registerPart(temp_);
}

OutputFile::~OutputFile() {
    forgetPart(temp_);
    if (committed_ || isStdout()) return;
    std::error_code ec;
    if (!sequenceFolder_.empty()) {
        fs::remove_all(sequenceFolder_, ec);
    } else {
        fs::remove(temp_, ec);
    }
}

void OutputFile::commit() {
    throwIfInterrupted();
    if (isStdout()) {
        committed_ = true;
        return;
    }
    std::error_code ec;
    if (!sequenceFolder_.empty()) {
        const fs::path dir =
            fs::path(final_).has_parent_path() ? fs::path(final_).parent_path() : fs::path(".");
        for (const auto& e : fs::directory_iterator(sequenceFolder_, ec)) {
            fs::rename(e.path(), dir / e.path().filename(), ec);
            if (ec) break;
        }
        if (!ec) fs::remove(sequenceFolder_, ec);
    } else {
        fs::rename(temp_, final_, ec);
    }
    if (ec) throw std::runtime_error("cannot write " + final_ + ": " + ec.message());
    committed_ = true;
}

void setOverwritePolicy(Overwrite policy) {
    gOverwrite = policy;
}

void confirmOverwrite(const std::string& pathOrPattern) {
    if (pathOrPattern == "-" || gConfirmed.count(pathOrPattern)) return;
    // A sequence is asked about by its first picture.
    const std::string path =
        isSequenceName(pathOrPattern) ? sequenceName(pathOrPattern, 1) : pathOrPattern;
    std::error_code ec;
    if (!std::filesystem::exists(path, ec)) return;
    if (std::filesystem::is_directory(path, ec))
        throw std::runtime_error("cannot write " + path + ": it is a folder");
    switch (gOverwrite) {
        case Overwrite::Always:
            break;
        case Overwrite::Never:
            throw std::runtime_error(path + " already exists; not overwritten (-n)");
        case Overwrite::Ask: {
            if (isatty(STDIN_FILENO) != 1) {
                throw std::runtime_error(path +
                                         " already exists; give -y to overwrite it (there is no "
                                         "terminal to ask on)");
            }
            std::fprintf(stderr, "reelfx: %s already exists. Overwrite? [y/N] ", path.c_str());
            std::fflush(stderr);
            std::string answer;
            for (int c = std::getchar(); c != EOF && c != '\n'; c = std::getchar()) {
                answer += static_cast<char>(c);
            }
            throwIfInterrupted();
            if (answer != "y" && answer != "Y" && answer != "yes" && answer != "Yes")
                throw std::runtime_error(path + " already exists; not overwritten");
            break;
        }
    }
    gConfirmed.insert(pathOrPattern);
}

void installInterruptHandlers() {
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no SA_RESTART: blocking reads and writes return EINTR
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaction(sig, &action, nullptr);
    // The wake-up call does nothing but end the call it lands in.
    struct sigaction wake {};
    wake.sa_handler = onWake;
    sigemptyset(&wake.sa_mask);
    wake.sa_flags = 0;
    if (sigaction(kWakeSignal, &wake, nullptr) == 0) gWakeInstalled = 1;
}

void wakeAfterInterrupt(pthread_t thread) {
    // Without the handler the signal would be ignored anyway (its default).
    if (gWakeInstalled && interrupted()) pthread_kill(thread, kWakeSignal);
}

bool interrupted() {
    return gInterrupted != 0;
}

void throwIfInterrupted() {
    if (interrupted()) throw Interrupted{};
}

std::string makeTemporaryFile(const std::string& hint) {
    const char* dir = std::getenv("TMPDIR");
    std::string pattern = std::string(dir && *dir ? dir : "/tmp") + "/reelfx-" + hint + "-XXXXXX";
    const int fd = mkstemp(pattern.data());
    if (fd < 0)
        throw std::runtime_error("cannot create a temporary file: " +
                                 std::string(std::strerror(errno)));
    close(fd);
    return pattern;
}

}  // namespace reelfx::tool
