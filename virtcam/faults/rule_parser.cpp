// Rules from JSON. Unknown names are refused: a misspelt rule that never strikes proves nothing.
#include <algorithm>
#include <array>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "virtcam/faults/rule.h"

namespace virtcam::faults {
namespace {

using nlohmann::json;

[[noreturn]] void refuse(const std::string& text) {
    throw std::invalid_argument("fault rule: " + text);
}

void require_object(const json& value, const std::string& what,
                    std::initializer_list<std::string_view> known) {
    if (!value.is_object()) {
        refuse(what + " must be an object");
    }
    for (const auto& item : value.items()) {
        if (std::find(known.begin(), known.end(), item.key()) == known.end()) {
            refuse("unknown member \"" + item.key() + "\" in " + what);
        }
    }
}

/// A number, or a text as "0x2065"; within [low, high].
int64_t number(const json& value, const std::string& name, int64_t low, int64_t high) {
    int64_t result = 0;
    if (value.is_number_integer()) {
        result = value.get<int64_t>();
    } else if (value.is_string()) {
        const auto text = value.get<std::string>();
        size_t used = 0;
        try {
            result = std::stoll(text, &used, 0);
        } catch (const std::exception&) {
            used = 0;
        }
        if (used == 0 || used != text.size()) {
            refuse("\"" + name + "\" is not a number: \"" + text + "\"");
        }
    } else {
        refuse("\"" + name + "\" must be a number");
    }
    if (result < low || result > high) {
        refuse("\"" + name + "\" must lie in " + std::to_string(low) + " to " +
               std::to_string(high));
    }
    return result;
}

template <typename Integer>
void take(const json& object, const char* name, std::optional<Integer>& target) {
    if (const auto found = object.find(name); found != object.end()) {
        target = static_cast<Integer>(number(*found, name, std::numeric_limits<Integer>::min(),
                                             std::numeric_limits<Integer>::max()));
    }
}

constexpr int64_t kMaxLength = 1 << 24;

void take_size(const json& object, const char* name, std::optional<size_t>& target) {
    if (const auto found = object.find(name); found != object.end()) {
        target = static_cast<size_t>(number(*found, name, 0, kMaxLength));
    }
}

std::vector<uint8_t> bytes(const json& value, const std::string& name) {
    if (!value.is_string()) {
        refuse("\"" + name + "\" must be a text of hexadecimal digits");
    }
    std::string digits = value.get<std::string>();
    std::erase(digits, ' ');
    if (digits.size() % 2 != 0 ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        refuse("\"" + name + "\" must be a text of pairs of hexadecimal digits");
    }
    std::vector<uint8_t> result;
    for (size_t at = 0; at < digits.size(); at += 2) {
        result.push_back(static_cast<uint8_t>(std::stoul(digits.substr(at, 2), nullptr, 16)));
    }
    return result;
}

template <typename Value, size_t kCount>
Value named(const json& value, const std::string& what,
            const std::array<std::pair<std::string_view, Value>, kCount>& names) {
    if (value.is_string()) {
        const auto& text = value.get_ref<const std::string&>();
        for (const auto& [name, result] : names) {
            if (name == text) {
                return result;
            }
        }
        refuse("unknown " + what + " \"" + text + "\"");
    }
    refuse(what + " must be a text");
}

constexpr std::array<std::pair<std::string_view, Status>, 7> kStatusNames{{
    {"completed", Status::kCompleted},
    {"error", Status::kError},
    {"timed_out", Status::kTimedOut},
    {"cancelled", Status::kCancelled},
    {"stall", Status::kStall},
    {"no_device", Status::kNoDevice},
    {"overflow", Status::kOverflow},
}};

constexpr std::array<std::pair<std::string_view, TransferKind>, 3> kKindNames{{
    {"bulk", TransferKind::kBulk},
    {"iso", TransferKind::kIsochronous},
    {"interrupt", TransferKind::kInterrupt},
}};

constexpr std::array<std::pair<std::string_view, TimeOut>, 2> kTimeOutNames{{
    {"wait", TimeOut::kWait},
    {"now", TimeOut::kNow},
}};

constexpr std::array<std::pair<std::string_view, DeviceAction>, 3> kDeviceActions{{
    {"unplug", DeviceAction::kUnplug},
    {"plug", DeviceAction::kPlug},
    {"power_cycle", DeviceAction::kPowerCycle},
}};

/// The error codes of libusb's interface, which scripts may write by name.
constexpr std::array<std::pair<std::string_view, int>, 14> kErrorNames{{
    {"LIBUSB_SUCCESS", 0},
    {"LIBUSB_ERROR_IO", -1},
    {"LIBUSB_ERROR_INVALID_PARAM", -2},
    {"LIBUSB_ERROR_ACCESS", -3},
    {"LIBUSB_ERROR_NO_DEVICE", -4},
    {"LIBUSB_ERROR_NOT_FOUND", -5},
    {"LIBUSB_ERROR_BUSY", -6},
    {"LIBUSB_ERROR_TIMEOUT", -7},
    {"LIBUSB_ERROR_OVERFLOW", -8},
    {"LIBUSB_ERROR_PIPE", -9},
    {"LIBUSB_ERROR_INTERRUPTED", -10},
    {"LIBUSB_ERROR_NO_MEM", -11},
    {"LIBUSB_ERROR_NOT_SUPPORTED", -12},
    {"LIBUSB_ERROR_OTHER", -99},
}};

int result_code(const json& value) {
    if (value.is_string()) {
        return named(value, "return code", kErrorNames);
    }
    return static_cast<int>(
        number(value, "return", std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

Selector parse_selector(const json& on) {
    require_object(on, "\"on\"",
                   {"call", "argument", "control", "transfer", "frame", "endpoint", "time_ms"});
    const int kinds = static_cast<int>(on.contains("call")) + on.contains("control") +
                      on.contains("transfer") + on.contains("frame") + on.contains("time_ms");
    if (kinds != 1) {
        refuse("\"on\" takes exactly one of call, control, transfer, frame, time_ms");
    }
    if (on.contains("call")) {
        if (!on["call"].is_string() || on["call"].get<std::string>().rfind("libusb_", 0) != 0) {
            refuse("\"call\" must be the name of a libusb function");
        }
        CallSelector call{on["call"].get<std::string>(), {}};
        take(on, "argument", call.argument);
        return call;
    }
    if (on.contains("control")) {
        const json& request = on["control"];
        require_object(request, "\"control\"", {"type", "request", "value", "index", "data"});
        ControlSelector control;
        take(request, "type", control.type);
        take(request, "request", control.request);
        take(request, "value", control.value);
        take(request, "index", control.index);
        if (request.contains("data")) {
            control.data_prefix = bytes(request["data"], "data");
        }
        return control;
    }
    if (on.contains("time_ms")) {
        constexpr int64_t kDay = 86'400'000;
        return TimeSelector{std::chrono::milliseconds(number(on["time_ms"], "time_ms", 0, kDay))};
    }
    TransferSelector transfer;
    take(on, "endpoint", transfer.endpoint);
    if (on.contains("frame")) {
        transfer.kind = TransferKind::kBulk;
        transfer.end_of_frame = true;
    } else if (on["transfer"] != "any") {
        transfer.kind = named(on["transfer"], "kind of transfer", kKindNames);
    }
    return transfer;
}

void parse_packets(const json& list, Action& action) {
    if (!list.is_array()) {
        refuse("\"packets\" must be a list");
    }
    for (const json& item : list) {
        require_object(item, "\"packets\"", {"index", "status", "length"});
        std::optional<size_t> index;
        take_size(item, "index", index);
        PacketChange change;
        change.index = index.value_or(0);
        take_size(item, "length", change.length);
        if (item.contains("status")) {
            change.status = named(item["status"], "status", kStatusNames);
        }
        action.packets.push_back(change);
    }
}

void parse_corruption(const json& item, Action& action) {
    require_object(item, "\"corrupt\"", {"offset", "xor"});
    std::optional<size_t> offset;
    take_size(item, "offset", offset);
    std::optional<uint8_t> mask;
    take(item, "xor", mask);
    action.corruptions.push_back({offset.value_or(0), mask.value_or(uint8_t{0xFF})});
}

Action parse_word(const json& word) {
    Action action;
    const auto& text = word.get_ref<const std::string&>();
    if (text == "stall") {
        action.stall = true;
    } else if (text == "null") {
        action.null_result = true;
    } else if (text == "timeout") {
        action.time_out = TimeOut::kWait;
    } else {
        action.device.push_back(named(word, "action", kDeviceActions));
    }
    return action;
}

Action parse_action(const json& what) {
    if (what.is_string()) {
        return parse_word(what);
    }
    require_object(what, "\"do\"",
                   {"return", "null", "stall", "status", "short", "actual_length", "reply",
                    "late_ms", "timeout", "corrupt", "packets", "unplug", "plug", "power_cycle"});
    if (what.empty()) {
        refuse("\"do\" is empty");
    }
    Action action;
    if (what.contains("return")) {
        action.result = result_code(what["return"]);
    }
    action.null_result = what.value("null", false);
    action.stall = what.value("stall", false);
    if (what.contains("status")) {
        action.status = named(what["status"], "status", kStatusNames);
    }
    take_size(what, "short", action.short_to);
    take_size(what, "actual_length", action.actual_length);
    if (what.contains("reply")) {
        action.reply = bytes(what["reply"], "reply");
    }
    if (what.contains("late_ms")) {
        constexpr int64_t kHour = 3'600'000;
        action.late = std::chrono::milliseconds(number(what["late_ms"], "late_ms", 0, kHour));
    }
    if (what.contains("timeout")) {
        action.time_out = named(what["timeout"], "kind of time-out", kTimeOutNames);
    }
    if (what.contains("corrupt")) {
        parse_corruption(what["corrupt"], action);
    }
    if (what.contains("packets")) {
        parse_packets(what["packets"], action);
    }
    for (const auto& [name, change] : kDeviceActions) {
        if (what.value(std::string(name), false)) {
            action.device.push_back(change);
        }
    }
    return action;
}

}  // namespace

Rule Rule::from_json(const json& rule) {
    try {
        require_object(rule, "the rule", {"on", "nth", "from", "count", "do", "comment"});
        if (!rule.contains("on") || !rule.contains("do")) {
            refuse("\"on\" and \"do\" are needed");
        }
        if (rule.contains("nth") && rule.contains("from")) {
            refuse("\"nth\" and \"from\" exclude each other");
        }
        Rule result{parse_selector(rule["on"]), 1, std::numeric_limits<uint64_t>::max(),
                    parse_action(rule["do"])};
        constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
        if (rule.contains("nth")) {
            result.first = static_cast<uint64_t>(number(rule["nth"], "nth", 1, kMost));
            result.count = 1;
        }
        if (rule.contains("from")) {
            result.first = static_cast<uint64_t>(number(rule["from"], "from", 1, kMost));
        }
        if (rule.contains("count")) {
            result.count = static_cast<uint64_t>(number(rule["count"], "count", 1, kMost));
        }
        return result;
    } catch (const json::exception& error) {
        refuse(error.what());
    }
}

}  // namespace virtcam::faults
