#include "gst/aitcamsrc.h"

#include <functional>
#include <string>

#include "gst/camera_properties.h"
#include "gst/camera_source.h"
#include "gst/debug_category.h"
#include "host/base/exit_code.h"

GST_DEBUG_CATEGORY(aitcamsrc_debug);

struct _AitcamSrc {
    GstElement parent;
    gstcam::CameraSource* source;
};

G_DEFINE_FINAL_TYPE_WITH_CODE(AitcamSrc, aitcam_src, GST_TYPE_ELEMENT,
                              GST_DEBUG_CATEGORY_INIT(aitcamsrc_debug, "aitcamsrc", 0,
                                                      "television camera source"))
GST_ELEMENT_REGISTER_DEFINE(aitcamsrc, "aitcamsrc", GST_RANK_NONE, AITCAM_TYPE_SRC)

namespace {

using camhost::Property;
using camhost::ValueKind;
using gstcam::CameraSource;
using Settings = CameraSource::Settings;

enum : guint {
    kPlugin = 1,
    kDivertLog,
    kCombination,
    kInitTimeout,
    kQueueTime,
    kJpegInterval,
    kStats,
    kFirstCameraProperty,
};

constexpr gint kByThePads = -1;

CameraSource& source_of(gpointer object) {
    return *AITCAM_SRC(object)->source;
}

/// "auto", and every name that one of the two kinds of television knows.
GType combination_type() {
    static const GType type = [] {
        static std::vector<GEnumValue> values{
            {kByThePads, "By the pads that are requested", "auto"}};
        const auto known = [](const char* name) {
            return std::any_of(values.begin(), values.end(), [name](const GEnumValue& each) {
                return std::string(each.value_nick) == name;
            });
        };
        for (const auto selector :
             {camhost::Selector::kSignalType, camhost::Selector::kVideoMode}) {
            for (const camhost::Combination& each : camhost::combinations(selector)) {
                if (!known(each.name)) {
                    values.push_back(
                        {static_cast<gint>(values.size()) - 1, each.constant, each.name});
                }
            }
        }
        values.push_back({0, nullptr, nullptr});
        return g_enum_register_static("AitcamSrcCombination", values.data());
    }();
    return type;
}

const GEnumValue* combination_value(const std::string& nick) {
    auto* values = static_cast<GEnumClass*>(g_type_class_peek_static(combination_type()));
    return g_enum_get_value_by_nick(values, nick.c_str());
}

std::string text_of(const GValue* value) {
    const gchar* text = g_value_get_string(value);
    return text != nullptr ? text : "";
}

std::string combination_of(const GValue* value) {
    const gint number = g_value_get_enum(value);
    auto* values = static_cast<GEnumClass*>(g_type_class_peek_static(combination_type()));
    const GEnumValue* found = g_enum_get_value(values, number);
    return number == kByThePads || found == nullptr ? "" : found->value_nick;
}

bool selects(const Property& property) {
    return property.kind == ValueKind::kSignalType || property.kind == ValueKind::kVideoMode;
}

void set_camera_property(GstElement* element, const Property& property, const GValue* value) {
    CameraSource& source = source_of(element);
    try {
        const camhost::Assignment assignment{property, gstcam::from_gvalue(property, value)};
        if (selects(property)) {
            // One and the same wish, whichever property names it.
            source.change_settings([&](Settings& each) { each.combination = text_of(value); });
        } else if (property.kind == ValueKind::kTrigger) {
            if (assignment.value.value != 0) {
                source.trigger(property.number);
            }
        } else {
            source.set(assignment);
        }
    } catch (const camhost::Failure& failure) {
        GST_ELEMENT_WARNING(element, RESOURCE, SETTINGS, ("%s", failure.what()), (nullptr));
    }
}

void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
    CameraSource& source = source_of(object);
    switch (id) {
        case kPlugin:
            source.change_settings([&](Settings& each) { each.plugin = text_of(value); });
            break;
        case kDivertLog:
            source.change_settings([&](Settings& each) { each.log = text_of(value); });
            break;
        case kCombination:
            source.change_settings(
                [&](Settings& each) { each.combination = combination_of(value); });
            break;
        case kInitTimeout:
            source.change_settings(
                [&](Settings& each) { each.init_timeout = g_value_get_uint(value); });
            break;
        case kQueueTime:
            source.change_settings(
                [&](Settings& each) { each.queue_time = g_value_get_uint(value); });
            break;
        case kJpegInterval:
            source.change_settings(
                [&](Settings& each) { each.jpeg_interval = g_value_get_uint(value); });
            break;
        default:
            if (const Property* row = gstcam::camera_property(kFirstCameraProperty, id)) {
                set_camera_property(GST_ELEMENT(object), *row, value);
                break;
            }
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
            return;
    }
}

