// The guest kernel's view of the camera: sysfs and device nodes.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace system_test {

inline constexpr int kProductBootCode = 0x2065;
inline constexpr int kProductRunTime = 0x2066;
inline constexpr char kVideoDriver[] = "uvcvideo";
inline constexpr char kAudioDriver[] = "snd-usb-audio";

/// Polls until `condition` holds. False when it does not within `limit`.
bool wait_until(const std::function<bool()>& condition, std::chrono::milliseconds limit);

/// Product ID of the device at the virtual controller's first port; -1: nothing there.
int product_id();
/// Address of that device on the bus, which grows with every enumeration; -1: nothing there.
int device_number();
/// Name of the driver that is bound to an interface of it; empty: none.
std::string driver_of(int interface);
/// Binds a driver. False when the kernel refuses.
bool bind_driver(const std::string& driver, int interface);
/// True when uvcvideo and snd-usb-audio hold the camera and their nodes can be opened.
bool kernel_uses_camera();
/// Path of the video node that delivers pictures; empty: none.
std::string video_node();

}  // namespace system_test
