#include "host/host.h"

#include <dlfcn.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>

#include "effects/effects.h"
#include "host/names.h"
#include "pixel/color.h"

namespace reelfx {

namespace {

// The lock around every call of an effect whose instances share tables.
std::mutex& sharedTablesLock() {
    static std::mutex m;
    return m;
}

std::unique_lock<std::mutex> holdIf(bool serialised) {
    return serialised ? std::unique_lock<std::mutex>(sharedTablesLock())
                      : std::unique_lock<std::mutex>();
}

// Small deterministic generator so test pictures are the same everywhere.
uint32_t nextRandom(uint32_t& state) {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
}

uint32_t argb(uint32_t a, uint32_t r, uint32_t g, uint32_t b) {
    return (a & 0xFF) << 24 | (r & 0xFF) << 16 | (g & 0xFF) << 8 | (b & 0xFF);
}

}  // namespace

Picture::Picture(int32_t w, int32_t h, int32_t strideBytes, uint32_t fill)
    : width(w), height(h), stride(strideBytes ? strideBytes : w * 4) {
    if (w < 0 || h < 0 || stride < w * 4 || stride % 4 != 0) {
        throw std::invalid_argument("Picture: bad geometry");
    }
    words.assign(static_cast<size_t>(stride / 4) * static_cast<size_t>(h), fill);
}

bool Picture::samePixels(const Picture& other) const {
    if (width != other.width || height != other.height) return false;
    for (int32_t y = 0; y < height; ++y) {
        if (!std::equal(row(y), row(y) + width, other.row(y))) return false;
    }
    return true;
}

Picture makeTestPicture(int32_t width, int32_t height, int32_t frame, int32_t strideBytes) {
    Picture p(width, height, strideBytes);
    static constexpr uint32_t kBars[8] = {0xFFFFFFFF, 0xFFFFFF00, 0xFF00FFFF, 0xFF00FF00,
                                          0xFFFF00FF, 0xFFFF0000, 0xFF0000FF, 0xFF000000};
    uint32_t seed = 0x12345u + static_cast<uint32_t>(frame) * 7919u;
    const int32_t band = std::max(1, height / 4);
    for (int32_t y = 0; y < height; ++y) {
        uint32_t* r = p.row(y);
        for (int32_t x = 0; x < width; ++x) {
            const int32_t xs = x + frame * 4;  // content drifts to the left over frames
            const uint32_t alpha = 255 - static_cast<uint32_t>((x * 7 + y * 3) % 64);
            uint32_t c;
            switch (std::min(3, y / band)) {
                case 0:  // colour bars
                    c = kBars[(static_cast<int64_t>(xs) * 8 / std::max(1, width)) % 8];
                    break;
                case 1:  // gradients in all three channels
                    c = argb(255, static_cast<uint32_t>(xs * 255 / std::max(1, width - 1)),
                             static_cast<uint32_t>(y * 255 / std::max(1, height - 1)),
                             static_cast<uint32_t>(255 - (xs * 255 / std::max(1, width - 1))));
                    break;
                case 2:  // fine detail: one-pixel checkers and thin lines
                    c = ((xs + y) & 1) ? 0xFFE0E0E0 : 0xFF202020;
                    if (xs % 9 == 0) c = 0xFFFF8000;
                    break;
                default:  // noise
                    c = argb(255, nextRandom(seed), nextRandom(seed), nextRandom(seed));
                    break;
            }
            r[x] = (c & 0x00FFFFFF) | (std::min<uint32_t>(alpha, c >> 24) << 24);
        }
    }
    return p;
}

static Picture convert(const Picture& in, uint32_t (*f)(uint32_t)) {
    Picture out = in;
    for (int32_t y = 0; y < in.height; ++y) {
        uint32_t* r = out.row(y);
        for (int32_t x = 0; x < in.width; ++x) r[x] = f(r[x]);
    }
    return out;
}

Picture toAyuv(const Picture& argbPicture) { return convert(argbPicture, argbToAyuv); }
Picture toArgb(const Picture& ayuvPicture) { return convert(ayuvPicture, ayuvToArgb); }

std::vector<std::string> unpackChoices(const char* packed) {
    std::vector<std::string> out;
    if (!packed) return out;
    while (*packed) {
        out.emplace_back(packed);
        packed += out.back().size() + 1;
    }
    return out;
}

// ---- Module ------------------------------------------------------------------

Module::Module(const std::string& path) {
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_) throw std::runtime_error(std::string("cannot load module: ") + dlerror());
    entry_ = reinterpret_cast<XqPluginCallFn>(dlsym(handle_, "xqPluginCall"));
    if (!entry_) {
        dlclose(handle_);
        throw std::runtime_error("module " + path + " does not export xqPluginCall");
    }
}