void get_camera_property(CameraSource& source, const Property& property, GValue* value) {
    const auto found = source.get(property);
    if (found) {
        gstcam::to_gvalue(property, *found, value);
    } else if (selects(property) && !source.settings().combination.empty()) {
        g_value_set_string(value, source.settings().combination.c_str());
    }
}

void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
    CameraSource& source = source_of(object);
    const Settings settings = source.settings();
    switch (id) {
        case kPlugin:
            g_value_set_string(value, settings.plugin.empty() ? nullptr : settings.plugin.c_str());
            break;
        case kDivertLog:
            g_value_set_string(value, settings.log.empty() ? nullptr : settings.log.c_str());
            break;
        case kCombination: {
            const GEnumValue* found = combination_value(settings.combination);
            g_value_set_enum(value, found != nullptr ? found->value : kByThePads);
            break;
        }
        case kInitTimeout:
            g_value_set_uint(value, settings.init_timeout);
            break;
        case kQueueTime:
            g_value_set_uint(value, settings.queue_time);
            break;
        case kJpegInterval:
            g_value_set_uint(value, settings.jpeg_interval);
            break;
        case kStats:
            g_value_take_boxed(value, source.stats());
            break;
        default:
            if (const Property* row = gstcam::camera_property(kFirstCameraProperty, id)) {
                get_camera_property(source, *row, value);
                break;
            }
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
}

GstStateChangeReturn change_state(GstElement* element, GstStateChange transition) {
    CameraSource& source = source_of(element);
    switch (transition) {
        case GST_STATE_CHANGE_NULL_TO_READY:
            source.bring_up();
            break;
        case GST_STATE_CHANGE_READY_TO_PAUSED:
            source.activate_pads(true);
            break;
        case GST_STATE_CHANGE_PAUSED_TO_PLAYING:
            source.play();
            break;
        case GST_STATE_CHANGE_PLAYING_TO_PAUSED:
            source.pause();
            break;
        case GST_STATE_CHANGE_PAUSED_TO_READY:
            source.activate_pads(false);
            break;
        default:
            break;
    }
    const GstStateChangeReturn result =
        GST_ELEMENT_CLASS(aitcam_src_parent_class)->change_state(element, transition);
    if (transition == GST_STATE_CHANGE_READY_TO_NULL) {
        source.put_away();
    }
    const bool live = transition == GST_STATE_CHANGE_READY_TO_PAUSED ||
                      transition == GST_STATE_CHANGE_PLAYING_TO_PAUSED;
    return live && result == GST_STATE_CHANGE_SUCCESS ? GST_STATE_CHANGE_NO_PREROLL : result;
}

GstPad* request_new_pad(GstElement* element, GstPadTemplate* pad_template, const gchar*,
                        const GstCaps*) {
    return source_of(element).request_pad(pad_template);
}

void release_pad(GstElement* element, GstPad* pad) {
    source_of(element).release_pad(pad);
}

gboolean send_event(GstElement* element, GstEvent* event) {
    if (GST_EVENT_TYPE(event) == GST_EVENT_EOS) {
        gst_event_unref(event);
        source_of(element).end_streams();
        return TRUE;
    }
    return GST_ELEMENT_CLASS(aitcam_src_parent_class)->send_event(element, event);
}

void finalize(GObject* object) {
    delete AITCAM_SRC(object)->source;
    G_OBJECT_CLASS(aitcam_src_parent_class)->finalize(object);
}

void trigger_jpeg(AitcamSrc* self) {
    self->source->trigger(CAM_PROPERTY_TRIGGER_JPEG);
}

void request_key_frame(AitcamSrc* self) {
    self->source->trigger(CAM_PROPERTY_NEWGOP);
}

