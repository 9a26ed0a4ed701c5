// One frei0r plug-in file: the f0r_* entry points of one effect, forwarded
// to the shared adapter library with the effect index this file is built for.
#include "adapters/frei0r/adapter.h"

namespace fx = reelfx::frei0r;

namespace {
constexpr int kEffect = REELFX_FREI0R_EFFECT;
}

extern "C" {

int f0r_init(void) { return fx::init(kEffect); }
void f0r_deinit(void) { fx::deinit(kEffect); }
void f0r_get_plugin_info(f0r_plugin_info_t* info) { fx::pluginInfo(kEffect, info); }
void f0r_get_param_info(f0r_param_info_t* info, int index) { fx::paramInfo(kEffect, info, index); }
f0r_instance_t f0r_construct(unsigned int width, unsigned int height) {
    return fx::construct(kEffect, width, height);
}
void f0r_destruct(f0r_instance_t instance) { fx::destruct(instance); }
void f0r_set_param_value(f0r_instance_t instance, f0r_param_t value, int index) {
    fx::setParam(instance, value, index);
}
void f0r_get_param_value(f0r_instance_t instance, f0r_param_t value, int index) {
    fx::getParam(instance, value, index);
}
void f0r_update(f0r_instance_t instance, double time, const uint32_t* inframe, uint32_t* outframe) {
    fx::update(instance, time, inframe, outframe);
}

}  // extern "C"
