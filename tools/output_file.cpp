#include "tools/output_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <utility>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
}

#include "tools/params.h"

namespace reelfx::tool {

namespace {

namespace fs = std::filesystem;

Overwrite gOverwrite = Overwrite::Ask;
std::set<std::string> gConfirmed;                // existing names the user allowed to replace
std::set<std::pair<dev_t, ino_t>> gInputs;       // files no output may replace
std::set<std::string> gSwept;                    // folders already rid of dead runs' temporaries
constexpr char kTemporaryPrefix[] = ".reelfx-";  // + 6 characters from mkstemp/mkdtemp

std::string errorText(int code) { return std::strerror(code); }

fs::path folderOf(const std::string& path) {
    const fs::path p(path);
    return p.has_parent_path() ? p.parent_path() : fs::path(".");
}

bool isOurTemporaryName(const char* name) {
    const size_t prefix = sizeof kTemporaryPrefix - 1;
    return std::strlen(name) == prefix + 6 && std::strncmp(name, kTemporaryPrefix, prefix) == 0;
}

// Removes the temporaries in `dir` whose run is gone: their flock() is free
// (the kernel drops a lock with the last descriptor of a dead process).
void sweepDeadRuns(const fs::path& dir) {
    if (!gSwept.insert(dir.string()).second) return;
    DIR* d = ::opendir(dir.c_str());
    if (!d) return;
    std::vector<std::string> names;
    while (const dirent* e = ::readdir(d)) {
        if (isOurTemporaryName(e->d_name)) names.emplace_back(e->d_name);
    }
    ::closedir(d);
    for (const std::string& name : names) {
        const fs::path p = dir / name;
        const int fd = ::open(p.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        if (fd < 0) continue;
        struct stat st {};
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0 && ::fstat(fd, &st) == 0) {
            std::error_code ec;
            if (S_ISDIR(st.st_mode)) {
                fs::remove_all(p, ec);
            } else {
                ::unlink(p.c_str());
            }
        }
        ::close(fd);
    }
}

bool sameFile(const std::string& path, int fd) {
    struct stat byName {
    }, byFd{};
    return ::lstat(path.c_str(), &byName) == 0 && ::fstat(fd, &byFd) == 0 &&
           byName.st_dev == byFd.st_dev && byName.st_ino == byFd.st_ino;
}

struct Temporary {
    std::string path;
    int fd = -1;
    int handle = -1;
};

// A new temporary file or folder in `dir`, registered with the signal
// handlers and locked. A sweeping run may take a name between its creation
// and its lock: then another name is made.
Temporary createTemporary(const fs::path& dir, bool folder, const std::string& forName) {
    sweepDeadRuns(dir);
    for (int attempt = 0; attempt < 100; ++attempt) {
        Temporary t;
        t.path = (dir / (std::string(kTemporaryPrefix) + "XXXXXX")).string();
        if (folder) {
            if (!::mkdtemp(t.path.data()))
                throw std::runtime_error("cannot write " + forName + ": cannot make a folder in " +
                                         dir.string() + ": " + errorText(errno));
        } else {
            t.fd = ::mkostemp(t.path.data(), O_CLOEXEC);
            if (t.fd < 0)
                throw std::runtime_error("cannot write " + forName + ": cannot make a file in " +
                                         dir.string() + ": " + errorText(errno));
        }
        t.handle = registerTemporary(t.path, folder);
        if (folder) t.fd = ::open(t.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (t.fd >= 0 && ::flock(t.fd, LOCK_EX | LOCK_NB) == 0 && sameFile(t.path, t.fd)) {
            // mkstemp makes files only their owner reads; the output gets the
            // mode any new file gets.
            if (!folder) ::fchmod(t.fd, newFileMode());
            return t;
        }
        // Taken by a sweeping run, which removes it.
        forgetTemporary(t.handle);
        if (t.fd >= 0) ::close(t.fd);
    }
    throw std::runtime_error("cannot write " + forName + ": no temporary name is free in " +
                             dir.string());
}

bool isInput(const struct stat& st) { return gInputs.count({st.st_dev, st.st_ino}) != 0; }

// Moves `from` to `to` unless `to` exists; returns 0 or the errno.
int moveWithoutReplacing(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    // File systems without the flag: a hard link is never made over a file.
    if (::link(from.c_str(), to.c_str()) != 0) return errno;
    ::unlink(from.c_str());
    return 0;
}

// Moves `from` to `to`, replacing `to` only where the policy allowed it.
int move(const std::string& from, const std::string& to) {
    if (gOverwrite == Overwrite::Always || gConfirmed.count(to))
        return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
    return moveWithoutReplacing(from, to);
}

// Why `name` may not be replaced at the commit; empty when it is free or may
// be replaced. A name that was free when the run started and exists now was
// made by someone else meanwhile, and is kept.
std::string refusal(const std::string& name) {
    struct stat st {};
    if (::lstat(name.c_str(), &st) != 0) return {};
    if (S_ISDIR(st.st_mode)) return "cannot write " + name + ": it is a folder";
    if (isInput(st)) return "the output " + name + " would overwrite an input file";
    if (gOverwrite == Overwrite::Always || gConfirmed.count(name)) return {};
    if (gOverwrite == Overwrite::Never) return name + " already exists; not overwritten (-n)";
    return name + " already exists; give -y to overwrite it";
}

bool askOnTerminal(const std::string& question) {
    std::fprintf(stderr, "reelfx: %s Overwrite? [y/N] ", question.c_str());
    std::fflush(stderr);
    std::string answer;
    for (int c = std::getchar(); c != EOF && c != '\n'; c = std::getchar()) {
        answer += static_cast<char>(c);
    }
    throwIfInterrupted();
    return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes";
}

}  // namespace

bool isSequenceName(const std::string& path) {
    char name[4096];
    return path != "-" && path.size() < 4000 &&
           av_get_frame_filename2(name, sizeof name, path.c_str(), 1, 0) == 0;
}

bool isPictureSequence(const std::string& path) {
    if (!isSequenceName(path)) return false;
    const AVOutputFormat* of = av_guess_format(nullptr, path.c_str(), nullptr);
    return of && std::strcmp(of->name, "image2") == 0;
}

std::string sequenceName(const std::string& pattern, int64_t number) {
    std::string name(pattern.size() + 32, '\0');
    if (av_get_frame_filename2(name.data(), static_cast<int>(name.size()), pattern.c_str(),
                               static_cast<int>(number), 0) < 0)
        return pattern;
    name.resize(std::strlen(name.c_str()));
    return name;
}

OutputFile::OutputFile(std::string finalPath) : final_(std::move(finalPath)) {
    if (isStdout()) {
        temp_ = final_;
        return;
    }
    const fs::path dir = folderOf(final_);
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) {
        throw std::runtime_error("cannot write " + final_ + ": folder " + dir.string() +
                                 " does not exist");
    }
    confirmOverwrite(final_);
    const bool sequence = isPictureSequence(final_);
    Temporary t = createTemporary(dir, sequence, final_);
    lockFd_ = t.fd;
    handle_ = t.handle;
    if (sequence) {
        // The pictures keep their own names inside the folder.
        folder_ = t.path;
        temp_ = (fs::path(folder_) / fs::path(final_).filename()).string();
    } else {
        temp_ = t.path;
    }
}

OutputFile::~OutputFile() {
    if (!committed_ && !isStdout()) {
        std::error_code ec;
        if (!folder_.empty()) {
            fs::remove_all(folder_, ec);
        } else {
            ::unlink(temp_.c_str());
        }
    }
    forgetTemporary(handle_);
    if (lockFd_ >= 0) ::close(lockFd_);
}

void OutputFile::commit() {
    throwIfInterrupted();
    if (isStdout()) {
        committed_ = true;
        return;
    }
    if (!folder_.empty()) {
        commitSequence();
        return;
    }
    if (const std::string why = refusal(final_); !why.empty()) throw std::runtime_error(why);
    if (const int e = move(temp_, final_); e != 0) {
        throw std::runtime_error(e == EEXIST ? refusal(final_)
                                             : "cannot write " + final_ + ": " + errorText(e));
    }
    committed_ = true;
}

// Every name is checked before the first picture moves; a move that fails
// part way takes the moved pictures back, so the final names are as they
// were, or says exactly which pictures stay.
void OutputFile::commitSequence() {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(folder_, ec)) {
        names.push_back(e.path().filename().string());
    }
    if (ec) throw std::runtime_error("cannot write " + final_ + ": " + ec.message());
    std::sort(names.begin(), names.end());
    const fs::path dir = folderOf(final_);
    std::vector<std::string> refused;
    std::string first;
    for (const std::string& name : names) {
        if (std::string why = refusal((dir / name).string()); !why.empty()) {
            if (first.empty()) first = std::move(why);
            refused.push_back(name);
        }
    }
    if (!refused.empty()) {
        throw std::runtime_error(
            first +
            (refused.size() > 1 ? " (and " + std::to_string(refused.size() - 1) + " more of the " +
                                      std::to_string(names.size()) + " pictures)"
                                : "") +
            "; none of the pictures was written");
    }
    std::vector<std::pair<std::string, bool>> moved;  // final name, replaced an existing file
    for (const std::string& name : names) {
        const std::string from = (fs::path(folder_) / name).string();
        const std::string to = (dir / name).string();
        const bool existed = ::access(to.c_str(), F_OK) == 0;
        const int e = move(from, to);
        if (e == 0) {
            moved.emplace_back(to, existed);
            continue;
        }
        size_t kept = 0;
        for (const auto& [done, replaced] : moved) {
            if (replaced || ::rename(done.c_str(),
                                     (fs::path(folder_) / fs::path(done).filename()).c_str()) != 0)
                ++kept;
        }
        throw std::runtime_error(
            "cannot write " + final_ + ": cannot move " + to +
            " into place: " + (e == EEXIST ? "it appeared while rendering" : errorText(e)) + "; " +
            (kept == 0 ? "the pictures moved before it were taken back, nothing was written"
                       : std::to_string(kept) + " of the " + std::to_string(moved.size()) +
                             " pictures moved before it replaced existing files and stay"));
    }
    committed_ = true;
    fs::remove(folder_, ec);
}

