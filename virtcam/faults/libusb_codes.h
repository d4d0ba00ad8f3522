// The error codes of libusb's interface that failures are written in; this side has no libusb.
#pragma once

namespace virtcam::faults {

inline constexpr int kErrorNoDevice = -4;
inline constexpr int kErrorTimeout = -7;
inline constexpr int kErrorOverflow = -8;
inline constexpr int kErrorPipe = -9;

}  // namespace virtcam::faults