void add_signal(GObjectClass* object_class, const char* name, void (*action)(AitcamSrc*)) {
    g_signal_new_class_handler(name, G_TYPE_FROM_CLASS(object_class),
                               static_cast<GSignalFlags>(G_SIGNAL_RUN_LAST | G_SIGNAL_ACTION),
                               reinterpret_cast<GCallback>(action), nullptr, nullptr, nullptr,
                               G_TYPE_NONE, 0);
}

void install_number(GObjectClass* object_class, guint id, const char* name, const char* blurb,
                    guint least, guint most, guint usual) {
    g_object_class_install_property(
        object_class, id,
        g_param_spec_uint(name, nullptr, blurb, least, most, usual,
                          static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                   GST_PARAM_MUTABLE_PLAYING)));
}

void install_text(GObjectClass* object_class, guint id, const char* name, const char* blurb) {
    g_object_class_install_property(
        object_class, id,
        g_param_spec_string(name, nullptr, blurb, nullptr,
                            static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                     GST_PARAM_MUTABLE_READY)));
}

void install_properties(GObjectClass* object_class) {
    constexpr guint kDay = 86'400'000;
    install_text(object_class, kPlugin, "plugin",
                 "File of the camera plug-in (by default what the environment variable "
                 "AITCAM_PLUGIN names, or the one beside this element)");
    install_text(object_class, kDivertLog, "divert-log",
                 "File for what the camera plug-in logs. It logs to standard output, and so "
                 "standard output of the whole process goes there while the camera is up");
    g_object_class_install_property(
        object_class, kCombination,
        g_param_spec_enum("combination", nullptr,
                          "Streams that the camera sends; which names there are is up to the "
                          "television",
                          combination_type(), kByThePads,
                          static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                   GST_PARAM_MUTABLE_PLAYING)));
    install_number(object_class, kInitTimeout, "init-timeout",
                   "How long to wait for the camera to become usable (s)", 1, 3600, 60);
    install_number(object_class, kQueueTime, "queue-time",
                   "Length of the queue of each pad; what comes while it is full is dropped (ms)",
                   10, 60'000, 1000);
    install_number(object_class, kJpegInterval, "jpeg-interval",
                   "Time between requests for a JPEG picture, where the television asks for each; "
                   "0: only the signal trigger-jpeg asks (ms)",
                   0, kDay, 1000);
    g_object_class_install_property(
        object_class, kStats,
        g_param_spec_boxed("stats", nullptr,
                           "Figures: for each pad records taken, dropped, discontinuities, queued, "
                           "pushed, bytes, unlinked, unknown; clock-jumps and recordings-ended",
                           GST_TYPE_STRUCTURE,
                           static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));
    gstcam::install_camera_properties(object_class, kFirstCameraProperty);
}

void add_pad_templates(GstElementClass* element_class) {
    for (const gstcam::StreamRow& row : gstcam::kStreamTable) {
        GstCaps* caps = gst_caps_from_string(row.caps);
        gst_element_class_add_pad_template(
            element_class, gst_pad_template_new(row.pad, GST_PAD_SRC, GST_PAD_REQUEST, caps));
        gst_caps_unref(caps);
    }
}

}  // namespace

static void aitcam_src_class_init(AitcamSrcClass* klass) {
    auto* object_class = G_OBJECT_CLASS(klass);
    object_class->set_property = set_property;
    object_class->get_property = get_property;
    object_class->finalize = finalize;
    install_properties(object_class);
    add_signal(object_class, "trigger-jpeg", trigger_jpeg);
    add_signal(object_class, "request-key-frame", request_key_frame);

    auto* element_class = GST_ELEMENT_CLASS(klass);
    element_class->change_state = change_state;
    element_class->request_new_pad = request_new_pad;
    element_class->release_pad = release_pad;
    element_class->send_event = send_event;
    add_pad_templates(element_class);
    gst_element_class_set_static_metadata(
        element_class, "Television camera source", "Source/Audio/Video",
        "Streams of a television's camera through its plug-in", "the camera plug-in's developers");
    gst_type_mark_as_plugin_api(combination_type(), static_cast<GstPluginAPIFlags>(0));
}

static void aitcam_src_init(AitcamSrc* self) {
    GST_OBJECT_FLAG_SET(self, GST_ELEMENT_FLAG_SOURCE);
    self->source = new gstcam::CameraSource(GST_ELEMENT(self));
}
