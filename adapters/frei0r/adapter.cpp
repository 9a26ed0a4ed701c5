// frei0r adapter: each reelfx effect as a frei0r filter, so the effects run
// inside ffmpeg (-vf frei0r=reelfx_<effect>), GStreamer (frei0r-filter-*) and
// MLT. The plug-in files only forward here (adapters/frei0r/plugin.cpp).
//
// Parameters, in the effect's own order, then "Progress":
// - real and whole numbers are frei0r doubles in 0..1 (values outside are
//   raised or lowered to it), mapped linearly onto the bounds the instance
//   declared for the frame size it was made for: 0 is the minimum, 1 the
//   maximum (a crop margin at 1 is the whole frame height or width); whole
//   numbers are truncated toward zero after mapping, as the module does
//   (a value within a millionth of the range below a whole number counts as
//   that number: hosts round what they store to six digits);
// - choices are strings holding the choice text (any case) or its index as
//   digits; an unknown text is reported once on standard error;
// - colours are frei0r colours; the alpha byte keeps the declared default;
// - "Progress" (0..1, default 0.5) is the position within the effect's time
//   span, which frei0r has no notion of: animate it in the host.
// Pixels are frei0r's BGRA8888, which in memory is the module's ARGB word.
//
// Threads: hosts (MLT, GStreamer) call instances from several threads at
// once, each instance from one thread at a time. Instances render at the
// same time; only what is shared is serialised, each narrowly: this
// library's own tables (the module handle, the descriptions, the choice
// texts already reported) under one lock that no module call is made under,
// and catalogue queries and "Aged Film"'s calls inside the host library.
// Whatever is handed back to the host (choice texts) belongs to the
// instance, never to the plug-in.
//
// Nothing leaves this file as an exception: out of memory and any other
// failure are reported on standard error and the call does nothing (a frame
// that cannot be rendered is passed through unchanged).
#include "adapters/frei0r/adapter.h"

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <utility>

#include "host/host.h"
#include "host/names.h"

namespace reelfx::frei0r {

namespace {

// Bounds that follow the frame size the instance is made for.
enum class Scales { none, width, height };

struct Parameter {
    std::string name;
    int32_t kind = 0;
    Scales scales = Scales::none;
    std::string explanation;
};

struct Effect {
    std::string name;        // the catalogue's name
    std::string pluginName;  // what hosts list: "reelfx <name>"
    std::string explanation;
    std::vector<Parameter> parameters;
    std::set<std::pair<int, std::string>> reported;  // unknown choice texts already reported
};

// The lock guards every member; the module is called under it only while
// init describes an effect, before any instance of it exists.
struct Shared {
    std::mutex lock;
    std::unique_ptr<Module> module;
    std::vector<EffectInfo> catalogue;
    std::map<int, Effect> effects;  // by index; node addresses stay put
};

Shared& shared() {
    static Shared s;
    return s;
}

struct Frei0rInstance {
    // frei0r calls an instance from one thread at a time, but MLT's `threads`
    // property has slices of one frame updated on one instance at once: they
    // take turns here, as each slice is drawn as a picture of its own anyway.
    std::mutex calls;
    Effect* effect = nullptr;
    std::unique_ptr<Instance> instance;
    std::vector<ParameterInfo> declared;  // bounds for this frame size
    std::vector<std::string> choiceText;  // storage handed out by getParam
    int32_t width = 0;
    int32_t height = 0;
    double progress = 0.5;
};

// Renders inside the module right now, and the most there have been at once.
std::atomic<int> rendersInside{0};
std::atomic<int> mostRendersInside{0};

Frei0rInstance* self(f0r_instance_t instance) { return static_cast<Frei0rInstance*>(instance); }

void report(const std::string& what) { std::fprintf(stderr, "reelfx frei0r: %s\n", what.c_str()); }

// Runs `body`; anything it throws is reported and becomes `fallback`.
template <class R, class Body>
R guarded(const char* call, R fallback, Body&& body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        report(std::string(call) + ": out of memory");
    } catch (const std::exception& e) {
        report(std::string(call) + ": " + e.what());
    } catch (...) {
        report(std::string(call) + ": unknown failure");
    }
    return fallback;
}

// The module is looked for where every host looks (Module::find), with this
// library's folder as the place beside it: both live in the same library
// folder, in the build tree and once installed.
std::string modulePath() {
    Dl_info info{};
    std::string folder;
    if (dladdr(reinterpret_cast<void*>(&modulePath), &info) && info.dli_fname) {
        folder = std::filesystem::path(info.dli_fname).parent_path().string();
    }
    return Module::find({}, folder);
}

// Hosts write frei0r values as text with six significant digits (Kdenlive
// hands back shown / factor, 100 rows of 576 as 0.173611), so a whole number
// comes back a hair below itself; within a millionth of the range it counts
// as that number before truncation.
double snapWhole(double mapped, const ParameterInfo& p) {
    const double nearest = std::round(mapped);
    return std::fabs(mapped - nearest) <= (p.maximum - p.minimum) * 1e-6 ? nearest : mapped;
}

double clamp01(double v) { return std::isnan(v) ? 0.0 : std::clamp(v, 0.0, 1.0); }

uint8_t toByte(float v) { return static_cast<uint8_t>(std::lround(clamp01(v) * 255.0)); }

std::string number(double v) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", v);
    return text;
}

