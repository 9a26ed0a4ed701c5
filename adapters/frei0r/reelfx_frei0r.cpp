// frei0r adapter: each reelfx effect as a frei0r filter, so the effects run
// inside ffmpeg (-vf frei0r=reelfx_<effect>), GStreamer (frei0r-filter-*) and
// MLT. One plugin file per effect; all share this code and differ only in
// the effect index they are linked with.
//
// Parameters, in the effect's own order, then "Progress":
// - real and whole numbers are frei0r doubles in 0..1, mapped linearly onto
//   the parameter's declared bounds (whole numbers are rounded down after
//   mapping);
// - choices are strings holding the choice text (or its index as digits);
// - colours are frei0r colours; the alpha byte keeps the declared default;
// - "Progress" (0..1, default 0.5) is the position within the effect's time
//   span, which frei0r has no notion of: animate it in the host.
// Pixels are frei0r's BGRA8888, which in memory is the module's ARGB word.
#include <dlfcn.h>

// frei0r.h declares C functions without a linkage block of its own.
extern "C" {
#include <frei0r.h>
}

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "host/host.h"

extern const int reelfxFrei0rEffect;  // defined per plugin file

namespace {

struct Parameter {
    reelfx::ParameterInfo info;
    std::string explanation;
    std::string choiceText;  // storage handed out by f0r_get_param_value
};

struct Plugin {
    std::unique_ptr<reelfx::Module> module;
    std::string name;
    std::string explanation;
    std::vector<Parameter> parameters;
};

Plugin& plugin() {
    static Plugin p;
    return p;
}

// The module sits one folder above the plugin files (build/<preset>/frei0r-1/
// next to build/<preset>/libreelfx.so), unless $REELFX_MODULE says otherwise.
std::string modulePath() {
    if (const char* env = std::getenv("REELFX_MODULE"); env && *env) return env;
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&modulePath), &info) && info.dli_fname) {
        std::string self = info.dli_fname;
        const size_t slash = self.rfind('/');
        const std::string dir = slash == std::string::npos ? "." : self.substr(0, slash);
        return dir + "/../libreelfx.so";
    }
    return "libreelfx.so";
}

struct Frei0rInstance {
    std::unique_ptr<reelfx::Instance> effect;
    int32_t width = 0;
    int32_t height = 0;
    double progress = 0.5;
};

Frei0rInstance* self(f0r_instance_t instance) { return static_cast<Frei0rInstance*>(instance); }

double clamp01(double v) { return std::isnan(v) ? 0.0 : (v < 0.0 ? 0.0 : (v > 1.0 ? 1.0 : v)); }

uint8_t toByte(float v) { return static_cast<uint8_t>(std::lround(clamp01(v) * 255.0)); }

}  // namespace

