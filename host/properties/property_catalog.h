// Every property that the plug-in handles, as users name it and as the interface numbers it.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Src/CameraInterface.h"

namespace camhost {

/// How the value of a property is written.
enum class ValueKind {
    kInteger,        ///< 1500000, -3, 0x0B
    kSwitch,         ///< on, off
    kSize,           ///< 640x480
    kPoint,          ///< 100,50; "off" is the reset (both halves 0)
    kTrigger,        ///< no value
    kSignalType,     ///< name or number of a combination
    kVideoMode,      ///< likewise
    kRegister,       ///< address to read: 0x1234
    kRegisterValue,  ///< address:data, 0x1234:0x56
};

/// What a true answer of SetProperty means for the property.
enum class Assurance {
    kReported,     ///< the request reached the camera and was not refused
    kSent,         ///< a request was made; even a refused one counts as true
    kRestart,      ///< remembered, and applied by a restart of recording
    kNoEffect,     ///< nothing: the plug-in accepts the property and does nothing
    kLocal,        ///< a setting of the plug-in itself
    kAnswersFalse  ///< false even when all went well
};

struct Property {
    const char* name;
    CAM_PROPERTY number;
    ValueKind kind;
    bool settable;
    bool gettable;
    Assurance assurance;
    const char* range;  ///< for people; "camera's" where the camera decides, with what the virtual
                        ///< camera takes
    const char* unit;
    const char* about;  ///< what it is, for people who look for it
    bool slow = false;  ///< reading takes seconds, so `list` leaves it out
};

std::span<const Property> property_catalog();
std::vector<std::string> property_names();

/// The property of that name. A plain number gives a row that passes an integer through, so that
/// every number of the interface can be tried. Throws Failure (kUsage) that names the nearest.
Property find_property(std::string_view name);
/// The property of that number; likewise a row that passes an integer through when there is none.
Property find_property(CAM_PROPERTY number);

const char* kind_name(ValueKind kind);

/// The values that have a name, such as on and off; none for plain numbers.
std::vector<std::string> value_words(const Property& property);

/// Reads a value as the property's kind writes it. Throws Failure (kUsage) that says what was
/// expected. Ranges are not checked: what the plug-in makes of them is its answer to show.
CAM_PROP_VALUE parse_value(const Property& property, std::string_view text);
std::string format_value(const Property& property, const CAM_PROP_VALUE& value);

struct Assignment {
    Property property;
    CAM_PROP_VALUE value;
};

/// Reads PROPERTY=VALUE, or PROPERTY alone for a trigger. Throws Failure (kUsage).
Assignment parse_assignment(std::string_view text);

}  // namespace camhost
