#include "virtcam/model/uvc_controls.h"

#include <algorithm>
#include <utility>

#include "virtcam/model/usb.h"

namespace virtcam::model {
namespace {

constexpr uint8_t kCt = usb::kEntityCameraTerminal;
constexpr uint8_t kPu = usb::kEntityProcessingUnit;

// id, name, entity, selector, offset, width, signed, min, max, resolution, default
constexpr std::array<ControlField, static_cast<size_t>(Control::kCount)> kFields{{
    {Control::kPan, "pan", kCt, usb::kCtPanTiltAbsolute, 0, 4, true, -36000, 36000, 3600, 0},
    {Control::kTilt, "tilt", kCt, usb::kCtPanTiltAbsolute, 4, 4, true, -36000, 36000, 3600, 0},
    {Control::kFocus, "focus", kCt, usb::kCtFocusAbsolute, 0, 2, false, 0, 255, 1, 128},
    {Control::kZoom, "zoom", kCt, usb::kCtZoomAbsolute, 0, 2, false, 0, 10, 1, 0},
    {Control::kBacklight, "backlight", kPu, usb::kPuBacklightCompensation, 0, 2, false, 0, 4, 1, 0},
    {Control::kBrightness, "brightness", kPu, usb::kPuBrightness, 0, 2, true, -128, 127, 1, 0},
    {Control::kContrast, "contrast", kPu, usb::kPuContrast, 0, 2, false, 0, 255, 1, 128},
    {Control::kGain, "gain", kPu, usb::kPuGain, 0, 2, false, 0, 255, 1, 0},
    {Control::kPowerLine, "power_line", kPu, usb::kPuPowerLineFrequency, 0, 1, false, 0, 2, 1, 0},
    {Control::kHue, "hue", kPu, usb::kPuHue, 0, 2, true, -18000, 18000, 100, 0},
    {Control::kSaturation, "saturation", kPu, usb::kPuSaturation, 0, 2, false, 0, 255, 1, 128},
    {Control::kSharpness, "sharpness", kPu, usb::kPuSharpness, 0, 2, false, 0, 15, 1, 5},
    {Control::kGamma, "gamma", kPu, usb::kPuGamma, 0, 2, false, 40, 500, 1, 100},
    {Control::kWhiteBalance, "white_balance", kPu, usb::kPuWhiteBalance, 0, 2, false, 2800, 6500,
     10, 4600},
    {Control::kWhiteBalanceAuto, "white_balance_auto", kPu, usb::kPuWhiteBalanceAuto, 0, 1, false,
     0, 1, 1, 0},
}};

bool belongs(const ControlField& field, uint8_t entity, uint8_t selector) {
    return field.entity == entity && field.selector == selector;
}

int32_t decode(const ControlField& field, ByteView block) {
    const uint32_t raw = load_le(block, field.offset, field.width);
    if (field.is_signed && field.width == 2) {
        return static_cast<int16_t>(raw);
    }
    return static_cast<int32_t>(raw);
}

int32_t range_value(const ControlField& field, uint8_t request, int32_t current) {
    switch (request) {
        case usb::kGetMin:
            return field.min;
        case usb::kGetMax:
            return field.max;
        case usb::kGetRes:
            return field.resolution;
        case usb::kGetDef:
            return field.initial;
        default:
            return current;
    }
}

bool answers_block(uint8_t request) {
    return (request >= usb::kGetCur && request <= usb::kGetRes) || request == usb::kGetDef;
}

}  // namespace

std::span<const ControlField> control_fields() {
    return kFields;
}

uint16_t control_length(uint8_t entity, uint8_t selector) {
    uint16_t length = 0;
    for (const ControlField& field : kFields) {
        if (belongs(field, entity, selector)) {
            length = static_cast<uint16_t>(length + field.width);
        }
    }
    return length;
}

UvcControls::UvcControls() {
    for (const ControlField& field : kFields) {
        values_[static_cast<size_t>(field.id)] = field.initial;
    }
}

bool UvcControls::automatic(uint8_t entity, uint8_t selector) const {
    return entity == kPu && selector == usb::kPuWhiteBalance &&
           value(Control::kWhiteBalanceAuto) != 0;
}

bool UvcControls::set(uint8_t entity, uint8_t selector, ByteView block) {
    const uint16_t length = control_length(entity, selector);
    if (length == 0 || block.size() != length || automatic(entity, selector)) {
        return false;
    }
    for (const ControlField& field : kFields) {
        if (belongs(field, entity, selector)) {
            values_[static_cast<size_t>(field.id)] =
                std::clamp(decode(field, block), field.min, field.max);
        }
    }
    return true;
}

std::optional<Bytes> UvcControls::get(uint8_t request, uint8_t entity, uint8_t selector) const {
    const uint16_t block_length = control_length(entity, selector);
    if (block_length == 0) {
        return std::nullopt;
    }
    Bytes answer;
    if (request == usb::kGetLen) {
        append_le(answer, 2, block_length);
    } else if (request == usb::kGetInfo) {
        answer.push_back(static_cast<uint8_t>(
            usb::kInfoGet | usb::kInfoSet |
            (automatic(entity, selector) ? usb::kInfoDisabledByAutomatic : 0)));
    } else if (answers_block(request)) {
        answer.resize(block_length);
        for (const ControlField& field : kFields) {
            if (belongs(field, entity, selector)) {
                store_le(answer, field.offset, field.width,
                         static_cast<uint32_t>(range_value(field, request, value(field.id))));
            }
        }
    }
    return answer.empty() ? std::nullopt : std::optional<Bytes>{std::move(answer)};
}

}  // namespace virtcam::model
