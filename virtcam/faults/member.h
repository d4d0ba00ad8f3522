// The members of a rule's "do": what each is called, where it can strike, how it is written.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>

#include "virtcam/faults/action.h"

namespace virtcam::faults {

/// Kinds of points at which a rule can strike, as bits: a selector may meet several.
enum Point : unsigned {
    kCodeCall = 1 << 0,     ///< call of libusb that returns a code, or nothing
    kPointerCall = 1 << 1,  ///< call of libusb that yields a pointer
    kControlIn = 1 << 2,
    kControlOut = 1 << 3,
    kTransferIn = 1 << 4,  ///< bulk or interrupt
    kTransferOut = 1 << 5,
    kIso = 1 << 6,  ///< of the camera: towards the host only
    kTime = 1 << 7,
    kSubStream = 1 << 8,
};

struct Member {
    std::string_view name;
    unsigned points;            ///< where it does something
    std::string_view what_for;  ///< the same for people; docs/virtual-bus.md says it so
    const char* word;           ///< JSON that the bare word stands for; null: it is no word
    void (*read)(const nlohmann::json& value, Action& action);
};

/// In the order of docs/virtual-bus.md.
std::span<const Member> members();

/// Reads "do", a word or an object, of a rule that strikes at `points`. Throws
/// std::invalid_argument; a member that can do nothing there is named with `where`.
Action read_action(const nlohmann::json& what, unsigned points, const std::string& where);

}  // namespace virtcam::faults