extern "C" {

int f0r_init(void) {
    Plugin& p = plugin();
    if (p.module) return 1;
    try {
        p.module = std::make_unique<reelfx::Module>(modulePath());
        const auto catalogue = p.module->catalogue();
        if (reelfxFrei0rEffect < 0 || reelfxFrei0rEffect >= static_cast<int>(catalogue.size())) {
            return 0;
        }
        p.name = catalogue[reelfxFrei0rEffect].name;
        p.explanation = "reelfx \"" + p.name + "\" video effect";
        reelfx::Instance probe(*p.module, reelfxFrei0rEffect, 64, 64);
        for (const reelfx::ParameterInfo& info : probe.parameters()) {
            Parameter param{info, {}, {}};
            if (info.kind == kParameterKindChoice) {
                param.explanation = "one of:";
                for (const std::string& c : info.choices) param.explanation += " \"" + c + "\"";
            } else if (info.kind != kParameterKindColour) {
                param.explanation = "0..1 maps to " + std::to_string(info.minimum) + ".." +
                                    std::to_string(info.maximum);
            } else {
                param.explanation = "colour";
            }
            p.parameters.push_back(std::move(param));
        }
    } catch (const std::exception&) {
        p.module.reset();
        return 0;
    }
    return 1;
}

void f0r_deinit(void) {
    plugin().parameters.clear();
    plugin().module.reset();
}

void f0r_get_plugin_info(f0r_plugin_info_t* info) {
    Plugin& p = plugin();
    info->name = p.name.empty() ? "reelfx" : p.name.c_str();
    info->author = "reelfx developers";
    info->plugin_type = F0R_PLUGIN_TYPE_FILTER;
    info->color_model = F0R_COLOR_MODEL_BGRA8888;
    info->frei0r_version = FREI0R_MAJOR_VERSION;
    info->major_version = 0;
    info->minor_version = 1;
    info->num_params = static_cast<int>(p.parameters.size()) + 1;
    info->explanation = p.explanation.c_str();
}

void f0r_get_param_info(f0r_param_info_t* info, int index) {
    const Plugin& p = plugin();
    if (index >= 0 && index < static_cast<int>(p.parameters.size())) {
        const Parameter& param = p.parameters[index];
        info->name = param.info.name.c_str();
        info->type = param.info.kind == kParameterKindChoice   ? F0R_PARAM_STRING
                     : param.info.kind == kParameterKindColour ? F0R_PARAM_COLOR
                                                               : F0R_PARAM_DOUBLE;
        info->explanation = param.explanation.c_str();
        return;
    }
    info->name = "Progress";
    info->type = F0R_PARAM_DOUBLE;
    info->explanation = "position within the effect's time span, 0..1";
}

f0r_instance_t f0r_construct(unsigned int width, unsigned int height) {
    Plugin& p = plugin();
    if (!p.module || width == 0 || height == 0 || width > 1u << 15 || height > 1u << 15) {
        return nullptr;
    }
    auto* inst = new Frei0rInstance;
    inst->width = static_cast<int32_t>(width);
    inst->height = static_cast<int32_t>(height);
    inst->effect = std::make_unique<reelfx::Instance>(*p.module, reelfxFrei0rEffect, inst->width,
                                                      inst->height);
    return inst;
}

void f0r_destruct(f0r_instance_t instance) { delete self(instance); }

void f0r_set_param_value(f0r_instance_t instance, f0r_param_t value, int index) {
    Frei0rInstance* inst = self(instance);
    const Plugin& p = plugin();
    if (!inst || !value) return;
    if (index == static_cast<int>(p.parameters.size())) {
        inst->progress = clamp01(*static_cast<f0r_param_double*>(value));
        return;
    }
    if (index < 0 || index > static_cast<int>(p.parameters.size())) return;
    const reelfx::ParameterInfo& info = p.parameters[index].info;
    switch (info.kind) {
        case kParameterKindChoice: {
            const char* text = *static_cast<f0r_param_string*>(value);
            if (!text) return;
            for (size_t i = 0; i < info.choices.size(); ++i) {
                if (info.choices[i] == text || std::to_string(i) == text) {
                    inst->effect->setParameter(index, static_cast<double>(i));
                }
            }
            break;
        }
        case kParameterKindColour: {
            const auto* c = static_cast<f0r_param_color*>(value);
            const auto initial = static_cast<uint32_t>(info.initial);
            const uint32_t word = (initial & 0xFF000000u) | uint32_t{toByte(c->r)} << 16 |
                                  uint32_t{toByte(c->g)} << 8 | toByte(c->b);
            inst->effect->setParameter(index, static_cast<double>(word));
            break;
        }
        default: {
            const double v = clamp01(*static_cast<f0r_param_double*>(value));
            double mapped = info.minimum + v * (info.maximum - info.minimum);
            if (info.kind == kParameterKindWhole) mapped = std::floor(mapped);
            inst->effect->setParameter(index, mapped);
            break;
        }
    }
}

void f0r_get_param_value(f0r_instance_t instance, f0r_param_t value, int index) {
    Frei0rInstance* inst = self(instance);
    Plugin& p = plugin();
    if (!inst || !value) return;
    if (index == static_cast<int>(p.parameters.size())) {
        *static_cast<f0r_param_double*>(value) = inst->progress;
        return;
    }
    if (index < 0 || index > static_cast<int>(p.parameters.size())) return;
    Parameter& param = p.parameters[index];
    const double current = inst->effect->parameter(index);
    switch (param.info.kind) {
        case kParameterKindChoice: {
            const auto i = static_cast<size_t>(current);
            param.choiceText = i < param.info.choices.size() ? param.info.choices[i] : "";
            *static_cast<f0r_param_string*>(value) = param.choiceText.data();
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
            const double range = param.info.maximum - param.info.minimum;
            *static_cast<f0r_param_double*>(value) =
                range > 0 ? (current - param.info.minimum) / range : 0.0;
            break;
        }
    }
}

void f0r_update(f0r_instance_t instance, double /*time*/, const uint32_t* inframe,
                uint32_t* outframe) {
    Frei0rInstance* inst = self(instance);
    if (!inst || !outframe) return;
    reelfx::RenderOptions o;
    o.progress = inst->progress;
    o.format = kFourccArgb;
    inst->effect->render(inframe, outframe, inst->width, inst->height, inst->width * 4, o);
}

}  // extern "C"