std::string choiceList(const std::vector<std::string>& choices) {
    std::string out;
    for (const std::string& c : choices) out += (out.empty() ? "\"" : ", \"") + c + "\"";
    return out;
}

// The choice a host's text names: its text in any case, or its index.
int findChoice(const std::vector<std::string>& choices, const char* text) {
    for (size_t i = 0; i < choices.size(); ++i) {
        if (reelfx::equalsIgnoreCase(choices[i], text)) return static_cast<int>(i);
    }
    int index = -1;
    const char* end = text + std::strlen(text);
    const auto [ptr, ec] = std::from_chars(text, end, index);
    if (ec == std::errc() && ptr == end && ptr != text && index >= 0 &&
        index < static_cast<int>(choices.size())) {
        return index;
    }
    return -1;
}

// Describes an effect from two instances of different frame sizes, which
// shows which bounds follow the frame's width or height.
Effect describe(const Module& module, const EffectInfo& info) {
    Effect e;
    e.name = info.name;
    e.pluginName = "reelfx " + info.name;
    e.explanation = "reelfx \"" + info.name + "\" video effect";
    const Instance small(module, info.index, 64, 48), large(module, info.index, 80, 96);
    const std::vector<ParameterInfo> a = small.parameters(), b = large.parameters();
    for (size_t j = 0; j < a.size(); ++j) {
        Parameter p{a[j].name, a[j].kind, Scales::none, {}};
        if (j < b.size() && a[j].maximum != b[j].maximum) {
            p.scales = a[j].maximum == 48 && b[j].maximum == 96 ? Scales::height : Scales::width;
        }
        switch (p.kind) {
            case kParameterKindChoice:
                p.explanation = "one of " + choiceList(a[j].choices) + " (or its index)";
                break;
            case kParameterKindColour: p.explanation = "colour"; break;
            default:
                p.explanation = "0..1 maps to " + number(a[j].minimum) + ".." +
                                (p.scales == Scales::height  ? std::string("the frame height")
                                 : p.scales == Scales::width ? std::string("the frame width")
                                                             : number(a[j].maximum));
                if (p.kind == kParameterKindWhole) p.explanation += ", whole numbers";
                break;
        }
        e.parameters.push_back(std::move(p));
    }
    return e;
}

}  // namespace

int init(int effect) {
    return guarded("init", 0, [&] {
        Shared& s = shared();
        const std::lock_guard<std::mutex> hold(s.lock);
        if (!s.module) {
            s.module = std::make_unique<Module>(modulePath());
            s.catalogue = s.module->catalogue();
        }
        if (effect < 0 || effect >= static_cast<int>(s.catalogue.size())) return 0;
        if (!s.effects.count(effect))
            s.effects.emplace(effect, describe(*s.module, s.catalogue[effect]));
        return 1;
    });
}

