#include "virtcam/model/describe.h"

#include <cstdarg>
#include <cstdio>

#include "virtcam/model/bytes.h"
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

std::string isp_effect(ByteView block) {
    switch (block[1]) {
        case 0x0B:
            return format("image effect %u", block[2]);
        case 0x0C:
            return format("3A control 0x%02X%02X", block[2], block[3]);
        case 0x0D:
            return format("colour effect %u", block[2]);
        default:
            return "unknown";
    }
}

std::string isp_meaning(ByteView block) {
    switch (block[0]) {
        case 0x02:
            return format("frame rate %u/s", load_u16(block, 1));
        case 0x04:
            return "key frame";
        case 0x08:
            return format("bit rate %u kbit/s", load_u16(block, 2));
        case 0x0A:
            return block[1] == 0x03 ? format("write sensor register 0x%04X = 0x%04X",
                                             load_u16(block, 2), load_u16(block, 4))
                                    : format("read sensor register 0x%04X", load_u16(block, 2));
        case 0x0B:
            return "read firmware version";
        case 0x0D:
            return block[1] == 0 ? "rates to main stream" : "rates to second stream";
        case 0x0E:
            return format("wide dynamic range %u", block[1]);
        case 0x12:
            return "read ambient light";
        case 0xFF:
            return isp_effect(block);
        default:
            return "unknown";
    }
}

std::string preview_meaning(ByteView block) {
    switch (block[2]) {
        case 0:
            return format("stream combination %u", block[1]);
        case 5:
            return "face tracking on";
        case 6:
            return "face tracking off";
        case 9:
            return format("crop origin %u,%u", load_u16(block, 3), load_u16(block, 5));
        case 10:
            return "crop reset";
        default:
            return format("preview parameters mode %u", block[2]);
    }
}

std::string mmp_meaning(ByteView block) {
    switch (block[0]) {
        case 0x01:
            return preview_meaning(block);
        case 0x02:
            return block[1] == 0x02 ? format("set video option 0x%08X", load_u32(block, 2))
                                    : "get video option";
        case 0x03:
            return "trigger JPEG";
        case 0x04:
            return format("NV12 mode %u", block[1]);
        case 0x07:
            return "flash write protection off";
        case 0x12:
            return "video self test";
        case 0x13:
            return block[1] == 9
                       ? format("gray crop origin %u,%u", load_u16(block, 2), load_u16(block, 4))
                       : "gray crop reset";
        case 0x20:
            return format("preview mode %u", block[1]);
        case 0x2D:
            return block[1] == 0 ? "NV12 size 640x480" : "NV12 size 864x486";
        default:
            return "unknown";
    }
}

std::string audio_codec_meaning(ByteView block) {
    const unsigned address = static_cast<unsigned>(block[2]) << 8 | block[3];
    switch (block[1]) {
        case 0x00:
            return "audio I2C preamble";
        case 0x01:
            return format("write audio I2C register 0x%04X = 0x%02X", address, block[4]);
        case 0x02:
            return format("read audio I2C register 0x%04X", address);
        default:
            return "unknown";
    }
}

std::string aux_meaning(ByteView block) {
    switch (block[0]) {
        case 0x01:
            return block[1] == 0 ? "firmware download begin" : "firmware burn";
        case 0x0E:
            return block[2] != 0 ? "light on" : "light off";
        case 0x28:
            return format("local view size %s", block[1] == 5    ? "640x360"
                                                : block[1] == 11 ? "800x450"
                                                                 : "640x480");
        case 0xFF:
            return audio_codec_meaning(block);
        default:
            return "unknown";
    }
}

std::string command_text(const char* group, ByteView block, const std::string& meaning) {
    return format("%s 0x%02X/0x%02X ", group, block[0], block[1]) + meaning;
}

std::string extension_text(const Setup& setup, ByteView data) {
    const auto selector = static_cast<uint8_t>(setup.value >> 8);
    const bool whole = data.size() == usb::extension_length(selector) && !data.empty();
    if (setup.request == usb::kSetCur && whole) {
        switch (selector) {
            case usb::kIspCommand:
                return command_text("ISP", data, isp_meaning(data));
            case usb::kFirmwareData:
                return "firmware data" + hex_bytes(data);
            case usb::kAuxCommand:
                return command_text("AUX", data, aux_meaning(data));
            case usb::kMmpCommand:
                return command_text("MMP", data, mmp_meaning(data));
            default:
                break;
        }
    }
    if (setup.request == usb::kGetCur && usb::is_extension_result(selector)) {
        const char* group = selector == usb::kIspResult   ? "ISP"
                            : selector == usb::kAuxResult ? "AUX"
                                                          : "MMP";
        return std::string(group) + " result" + hex_bytes(data);
    }
    return format("XU selector %u ", selector) + request_name(setup.request) + hex_bytes(data);
}

std::string probe_text(const Setup& setup, ByteView data) {
    const auto selector = static_cast<uint8_t>(setup.value >> 8);
    const char* name = selector == 1 ? "PROBE" : selector == 2 ? "COMMIT" : "VS control";
    std::string text = std::string("UVC ") + name + " " + request_name(setup.request);
    if (data.size() >= 26) {
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
    if (selector == 2 && data.size() == 2) {
        return text + format(" volume %d", static_cast<int16_t>(load_u16(data, 0)));
    }
    if (selector == 1 && data.size() == 1) {
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
            return probe_text(setup, data);
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
    const uint32_t size = setup.value | uint32_t{setup.index} << 16;
    if (usb::is_burn(setup.request) && !setup.device_to_host()) {
        return format("VENDOR %u burn %u bytes", setup.request, size);
    }
    switch (setup.request) {
        case usb::kVendorFacePositions:
            return format("VENDOR 1 face positions: %u", data.empty() ? 0U : data[0]);
        case usb::kVendorFaceParameters:
            return "VENDOR 2 face parameters" + hex_bytes(data);
        case usb::kVendorChecksum:
            return "VENDOR 7 checksum" + hex_bytes(data);
        case usb::kVendorAnnounce:
            return format("VENDOR 130 announce %u bytes", size);
        default:
            return format("VENDOR %u", setup.request) + hex_bytes(data);
    }
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
