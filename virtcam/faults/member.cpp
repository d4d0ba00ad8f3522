#include "virtcam/faults/member.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "virtcam/faults/json_values.h"
#include "virtcam/faults/libusb_codes.h"

namespace virtcam::faults {
namespace {

using nlohmann::json;

constexpr Names<Status, 7> kStatusNames{{
    {"completed", Status::kCompleted},
    {"error", Status::kError},
    {"timed_out", Status::kTimedOut},
    {"cancelled", Status::kCancelled},
    {"stall", Status::kStall},
    {"no_device", Status::kNoDevice},
    {"overflow", Status::kOverflow},
}};

constexpr Names<TimeOut, 2> kTimeOutNames{{
    {"wait", TimeOut::kWait},
    {"now", TimeOut::kNow},
}};

constexpr Names<int, 14> kErrorNames{{
    {"LIBUSB_SUCCESS", 0},
    {"LIBUSB_ERROR_IO", -1},
    {"LIBUSB_ERROR_INVALID_PARAM", -2},
    {"LIBUSB_ERROR_ACCESS", -3},
    {"LIBUSB_ERROR_NO_DEVICE", kErrorNoDevice},
    {"LIBUSB_ERROR_NOT_FOUND", -5},
    {"LIBUSB_ERROR_BUSY", -6},
    {"LIBUSB_ERROR_TIMEOUT", kErrorTimeout},
    {"LIBUSB_ERROR_OVERFLOW", kErrorOverflow},
    {"LIBUSB_ERROR_PIPE", kErrorPipe},
    {"LIBUSB_ERROR_INTERRUPTED", -10},
    {"LIBUSB_ERROR_NO_MEM", -11},
    {"LIBUSB_ERROR_NOT_SUPPORTED", -12},
    {"LIBUSB_ERROR_OTHER", -99},
}};

void read_return(const json& value, Action& action) {
    action.result = value.is_string()
                        ? named(value, "return code", kErrorNames)
                        : static_cast<int>(number(value, "return", std::numeric_limits<int>::min(),
                                                  std::numeric_limits<int>::max()));
}

void read_null(const json& value, Action& action) {
    action.null_result = value.get<bool>();
}

void read_stall(const json& value, Action& action) {
    action.stall = value.get<bool>();
}

void read_status(const json& value, Action& action) {
    action.status = named(value, "status", kStatusNames);
}

void read_short(const json& value, Action& action) {
    action.short_to = size(value, "short");
}

void read_actual_length(const json& value, Action& action) {
    action.actual_length = size(value, "actual_length");
}

void read_reply(const json& value, Action& action) {
    action.reply = bytes(value, "reply");
}

void read_late(const json& value, Action& action) {
    constexpr int64_t kHour = 3'600'000;
    action.late = std::chrono::milliseconds(number(value, "late_ms", 0, kHour));
}

void read_timeout(const json& value, Action& action) {
    action.time_out = named(value, "kind of time-out", kTimeOutNames);
}

void read_corrupt(const json& value, Action& action) {
    require_object(value, "\"corrupt\"", {"offset", "xor"});
    std::optional<uint8_t> mask;
    take(value, "xor", mask);
    const size_t offset = value.contains("offset") ? size(value["offset"], "offset") : 0;
    action.corruptions.push_back({offset, mask.value_or(uint8_t{0xFF})});
}

void read_packets(const json& value, Action& action) {
    if (!value.is_array()) {
        refuse("\"packets\" must be a list");
    }
    for (const json& item : value) {
        require_object(item, "\"packets\"", {"index", "status", "length"});
        PacketChange change;
        if (item.contains("index")) {
            change.index = size(item["index"], "index");
        }
        if (item.contains("length")) {
            change.length = size(item["length"], "length");
        }
        if (item.contains("status")) {
            change.status = named(item["status"], "status", kStatusNames);
        }
        action.packets.push_back(change);
    }
}

template <Fate kFate>
void read_fate(const json& value, Action& action) {
    if (value.get<bool>()) {
        action.fate = kFate;
    }
}

/// A bit of bmHeaderInfo: true sets it, false clears it, "toggle" inverts it.
void read_bit(const json& header, const char* name, uint8_t bit, HeaderChange& change) {
    const auto found = header.find(name);
    if (found == header.end()) {
        return;
    }
    if (*found == "toggle") {
        change.toggle |= bit;
    } else {
        (found->get<bool>() ? change.set : change.clear) |= bit;
    }
}

void read_header(const json& value, Action& action) {
    require_object(value, "\"header\"",
                   {"length", "frame_id", "end_of_frame", "presentation_time", "source_clock",
                    "still", "error", "end_of_header"});
    HeaderChange change;
    take(value, "length", change.length);
    constexpr std::pair<const char*, uint8_t> kBits[] = {
        // UVC 1.10, 2.4.3.3
        {"frame_id", 0x01},     {"end_of_frame", 0x02}, {"presentation_time", 0x04},
        {"source_clock", 0x08}, {"still", 0x20},        {"error", 0x40},
        {"end_of_header", 0x80}};
    for (const auto& [name, bit] : kBits) {
        read_bit(value, name, bit, change);
    }
    action.headers.push_back(change);
}

void read_overwrite(const json& value, Action& action) {
    require_object(value, "\"overwrite\"", {"offset", "bytes"});
    Overwriting overwriting;
    overwriting.offset = value.contains("offset") ? size(value["offset"], "offset") : 0;
    overwriting.bytes = bytes(value.value("bytes", json()), "bytes");
    action.overwritings.push_back(std::move(overwriting));
}

void read_append(const json& value, Action& action) {
    action.appended = size(value, "append");
}

struct Field {
    std::string_view name;
    size_t offset;
    size_t width;
};

// The numbers of a sub-stream's header, in their order.
constexpr Field kFields[] = {
    {"version", 0, 2}, {"header_length", 2, 2}, {"type", 4, 2},      {"width", 6, 2},
    {"height", 8, 2},  {"rate", 10, 2},         {"sequence", 12, 4}, {"time_stamp", 16, 4},
    {"flags", 20, 4},  {"length", 24, 4},       {"room", 28, 4},
};

/// A number that takes the place of the old one, or {"add": number}.
FieldChange read_field(const std::string& name, const json& value) {
    const auto* field = std::find_if(std::begin(kFields), std::end(kFields),
                                     [&](const Field& each) { return each.name == name; });
    if (field == std::end(kFields)) {
        refuse("unknown member \"" + name + "\" in \"fields\"");
    }
    constexpr int64_t kMost = 0xFFFFFFFF;
    FieldChange change{field->offset, field->width, 0, value.is_object()};
    if (change.add) {
        require_object(value, "\"" + name + "\"", {"add"});
        change.value =
            static_cast<uint32_t>(number(value.value("add", json()), "add", -kMost, kMost));
    } else {
        change.value = static_cast<uint32_t>(number(value, name, 0, kMost));
    }
    return change;
}

void read_fields(const json& value, Action& action) {
    if (!value.is_object()) {
        refuse("\"fields\" must be an object");
    }
    for (const auto& [name, number] : value.items()) {
        action.fields.push_back(read_field(name, number));
    }
}

template <DeviceAction kChange>
void read_change(const json& value, Action& action) {
    if (value.get<bool>()) {
        action.device.push_back(kChange);
    }
}

constexpr unsigned kIn = kControlIn | kTransferIn;
constexpr unsigned kControl = kControlIn | kControlOut;
constexpr unsigned kBulk = kTransferIn | kTransferOut;
constexpr unsigned kTransfer = kBulk | kIso;
constexpr unsigned kAll = kCodeCall | kPointerCall | kControl | kTransfer | kTime | kSubStream;

// clang-format off
constexpr Member kMembers[] = {
    {"return",        kCodeCall | kControl, "call (code), control",         nullptr,      read_return},
    {"null",          kPointerCall,         "call (pointer)",               "true",       read_null},
    {"stall",         kControl | kTransfer, "control, transfer",            "true",       read_stall},
    {"status",        kControl | kTransfer, "control, transfer",            nullptr,      read_status},
    {"short",         kControl | kTransfer, "control, transfer",            nullptr,      read_short},
    {"actual_length", kControl | kBulk,     "control, bulk, interrupt",     nullptr,      read_actual_length},
    {"reply",         kIn,                  "control, bulk, interrupt: IN", nullptr,      read_reply},
    {"late_ms",       kControl | kTransfer, "control, transfer",            nullptr,      read_late},
    {"timeout",       kControl | kTransfer, "control, transfer",            "\"wait\"",   read_timeout},
    {"corrupt",       kIn | kIso,           "control, transfer: IN",        nullptr,      read_corrupt},
    {"packets",       kIso,                 "iso",                          nullptr,      read_packets},
    {"lose",          kTransferIn,          "bulk, interrupt: IN",          "true",       read_fate<Fate::kLost>},
    {"double",        kTransferIn,          "bulk, interrupt: IN",          "true",       read_fate<Fate::kTwice>},
    {"swap",          kTransferIn,          "bulk, interrupt: IN",          "true",       read_fate<Fate::kSwapped>},
    {"header",        kTransferIn,          "bulk, interrupt: IN",          nullptr,      read_header},
    {"overwrite",     kIn,                  "control, bulk, interrupt: IN", nullptr,      read_overwrite},
    {"append",        kTransferIn,          "bulk, interrupt: IN",          nullptr,      read_append},
    {"fields",        kSubStream,           "sub-stream",                   nullptr,      read_fields},
    {"unplug",        kAll,                 "all",                          "true",       read_change<DeviceAction::kUnplug>},
    {"plug",          kAll,                 "all",                          "true",       read_change<DeviceAction::kPlug>},
    {"power_cycle",   kAll,                 "all",                          "true",       read_change<DeviceAction::kPowerCycle>},
};
// clang-format on

const Member& find(const std::string& name) {
    const auto found = std::find_if(std::begin(kMembers), std::end(kMembers),
                                    [&](const Member& member) { return member.name == name; });
    if (found == std::end(kMembers)) {
        refuse("unknown member \"" + name + "\" in \"do\"");
    }
    return *found;
}

/// The object that a bare word stands for.
json spelt_out(const std::string& word) {
    for (const Member& member : kMembers) {
        if (member.name == word && member.word != nullptr) {
            return {{word, json::parse(member.word)}};
        }
    }
    refuse("unknown action \"" + word + "\"");
}

}  // namespace

std::span<const Member> members() {
    return kMembers;
}

Action read_action(const json& what, unsigned points, const std::string& where) {
    const json object = what.is_string() ? spelt_out(what.get<std::string>()) : what;
    if (!object.is_object()) {
        refuse("\"do\" must be a word or an object");
    }
    if (object.empty()) {
        refuse("\"do\" is empty");
    }
    Action action;
    for (const auto& [name, value] : object.items()) {
        const Member& member = find(name);
        if ((member.points & points) == 0) {
            std::string text = "\"" + name + "\" is not for ";
            refuse(text.append(where).append(", but for ").append(member.what_for));
        }
        member.read(value, action);
    }
    return action;
}

}  // namespace virtcam::faults
