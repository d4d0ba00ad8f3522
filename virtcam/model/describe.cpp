#include "virtcam/model/describe.h"

#include <cstdarg>
#include <cstdio>

#include "virtcam/model/bytes.h"
#include "virtcam/model/commands.h"
#include "virtcam/model/probe_commit.h"
#include "virtcam/model/setup.h"
#include "virtcam/model/usb.h"
#include "virtcam/model/uvc_controls.h"

namespace virtcam::model {
namespace {

[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text, sizeof text, pattern, arguments);
    va_end(arguments);
    return text;
}

std::string hex_bytes(ByteView data) {
    constexpr size_t kMost = 32;
    std::string text;
    for (size_t i = 0; i < data.size() && i < kMost; ++i) {
        text += format(" %02X", data[i]);
    }
    return text + (data.size() > kMost ? " ..." : "");
}

std::string request_name(uint8_t request) {
    switch (request) {
        case usb::kSetCur:
            return "SET_CUR";
        case usb::kGetCur:
            return "GET_CUR";
        case usb::kGetMin:
            return "GET_MIN";
        case usb::kGetMax:
            return "GET_MAX";
        case usb::kGetRes:
            return "GET_RES";
        case usb::kGetLen:
            return "GET_LEN";
        case usb::kGetInfo:
            return "GET_INFO";
        case usb::kGetDef:
            return "GET_DEF";
        default:
            return format("request 0x%02X", request);
    }
}

std::string command_text(const usb::ExtensionBlock& form, ByteView block) {
    const Command* command = find_command(form.selector, block);
    const std::string words = command != nullptr ? in_words(*command, block) : "unknown";
    if (form.selector == usb::kFirmwareData) {
        return words + hex_bytes(block);
    }
    return format("%s 0x%02X/0x%02X ", form.group, block[0], block[1]) + words;
}

std::string extension_text(const Setup& setup, ByteView data) {
    const auto selector = static_cast<uint8_t>(setup.value >> 8);
    const usb::ExtensionBlock* form = usb::extension_block(selector);
    if (form != nullptr) {
        if (setup.request == usb::kSetCur && !form->result && data.size() == form->length) {
            return command_text(*form, data);
        }
        if (setup.request == usb::kGetCur && form->result) {
            return std::string(form->group) + " result" + hex_bytes(data);
        }
    }
    return format("XU selector %u ", selector) + request_name(setup.request) + hex_bytes(data);
}

/// Controls of an interface, of none of its entities.
std::string interface_text(const Setup& setup, ByteView data) {
    const auto selector = static_cast<uint8_t>(setup.value >> 8);
    const bool streaming = (setup.index & 0xFF) == usb::kInterfaceVideoStreaming;
    const std::string request = " " + request_name(setup.request);
    if (!streaming) {
        const char* name = selector == usb::kVcRequestErrorCode ? "error code" : "control";
        return std::string("UVC VC ") + name + request + hex_bytes(data);
    }
    const char* name = selector == usb::kVsProbe             ? "PROBE"
                       : selector == usb::kVsCommit          ? "COMMIT"
                       : selector == usb::kVsStreamErrorCode ? "VS error code"
                                                             : "VS control";
    std::string text = std::string("UVC ") + name + request;
    if (data.size() >= kShortProbeLength) {
        return text +
               format(" format %u frame %u interval %u", data[2], data[3], load_u32(data, 4));
    }
    return text + hex_bytes(data);
}

std::string control_values(uint8_t entity, uint8_t selector, ByteView data) {
    std::string text;
    for (const ControlField& field : control_fields()) {
        const bool whole = data.size() >= size_t{field.offset} + field.width;
        if (field.entity != entity || field.selector != selector || !whole) {
            continue;
        }
        const uint32_t raw = load_le(data, field.offset, field.width);
        const int value =
            field.is_signed && field.width == 2 ? static_cast<int16_t>(raw) : static_cast<int>(raw);
        text += format(" %s %d", std::string(field.name).c_str(), value);
    }
    return text;
}

std::string control_name(uint8_t entity, uint8_t selector) {
    std::string name;
    for (const ControlField& field : control_fields()) {
        if (field.entity == entity && field.selector == selector) {
            name += (name.empty() ? "" : "/") + std::string(field.name);
        }
    }
    return name.empty() ? format("selector %u", selector) : name;
}

std::string unit_text(const Setup& setup, ByteView data) {
    const auto entity = static_cast<uint8_t>(setup.index >> 8);
    const auto selector = static_cast<uint8_t>(setup.value >> 8);
    std::string text = entity == usb::kEntityCameraTerminal ? "UVC CT " : "UVC PU ";
    const bool has_values = data.size() == control_length(entity, selector) && !data.empty() &&
                            setup.request != usb::kGetInfo && setup.request != usb::kGetLen;
    if (has_values) {
        return text + request_name(setup.request) + control_values(entity, selector, data);
    }
    return text + request_name(setup.request) + " " + control_name(entity, selector) +
           hex_bytes(data);
}

std::string feature_text(const Setup& setup, ByteView data) {
    const auto selector = static_cast<uint8_t>(setup.value >> 8);
    std::string text = "UAC FU " + request_name(setup.request);
    if (selector == usb::kFuVolume && data.size() == 2) {
        return text + format(" volume %d", static_cast<int16_t>(load_u16(data, 0)));
    }
    if (selector == usb::kFuMute && data.size() == 1) {
        return text + format(" mute %u", data[0]);
    }
    return text + format(" selector %u", selector) + hex_bytes(data);
}

std::string class_text(const Setup& setup, ByteView data) {
    const uint8_t recipient = setup.request_type & usb::kRecipientMask;
    if (recipient == usb::kRecipientEndpoint) {
        std::string text = "UAC EP " + request_name(setup.request);
        return data.size() == 3 ? text + format(" rate %u Hz", load_le(data, 0, 3))
                                : text + hex_bytes(data);
    }
    switch (setup.index >> 8) {
        case 0:
            return interface_text(setup, data);
        case usb::kEntityCameraTerminal:
        case usb::kEntityProcessingUnit:
            return unit_text(setup, data);
        case usb::kEntityFeatureUnit:
            return feature_text(setup, data);
        case usb::kEntityExtensionUnit:
            return extension_text(setup, data);
        default:
            return format("class request to entity %u ", setup.index >> 8) +
                   request_name(setup.request) + hex_bytes(data);
    }
}

std::string vendor_text(const Setup& setup, ByteView data) {
    const std::string number = format("VENDOR %u", setup.request);
    const VendorRequest* request = find_request(setup);
    if (request == nullptr) {
        return number + hex_bytes(data);
    }
    const bool brings_data = !request->device_to_host && request->length != 0;
    return number + " " + in_words(*request, setup, data) + (brings_data ? hex_bytes(data) : "");
}

std::string standard_text(const Setup& setup) {
    switch (setup.request) {
        case usb::kClearFeature:
            return format("CLEAR_FEATURE %u on 0x%02X", setup.value, setup.index);
        case usb::kGetDescriptor:
            return format("GET_DESCRIPTOR type %u index %u", setup.value >> 8, setup.value & 0xFF);
        case usb::kSetConfiguration:
            return format("SET_CONFIGURATION %u", setup.value);
        case usb::kSetInterface:
            return format("SET_INTERFACE %u alternate %u", setup.index, setup.value);
        default:
            return format("standard request %u value 0x%04X index 0x%04X", setup.request,
                          setup.value, setup.index);
    }
}

}  // namespace

std::string describe(const Setup& setup, std::span<const uint8_t> data) {
    switch (setup.request_type & usb::kTypeMask) {
        case usb::kTypeStandard:
            return standard_text(setup);
        case usb::kTypeClass:
            return class_text(setup, data);
        case usb::kTypeVendor:
            return vendor_text(setup, data);
        default:
            return "reserved request type" + hex_bytes(data);
    }
}

}  // namespace virtcam::model
