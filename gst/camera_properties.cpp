#include "gst/camera_properties.h"

#include <gst/gst.h>

#include <cctype>
#include <limits>

namespace gstcam {

namespace {

using camhost::Property;
using camhost::ValueKind;

/// "Volume of the microphone (0 to 100 %)", and how a text is written.
std::string blurb_of(const Property& property) {
    std::string inside = property.range;
    if (*property.unit != '\0') {
        inside += (inside.empty() ? "" : " ") + std::string(property.unit);
    }
    if (property.kind == ValueKind::kSize || property.kind == ValueKind::kPoint) {
        inside = std::string(camhost::kind_name(property.kind)) + ", " + inside;
    }
    if (property.kind == ValueKind::kRegister) {
        inside += "; reads back as address:data";
    }
    if (property.kind == ValueKind::kTrigger) {
        inside = "write true";
    }
    if (!property.settable) {
        inside += "; asks the camera, 0 without one";
    }
    return std::string(property.about) + (inside.empty() ? "" : " (" + inside + ")");
}

bool readable(const Property& property) {
    // What the camera does not tell reads as what was last set.
    return property.kind != ValueKind::kTrigger;
}

GParamSpec* spec_of(const Property& property) {
    const std::string name = object_property_name(property);
    const std::string blurb = blurb_of(property);
    const auto flags = static_cast<GParamFlags>((readable(property) ? G_PARAM_READABLE : 0) |
                                                (property.settable ? G_PARAM_WRITABLE : 0) |
                                                GST_PARAM_MUTABLE_PLAYING | G_PARAM_STATIC_NICK);
    switch (property.kind) {
        case ValueKind::kInteger:
            // Ranges are not checked here: what is done with a value is the camera's to say.
            return g_param_spec_int(name.c_str(), nullptr, blurb.c_str(),
                                    std::numeric_limits<gint>::min(),
                                    std::numeric_limits<gint>::max(), 0, flags);
        case ValueKind::kSwitch:
        case ValueKind::kTrigger:
            return g_param_spec_boolean(name.c_str(), nullptr, blurb.c_str(), FALSE, flags);
        default:
            return g_param_spec_string(name.c_str(), nullptr, blurb.c_str(), nullptr, flags);
    }
}

}  // namespace

std::string object_property_name(const Property& property) {
    const bool letter = std::isalpha(static_cast<unsigned char>(property.name[0])) != 0;
    return letter ? property.name : std::string("camera-") + property.name;
}

void install_camera_properties(GObjectClass* object_class, guint first) {
    for (const Property& property : camhost::property_catalog()) {
        g_object_class_install_property(object_class, first++, spec_of(property));
    }
}

const Property* camera_property(guint first, guint id) {
    const auto rows = camhost::property_catalog();
    return id >= first && id - first < rows.size() ? &rows[id - first] : nullptr;
}

CAM_PROP_VALUE from_gvalue(const Property& property, const GValue* value) {
    CAM_PROP_VALUE result{};
    switch (property.kind) {
        case ValueKind::kInteger:
            result.value = g_value_get_int(value);
            return result;
        case ValueKind::kSwitch:
        case ValueKind::kTrigger:
            result.value = g_value_get_boolean(value) != FALSE ? 1 : 0;
            return result;
        default:
            break;
    }
    const gchar* text = g_value_get_string(value);
    return camhost::parse_value(property, text != nullptr ? text : "");
}

void to_gvalue(const Property& property, const CAM_PROP_VALUE& from, GValue* value) {
    switch (property.kind) {
        case ValueKind::kInteger:
            g_value_set_int(value, from.value);
            return;
        case ValueKind::kSwitch:
        case ValueKind::kTrigger:
            g_value_set_boolean(value, from.value != 0 ? TRUE : FALSE);
            return;
        case ValueKind::kRegister: {
            Property pair = property;
            pair.kind = ValueKind::kRegisterValue;
            g_value_set_string(value, camhost::format_value(pair, from).c_str());
            return;
        }
        default:
            g_value_set_string(value, camhost::format_value(property, from).c_str());
    }
}

}  // namespace gstcam
