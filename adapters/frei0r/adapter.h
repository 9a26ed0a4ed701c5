// The frei0r adapter's shared part, libreelfx_frei0r.so: every plug-in file
// (one per effect, adapters/frei0r/plugin.cpp) forwards its f0r_* calls here
// with its effect index. Keeping this in one library is what gives all plug-ins
// in a process one module and one set of per-effect descriptions, however
// many of them a host loads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

extern "C" {
#include <frei0r.h>
}

#define REELFX_FREI0R_API __attribute__((visibility("default")))

namespace reelfx::frei0r {

REELFX_FREI0R_API int init(int effect);
REELFX_FREI0R_API void deinit(int effect);
REELFX_FREI0R_API void pluginInfo(int effect, f0r_plugin_info_t* info);
REELFX_FREI0R_API void paramInfo(int effect, f0r_param_info_t* info, int index);
REELFX_FREI0R_API f0r_instance_t construct(int effect, unsigned width, unsigned height);
REELFX_FREI0R_API void destruct(f0r_instance_t instance);
REELFX_FREI0R_API void setParam(f0r_instance_t instance, f0r_param_t value, int index);
REELFX_FREI0R_API void getParam(f0r_instance_t instance, f0r_param_t value, int index);
REELFX_FREI0R_API void update(f0r_instance_t instance, double time, const uint32_t* in,
                              uint32_t* out);

// How a frei0r value in 0..1 maps onto a parameter's declared bounds, shared
// with the Kdenlive description generator so both say the same thing:
// declared = minimum + value * (maximum - minimum), whole numbers truncated.
inline double fromFrei0r(double value, double minimum, double maximum) {
    return minimum + value * (maximum - minimum);
}

}  // namespace reelfx::frei0r

// The most frame renders that have been inside the module at the same time
// since the library was loaded, over all plug-ins and instances: at least 2
// once a host has had instances rendering concurrently (a check that no lock
// around every call has come back).
extern "C" REELFX_FREI0R_API int reelfx_frei0r_most_renders_at_once(void);
