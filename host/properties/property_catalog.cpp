#include "host/properties/property_catalog.h"

#include <algorithm>
#include <array>
#include <limits>

#include "host/base/exit_code.h"
#include "host/base/nearest_name.h"
#include "host/base/text.h"
#include "host/properties/combination.h"

namespace camhost {

namespace {

using K = ValueKind;
using A = Assurance;

// clang-format off
constexpr std::array kCatalog{
    //       name               number                                kind           set    get    true means        range                       unit  about
    Property{"bitrate",         CAM_PROPERTY_BITRATE,                 K::kInteger,   true,  true,  A::kReported,     "up to 17000000",           "bit/s", "Bit rate of the main H.264 stream"},
    Property{"fps",             CAM_PROPERTY_FRAMERATE,               K::kInteger,   true,  true,  A::kReported,     "camera's: 1 to 30",        "frames/s", "Pictures per second of the main H.264 stream"},
    Property{"key-frame",       CAM_PROPERTY_NEWGOP,                  K::kTrigger,   true,  false, A::kReported,     "",                         "", "Asks for a key frame in both H.264 streams"},
    Property{"size",            CAM_PROPERTY_DIMENSION,               K::kSize,      true,  true,  A::kRestart,      "160x120 to 1920x1080",     "pixels", "Picture size of the main H.264 stream and of JPEG"},
    Property{"mic-volume",      CAM_PROPERTY_MICVOLUME,               K::kInteger,   true,  true,  A::kReported,     "0 to 100",                 "%", "Volume of the microphone"},
    Property{"sample-rate",     CAM_PROPERTY_SAMPLERATE,              K::kInteger,   true,  true,  A::kRestart,      "16000 or 24000",           "Hz", "Sampling rate of the sound"},
    Property{"zoom",            CAM_PROPERTY_ZOOM,                    K::kInteger,   true,  true,  A::kReported,     "0 to 10",                  "steps", "Magnification"},
    Property{"pan",             CAM_PROPERTY_PAN,                     K::kInteger,   true,  true,  A::kReported,     "-10 to 10",                "degrees", "Direction of the view, positive to the right"},
    Property{"tilt",            CAM_PROPERTY_TILT,                    K::kInteger,   true,  true,  A::kReported,     "-10 to 10",                "degrees", "Direction of the view, positive upwards"},
    Property{"auto-hz",         CAM_PROPERTY_AUTO_HZ,                 K::kInteger,   true,  false, A::kReported,     "1 (60 Hz) or 2 (50 Hz)",   "", "Mains frequency that the lighting flickers with"},
    Property{"auto-focus",      CAM_PROPERTY_AUTO_FOCUS,              K::kSwitch,    true,  false, A::kNoEffect,     "",                         "", "Automatic focus"},
    Property{"mirror",          CAM_PROPERTY_MIRROR,                  K::kSwitch,    true,  false, A::kSent,         "",                         "", "Mirrors the encoded pictures"},
    Property{"flip",            CAM_PROPERTY_FLIP,                    K::kSwitch,    true,  false, A::kSent,         "",                         "", "Turns the encoded pictures upside down"},
    Property{"face-detection",  CAM_PROPERTY_FD_CONTROL,              K::kSwitch,    true,  false, A::kSent,         "",                         "", "Looks for faces"},
    Property{"signal-type",     CAM_PROPERTY_SIGNAL_TYPE,             K::kSignalType,true,  true,  A::kRestart,      "0 to 8",                   "", "Combination of streams, on televisions that select by signal type"},
    Property{"i2c-audio-read",  CAM_PROPERTY_I2C_READ_AUDIO,          K::kRegister,  true,  false, A::kAnswersFalse, "16-bit address",           "", "Reads a register of the audio converter"},
    Property{"i2c-audio-write", CAM_PROPERTY_I2C_WRITE_AUDIO,         K::kRegisterValue, true, false, A::kSent,      "16-bit address:8-bit data", "", "Writes a register of the audio converter"},
    Property{"crop",            CAM_PROPERTY_CROP_VGA,                K::kPoint,     true,  false, A::kSent,         "origin within 1280x960",   "pixels", "Origin of the window that encoded and local pictures show"},
    Property{"trigger-jpeg",    CAM_PROPERTY_TRIGGER_JPEG,            K::kTrigger,   true,  false, A::kSent,         "",                         "", "Asks for one JPEG picture"},
    Property{"video-mode",      CAM_PROPERTY_VIDEO_MODE,              K::kVideoMode, true,  false, A::kRestart,      "0 to 2",                   "", "Combination of streams, on televisions that select by video mode"},
    Property{"nv12-mode",       CAM_PROPERTY_NV12_MODE_CONTROL,       K::kInteger,   true,  false, A::kSent,         "0 (off) to 255",           "", "Adds NV12 pictures to the combination"},
    Property{"brightness",      CAM_PROPERTY_BRIGHTNESS,              K::kInteger,   true,  false, A::kReported,     "camera's: -128 to 127",    "", "Brightness"},
    Property{"contrast",        CAM_PROPERTY_CONTRAST,                K::kInteger,   true,  false, A::kReported,     "camera's: 0 to 255",       "", "Contrast"},
    Property{"saturation",      CAM_PROPERTY_SATURATION,              K::kInteger,   true,  false, A::kReported,     "camera's: 0 to 255",       "", "Saturation"},
    Property{"sharpness",       CAM_PROPERTY_SHARPNESS,               K::kInteger,   true,  false, A::kReported,     "camera's: 0 to 15",        "", "Sharpness"},
    Property{"hue",             CAM_PROPERTY_HUE,                     K::kInteger,   true,  false, A::kReported,     "camera's: -18000 to 18000","0.01 deg", "Hue"},
    Property{"gamma",           CAM_PROPERTY_GAMMA,                   K::kInteger,   true,  false, A::kReported,     "camera's: 40 to 500",      "1/100", "Gamma"},
    Property{"backlight",       CAM_PROPERTY_BACKLIGHT_CONTROL,       K::kInteger,   true,  false, A::kReported,     "camera's: 0 to 4",         "", "Compensation of backlight"},
    Property{"awb-temperature", CAM_PROPERTY_AWB_TEMPERATURE,         K::kInteger,   true,  false, A::kReported,     "camera's: 2800 to 6500",   "K", "Colour temperature, while the white balance is manual"},
    Property{"manual-awb",      CAM_PROPERTY_MANUAL_AWB_CONTROL,      K::kInteger,   true,  false, A::kReported,     "0 manual, 1 automatic",    "", "White balance"},
    Property{"image-effect",    CAM_PROPERTY_IMAGE_EFFECT,            K::kInteger,   true,  false, A::kSent,         "0 to 255",                 "", "Image effect, by its code"},
    Property{"3a",              CAM_PROPERTY_3A_CONTROL,              K::kInteger,   true,  false, A::kSent,         "0 to 65535",               "", "Exposure, focus and white balance, by their code"},
    Property{"wdr",             CAM_PROPERTY_WDR_CONTROL,             K::kInteger,   true,  false, A::kSent,         "0 to 255",                 "", "Wide dynamic range, by its code"},
    Property{"color-effect",    CAM_PROPERTY_COLOR_EFFECT,            K::kInteger,   true,  false, A::kSent,         "0 to 255",                 "", "Colour effect, by its code"},
    Property{"local-mirror",    CAM_PROPERTY_LOCAL_MIRROR,            K::kSwitch,    true,  false, A::kSent,         "",                         "", "Mirrors YUY2, NV12 and NV21 pictures"},
    Property{"lux",             CAM_PROPERTY_LUX,                     K::kInteger,   false, true,  A::kReported,     "0 to 65535",               "", "Ambient light"},
    Property{"debug-level",     CAM_PROPERTY_DEBUG_LEVEL,             K::kInteger,   true,  true,  A::kLocal,        "1 to 5",                   "", "Level of the plug-in's log"},
    Property{"gray-mirror",     CAM_PROPERTY_MIRROR_GRAY,             K::kSwitch,    true,  false, A::kSent,         "",                         "", "Mirrors gray pictures"},
    Property{"gray-crop",       CAM_PROPERTY_CROP_GRAY,               K::kPoint,     true,  false, A::kSent,         "origin within 1280x960",   "pixels", "Origin of the window that gray pictures show"},
    Property{"face-tracking",   CAM_PROPERTY_FACE_TRACKING,           K::kSwitch,    true,  true,  A::kSent,         "",                         "", "Follows a face"},
    Property{"preview-mode",    CAM_PROPERTY_PREVIEW_MODE,            K::kInteger,   true,  false, A::kSent,         "0 to 255",                 "", "Preview mode, by its code"},
    Property{"video-test",      CAM_PROPERTY_VIDEO_TEST,              K::kInteger,   false, true,  A::kReported,     "1 passed, 0 failed",       "", "The camera's test of its picture", true},
    Property{"audio-test",      CAM_PROPERTY_AUDIO_TEST,              K::kInteger,   false, true,  A::kReported,     "1 passed, 0 failed",       "", "The camera's test of its sound"},
    Property{"connection-test", CAM_PROPERTY_CONNECTION_TEST,         K::kInteger,   false, true,  A::kReported,     "1 passed, 0 failed",       "", "Test of the connection"},
    Property{"local-size",      CAM_PROPERTY_LOCAL_RESOLUTION,        K::kSize,      true,  false, A::kSent,         "640x480, 640x360, 800x450","pixels", "Size of YUY2 and NV21 pictures"},
    Property{"nv12-wide",       CAM_PROPERTY_CHANGE_NV12_RESOLUTION,  K::kSwitch,    true,  false, A::kSent,         "off 640x480, on 864x486",  "", "Size of NV12 pictures"},
};
// clang-format on

Property property_without_name(CAM_PROPERTY number) {
    return {.name = "(by number)",
            .number = number,
            .kind = K::kInteger,
            .settable = true,
            .gettable = true,
            .assurance = A::kSent,
            .range = "",
            .unit = "",
            .about = ""};
}

bool parse_switch(std::string_view text, int32_t* value) {
    const std::string word = lower(text);
    if (word == "on" || word == "yes" || word == "true") {
        *value = 1;
        return true;
    }
    if (word == "off" || word == "no" || word == "false") {
        *value = 0;
        return true;
    }
    return parse_int(word, value);
}

/// A number that fits one 16-bit half, signed or unsigned.
bool parse_half(std::string_view text, int16_t* half) {
    int32_t number = 0;
    if (!parse_int(text, &number) || number < std::numeric_limits<int16_t>::min() ||
        number > std::numeric_limits<uint16_t>::max()) {
        return false;
    }
    *half = static_cast<int16_t>(number);
    return true;
}

bool parse_halves(std::string_view text, char separator, CAM_PROP_VALUE* value) {
    const auto parts = split(text, separator);
    return parts.size() == 2 && parse_half(parts[0], &value->res[0]) &&
           parse_half(parts[1], &value->res[1]);
}

/// False when the text is not written as the kind wants it. Throws Failure for the name of a
/// combination that there is not.
bool read_value(ValueKind kind, std::string_view text, CAM_PROP_VALUE* value) {
    switch (kind) {
        case K::kInteger:
            return parse_int(text, &value->value);
        case K::kSwitch:
            return parse_switch(text, &value->value);
        case K::kSize:
            return parse_size(text, &value->res[0], &value->res[1]);
        case K::kPoint:
            return lower(text) == "off" || parse_halves(text, ',', value);
        case K::kTrigger:
            return text.empty();
        case K::kSignalType:
            value->value = parse_combination(Selector::kSignalType, text);
            return true;
        case K::kVideoMode:
            value->value = parse_combination(Selector::kVideoMode, text);
            return true;
        case K::kRegister:
            return parse_half(text, &value->res[0]);
        case K::kRegisterValue:
            return parse_halves(text, ':', value);
    }
    return false;
}

/// What a text that read_value() refuses should have been.
const char* expectation(ValueKind kind) {
    switch (kind) {
        case K::kInteger:
            return "a whole number such as 12 or 0x0C";
        case K::kSwitch:
            return "on or off";
        case K::kSize:
            return "a size such as 640x480";
        case K::kPoint:
            return "a point such as 100,50, or off";
        case K::kTrigger:
            return "no value: it is an action";
        case K::kRegister:
            return "a 16-bit address such as 0x1234";
        case K::kRegisterValue:
            return "address:data such as 0x1234:0x56";
        case K::kSignalType:
        case K::kVideoMode:
            break;  // parse_combination() says it itself, with all names.
    }
    return "";
}

}  // namespace

std::span<const Property> property_catalog() {
    return kCatalog;
}

std::vector<std::string> property_names() {
    std::vector<std::string> names;
    names.reserve(kCatalog.size());
    for (const Property& property : kCatalog) {
        names.emplace_back(property.name);
    }
    return names;
}

Property find_property(std::string_view name) {
    const std::string word = lower(name);
    for (const Property& property : kCatalog) {
        if (word == property.name) {
            return property;
        }
    }
    int32_t number = 0;
    if (!parse_int(word, &number)) {
        throw Failure(ExitCode::kUsage, "there is no property '" + word + "'" +
                                            suggestion(word, property_names()) +
                                            " (camhost list shows all)");
    }
    return find_property(static_cast<CAM_PROPERTY>(number));
}

Property find_property(CAM_PROPERTY number) {
    const auto found = std::find_if(kCatalog.begin(), kCatalog.end(),
                                    [&](const Property& each) { return each.number == number; });
    return found == kCatalog.end() ? property_without_name(number) : *found;
}

const char* kind_name(ValueKind kind) {
    switch (kind) {
        case K::kInteger:
            return "number";
        case K::kSwitch:
            return "on/off";
        case K::kSize:
            return "WxH";
        case K::kPoint:
            return "X,Y or off";
        case K::kTrigger:
            return "trigger";
        case K::kSignalType:
        case K::kVideoMode:
            return "name or number";
        case K::kRegister:
            return "address";
        case K::kRegisterValue:
            return "address:data";
    }
    return "";
}

std::vector<std::string> value_words(const Property& property) {
    switch (property.kind) {
        case K::kSwitch:
            return {"on", "off"};
        case K::kPoint:
            return {"off"};
        case K::kSignalType:
            return combination_names(Selector::kSignalType);
        case K::kVideoMode:
            return combination_names(Selector::kVideoMode);
        default:
            return {};
    }
}

CAM_PROP_VALUE parse_value(const Property& property, std::string_view text) {
    CAM_PROP_VALUE value{};
    if (!read_value(property.kind, text, &value)) {
        throw Failure(ExitCode::kUsage,
                      format("%s='%s': expected %s", property.name, std::string(text).c_str(),
                             expectation(property.kind)));
    }
    return value;
}

std::string format_value(const Property& property, const CAM_PROP_VALUE& value) {
    switch (property.kind) {
        case K::kSwitch:
            return value.value == 0   ? "off"
                   : value.value == 1 ? "on"
                                      : format("on (%d)", value.value);
        case K::kSize:
            return format("%dx%d", value.res[0], value.res[1]);
        case K::kPoint:
            return value.value == 0 ? "off" : format("%d,%d", value.res[0], value.res[1]);
        case K::kTrigger:
            return "";
        case K::kSignalType:
            return combination_name(Selector::kSignalType, value.value);
        case K::kVideoMode:
            return combination_name(Selector::kVideoMode, value.value);
        case K::kRegister:
            return format("0x%04X", static_cast<uint16_t>(value.res[0]));
        case K::kRegisterValue:
            return format("0x%04X:0x%02X", static_cast<uint16_t>(value.res[0]),
                          static_cast<uint16_t>(value.res[1]) & 0xFFU);
        case K::kInteger:
            break;
    }
    return format("%d", value.value);
}

Assignment parse_assignment(std::string_view text) {
    const size_t equals = text.find('=');
    const Property property = find_property(text.substr(0, equals));
    if (!property.settable) {
        throw Failure(ExitCode::kUsage, std::string(property.name) + " can only be read");
    }
    if (equals == std::string_view::npos && property.kind != K::kTrigger) {
        throw Failure(ExitCode::kUsage, format("%s needs a value: %s=%s", property.name,
                                               property.name, kind_name(property.kind)));
    }
    const auto value = equals == std::string_view::npos ? "" : text.substr(equals + 1);
    return {property, parse_value(property, value)};
}

}  // namespace camhost
