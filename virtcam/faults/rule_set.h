// The scripted failures in force, and how often each has been met.
#pragma once

#include <chrono>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "virtcam/faults/rule.h"
#include "virtcam/model/setup.h"

namespace virtcam::faults {

/// Rules in the order in which they were added. Every rule counts the points that its selector
/// matches; where several strike at one point, the earliest decides each part of the action.
/// Deterministic: the answers depend on the sequence of points only, and on the rules' seeds. Not thread-safe: the owner
/// locks.
class RuleSet {
  public:
    /// Adds one rule (object) or several (list).
    /// Throws std::invalid_argument, and then has added nothing, when one is malformed.
    void add(const nlohmann::json& rules);
    void clear() { entries_.clear(); }
    bool empty() const { return entries_.empty(); }
    /// How often each rule has struck so far, in the order in which they were added.
    std::vector<uint64_t> strike_counts() const;

    Action on_call(std::string_view name, std::optional<int> argument);
    Action on_control(const model::Setup& setup, std::span<const uint8_t> out);
    Action on_transfer(TransferKind kind, uint8_t endpoint, std::span<const uint8_t> data);

    /// A header of a sub-stream with that format ID.
    Action on_sub_stream(uint16_t id);

    /// Device actions of the timed rules that are due `elapsed` after the start, each once.
    std::vector<DeviceAction> take_due(std::chrono::milliseconds elapsed);
    /// When the next timed rule is due, counted from the start.
    std::optional<std::chrono::milliseconds> next_due() const;

  private:
    struct Entry {
        Rule rule;
        uint64_t matches = 0;
        uint64_t struck = 0;
        uint64_t random = 0;  ///< state of its generator, once it was used
    };

    static bool strikes(Entry& entry);

    std::vector<Entry> entries_;
};

}  // namespace virtcam::faults
