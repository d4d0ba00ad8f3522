// One scripted failure: where it strikes, on which occurrences, and what it does.
#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "virtcam/faults/action.h"

namespace virtcam::faults {

enum class TransferKind { kBulk, kIsochronous, kInterrupt };

/// A call of the host's USB library, by name and, if given, by its first number.
struct CallSelector {
    std::string name;
    std::optional<int> argument;  ///< interface, endpoint or alike; see docs/virtual-bus.md
};

/// A control request; what is not given matches everything.
struct ControlSelector {
    std::optional<uint8_t> type;
    std::optional<uint8_t> request;
    std::optional<uint16_t> value;
    std::optional<uint16_t> index;
    std::vector<uint8_t> data_prefix;  ///< beginning of the OUT data
};

/// The end of a bulk, isochronous or interrupt transfer that carried data.
struct TransferSelector {
    std::optional<TransferKind> kind;
    std::optional<uint8_t> endpoint;
    bool end_of_frame = false;  ///< only UVC payloads whose end-of-frame bit is set
};

/// The header of a sub-stream in the multiplexed video stream.
struct SubStreamSelector {
    std::optional<uint16_t> id;  ///< its format ID; nothing: any
};

/// A moment, counted from the start of the bus.
struct TimeSelector {
    std::chrono::milliseconds at{0};
};

using Selector =
    std::variant<CallSelector, ControlSelector, TransferSelector, SubStreamSelector, TimeSelector>;

struct Rule {
    Selector on;
    uint64_t first = 1;                                     ///< first occurrence hit, from 1
    uint64_t count = std::numeric_limits<uint64_t>::max();  ///< occurrences hit in a row
    uint64_t every = 1;                                     ///< of those, each so many
    double chance = 1;                                      ///< that it strikes there
    uint64_t seed = 1;                                      ///< of that chance
    Action action;

    /// Reads a rule (docs/virtual-bus.md, "Faults").
    /// Throws std::invalid_argument with a sentence that names the member at fault.
    static Rule from_json(const nlohmann::json& rule);
};

}  // namespace virtcam::faults
