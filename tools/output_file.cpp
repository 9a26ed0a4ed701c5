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

void registerPart(const std::string& path) {
    gPartSet = 0;
    if (path.size() >= sizeof gPartPath) return;
    std::memcpy(gPartPath, path.c_str(), path.size() + 1);
    gPartSet = 1;
}

void forgetPart(const std::string& path) {
    if (gPartSet && path == gPartPath) gPartSet = 0;
}

}  // namespace

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
    // Built piecewise: GCC 12 warns falsely (-Wrestrict) on "." + std::string.
    std::string name = ".";
    name += p.filename().string();
    name += '.';
    name += std::to_string(getpid());
    name += ".part";
    temp_ = (dir / name).string();
    confirmOverwrite(final_);
    registerPart(temp_);
}

OutputFile::~OutputFile() {
    forgetPart(temp_);
    if (!committed_ && !isStdout()) {
        std::error_code ec;
        std::filesystem::remove(temp_, ec);
    }
}

void OutputFile::commit() {
    throwIfInterrupted();
    if (isStdout()) {
        committed_ = true;
        return;
    }
    std::error_code ec;
    std::filesystem::rename(temp_, final_, ec);
    if (ec) throw std::runtime_error("cannot write " + final_ + ": " + ec.message());
    committed_ = true;
}

void setOverwritePolicy(Overwrite policy) {
    gOverwrite = policy;
}

void confirmOverwrite(const std::string& path) {
    if (path == "-" || gConfirmed.count(path)) return;
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
    gConfirmed.insert(path);
}

void installInterruptHandlers() {
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no SA_RESTART: blocking reads and writes return EINTR
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaction(sig, &action, nullptr);
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
