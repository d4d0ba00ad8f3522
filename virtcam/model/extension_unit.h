// Extension unit 6: the selectors through which a host reaches the camera's own commands and their
// replies.
#pragma once

#include <cstdint>
#include <optional>

#include "virtcam/model/bytes.h"
#include "virtcam/model/commands.h"
#include "virtcam/model/usb.h"

namespace virtcam::model {

class ExtensionUnit {
  public:
    /// `state` outlives the unit.
    ExtensionUnit(Personality personality, CommandState& state)
        : personality_(personality), state_(state) {}

    /// SET_CUR of one selector. False (stall) for an unknown selector, length, command or value;
    /// nothing has changed then.
    bool set(uint8_t selector, ByteView block);

    /// GET_INFO and GET_LEN of every selector; of the result selectors also GET_CUR, GET_MIN,
    /// GET_MAX, GET_RES and GET_DEF. Nothing: stall.
    std::optional<Bytes> get(uint8_t request, uint8_t selector) const;

  private:
    std::optional<Bytes> result(uint8_t request, const usb::ExtensionBlock& block) const;

    Personality personality_;
    CommandState& state_;
};

}  // namespace virtcam::model
