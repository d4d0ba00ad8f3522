// Why a camera on the machine's own bus cannot be used, and what to do about it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace camhost {

/// Where the kernel tells of its USB devices.
struct UsbFolders {
    std::filesystem::path devices = "/sys/bus/usb/devices";
    std::filesystem::path nodes = "/dev/bus/usb";
    std::filesystem::path memory = "/sys/module/usbcore/parameters/usbfs_memory_mb";
};

/// Sentences, each with its cure; empty when nothing is wrong that can be seen from here.
std::vector<std::string> cures(const UsbFolders& folders = {});

}  // namespace camhost
