// Shared helpers for tests that drive the module through its exported entry.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "host/host.h"

namespace reelfx::test {

// The module under test, loaded once per test program.
inline const Module& module() {
    static Module m(Module::defaultPath());
    return m;
}

inline int32_t effectIndex(const std::string& name) {
    const int32_t i = module().findEffect(name);
    if (i < 0) ADD_FAILURE() << "no effect named " << name;
    return i;
}

inline const char* formatName(uint32_t format) { return format == kFourccAyuv ? "AYUV" : "ARGB"; }

// The test picture in the requested format.
inline Picture testPicture(int32_t w, int32_t h, uint32_t format, int32_t frame = 0,
                           int32_t strideBytes = 0) {
    Picture p = makeTestPicture(w, h, frame, strideBytes);
    return format == kFourccAyuv ? toAyuv(p) : p;
}

// A picture of one colour (already in the frame's format).
inline Picture flatPicture(int32_t w, int32_t h, uint32_t word, int32_t strideBytes = 0) {
    Picture p(w, h, strideBytes, word);
    return p;
}

// Renders `effect` once with parameters given by name; the target starts out
// filled with `targetFill` (padding included).
struct RenderResult {
    Picture target;
    intptr_t result = 0;
};

inline RenderResult renderEffect(const std::string& effect, const Picture& source,
                                 const std::vector<std::pair<std::string, double>>& params = {},
                                 RenderOptions options = {}, uint32_t targetFill = 0x5A5A5A5A) {
    Instance inst(module(), effectIndex(effect), source.width, source.height);
    for (const auto& [name, value] : params) inst.setParameter(name, value);
    RenderResult r{Picture(source.width, source.height, source.stride, targetFill), 0};
    r.result = inst.render(&source, r.target, options);
    return r;
}

// Every word of `p` outside [x0, x0 + w) x [y0, y0 + h), padding included,
// equals `fill`: nothing was written outside the active rectangle.
inline ::testing::AssertionResult untouchedOutside(const Picture& p, int32_t x0, int32_t y0,
                                                   int32_t w, int32_t h, uint32_t fill) {
    for (int32_t y = 0; y < p.height; ++y) {
        const uint32_t* row = p.row(y);
        for (int32_t x = 0; x < p.pitch(); ++x) {
            const bool inside = x >= x0 && x < x0 + w && y >= y0 && y < y0 + h;
            if (!inside && row[x] != fill) {
                return ::testing::AssertionFailure()
                       << "word (" << x << ", " << y << ") = 0x" << std::hex << row[x];
            }
        }
    }
    return ::testing::AssertionSuccess();
}

// Only the stride padding (words past `width` in each row) is checked.
inline ::testing::AssertionResult paddingUntouched(const Picture& p, uint32_t fill) {
    for (int32_t y = 0; y < p.height; ++y) {
        for (int32_t x = p.width; x < p.pitch(); ++x) {
            if (p.row(y)[x] != fill) {
                return ::testing::AssertionFailure()
                       << "padding word (" << x << ", " << y << ") was written";
            }
        }
    }
    return ::testing::AssertionSuccess();
}

// What a shell command line prints (standard output and error together) and
// its exit status (-1 when it could not run or did not exit).
struct CommandOutcome {
    int status = -1;
    std::string out;
};

inline CommandOutcome runCommand(const std::string& line) {
    CommandOutcome r;
    FILE* pipe = popen((line + " 2>&1").c_str(), "r");
    if (!pipe) return r;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) r.out.append(buffer, n);
    const int raw = pclose(pipe);
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return r;
}

}  // namespace reelfx::test