// The module stays loaded and the descriptions stay valid until the process
// ends: hosts call deinit for one filter while instances of another plug-in
// file, or of the same one in another thread, still render.
void deinit(int /*effect*/) {}

void pluginInfo(int effect, f0r_plugin_info_t* info) {
    guarded("get_plugin_info", 0, [&] {
        const std::lock_guard<std::mutex> hold(shared().lock);
        const auto found = shared().effects.find(effect);
        const Effect* e = found == shared().effects.end() ? nullptr : &found->second;
        info->name = e ? e->pluginName.c_str() : "reelfx";
        info->author = "reelfx developers";
        info->plugin_type = F0R_PLUGIN_TYPE_FILTER;
        info->color_model = F0R_COLOR_MODEL_BGRA8888;
        info->frei0r_version = FREI0R_MAJOR_VERSION;
        info->major_version = 0;
        info->minor_version = 1;
        info->num_params = e ? static_cast<int>(e->parameters.size()) + 1 : 0;
        info->explanation = e ? e->explanation.c_str() : "";
        return 0;
    });
}

void paramInfo(int effect, f0r_param_info_t* info, int index) {
    guarded("get_param_info", 0, [&] {
        const std::lock_guard<std::mutex> hold(shared().lock);
        const auto found = shared().effects.find(effect);
        if (found == shared().effects.end()) return 0;
        const Effect& e = found->second;
        if (index >= 0 && index < static_cast<int>(e.parameters.size())) {
            const Parameter& p = e.parameters[index];
            info->name = p.name.c_str();
            info->type = p.kind == kParameterKindChoice   ? F0R_PARAM_STRING
                         : p.kind == kParameterKindColour ? F0R_PARAM_COLOR
                                                          : F0R_PARAM_DOUBLE;
            info->explanation = p.explanation.c_str();
        } else if (index == static_cast<int>(e.parameters.size())) {
            info->name = "Progress";
            info->type = F0R_PARAM_DOUBLE;
            info->explanation = "position within the effect's time span, 0..1";
        }
        return 0;
    });
}

f0r_instance_t construct(int effect, unsigned width, unsigned height) {
    return guarded("construct", f0r_instance_t{nullptr}, [&]() -> f0r_instance_t {
        Shared& s = shared();
        const Module* module = nullptr;
        Effect* described = nullptr;
        {
            const std::lock_guard<std::mutex> hold(s.lock);
            const auto found = s.effects.find(effect);
            module = s.module.get();
            described = found == s.effects.end() ? nullptr : &found->second;
        }
        if (!module || !described || width == 0 || height == 0 || width > 1u << 15 ||
            height > 1u << 15) {
            return nullptr;
        }
        auto inst = std::make_unique<Frei0rInstance>();
        inst->effect = described;
        inst->width = static_cast<int32_t>(width);
        inst->height = static_cast<int32_t>(height);
        inst->instance = std::make_unique<Instance>(*module, effect, inst->width, inst->height);
        inst->declared = inst->instance->parameters();
        inst->choiceText.resize(inst->declared.size());
        return inst.release();
    });
}

void destruct(f0r_instance_t instance) {
    guarded("destruct", 0, [&] {
        delete self(instance);
        return 0;
    });
}

