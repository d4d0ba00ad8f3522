// What each member of a rule's action does to an answer, and in which order: here and nowhere else.
//
// First the moment: `late_ms`, or never (`timeout`: "wait"). Then how the request ends; of `timeout`:
// "now", `return`, `stall` and `status` the first that is given decides. Last what arrives: `reply`,
// `header`, `overwrite`, `corrupt`, `append`, `short`, `actual_length`, `packets`. Members that are left out change nothing. Presence
// (`unplug` and the like) is the endpoint's business, `null` that of libusb's calls.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "virtcam/faults/action.h"
#include "virtcam/line/ending.h"

namespace virtcam::line {

/// The ending of a control request that the action keeps from the device. Nothing: the device is
/// asked.
std::optional<Ending> refusal(const faults::Action& action);

/// Changes the device's answer. What the device itself refused stays refused, at another time
/// perhaps.
void apply(const faults::Action& action, Ending& ending);

/// Changes the header of a sub-stream. `part` begins with the byte that `before` others precede; a
/// field that does not lie in it as a whole stays as it is.
void apply(const std::vector<faults::FieldChange>& fields, std::span<uint8_t> part,
           size_t before = 0);

}  // namespace virtcam::line
