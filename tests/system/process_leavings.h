// What a camera object may leave behind in this process.
#pragma once

#include <cstddef>

namespace system_test {

/// Threads of this process.
size_t thread_count();

/// USB devices that this process holds open, those that have left the bus included.
size_t open_usb_devices();

/// Device handles that the plug-in says it has left open for good, since this process began: libusb
/// before 1.0.27 cannot close the handle of a device whose loss is first noticed by the choice of
/// an alternate setting. Standard output must be a file: what the plug-in logs is read from there.
/// Throws std::runtime_error when it is none.
size_t handles_left_open();

}  // namespace system_test