Module::~Module() {
    if (handle_) dlclose(handle_);
}

std::string Module::find(const std::string& requested, const std::string& beside) {
    if (!requested.empty()) return requested;
    if (const char* env = std::getenv("REELFX_MODULE"); env && *env) return env;
    std::error_code ec;
    if (!beside.empty()) {
        const auto path = std::filesystem::path(beside) / "libreelfx.so";
        if (std::filesystem::exists(path, ec)) return path.string();
    }
#ifdef REELFX_MODULE_PATH
    // The build tree's module while it exists; an installed program finds it
    // by name through its run path instead.
    if (std::filesystem::exists(REELFX_MODULE_PATH, ec)) return REELFX_MODULE_PATH;
#endif
    return "libreelfx.so";
}

bool effectSharesState(int32_t effectIndex) {
    return effectIndex == kEffectAgedFilm || effectIndex == kEffectIncognito;
}

bool effectCallsSerialised(int32_t effectIndex) { return effectIndex == kEffectAgedFilm; }

std::mutex& Module::catalogueLock() {
    static std::mutex m;
    return m;
}

std::vector<EffectInfo> Module::catalogue() const {
    std::vector<EffectInfo> out;
    const std::lock_guard<std::mutex> hold(catalogueLock());
    auto* d = reinterpret_cast<const EffectDescriptor*>(call(nullptr, 0, kCommandCatalogue));
    for (; d; d = d->next) {
        const auto index = static_cast<int32_t>(d->index);
        out.push_back({index, d->name, d->category, d->tags, effectSharesState(index),
                       effectCallsSerialised(index)});
    }
    return out;
}

int32_t Module::findEffect(const std::string& name) const {
    for (const EffectInfo& e : catalogue()) {
        if (e.name == name) return e.index;
    }
    return -1;
}

// ---- Instance ----------------------------------------------------------------

Instance::Instance(const Module& module, int32_t effectIndex, int32_t frameWidth,
                   int32_t frameHeight)
    : module_(module),
      effectIndex_(effectIndex),
      block_(std::make_unique<PluginCallBlock>()),
      hostEffect_(std::make_unique<HostEffect>()),
      state_(std::make_unique<EffectState>()),
      serialised_(effectCallsSerialised(effectIndex)) {
    hostEffect_->state = state_.get();
    block_->hostEffect = hostEffect_.get();
    block_->displayAspect = &displayAspect_;
    block_->frameWidth = frameWidth;
    block_->frameHeight = frameHeight;
    auto hold = holdIf(serialised_);
    const intptr_t result = module_.call(block_.get(), effectIndex_, kCommandCreate);
    if (result != 0 || !block_->instance) {
        if (block_->instance) module_.call(block_.get(), effectIndex_, kCommandDestroy);
        hold = {};
        destroyed_ = true;
        throw ModuleError(effectName() + ": the module could not create an instance (" +
                          (result != 0 ? "result " + std::to_string(result) : "out of memory") +
                          ")");
    }
}

Instance::~Instance() {
    if (destroyed_) return;
    const auto hold = holdIf(serialised_);
    module_.call(block_.get(), effectIndex_, kCommandDestroy);
}

void Instance::destroy() {
    if (destroyed_) return;
    destroyed_ = true;
    auto hold = holdIf(serialised_);
    const intptr_t result = module_.call(block_.get(), effectIndex_, kCommandDestroy);
    hold = {};
    if (result != 0 || block_->instance) {
        throw ModuleError(effectName() + ": the module did not release its instance (result " +
                          std::to_string(result) + ")");
    }
}

std::string Instance::effectName() const {
    // The catalogue record is static storage in the module: no allocation.
    const std::lock_guard<std::mutex> hold(Module::catalogueLock());
    const auto* d = reinterpret_cast<const EffectDescriptor*>(
        module_.call(nullptr, effectIndex_, kCommandCatalogue));
    return d ? std::string(d->name) : "effect " + std::to_string(effectIndex_);
}

int32_t Instance::parameterCount() const {
    int32_t n = 0;
    while (n < kParameterSlots && state_->parameters.slot[n].valid == 1) ++n;
    return n;
}

std::vector<ParameterInfo> Instance::parameters() const {
    std::vector<ParameterInfo> out;
    for (int32_t j = 0; j < parameterCount(); ++j) {
        const ParameterDescriptor& d = state_->parameters.slot[j];
        ParameterInfo p;
        p.index = j;
        p.name = d.name ? d.name : "";
        p.kind = d.kind;
        p.value = d.value;
        p.minimum = d.minimum;
        p.maximum = d.maximum;
        // Choices record 0.0 as their default; their initial value is the
        // declared value, which a fresh instance still holds.
        p.initial = d.kind == kParameterKindChoice ? d.value : d.defaultValue;
        p.choices = unpackChoices(d.choices);
        out.push_back(std::move(p));
    }
    return out;
}

