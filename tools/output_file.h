// Outputs are written under a temporary name beside the final one and renamed
// only when complete, so a failed or interrupted run never leaves a
// half-written file under the name the user asked for.
#pragma once

#include <string>

namespace reelfx::tool {

class OutputFile {
public:
    // "-" (standard output) is written directly.
    explicit OutputFile(std::string finalPath);
    ~OutputFile();  // removes the temporary file unless committed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Where to write: the temporary file, or "-" for standard output.
    const std::string& path() const { return temp_; }
    const std::string& finalPath() const { return final_; }
    bool isStdout() const { return final_ == "-"; }
    // Renames the finished file to its final name; throws on failure.
    void commit();

private:
    std::string final_;
    std::string temp_;
    bool committed_ = false;
};

// Ctrl-C and SIGTERM set a flag that the frame loops check, so temporary
// files are removed on the way out.
void installInterruptHandlers();
bool interrupted();
// Thrown by the frame loops when interrupted() turns true.
struct Interrupted {};
void throwIfInterrupted();

// A file name for `path` in a fresh temporary place (stdin spooling).
std::string makeTemporaryFile(const std::string& hint);

}  // namespace reelfx::tool
