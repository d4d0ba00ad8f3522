#include "host/session/cures.h"

#include <unistd.h>

#include <fstream>

#include "host/base/text.h"

namespace camhost {

namespace {

/// The camera's USB vendor, as the kernel writes it. The plug-in has its own: what judges it takes
/// no constant from it.
constexpr const char* kVendor = "114d";

/// The first word of the file; empty when it cannot be read.
std::string word_of(const std::filesystem::path& file) {
    std::string word;
    std::ifstream(file) >> word;
    return word;
}

int32_t number_of(const std::filesystem::path& file) {
    int32_t number = -1;
    parse_int(word_of(file), &number);
    return number;
}

std::string node_of(const std::filesystem::path& device, const UsbFolders& folders) {
    return folders.nodes / format("%03d", number_of(device / "busnum")) /
           format("%03d", number_of(device / "devnum"));
}

}  // namespace

std::vector<std::string> cures(const UsbFolders& folders) {
    std::vector<std::string> found;
    bool is_there = false;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folders.devices, error)) {
        if (word_of(entry.path() / "idVendor") != kVendor) {
            continue;
        }
        is_there = true;
        const std::string node = node_of(entry.path(), folders);
        if (access(node.c_str(), R_OK | W_OK) != 0) {
            found.push_back("no permission to use " + node +
                            ": install the udev rule (package aitorixcamera, or "
                            "packaging/60-aitorixcamera.rules.in), or run as root");
        }
    }
    if (!is_there) {
        found.push_back(std::string("the kernel sees no USB device of vendor ") + kVendor +
                        ": is the camera plugged in?");
    }
    constexpr int32_t kEnoughMib = 16;  // the kernel's default
    if (const int32_t mib = number_of(folders.memory); mib > 0 && mib < kEnoughMib) {
        found.push_back(
            format("usbfs may use %d MiB only, too little for the streams: echo 16 | "
                   "sudo tee %s",
                   mib, folders.memory.c_str()));
    }
    return found;
}

}  // namespace camhost
