// A C++ host for the effects module: it owns the host records (in the layout
// of the build it is compiled for), loads the module by path, and offers
// typed calls: catalogue, create, parameters by name, render, destroy.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "plugin/host_records.h"

namespace reelfx {

// Owned 32-bit pixels with a row stride in bytes (a multiple of 4, at least
// 4 x width). The pixel format is not part of the picture: the caller knows
// whether the words are ARGB or AYUV.
struct Picture {
    int32_t width = 0;
    int32_t height = 0;
    int32_t stride = 0;  // bytes
    std::vector<uint32_t> words;

    Picture() = default;
    // `stride` 0 means tightly packed rows; padding words start out as `fill`.
    Picture(int32_t w, int32_t h, int32_t strideBytes = 0, uint32_t fill = 0);

    int32_t pitch() const { return stride / 4; }
    uint32_t* row(int32_t y) { return words.data() + static_cast<size_t>(y) * pitch(); }
    const uint32_t* row(int32_t y) const { return words.data() + static_cast<size_t>(y) * pitch(); }
    uint32_t& at(int32_t x, int32_t y) { return row(y)[x]; }
    uint32_t at(int32_t x, int32_t y) const { return row(y)[x]; }
    uint32_t* data() { return words.data(); }
    // True when the visible pixels (not the padding) are equal.
    bool samePixels(const Picture& other) const;
};

// Deterministic ARGB test picture: colour bars, gradients, fine detail,
// noise and varying alpha; `frame` moves the content for test clips.
Picture makeTestPicture(int32_t width, int32_t height, int32_t frame = 0, int32_t strideBytes = 0);
// Converts every pixel between ARGB and AYUV with the module's conversions.
Picture toAyuv(const Picture& argb);
Picture toArgb(const Picture& ayuv);

struct EffectInfo {
    int32_t index = 0;
    std::string name;
    std::string category;
    std::string tags;
    // The effect's pictures depend on state shared with its other instances
    // in the process ("Aged Film"'s hair and scratch tables, the C library's
    // generator that "Incognito" draws from): a host that wants the same
    // frames run after run keeps its calls on one thread in frame order.
    // Every other effect's instances are independent and may be called from
    // several threads at once.
    bool sharesState = false;
    // Calls of all its instances must never overlap ("Aged Film"): Instance
    // already serialises them, so this only matters to hosts calling the
    // entry themselves.
    bool callsSerialised = false;
};

// The same answers by catalogue index, without a catalogue query.
bool effectSharesState(int32_t effectIndex);
bool effectCallsSerialised(int32_t effectIndex);

struct ParameterInfo {
    int32_t index = 0;  // slot j
    std::string name;
    int32_t kind = 0;  // 1 real, 2 choice, 3 colour, 8 whole number
    double value = 0;  // current value
    double minimum = 0;
    double maximum = 0;
    double initial = 0;  // value written at creation
    std::vector<std::string> choices;
};

// A module call that failed: the text names the effect and the call ("Mosaic:
// out of memory while rendering a 1920x1080 frame"). The instance it came
// from stays usable and can be rendered again or destroyed.
class ModuleError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A loaded module. The handle is closed when the last user goes away.
//
// Threads: instances may be created, rendered and destroyed from several
// threads at once, each instance by one thread at a time. The host library
// serialises what the module shares: catalogue queries (catalogue(),
// findEffect() and the effect names in error messages, which rewrite
// module-wide bytes) and every call of an effect with callsSerialised.
// Code calling the entry directly with command 8 holds catalogueLock().
class Module {
public:
    // Loads the module (dlopen); throws std::runtime_error with dlerror's text.
    explicit Module(const std::string& path);
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    intptr_t call(PluginCallBlock* block, int32_t effectIndex, int32_t command) const {
        return entry_(block, effectIndex, command);
    }
    // The catalogue walked through the records' `next` links from record 0.
    std::vector<EffectInfo> catalogue() const;
    // Index of the effect whose name matches exactly, or -1.
    int32_t findEffect(const std::string& name) const;

