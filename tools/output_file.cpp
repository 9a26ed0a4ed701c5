#include "tools/output_file.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace reelfx::tool {

namespace {

volatile std::sig_atomic_t gInterrupted = 0;

extern "C" void onInterrupt(int) {
    gInterrupted = 1;
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
}

OutputFile::~OutputFile() {
    if (!committed_ && !isStdout()) {
        std::error_code ec;
        std::filesystem::remove(temp_, ec);
    }
}

void OutputFile::commit() {
    if (isStdout()) {
        committed_ = true;
        return;
    }
    std::error_code ec;
    std::filesystem::rename(temp_, final_, ec);
    if (ec) throw std::runtime_error("cannot write " + final_ + ": " + ec.message());
    committed_ = true;
}

void installInterruptHandlers() {
    std::signal(SIGINT, onInterrupt);
    std::signal(SIGTERM, onInterrupt);
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