int32_t Instance::findParameter(const std::string& name) const {
    const int32_t n = parameterCount();
    for (int32_t j = 0; j < n; ++j) {
        if (name == state_->parameters.slot[j].name) return j;
    }
    for (int32_t j = 0; j < n; ++j) {
        if (equalsIgnoreCase(name, state_->parameters.slot[j].name)) return j;
    }
    return -1;
}

void Instance::setParameter(int32_t slot, double value) {
    if (slot < 0 || slot >= kParameterSlots) throw std::out_of_range("parameter slot");
    state_->parameters.slot[slot].value = value;
}

void Instance::setParameter(const std::string& name, double value) {
    const int32_t j = findParameter(name);
    if (j < 0) throw std::invalid_argument("unknown parameter: " + name);
    setParameter(j, value);
}

void Instance::setChoice(const std::string& name, const std::string& choice) {
    const int32_t j = findParameter(name);
    if (j < 0) throw std::invalid_argument("unknown parameter: " + name);
    const auto entries = unpackChoices(state_->parameters.slot[j].choices);
    for (size_t i = 0; i < entries.size(); ++i) {
        if (equalsIgnoreCase(entries[i], choice)) {
            setParameter(j, static_cast<double>(i));
            return;
        }
    }
    throw std::invalid_argument("unknown choice '" + choice + "' for " + name);
}

double Instance::parameter(int32_t slot) const { return state_->parameters.slot[slot].value; }

namespace {

std::string describe(const Picture& p) {
    return std::to_string(p.width) + "x" + std::to_string(p.height) + " (stride " +
           std::to_string(p.stride) + ")";
}

// A picture whose fields do not describe its own words would send the module
// past the end of the vector.
void checkPicture(const Picture& p, const char* role) {
    const bool shape = p.width >= 0 && p.height >= 0 && p.stride % 4 == 0 &&
                       int64_t{p.stride} >= int64_t{p.width} * 4;
    if (!shape || p.words.size() < static_cast<size_t>(p.pitch()) * static_cast<size_t>(p.height)) {
        throw std::invalid_argument(std::string("the ") + role + " picture " + describe(p) +
                                    " does not hold its rows (" + std::to_string(p.words.size()) +
                                    " words)");
    }
}

}  // namespace

intptr_t Instance::render(const Picture* source, Picture& target, const RenderOptions& options) {
    // The module reads the source with the target's geometry.
    checkPicture(target, "target");
    if (source) {
        checkPicture(*source, "source");
        if (source->width != target.width || source->height != target.height ||
            source->stride != target.stride) {
            throw std::invalid_argument("the source picture " + describe(*source) +
                                        " differs from the target " + describe(target) +
                                        ": both must have the same size and stride");
        }
    }
    return render(source ? source->words.data() : nullptr, target.data(), target.width,
                  target.height, target.stride, options);
}

intptr_t Instance::render(const uint32_t* source, uint32_t* target, int32_t width, int32_t height,
                          int32_t strideBytes, const RenderOptions& options) {
    targetFrame_.format = options.format == kFourccAyuv ? kHostFormatAyuv : 0;
    targetFrame_.width = width;
    targetFrame_.height = height;
    targetFrame_.stride = strideBytes;
    targetFrame_.pixels = target;
    sourceFrame_ = targetFrame_;
    // The module only reads the source.
    sourceFrame_.pixels = const_cast<uint32_t*>(source);

    state_->sourceFrame = source ? &sourceFrame_ : nullptr;
    state_->targetFrame = &targetFrame_;
    state_->progress = options.progress;
    state_->pictureAspect = options.pictureAspect;
    displayAspect_ = options.displayAspect != 0.0
                         ? options.displayAspect
                         : static_cast<double>(width) / std::max(1, height);
    block_->aspectFitting = options.aspectFitting ? 1 : 0;
    block_->aspectFitMode = options.aspectFitMode;
    block_->aspectPreset = options.aspectPreset;
    try {
        const auto hold = holdIf(serialised_);
        return module_.call(block_.get(), effectIndex_, kCommandRender);
    } catch (const std::bad_alloc&) {
        // The module lets its allocator's failure through; the instance is
        // still whole and can render the next frame.
        throw ModuleError(effectName() + ": out of memory while rendering a " +
                          std::to_string(width) + "x" + std::to_string(height) + " frame");
    }
}

}  // namespace reelfx
