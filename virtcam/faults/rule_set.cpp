#include "virtcam/faults/rule_set.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace virtcam::faults {
namespace {

template <typename Value>
bool accepts(const std::optional<Value>& wanted, Value actual) {
    return !wanted || *wanted == actual;
}

bool matches(const ControlSelector& selector, const model::Setup& setup,
             std::span<const uint8_t> out) {
    return accepts(selector.type, setup.request_type) && accepts(selector.request, setup.request) &&
           accepts(selector.value, setup.value) && accepts(selector.index, setup.index) &&
           selector.data_prefix.size() <= out.size() &&
           std::equal(selector.data_prefix.begin(), selector.data_prefix.end(), out.begin());
}

/// A step of splitmix64, as a number from 0 to below 1: the same on every machine.
double next_random(uint64_t& state) {
    state += 0x9E3779B97F4A7C15;
    uint64_t mixed = state;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    mixed ^= mixed >> 31;
    constexpr double kTwoTo53 = 9007199254740992.0;
    return static_cast<double>(mixed >> 11) / kTwoTo53;
}

bool ends_frame(std::span<const uint8_t> payload) {
    constexpr uint8_t kEndOfFrame = 0x02;  // UVC 1.1, 2.4.3.3: bit 1 of bmHeaderInfo
    return payload.size() >= 2 && (payload[1] & kEndOfFrame) != 0;
}

}  // namespace

void Action::merge(const Action& other) {
    if (!result) {
        result = other.result;
    }
    null_result |= other.null_result;
    stall |= other.stall;
    if (!status) {
        status = other.status;
    }
    if (!short_to) {
        short_to = other.short_to;
    }
    if (!actual_length) {
        actual_length = other.actual_length;
    }
    if (!reply) {
        reply = other.reply;
    }
    if (!late) {
        late = other.late;
    }
    if (time_out == TimeOut::kNone) {
        time_out = other.time_out;
    }
    corruptions.insert(corruptions.end(), other.corruptions.begin(), other.corruptions.end());
    packets.insert(packets.end(), other.packets.begin(), other.packets.end());
    if (fate == Fate::kArrives) {
        fate = other.fate;
    }
    headers.insert(headers.end(), other.headers.begin(), other.headers.end());
    overwritings.insert(overwritings.end(), other.overwritings.begin(), other.overwritings.end());
    appended = appended == 0 ? other.appended : appended;
    fields.insert(fields.end(), other.fields.begin(), other.fields.end());
    device.insert(device.end(), other.device.begin(), other.device.end());
}

void RuleSet::add(const nlohmann::json& rules) {
    std::vector<Entry> added;
    if (rules.is_array()) {
        for (const auto& rule : rules) {
            added.push_back({Rule::from_json(rule)});
        }
    } else {
        added.push_back({Rule::from_json(rules)});
    }
    entries_.insert(entries_.end(), added.begin(), added.end());
}

bool RuleSet::strikes(Entry& entry) {
    ++entry.matches;
    const uint64_t place = entry.matches - entry.rule.first;  // from the first one hit
    bool strikes = entry.matches >= entry.rule.first && place < entry.rule.count &&
                   place % entry.rule.every == 0;
    if (strikes && entry.rule.chance < 1) {
        entry.random = entry.random == 0 ? entry.rule.seed : entry.random;
        strikes = next_random(entry.random) < entry.rule.chance;
    }
    entry.struck += strikes ? 1 : 0;
    return strikes;
}

std::vector<uint64_t> RuleSet::strike_counts() const {
    std::vector<uint64_t> counts;
    for (const Entry& entry : entries_) {
        counts.push_back(entry.struck);
    }
    return counts;
}

Action RuleSet::on_call(std::string_view name, std::optional<int> argument) {
    Action action;
    for (Entry& entry : entries_) {
        const auto* call = std::get_if<CallSelector>(&entry.rule.on);
        if (call != nullptr && call->name == name &&
            (!call->argument || call->argument == argument) && strikes(entry)) {
            action.merge(entry.rule.action);
        }
    }
    return action;
}

Action RuleSet::on_control(const model::Setup& setup, std::span<const uint8_t> out) {
    Action action;
    for (Entry& entry : entries_) {
        const auto* control = std::get_if<ControlSelector>(&entry.rule.on);
        if (control != nullptr && matches(*control, setup, out) && strikes(entry)) {
            action.merge(entry.rule.action);
        }
    }
    return action;
}

Action RuleSet::on_transfer(TransferKind kind, uint8_t endpoint, std::span<const uint8_t> data) {
    Action action;
    for (Entry& entry : entries_) {
        const auto* transfer = std::get_if<TransferSelector>(&entry.rule.on);
        if (transfer != nullptr && accepts(transfer->kind, kind) &&
            accepts(transfer->endpoint, endpoint) &&
            (!transfer->end_of_frame || ends_frame(data)) && strikes(entry)) {
            action.merge(entry.rule.action);
        }
    }
    return action;
}

Action RuleSet::on_sub_stream(uint16_t id) {
    Action action;
    for (Entry& entry : entries_) {
        const auto* header = std::get_if<SubStreamSelector>(&entry.rule.on);
        if (header != nullptr && accepts(header->id, id) && strikes(entry)) {
            action.merge(entry.rule.action);
        }
    }
    return action;
}

std::vector<DeviceAction> RuleSet::take_due(std::chrono::milliseconds elapsed) {
    std::vector<DeviceAction> due;
    for (Entry& entry : entries_) {
        const auto* time = std::get_if<TimeSelector>(&entry.rule.on);
        if (time != nullptr && entry.matches == 0 && time->at <= elapsed) {
            entry.matches = 1;
            entry.struck = 1;
            const auto& actions = entry.rule.action.device;
            due.insert(due.end(), actions.begin(), actions.end());
        }
    }
    return due;
}

std::optional<std::chrono::milliseconds> RuleSet::next_due() const {
    std::optional<std::chrono::milliseconds> next;
    for (const Entry& entry : entries_) {
        const auto* time = std::get_if<TimeSelector>(&entry.rule.on);
        if (time != nullptr && entry.matches == 0 && (!next || time->at < *next)) {
            next = time->at;
        }
    }
    return next;
}

}  // namespace virtcam::faults