void setOverwritePolicy(Overwrite policy) { gOverwrite = policy; }

void confirmOverwrite(const std::string& path, int64_t pictures) {
    if (path == "-") return;
    std::vector<std::string> existing;
    const bool sequence = isPictureSequence(path);
    const int64_t last = sequence ? std::max<int64_t>(pictures, 1) : 1;
    for (int64_t i = 1; i <= last; ++i) {
        const std::string name = sequence ? sequenceName(path, i) : path;
        struct stat st {};
        if (::lstat(name.c_str(), &st) != 0 || gConfirmed.count(name)) continue;
        if (S_ISDIR(st.st_mode))
            throw std::runtime_error("cannot write " + name + ": it is a folder");
        if (isInput(st)) {
            throw UsageError(sequence ? "the output " + path + " would overwrite " + name +
                                            ", a picture of the input"
                                      : "the output would overwrite the input");
        }
        existing.push_back(name);
    }
    if (existing.empty()) return;
    const std::string names = existing.size() == 1
                                  ? existing[0]
                                  : existing[0] + " and " + std::to_string(existing.size() - 1) +
                                        " more pictures of " + path;
    const std::string exist = existing.size() == 1 ? " already exists" : " already exist";
    switch (gOverwrite) {
        case Overwrite::Always: break;
        case Overwrite::Never: throw std::runtime_error(names + exist + "; not overwritten (-n)");
        case Overwrite::Ask:
            if (isatty(STDIN_FILENO) != 1) {
                throw std::runtime_error(names + exist +
                                         "; give -y to overwrite it (there is no terminal to ask "
                                         "on)");
            }
            if (!askOnTerminal(names + exist + "."))
                throw std::runtime_error(names + exist + "; not overwritten");
            break;
    }
    gConfirmed.insert(existing.begin(), existing.end());
}

void protectInput(const std::string& path) {
    auto add = [](const std::string& name) {
        struct stat st {};
        if (::stat(name.c_str(), &st) != 0) return false;
        gInputs.insert({st.st_dev, st.st_ino});
        return true;
    };
    if (path.empty() || path == "-") return;
    if (av_filename_number_test(path.c_str()) == 0) {
        add(path);
        return;
    }
    // Numbered pictures as FFmpeg reads them: from the first of 0 to 4 that
    // exists, up to the first gap.
    int64_t i = 0;
    while (i < 5 && !add(sequenceName(path, i))) ++i;
    for (++i; add(sequenceName(path, i)); ++i) {
    }
}

}  // namespace reelfx::tool
