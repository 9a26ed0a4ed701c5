// Outputs are written under temporary names in the destination folder and
// moved to their final names only when complete, so a failed or interrupted
// run never leaves a half-written file under a name the user asked for, and
// an existing file is replaced only where the overwrite policy allows it at
// the moment of the move.
//
// Every temporary is called .reelfx-XXXXXX (a file, or a folder for numbered
// pictures) and is locked with flock() for as long as its run lives. A run
// that writes to a folder first removes the temporaries there whose lock
// nobody holds any more: those of runs that were killed.
#pragma once

#include <cstdint>
#include <string>

#include "tools/interrupt.h"

namespace reelfx::tool {

// A number pattern in FFmpeg's convention: "out_%04d.png" is out_0001.png,
// out_0002.png, ...
bool isSequenceName(const std::string& path);
// Numbered pictures written one file each: a number pattern whose extension
// is a picture's. ("take%d.mp4" is one video of that literal name.)
bool isPictureSequence(const std::string& path);
// The name of picture `number` of a pattern.
std::string sequenceName(const std::string& pattern, int64_t number);

class OutputFile {
public:
    // "-" (standard output) is written directly; numbered pictures go to a
    // temporary folder beside them, path() being the pattern inside it.
    explicit OutputFile(std::string finalPath);
    ~OutputFile();  // removes the temporary unless committed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Where to write: the temporary file (or pattern), or "-".
    const std::string& path() const { return temp_; }
    const std::string& finalPath() const { return final_; }
    bool isStdout() const { return final_ == "-"; }
    // Moves the finished file, or every picture, to its final name. Throws
    // (and leaves the final names as they were) when a name may not be
    // replaced any more; throws Interrupted after a signal instead.
    void commit();

private:
    void commitSequence();

    std::string final_;
    std::string temp_;
    std::string folder_;  // numbered pictures: the temporary folder
    int lockFd_ = -1;     // holds the flock() on the temporary
    int handle_ = -1;     // the second signal's registration
    bool committed_ = false;
};

// What to do when an output name already exists: ask on a terminal
// (refuse when standard input is not one), always replace (-y), never (-n).
enum class Overwrite { Ask, Always, Never };
void setOverwritePolicy(Overwrite policy);
// Throws unless every name the output will take is free or may be
// replaced: the file, or pictures 1 to `pictures` of a numbered output (the
// first when 0). Asks at most once per run for a set of names; the names
// confirmed may be replaced at the commit, any other existing one may not.
void confirmOverwrite(const std::string& path, int64_t pictures = 0);
// A file this run reads (every existing picture of a numbered input): no
// output may replace it, whatever the policy.
void protectInput(const std::string& path);

}  // namespace reelfx::tool
