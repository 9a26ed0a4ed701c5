// libgstreelfx.so: every reelfx effect as a GStreamer element,
// reelfx-<effect> (reelfx-aged-film, reelfx-multi-prism-lens, ...).
//
// Each element is a GstVideoFilter rendering in -> out (the effects read
// beyond a pixel's own position, so never in place). BGRA is, byte for byte
// in memory, the module's ARGB word and VUYA its AYUV word: frames are handed
// over as they are, with GStreamer's strides. Each parameter is a
// controllable property in the parameter's own units; `progress` (0..1) is
// the position within the effect, or with `auto-progress` the buffer's
// position within the segment (0 on the first frame, 1 on the last).
//
// One module instance per element, made when the caps fix the frame size.
// Elements run in parallel; calls for effects that share module-wide state
// (and catalogue queries) are serialised by one lock.
#include <dlfcn.h>
#include <gst/gst.h>
#include <gst/video/gstvideofilter.h>
#include <gst/video/video.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "adapters/gstreamer/describe.h"
#include "host/host.h"

namespace {

using reelfx::gst::Element;
using reelfx::gst::Property;

struct Plugin {
    std::unique_ptr<reelfx::Module> module;
    std::deque<Element> elements;
    std::mutex sharedState;  // effects with module-wide state, catalogue queries
};

// Lives until the process ends: elements may be finalised during exit.
Plugin* plugin = nullptr;

// What one element holds besides the GObject: touched under the object lock
// by property calls and by the streaming thread.
struct State {
    std::optional<reelfx::Instance> instance;
    std::vector<double> values;  // by parameter, in the declared units
    double progress = 0.5;
    bool autoProgress = false;
    GstVideoFormat format = GST_VIDEO_FORMAT_UNKNOWN;
    int width = 0;
    int height = 0;
    double displayAspect = 0;
    reelfx::Picture scratch;  // the source copied to the target's stride
};

struct GstReelfx {
    GstVideoFilter parent;
    State* state;
};

struct GstReelfxClass {
    GstVideoFilterClass parent;
    const Element* element;
};

GstVideoFilterClass* parentClass = nullptr;

const Element& elementOf(gpointer object) {
    return *reinterpret_cast<GstReelfxClass*>(G_OBJECT_GET_CLASS(object))->element;
}
State& stateOf(gpointer object) { return *reinterpret_cast<GstReelfx*>(object)->state; }

// The lock taken around module calls of effects that share state.
std::unique_lock<std::mutex> serialise(const Element& e) {
    return e.sharesState ? std::unique_lock<std::mutex>(plugin->sharedState)
                         : std::unique_lock<std::mutex>();
}

enum : guint { kProgress = 1, kAutoProgress = 2, kFirstParameter = 3 };

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
    const Element& e = elementOf(object);
    State& s = stateOf(object);
    GST_OBJECT_LOCK(object);
    if (id == kProgress) {
        s.progress = g_value_get_double(value);
    } else if (id == kAutoProgress) {
        s.autoProgress = g_value_get_boolean(value);
    } else if (id >= kFirstParameter && id - kFirstParameter < e.properties.size()) {
        const size_t j = id - kFirstParameter;
        switch (e.properties[j].kind) {
            case kParameterKindChoice: s.values[j] = g_value_get_enum(value); break;
            case kParameterKindColour: s.values[j] = g_value_get_uint(value); break;
            case kParameterKindWhole: s.values[j] = g_value_get_int(value); break;
            default: s.values[j] = g_value_get_double(value); break;
        }
    } else {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
    GST_OBJECT_UNLOCK(object);
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
    const Element& e = elementOf(object);
    State& s = stateOf(object);
    GST_OBJECT_LOCK(object);
    if (id == kProgress) {
        g_value_set_double(value, s.progress);
    } else if (id == kAutoProgress) {
        g_value_set_boolean(value, s.autoProgress);
    } else if (id >= kFirstParameter && id - kFirstParameter < e.properties.size()) {
        const size_t j = id - kFirstParameter;
        const double v = s.values[j];
        switch (e.properties[j].kind) {
            case kParameterKindChoice: g_value_set_enum(value, static_cast<gint>(v)); break;
            case kParameterKindColour: g_value_set_uint(value, static_cast<guint>(v)); break;
            case kParameterKindWhole: g_value_set_int(value, static_cast<gint>(v)); break;
            default: g_value_set_double(value, v); break;
        }
    } else {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
    GST_OBJECT_UNLOCK(object);
}

void finalize(GObject* object) {
    State* s = reinterpret_cast<GstReelfx*>(object)->state;
    if (s && s->instance) {
        const auto hold = serialise(elementOf(object));
        s->instance.reset();
    }
    delete s;
    G_OBJECT_CLASS(parentClass)->finalize(object);
}

void instanceInit(GTypeInstance* object, gpointer klass) {
    const Element& e = *reinterpret_cast<GstReelfxClass*>(klass)->element;
    auto* s = new State;
    for (const Property& p : e.properties) s->values.push_back(p.initial);
    reinterpret_cast<GstReelfx*>(object)->state = s;
}

// A new frame size makes a new instance; the pixel format alone does not.
gboolean setInfo(GstVideoFilter* filter, GstCaps*, GstVideoInfo* in, GstCaps*, GstVideoInfo* out) {
    const Element& e = elementOf(filter);
    State& s = stateOf(filter);
    if (GST_VIDEO_INFO_FORMAT(in) != GST_VIDEO_INFO_FORMAT(out) ||
        GST_VIDEO_INFO_WIDTH(in) != GST_VIDEO_INFO_WIDTH(out) ||
        GST_VIDEO_INFO_HEIGHT(in) != GST_VIDEO_INFO_HEIGHT(out)) {
        return FALSE;
    }
    const int w = GST_VIDEO_INFO_WIDTH(out), h = GST_VIDEO_INFO_HEIGHT(out);
    try {
        const auto hold = serialise(e);
        if (!s.instance || w != s.width || h != s.height) {
            s.instance.reset();
            s.instance.emplace(*plugin->module, e.effect, w, h);
        }
    } catch (const std::exception& x) {
        GST_ELEMENT_ERROR(filter, LIBRARY, INIT, ("%s", x.what()), (nullptr));
        return FALSE;
    }
    s.width = w;
    s.height = h;
    s.format = GST_VIDEO_INFO_FORMAT(out);
    const int parN = GST_VIDEO_INFO_PAR_N(out), parD = GST_VIDEO_INFO_PAR_D(out);
    s.displayAspect = parN > 0 && parD > 0 && parN != parD
                          ? static_cast<double>(w) * parN / (static_cast<double>(h) * parD)
                          : 0.0;
    return TRUE;
}

// The buffer's place in the segment: 0 on the first frame, 1 on the last
// (the last starts one frame duration before the segment's end). Nothing
// when the segment's length is not known.
std::optional<double> positionInSegment(GstBaseTransform* trans, GstBuffer* buffer) {
    const GstSegment& seg = trans->segment;
    const GstClockTime pts = GST_BUFFER_PTS(buffer);
    if (seg.format != GST_FORMAT_TIME || !GST_CLOCK_TIME_IS_VALID(pts)) return std::nullopt;
    gint64 end = GST_CLOCK_TIME_IS_VALID(seg.stop) ? static_cast<gint64>(seg.stop) : -1;
    gint64 duration = -1;
    if (end < 0 && gst_pad_peer_query_duration(trans->sinkpad, GST_FORMAT_TIME, &duration) &&
        duration > 0) {
        end = duration;
    }
    if (end <= static_cast<gint64>(seg.start)) return std::nullopt;
    GstClockTime frame = GST_BUFFER_DURATION(buffer);
    if (!GST_CLOCK_TIME_IS_VALID(frame)) frame = 0;
    const double span =
        static_cast<double>(end - static_cast<gint64>(seg.start)) - static_cast<double>(frame);
    if (span <= 0) return 0.0;
    const double at =
        static_cast<double>(static_cast<gint64>(pts) - static_cast<gint64>(seg.start));
    return std::clamp(at / span, 0.0, 1.0);
}

// Keyframed (controlled) properties take their value for this buffer.
void beforeTransform(GstBaseTransform* trans, GstBuffer* buffer) {
    const GstClockTime time =
        gst_segment_to_stream_time(&trans->segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
    if (GST_CLOCK_TIME_IS_VALID(time)) gst_object_sync_values(GST_OBJECT(trans), time);
}

GstFlowReturn transformFrame(GstVideoFilter* filter, GstVideoFrame* in, GstVideoFrame* out) {
    const Element& e = elementOf(filter);
    State& s = stateOf(filter);
    if (!s.instance) return GST_FLOW_NOT_NEGOTIATED;
    const std::optional<double> position =
        positionInSegment(GST_BASE_TRANSFORM(filter), in->buffer);
    reelfx::RenderOptions o;
    o.format = s.format == GST_VIDEO_FORMAT_VUYA ? kFourccAyuv : kFourccArgb;
    o.displayAspect = s.displayAspect;
    GST_OBJECT_LOCK(filter);
    o.progress = s.autoProgress && position ? *position : s.progress;
    for (size_t j = 0; j < e.properties.size(); ++j) {
        s.instance->setParameter(e.properties[j].slot, s.values[j]);
    }
    GST_OBJECT_UNLOCK(filter);

    const int stride = GST_VIDEO_FRAME_PLANE_STRIDE(out, 0);
    const int inStride = GST_VIDEO_FRAME_PLANE_STRIDE(in, 0);
    const auto* source = static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(in, 0));
    auto* target = static_cast<uint32_t*>(GST_VIDEO_FRAME_PLANE_DATA(out, 0));
    try {
        // The module takes both frames' geometry from the target.
        if (inStride != stride) {
            if (s.scratch.stride != stride || s.scratch.height != s.height) {
                s.scratch = reelfx::Picture(s.width, s.height, stride);
            }
            for (int y = 0; y < s.height; ++y) {
                std::memcpy(s.scratch.row(y), source + static_cast<size_t>(y) * inStride,
                            static_cast<size_t>(s.width) * 4);
            }
            source = reinterpret_cast<const uint8_t*>(s.scratch.data());
        }
        const auto hold = serialise(e);
        s.instance->render(reinterpret_cast<const uint32_t*>(source), target, s.width, s.height,
                           stride, o);
    } catch (const std::exception& x) {
        GST_ELEMENT_ERROR(filter, LIBRARY, FAILED, ("%s", x.what()), (nullptr));
        return GST_FLOW_ERROR;
    }
    return GST_FLOW_OK;
}

GParamSpec* parameterSpec(const Property& p) {
    const auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                GST_PARAM_CONTROLLABLE);
    const char* name = p.name.c_str();
    const char* nick = p.label.c_str();
    const char* blurb = p.blurb.c_str();
    switch (p.kind) {
        case kParameterKindChoice:
            return g_param_spec_enum(name, nick, blurb, p.enumType, static_cast<gint>(p.initial),
                                     flags);
        case kParameterKindColour:
            return g_param_spec_uint(name, nick, blurb, 0, G_MAXUINT, static_cast<guint>(p.initial),
                                     flags);
        case kParameterKindWhole:
            return g_param_spec_int(name, nick, blurb, static_cast<gint>(p.minimum),
                                    static_cast<gint>(p.maximum), static_cast<gint>(p.initial),
                                    flags);
        default:
            return g_param_spec_double(name, nick, blurb, p.minimum, p.maximum, p.initial, flags);
    }
}

void classInit(gpointer klass, gpointer data) {
    const auto* e = static_cast<const Element*>(data);
    parentClass = static_cast<GstVideoFilterClass*>(g_type_class_peek_parent(klass));
    reinterpret_cast<GstReelfxClass*>(klass)->element = e;
    auto* object = G_OBJECT_CLASS(klass);
    object->set_property = setProperty;
    object->get_property = getProperty;
    object->finalize = finalize;
    const auto flags = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                GST_PARAM_CONTROLLABLE);
    g_object_class_install_property(
        object, kProgress,
        g_param_spec_double("progress", "Progress", "Position within the effect, 0 to 1", 0, 1, 0.5,
                            flags));
    g_object_class_install_property(
        object, kAutoProgress,
        g_param_spec_boolean("auto-progress", "Progress from position",
                             "Progress runs from 0 on the segment's first frame to 1 on its last "
                             "(the progress property is used where the length is not known)",
                             FALSE,
                             static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS)));
    for (size_t j = 0; j < e->properties.size(); ++j) {
        g_object_class_install_property(object, kFirstParameter + static_cast<guint>(j),
                                        parameterSpec(e->properties[j]));
    }

    auto* element = GST_ELEMENT_CLASS(klass);
    gst_element_class_set_metadata(element, ("reelfx " + e->name).c_str(), "Filter/Effect/Video",
                                   e->description.c_str(), "reelfx developers");
    const std::string side = "(int)[ 1, " + std::to_string(reelfx::gst::kMaxSide) + " ]";
    GstCaps* caps =
        gst_caps_from_string(("video/x-raw, format=(string){ BGRA, VUYA }, width=" + side +
                              ", height=" + side + ", framerate=(fraction)[ 0/1, 2147483647/1 ]")
                                 .c_str());
    gst_element_class_add_pad_template(
        element, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, caps));
    gst_element_class_add_pad_template(
        element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, caps));
    gst_caps_unref(caps);

    GST_BASE_TRANSFORM_CLASS(klass)->before_transform = beforeTransform;
    auto* filter = GST_VIDEO_FILTER_CLASS(klass);
    filter->set_info = setInfo;
    filter->transform_frame = transformFrame;
}