void setParam(f0r_instance_t instance, f0r_param_t value, int index) {
    guarded("set_param_value", 0, [&] {
        Frei0rInstance* inst = self(instance);
        if (!inst || !value || index < 0) return 0;
        const std::lock_guard<std::mutex> turn(inst->calls);
        const int count = static_cast<int>(inst->declared.size());
        if (index == count) {
            inst->progress = clamp01(*static_cast<f0r_param_double*>(value));
            return 0;
        }
        if (index > count) return 0;
        const ParameterInfo& p = inst->declared[index];
        switch (p.kind) {
            case kParameterKindChoice: {
                const char* text = *static_cast<f0r_param_string*>(value);
                if (!text) return 0;
                const int choice = findChoice(p.choices, text);
                if (choice >= 0) {
                    inst->instance->setParameter(index, static_cast<double>(choice));
                } else if (const std::lock_guard<std::mutex> hold(shared().lock);
                           inst->effect->reported.emplace(index, text).second) {
                    report(inst->effect->name + ": \"" + text + "\" is not a choice of \"" +
                           p.name + "\"; accepted: " + choiceList(p.choices) + " or 0.." +
                           std::to_string(p.choices.size() - 1));
                }
                break;
            }
            case kParameterKindColour: {
                const auto* c = static_cast<f0r_param_color*>(value);
                const auto alpha = static_cast<uint32_t>(p.initial) & 0xFF000000u;
                const uint32_t word = alpha | uint32_t{toByte(c->r)} << 16 |
                                      uint32_t{toByte(c->g)} << 8 | toByte(c->b);
                inst->instance->setParameter(index, static_cast<double>(word));
                break;
            }
            default: {
                const double v = clamp01(*static_cast<f0r_param_double*>(value));
                double mapped = fromFrei0r(v, p.minimum, p.maximum);
                if (p.kind == kParameterKindWhole) mapped = std::trunc(snapWhole(mapped, p));
                inst->instance->setParameter(index, mapped);
                break;
            }
        }
        return 0;
    });
}

void getParam(f0r_instance_t instance, f0r_param_t value, int index) {
    guarded("get_param_value", 0, [&] {
        Frei0rInstance* inst = self(instance);
        if (!inst || !value || index < 0) return 0;
        const std::lock_guard<std::mutex> turn(inst->calls);
        const int count = static_cast<int>(inst->declared.size());
        if (index == count) {
            *static_cast<f0r_param_double*>(value) = inst->progress;
            return 0;
        }
        if (index > count) return 0;
        const ParameterInfo& p = inst->declared[index];
        const double current = inst->instance->parameter(index);
        switch (p.kind) {
            case kParameterKindChoice: {
                const double i = current;
                std::string& text = inst->choiceText[index];
                text = i >= 0 && i < static_cast<double>(p.choices.size())
                           ? p.choices[static_cast<size_t>(i)]
                           : std::string();
                *static_cast<f0r_param_string*>(value) = text.data();
                break;
            }
            case kParameterKindColour: {
                const auto word = static_cast<uint32_t>(current);
                auto* c = static_cast<f0r_param_color*>(value);
                c->r = static_cast<float>((word >> 16) & 0xFF) / 255.0f;
                c->g = static_cast<float>((word >> 8) & 0xFF) / 255.0f;
                c->b = static_cast<float>(word & 0xFF) / 255.0f;
                break;
            }
            default: {
                const double range = p.maximum - p.minimum;
                *static_cast<f0r_param_double*>(value) =
                    range > 0 ? (current - p.minimum) / range : 0.0;
                break;
            }
        }
        return 0;
    });
}

void update(f0r_instance_t instance, double /*time*/, const uint32_t* in, uint32_t* out) {
    Frei0rInstance* inst = self(instance);
    if (!inst || !out) return;
    const bool drawn = guarded("update", false, [&] {
        const std::lock_guard<std::mutex> turn(inst->calls);
        RenderOptions o;
        o.progress = inst->progress;
        o.format = kFourccArgb;
        struct Inside {
            Inside() {
                const int now = ++rendersInside;
                int most = mostRendersInside.load();
                while (now > most && !mostRendersInside.compare_exchange_weak(most, now)) {
                }
            }
            ~Inside() { --rendersInside; }
        } inside;
        inst->instance->render(in, out, inst->width, inst->height, inst->width * 4, o);
        return true;
    });
    if (!drawn && in && in != out) {
        std::memcpy(out, in, static_cast<size_t>(inst->width) * inst->height * 4);
    }
}

}  // namespace reelfx::frei0r

extern "C" int reelfx_frei0r_most_renders_at_once(void) {
    return reelfx::frei0r::mostRendersInside.load();
}
