// Rules from JSON. Unknown names are refused, and so is what could never do anything: a rule without
// effect proves nothing.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "virtcam/faults/json_values.h"
#include "virtcam/faults/member.h"
#include "virtcam/faults/rule.h"

namespace virtcam::faults {
namespace {

using nlohmann::json;

constexpr Names<TransferKind, 3> kKindNames{{
    {"bulk", TransferKind::kBulk},
    {"iso", TransferKind::kIsochronous},
    {"interrupt", TransferKind::kInterrupt},
}};

constexpr uint8_t kDirectionIn = 0x80;  // of bmRequestType and of endpoint addresses

CallSelector parse_call(const json& on) {
    require_object(on, "\"on\" with \"call\"", {"call", "argument"});
    if (!on["call"].is_string() || on["call"].get<std::string>().rfind("libusb_", 0) != 0) {
        refuse("\"call\" must be the name of a libusb function");
    }
    CallSelector call{on["call"].get<std::string>(), {}};
    take(on, "argument", call.argument);
    return call;
}

ControlSelector parse_control(const json& on) {
    require_object(on, "\"on\" with \"control\"", {"control"});
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

TransferSelector parse_transfer(const json& on) {
    require_object(on, "\"on\" with a transfer", {"transfer", "frame", "endpoint"});
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

constexpr Names<uint16_t, 7> kSubStreamNames{{
    {"yuy2", 0x29},
    {"nv12", 0x2A},
    {"h264", 0x2B},
    {"jpeg", 0x2C},
    {"gray", 0x2D},
    {"nv21", 0x2F},
    {"h264-2", 0x35},
}};

SubStreamSelector parse_sub_stream(const json& on) {
    require_object(on, "\"on\" with \"sub_stream\"", {"sub_stream"});
    if (on["sub_stream"] == "any") {
        return {};
    }
    return {named(on["sub_stream"], "sub-stream", kSubStreamNames)};
}

TimeSelector parse_time(const json& on) {
    require_object(on, "\"on\" with \"time_ms\"", {"time_ms"});
    constexpr int64_t kDay = 86'400'000;
    return {std::chrono::milliseconds(number(on["time_ms"], "time_ms", 0, kDay))};
}

Selector parse_selector(const json& on) {
    require_object(
        on, "\"on\"",
        {"call", "argument", "control", "transfer", "frame", "endpoint", "sub_stream", "time_ms"});
    const int kinds = static_cast<int>(on.contains("call")) + on.contains("control") +
                      on.contains("transfer") + on.contains("frame") + on.contains("sub_stream") +
                      on.contains("time_ms");
    if (kinds != 1) {
        refuse("\"on\" takes exactly one of call, control, transfer, frame, sub_stream, time_ms");
    }
    if (on.contains("call")) {
        return parse_call(on);
    }
    if (on.contains("control")) {
        return parse_control(on);
    }
    if (on.contains("sub_stream")) {
        return parse_sub_stream(on);
    }
    if (on.contains("time_ms")) {
        return parse_time(on);
    }
    return parse_transfer(on);
}

/// The points that a selector can meet, and how a rule's author knows them.
struct Reach {
    unsigned points;
    std::string name;
};

Reach reach(const CallSelector& call) {
    unsigned points = kCodeCall;
    if (call.name == "libusb_get_device_list") {
        points = kCodeCall | kPointerCall;  // a list and its length
    } else if (call.name == "libusb_alloc_transfer" ||
               call.name == "libusb_open_device_with_vid_pid") {
        points = kPointerCall;
    }
    return {points, "\"call\" of " + call.name};
}

Reach reach(const ControlSelector& control) {
    if (!control.type) {
        return {kControlIn | kControlOut, "\"control\""};
    }
    const bool in = (*control.type & kDirectionIn) != 0;
    return {in ? kControlIn : kControlOut, in ? "\"control\", IN" : "\"control\", OUT"};
}

Reach reach(const TransferSelector& transfer) {
    Reach any{kTransferIn | kTransferOut | kIso, "\"transfer\" of any kind"};
    if (transfer.end_of_frame) {
        return {kTransferIn, "\"frame\""};
    }
    if (transfer.kind == TransferKind::kIsochronous) {
        return {kIso, "\"transfer\" of kind iso"};
    }
    if (transfer.kind) {
        any = {kTransferIn | kTransferOut,
               "\"transfer\" of kind " +
                   std::string(*transfer.kind == TransferKind::kBulk ? "bulk" : "interrupt")};
    }
    if (transfer.endpoint) {
        const bool in = (*transfer.endpoint & kDirectionIn) != 0;
        any.points &= in ? kTransferIn | kIso : kTransferOut;
        any.name += in ? ", IN" : ", OUT";
    }
    return any;
}

Reach reach(const SubStreamSelector&) {
    return {kSubStream, "\"sub_stream\""};
}

Reach reach(const TimeSelector&) {
    return {kTime, "\"time_ms\""};
}

double probability(const json& value) {
    const double chance = value.is_number() ? value.get<double>() : -1;
    if (chance < 0 || chance > 1) {
        refuse("\"chance\" must be a number from 0 to 1");
    }
    return chance;
}

/// Which of the points that the selector meets are hit.
void parse_occurrences(const json& rule, Rule& result) {
    constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
    const auto take_number = [&](const char* name, uint64_t& target) {
        if (rule.contains(name)) {
            target = static_cast<uint64_t>(number(rule[name], name, 1, kMost));
        }
    };
    if (rule.contains("nth")) {
        result.count = 1;
    }
    take_number("nth", result.first);
    take_number("from", result.first);
    take_number("count", result.count);
    take_number("every", result.every);
    take_number("seed", result.seed);
    if (rule.contains("chance")) {
        result.chance = probability(rule["chance"]);
    }
}

}  // namespace

Rule Rule::from_json(const json& rule) {
    try {
        require_object(rule, "the rule",
                       {"on", "nth", "from", "count", "every", "chance", "seed", "do", "comment"});
        if (!rule.contains("on") || !rule.contains("do")) {
            refuse("\"on\" and \"do\" are needed");
        }
        if (rule.contains("nth") && rule.contains("from")) {
            refuse("\"nth\" and \"from\" exclude each other");
        }
        Rule result;
        result.on = parse_selector(rule["on"]);
        const auto [points, where] =
            std::visit([](const auto& selector) { return reach(selector); }, result.on);
        result.action = read_action(rule["do"], points, where);
        parse_occurrences(rule, result);
        return result;
    } catch (const json::exception& error) {
        refuse(error.what());
    }
}

}  // namespace virtcam::faults
