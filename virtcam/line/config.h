// What can be chosen about the virtual bus before it starts.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "virtcam/model/camera_config.h"

namespace virtcam::line {

/// Another device that is listed beside the camera; it cannot be opened.
struct OtherDevice {
    uint16_t vendor_id = 0;
    uint16_t product_id = 0;
    std::string name;  ///< product text of the bus listing
};

/// Members and defaults are documented in docs/virtual-bus.md.
struct Config {
    model::CameraConfig camera;
    std::string listing = "/proc/bus/usb/devices";  ///< empty: no listing is kept
    bool kernel_drivers = false;  ///< drivers of an ordinary kernel are bound at each arrival
    bool present = true;          ///< the camera is plugged in at the start
    bool iso_paced = true;        ///< one isochronous packet per millisecond and endpoint
    bool quiet = false;           ///< complaints are recorded but not printed
    std::vector<std::string> expected_complaints;  ///< whole lines that are not printed
    std::vector<OtherDevice> other_devices;
    nlohmann::json rules = nlohmann::json::array();  ///< "faults" followed by "events"

    /// Throws std::invalid_argument with a sentence that names the member at fault.
    static Config from_json(const nlohmann::json& root);
    /// Reads the file; an empty path gives the defaults. Throws like from_json.
    static Config from_file(const std::string& path);
};

}  // namespace virtcam::line
