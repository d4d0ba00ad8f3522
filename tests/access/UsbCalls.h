// What the device layer passes to libusb beyond what the virtual bus records: the length and
// time-out of each bulk write, and which of the library's locks are held during a call; and a
// failure that the bus does not play. The calls are link-wrapped, see CMakeLists.txt.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace test {

struct UsbCall {
    std::string name;  ///< without "libusb_"
    int length = 0;    ///< bytes of a transfer
    unsigned int timeout_ms = 0;
    bool control_lock_held = false;      ///< by the caller
    bool enumeration_lock_held = false;  ///< by the caller
};

/// Begins to record, with nothing recorded yet. Recording asks another thread about the locks, so
/// it is for short sequences.
void watch_usb_calls();
/// Ends the recording: the calls in order.
std::vector<UsbCall> take_usb_calls();

/// Calls `action` before every control and bulk transfer, on its thread; null ends it.
void before_each_transfer(std::function<void()> action);

/// While on, libusb_init makes a context and fails all the same.
void fail_init_with_context(bool on);

}  // namespace test
