// The camera's properties as properties of a GObject: one for each row of camhost's catalogue.
#pragma once

#include <glib-object.h>

#include <string>

#include "host/properties/property_catalog.h"

namespace gstcam {

/// Installs a property for each row, with the numbers from `first` on. Called by class_init.
void install_camera_properties(GObjectClass* object_class, guint first);

/// The row of property number `id`; null when it is none of them.
const camhost::Property* camera_property(guint first, guint id);

/// The name under which the row is installed.
std::string object_property_name(const camhost::Property& property);

/// What the GObject's value asks for. Throws camhost::Failure (kUsage) when a text is not written
/// as the property wants it.
CAM_PROP_VALUE from_gvalue(const camhost::Property& property, const GValue* value);
void to_gvalue(const camhost::Property& property, const CAM_PROP_VALUE& from, GValue* value);

}  // namespace gstcam
