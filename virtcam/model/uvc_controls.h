// The standard controls of the camera terminal and the processing unit: one table with their
// ranges, and the values that the host has set.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "virtcam/model/bytes.h"

namespace virtcam::model {

enum class Control : uint8_t {
    kPan,
    kTilt,
    kFocus,
    kZoom,
    kBacklight,
    kBrightness,
    kContrast,
    kGain,
    kPowerLine,
    kHue,
    kSaturation,
    kSharpness,
    kGamma,
    kWhiteBalance,
    kWhiteBalanceAuto,
    kCount,
};

/// One number inside a control block: most blocks hold one, pan and tilt share theirs.
struct ControlField {
    Control id;
    std::string_view name;
    uint8_t entity;    ///< 1 camera terminal, 3 processing unit
    uint8_t selector;  ///< UVC 1.00, tables A-12 and A-13
    uint8_t offset;    ///< of the number in the block, bytes
    uint8_t width;     ///< of the number, bytes
    bool is_signed;
    int32_t min, max, resolution, initial;
};

/// All fields, in the order of `Control`.
std::span<const ControlField> control_fields();

/// Block length of a control in bytes; 0 when the entity has no such control.
uint16_t control_length(uint8_t entity, uint8_t selector);

class UvcControls {
  public:
    UvcControls();

    int32_t value(Control id) const { return values_[static_cast<size_t>(id)]; }

    /// True while an automatic mode sets the control, so that a host cannot.
    bool automatic(uint8_t entity, uint8_t selector) const;

    /// SET_CUR. Numbers are clamped to their range and read back clamped. False (stall) when there
    /// is no such control, the length is not its own, or it is automatic().
    bool set(uint8_t entity, uint8_t selector, ByteView block);

    /// GET_CUR, GET_MIN, GET_MAX, GET_RES, GET_DEF, GET_INFO and GET_LEN; nothing (stall) for
    /// anything else.
    std::optional<Bytes> get(uint8_t request, uint8_t entity, uint8_t selector) const;

  private:
    std::array<int32_t, static_cast<size_t>(Control::kCount)> values_;
};

}  // namespace virtcam::model