    // The process-wide lock around catalogue queries.
    static std::mutex& catalogueLock();

    // Where a host finds the module, the first that applies: `requested` when
    // not empty, $REELFX_MODULE when set, libreelfx.so in the folder `beside`
    // when given and the file is there, the module of the build tree this
    // library was built in while it exists, and last the bare name, which the
    // dynamic loader looks up through the run path.
    static std::string find(const std::string& requested = {}, const std::string& beside = {});
    // find() with nothing requested and no folder of the caller's own.
    static std::string defaultPath() { return find(); }

private:
    void* handle_ = nullptr;
    XqPluginCallFn entry_ = nullptr;
};

struct RenderOptions {
    double progress = 0.0;
    uint32_t format = kFourccArgb;  // kFourccArgb or kFourccAyuv
    // Display aspect of the frame; 0 means width / height.
    double displayAspect = 0.0;
    bool aspectFitting = false;
    int32_t aspectFitMode = 0;
    int32_t aspectPreset = 0;  // 2 = 4:3, 3 = 16:9, other = pictureAspect
    double pictureAspect = 0.0;
};

// One effect instance with its host records. Created by command 0 and
// destroyed (command 1) with the object.
//
// The module reads only the source's pixels and takes the geometry of both
// pictures from the target, so a render refuses a source whose size or
// stride differs from the target's (std::invalid_argument). Running out of
// memory inside the module surfaces as ModuleError; the host's own
// allocations throw std::bad_alloc as usual.
class Instance {
public:
    // Throws ModuleError when the module answers create with anything but a
    // new instance (out of memory).
    Instance(const Module& module, int32_t effectIndex, int32_t frameWidth, int32_t frameHeight);
    // Destroys the instance if destroy() has not; a failure is not reported here.
    ~Instance();
    // Command 1 now; throws ModuleError when the module does not release the
    // instance. Later calls do nothing.
    void destroy();
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    int32_t effectIndex() const { return effectIndex_; }
    // The records the module declared (slots whose `valid` byte is set).
    std::vector<ParameterInfo> parameters() const;
    int32_t parameterCount() const;
    // Parameter slot by its display name (exact first, then case-insensitive), or -1.
    int32_t findParameter(const std::string& name) const;

    void setParameter(int32_t slot, double value);
    // Throws std::invalid_argument for an unknown name.
    void setParameter(const std::string& name, double value);
    // A choice by its text (case-insensitive); throws for unknown texts.
    void setChoice(const std::string& name, const std::string& choice);
    double parameter(int32_t slot) const;

    // Renders one frame: command 4 with `source` (may be null) into `target`.
    // Returns the entry's result (0 drawn, 1 refused). Throws
    // std::invalid_argument for a source whose width, height or stride
    // differs from the target's or a picture whose words do not hold its rows.
    intptr_t render(const Picture* source, Picture& target, const RenderOptions& options = {});
    // The same on pixels the caller owns (adapters rendering into a host's
    // buffers): both pictures share width, height and stride; source may be null.
    intptr_t render(const uint32_t* source, uint32_t* target, int32_t width, int32_t height,
                    int32_t strideBytes, const RenderOptions& options = {});

    // Raw records, for tests that poke at the interface directly.
    PluginCallBlock& block() { return *block_; }
    EffectState& state() { return *state_; }

private:
    // The effect's catalogue name for messages ("effect N" outside the catalogue).
    std::string effectName() const;

    const Module& module_;
    int32_t effectIndex_;
    std::unique_ptr<PluginCallBlock> block_;
    std::unique_ptr<HostEffect> hostEffect_;
    std::unique_ptr<EffectState> state_;
    HostFrame sourceFrame_{};
    HostFrame targetFrame_{};
    double displayAspect_ = 0.0;
    bool destroyed_ = false;
    bool serialised_ = false;  // effectCallsSerialised(effectIndex_)
};

// Splits a packed choice list ("A\0B\0\0") into its entries.
std::vector<std::string> unpackChoices(const char* packed);

}  // namespace reelfx
