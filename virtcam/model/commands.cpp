#include "virtcam/model/commands.h"

#include <algorithm>
#include <cstdio>

#include "virtcam/model/command_effects.h"
#include "virtcam/model/command_status.h"
#include "virtcam/model/stream_plan.h"
#include "virtcam/model/usb.h"

namespace virtcam::model {
namespace {

constexpr uint8_t kIsp = usb::kIspCommand;
constexpr uint8_t kAux = usb::kAuxCommand;
constexpr uint8_t kMmp = usb::kMmpCommand;
constexpr uint8_t kData = usb::kFirmwareData;

constexpr uint16_t kAny = Head::kAny;

template <typename... Values>
constexpr Head head(Values... values) {
    return {sizeof...(values), {static_cast<uint16_t>(values)...}};
}

constexpr Field u8(std::string_view name, uint8_t at) {
    return {name, at, 1};
}

constexpr Field u16(std::string_view name, uint8_t at) {
    return {name, at, 2};
}

constexpr Field u32(std::string_view name, uint8_t at) {
    return {name, at, 4};
}

constexpr Field bytes(std::string_view name, uint8_t at, uint8_t width) {
    return {name, at, width};
}

constexpr Field x8(std::string_view name, uint8_t at) {
    return {name, at, 1, false, true};
}

constexpr Field x16(std::string_view name, uint8_t at) {
    return {name, at, 2, false, true};
}

constexpr Field x16be(std::string_view name, uint8_t at) {
    return {name, at, 2, true, true};
}

constexpr Field x32(std::string_view name, uint8_t at) {
    return {name, at, 4, false, true};
}

/// A byte that traces put into words.
constexpr Field choice(std::string_view name, uint8_t at, std::string_view (*word)(uint64_t)) {
    return {name, at, 1, false, false, word};
}

std::string_view main_or_second(uint64_t stream) {
    return stream == 0 ? "main" : "second";
}

std::string_view on_or_off(uint64_t value) {
    return value != 0 ? "on" : "off";
}

std::string_view local_size(uint64_t code) {
    return code == kLocal640x360 ? "640x360" : code == kLocal800x450 ? "800x450" : "640x480";
}

std::string_view nv12_size(uint64_t value) {
    return value == 0 ? "640x480" : "864x486";
}

namespace e = effects;
using enum Known;

// The camera crops to the origin alone: the target sizes are taken and not used.
constexpr Fields kCropWindow{u16("x", 3),
                             u16("y", 5),
                             u16("width", 7),
                             u16("height", 9),
                             u16("scaled_width", 11),
                             u16("scaled_height", 13)};
constexpr Fields kGrayCropWindow{u16("x", 2), u16("y", 4), u16("width", 6), u16("height", 8)};

// clang-format off
constexpr std::array kCommands{
    //      group  block begins with                      in traces                           numbers                                effect                     in the status          reply                   known
    Command{kIsp,  head(0x02),                            "frame rate {}/s",                  {u16("rate", 1)},                      e::set_frame_rate,         shown::rates},
    Command{kIsp,  head(0x04),                            "key frame",                        {},                                    e::request_key_frame},
    Command{kIsp,  head(0x08, 0xFF),                      "bit rate {} kbit/s",               {u16("rate", 2)},                      e::set_bit_rate,           shown::rates},
    Command{kIsp,  head(0x0A, 0x02),                      "read sensor register {}",          {x16("address", 2)},                   e::read_sensor_register,   nullptr,               u16("value", 2)},
    Command{kIsp,  head(0x0A, 0x03),                      "write sensor register {} = {}",    {x16("address", 2), x16("value", 4)},  e::write_sensor_register},
    Command{kIsp,  head(0x0B),                            "read firmware version",            {},                                    e::read_version,           nullptr,               bytes("version", 2, 6), kAlways},
    Command{kIsp,  head(0x0D),                            "rates to {} stream",               {choice("stream", 1, main_or_second)}, e::select_rate_target,     shown::rate_target},
    Command{kIsp,  head(0x0E),                            "wide dynamic range {}",            {u8("level", 1)},                      e::set_wide_dynamic_range, shown::wide_dynamic_range},
    Command{kIsp,  head(0x12),                            "read ambient light",               {},                                    e::read_light_level,       nullptr,               u16("lux", 2)},
    Command{kIsp,  head(0xFF, 0x0B),                      "image effect {}",                  {u8("effect", 2)},                     e::set_image_effect,       shown::image_effect},
    Command{kIsp,  head(0xFF, 0x0C),                      "3A control {}",                    {x16be("setting", 2)},                 e::set_three_a,            shown::three_a},
    Command{kIsp,  head(0xFF, 0x0D),                      "colour effect {}",                 {u8("effect", 2)},                     e::set_colour_effect,      shown::colour_effect},
    Command{kData, head(),                                "firmware data",                    {},                                    e::take_piece,             nullptr,               {},                     kAlways},
    Command{kAux,  head(0x01, 0x00, 0x03, 0, 0, 0, 0, 0), "firmware download begin",          {},                                    e::begin_download,         nullptr,               {},                     kAlways},
    Command{kAux,  head(0x01, 0x01, 0x03, 0, 0, 0, 0, 0), "firmware burn",                    {},                                    e::burn_pieces,            nullptr,               {},                     kAlways},
    Command{kAux,  head(0x0E, 0x00),                      "light {}",                         {choice("on", 2, on_or_off)},          e::set_light,              shown::light},
    Command{kAux,  head(0x28),                            "local view size {}",               {choice("size", 1, local_size)},       e::set_local_size,         shown::local_size},
    Command{kAux,  head(0xFF, 0x00, 0x14),                "audio I2C preamble",               {},                                    e::select_audio_codec},
    Command{kAux,  head(0xFF, 0x01),                      "write audio I2C register {} = {}", {x16be("address", 2), x8("value", 4)}, e::write_audio_register},
    Command{kAux,  head(0xFF, 0x02),                      "read audio I2C register {}",       {x16be("address", 2)},                 e::read_audio_register,    nullptr,               u8("value", 2)},
    // The second byte is the combination in mode 0 only; in the others hosts repeat it.
    Command{kMmp,  head(0x01, kAny, 0),                   "stream combination {}",            {u8("code", 1)},                       e::select_combination,     shown::combination},
    Command{kMmp,  head(0x01, kAny, 5),                   "face tracking on",                 {},                                    e::start_face_tracking,    shown::face_tracking},
    Command{kMmp,  head(0x01, kAny, 6),                   "face tracking off",                {},                                    e::stop_face_tracking,     shown::face_tracking},
    Command{kMmp,  head(0x01, kAny, 9),                   "crop origin {},{}",                kCropWindow,                           e::set_crop,               shown::crop},
    Command{kMmp,  head(0x01, kAny, 10),                  "crop reset",                       {},                                    e::reset_crop,             shown::crop},
    Command{kMmp,  head(0x02, 0x01),                      "get video option",                 {},                                    e::read_options,           nullptr,               u32("options", 1)},
    Command{kMmp,  head(0x02, 0x02),                      "set video option {}",              {x32("options", 2)},                   e::set_options,            shown::options},
    Command{kMmp,  head(0x03),                            "trigger JPEG",                     {},                                    e::trigger_still},
    Command{kMmp,  head(0x04),                            "NV12 mode {}",                     {u8("mode", 1)},                       e::set_nv12_mode,          shown::nv12_mode},
    Command{kMmp,  head(0x07, 0x00),                      "flash write protection off",       {},                                    e::unlock_flash,           shown::flash_unlocked, {},                     kAlways},
    Command{kMmp,  head(0x07, 0x02),                      "flash write protection off",       {},                                    e::finish_unlock,          shown::flash_unlocked, {},                     kAlways},
    Command{kMmp,  head(0x12),                            "video self test",                  {},                                    e::run_self_test,          shown::self_tests,     u8("result", 0)},
    Command{kMmp,  head(0x13, 9),                         "gray crop origin {},{}",           kGrayCropWindow,                       e::set_gray_crop,          shown::gray_crop},
    Command{kMmp,  head(0x13, 10),                        "gray crop reset",                  {},                                    e::reset_gray_crop,        shown::gray_crop},
    Command{kMmp,  head(0x20),                            "preview mode {}",                  {u8("mode", 1)},                       e::set_preview_mode,       shown::preview_mode},
    Command{kMmp,  head(0x2D),                            "NV12 size {}",                     {choice("wide", 1, nv12_size)},        e::set_nv12_size,          shown::nv12_size},
};

constexpr bool kIn = true;
constexpr bool kOut = false;

constexpr std::array kVendorRequests{
    //            request  data   in traces             numbers                                    effect                  known
    VendorRequest{1,   kIn,  81, "face positions: {}", {u8("faces", 0)},                          e::list_faces,          kRunTime},
    VendorRequest{2,   kOut, 32, "face parameters",    {u8("cmd", 0), u8("dlen", 1)},                 e::set_face_parameters, kRunTime},
    VendorRequest{3,   kOut, 0,  "burn {} bytes",      {u32("size", 0)},                          e::burn_download,       kBulkDownload},
    VendorRequest{5,   kOut, 0,  "burn {} bytes",      {u32("size", 0)},                          e::burn_download,       kBulkDownload},
    VendorRequest{6,   kOut, 0,  "burn {} bytes",      {u32("size", 0)},                          e::burn_download,       kBulkDownload},
    VendorRequest{7,   kOut, 12, "checksum",           {bytes("checksum", 0, 8), u32("size", 8)}, e::check_download,      kBulkDownload},
    VendorRequest{8,   kOut, 0,  "burn {} bytes",      {u32("size", 0)},                          e::burn_download,       kBulkDownload},
    VendorRequest{130, kOut, 0,  "announce {} bytes",  {u32("size", 0)},                          e::announce_download,   kBulkDownload},
};
// clang-format on

bool begins_with(ByteView block, const Head& head) {
    if (block.size() < head.length) {
        return false;
    }
    for (size_t i = 0; i < head.length; ++i) {
        if (head.bytes[i] != kAny && head.bytes[i] != block[i]) {
            return false;
        }
    }
    return true;
}

uint64_t read(const Field& field, ByteView block) {
    uint64_t value = 0;
    for (size_t i = 0; i < field.width; ++i) {
        const size_t at = field.at + i;
        const uint64_t byte = at < block.size() ? block[at] : 0;
        value |= byte << 8 * (field.high_first ? field.width - 1 - i : i);
    }
    return value;
}

Call call_of(const Fields& fields, ByteView block) {
    Call call;
    std::transform(fields.begin(), fields.end(), call.numbers.begin(),
                   [block](const Field& field) { return read(field, block); });
    call.block = block;
    return call;
}

std::string number_text(const Field& field, ByteView block) {
    const uint64_t value = read(field, block);
    if (field.word != nullptr) {
        return std::string(field.word(value));
    }
    char text[24];
    std::snprintf(text, sizeof text, field.hexadecimal ? "0x%0*llX" : "%*llu",
                  field.hexadecimal ? 2 * field.width : 0, static_cast<unsigned long long>(value));
    return text;
}

std::string field_layout(const Field& field) {
    return std::string(field.name) + ":" + std::to_string(field.width) +
           (field.high_first ? "be" : "");
}

std::string byte_layout(uint16_t byte) {
    char text[4];
    std::snprintf(text, sizeof text, "%02X", byte & 0xFFU);
    return byte == kAny ? "-" : text;
}

Bytes block_of(const VendorRequest& request, const Setup& setup, ByteView data) {
    if (request.length != 0) {
        return {data.begin(), data.end()};
    }
    Bytes block;
    append_le(block, 2, setup.value);
    append_le(block, 2, setup.index);
    return block;
}

std::string filled_in(std::string_view text, const Fields& fields, ByteView block) {
    constexpr std::string_view kPlace = "{}";
    std::string words(text);
    size_t at = 0;
    for (const Field& field : fields) {
        at = words.find(kPlace, at);
        if (at == std::string::npos || field.width == 0) {
            break;
        }
        const std::string number = number_text(field, block);
        words.replace(at, kPlace.size(), number);
        at += number.size();
    }
    return words;
}

}  // namespace

bool knows(Personality personality, Known known) {
    switch (known) {
        case Known::kRunTime:
            return personality == Personality::kRunTime;
        case Known::kAlways:
            return true;
        case Known::kBulkDownload:
            return descriptors::has_endpoint(personality, usb::kEndpointDownload);
    }
    return false;
}

std::span<const Command> commands() {
    return kCommands;
}

std::span<const VendorRequest> vendor_requests() {
    return kVendorRequests;
}

const Command* find_command(uint8_t selector, ByteView block) {
    const auto* const found =
        std::find_if(kCommands.begin(), kCommands.end(), [&](const Command& command) {
            return command.selector == selector && begins_with(block, command.head);
        });
    return found == kCommands.end() ? nullptr : found;
}

const VendorRequest* find_request(const Setup& setup) {
    const auto* const found =
        std::find_if(kVendorRequests.begin(), kVendorRequests.end(), [&](const auto& row) {
            return row.request == setup.request && row.device_to_host == setup.device_to_host();
        });
    return found == kVendorRequests.end() ? nullptr : found;
}

bool execute(const Command& command, CommandState& state, ByteView block) {
    Call call = call_of(command.fields, block);
    if (!command.effect(state, call)) {
        return false;
    }
    if (command.reply.width != 0) {
        Bytes& reply = state.replies[usb::extension_block(command.selector)->answers];
        reply.assign(block.size(), 0);
        for (size_t i = 0; i < command.reply.width; ++i) {
            reply[command.reply.at + i] = static_cast<uint8_t>(call.answer >> 8 * i);
        }
    }
    return true;
}

std::optional<Bytes> execute(const VendorRequest& request, CommandState& state, const Setup& setup,
                             ByteView out) {
    if (setup.length != request.length) {
        return std::nullopt;
    }
    const Bytes block = block_of(request, setup, out);
    Call call = call_of(request.fields, block);
    call.data.assign(request.device_to_host ? request.length : 0, 0);
    if (!request.effect(state, call)) {
        return std::nullopt;
    }
    return std::move(call.data);
}

std::string in_words(const Command& command, ByteView block) {
    return filled_in(command.text, command.fields, block);
}

std::string in_words(const VendorRequest& request, const Setup& setup, ByteView data) {
    return filled_in(request.text, request.fields, block_of(request, setup, data));
}

std::string layout(const Head& head, const Fields& fields) {
    std::string text;
    size_t at = 0;
    const auto append = [&](const std::string& item, size_t width) {
        text += (text.empty() ? "" : " ") + item;
        at += width;
    };
    const Field* field = fields.data();
    const Field* const end = std::find_if(fields.data(), fields.data() + fields.size(),
                                          [](const Field& f) { return f.width == 0; });
    while (at < head.length || field != end) {
        if (field != end && field->at == at) {
            append(field_layout(*field), field->width);
            ++field;
        } else {
            append(at < head.length ? byte_layout(head.bytes[at]) : "-", 1);
        }
    }
    return text;
}

}  // namespace virtcam::model
