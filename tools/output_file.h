// Outputs are written under a temporary name beside the final one and renamed
// only when complete, so a failed or interrupted run never leaves a
// half-written file under the name the user asked for.
#pragma once

#include <pthread.h>

#include <string>

namespace reelfx::tool {

// A picture sequence name in FFmpeg's convention: "out_%04d.png" is
// out_0001.png, out_0002.png, ...
bool isSequenceName(const std::string& path);

class OutputFile {
public:
    // "-" (standard output) is written directly; a sequence's pictures go
    // to a hidden folder beside them, path() being the pattern inside it.
    explicit OutputFile(std::string finalPath);
    ~OutputFile();  // removes the temporary file unless committed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Where to write: the temporary file, or "-" for standard output.
    const std::string& path() const { return temp_; }
    const std::string& finalPath() const { return final_; }
    bool isStdout() const { return final_ == "-"; }
    // Renames the finished file to its final name; throws on failure, and
    // throws Interrupted after a signal instead of committing.
    void commit();

private:
    std::string final_;
    std::string temp_;
    std::string sequenceFolder_;  // for a picture sequence
    bool committed_ = false;
};

// What to do when the output name already exists: ask on a terminal
// (refuse when standard input is not one), always replace (-y), never (-n).
enum class Overwrite { Ask, Always, Never };
void setOverwritePolicy(Overwrite policy);
// Throws std::runtime_error unless `path` is free or may be replaced; asks
// at most once per name. OutputFile calls it; callers call it early to ask
// before the work starts.
void confirmOverwrite(const std::string& path);

// SIGINT, SIGTERM and SIGHUP set a flag that the frame loops check, so
// temporary files are removed on the way out (exit status 130). A second
// signal removes the temporary file at once and exits with 130 straight
// away, for a run stuck in a long call.
void installInterruptHandlers();
bool interrupted();
// After a signal, ends a blocking read or write of `thread` (one of ours)
// with EINTR, so that it sees the signal too: the signal itself may have
// been taken by another thread.
void wakeAfterInterrupt(pthread_t thread);
// Thrown by the frame loops when interrupted() turns true.
struct Interrupted {};
void throwIfInterrupted();

// A file name for `path` in a fresh temporary place (stdin spooling).
std::string makeTemporaryFile(const std::string& hint);

}  // namespace reelfx::tool
