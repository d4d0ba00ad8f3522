// Extension unit 6: the selectors through which a host reaches the camera's own commands and their
// replies.
#pragma once

#include <cstdint>
#include <optional>

#include "virtcam/model/bytes.h"
#include "virtcam/model/commands.h"

namespace virtcam::model {

class ExtensionUnit {
  public:
    /// `state` outlives the unit.
    ExtensionUnit(Personality personality, CommandState& state)
        : personality_(personality), state_(state) {}

    /// SET_CUR of one selector. False (stall) for an unknown selector, length, command or value;
    /// nothing has changed then.
    bool set(uint8_t selector, ByteView block);

    /// GET_CUR (result selectors only), GET_MIN, GET_MAX, GET_RES, GET_DEF, GET_INFO, GET_LEN.
    std::optional<Bytes> get(uint8_t request, uint8_t selector) const;

  private:
    Personality personality_;
    CommandState& state_;
};

}  // namespace virtcam::model