// The module is looked for where every host looks (Module::find), with the
// folder that holds it beside this file as the caller's own: the installed
// module folder beside GStreamer's plug-in folder (lib/<multiarch>/gstreamer-1.0
// -> lib/<multiarch>/reelfx), this folder, or one folder up (the build
// tree's gstreamer-1.0 folder).
std::string modulePath() {
    Dl_info info{};
    std::string folder;
    if (dladdr(reinterpret_cast<void*>(&modulePath), &info) && info.dli_fname) {
        const std::string self = info.dli_fname;
        const std::string dir = self.substr(0, self.rfind('/') + 1);
        for (const char* candidate : {"", "../reelfx/", "../"}) {
            if (access((dir + candidate + "libreelfx.so").c_str(), R_OK) == 0) {
                folder = dir + candidate;
                break;
            }
        }
    }
    return reelfx::Module::find({}, folder);
}

gboolean pluginInit(GstPlugin* gstPlugin) {
    try {
        if (!plugin) {
            auto p = std::make_unique<Plugin>();
            p->module = std::make_unique<reelfx::Module>(modulePath());
            const std::lock_guard<std::mutex> hold(p->sharedState);
            p->elements = reelfx::gst::describeAll(*p->module, p->module->catalogue());
            plugin = p.release();
        }
    } catch (const std::exception& x) {
        GST_WARNING("reelfx: %s", x.what());
        return FALSE;
    }
    for (const Element& e : plugin->elements) {
        GType type = g_type_from_name(e.typeName.c_str());
        if (!type) {
            GTypeInfo info{};
            info.class_size = sizeof(GstReelfxClass);
            info.class_init = classInit;
            info.class_data = &e;
            info.instance_size = sizeof(GstReelfx);
            info.instance_init = instanceInit;
            type = g_type_register_static(GST_TYPE_VIDEO_FILTER, e.typeName.c_str(), &info,
                                          static_cast<GTypeFlags>(0));
        }
        if (!gst_element_register(gstPlugin, e.elementName.c_str(), GST_RANK_NONE, type)) {
            return FALSE;
        }
    }
    return TRUE;
}

}  // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, reelfx,
                  "Every reelfx effect as a video filter", pluginInit, REELFX_VERSION,
                  "Proprietary", "reelfx", "https://example.org/reelfx")
