// What can be chosen about a virtual camera before it is switched on.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "virtcam/model/usb.h"

namespace virtcam::model {

#ifndef AITCAM_VENDOR_ID
#define AITCAM_VENDOR_ID 0x114D
#endif

struct CameraConfig {
    enum class Identity { kBootCode, kRunTime };
    enum class BootCode {
        kNewer,  ///< interfaces 0, 1, 2; bulk and extension-unit download
        kOlder,  ///< interface 0 only; extension-unit download
    };

    uint16_t vendor_id = AITCAM_VENDOR_ID;
    uint16_t product_id = usb::kProductRunTime;  ///< with the run-time identity
    Identity identity = Identity::kBootCode;     ///< what it enumerates as when power arrives
    BootCode boot_code = BootCode::kNewer;

    uint32_t departure_ms = 50;      ///< burn acknowledged → off the bus (0 to 100)
    uint32_t reenumerate_ms = 1500;  ///< off the bus → back with the run-time identity
    bool returns = true;             ///< false: never comes back after a burn

    uint32_t max_payload = 8192;  ///< dwMaxPayloadTransferSize offered, 512 to 65536
    bool header_only_eof = true;  ///< each frame ends with a header-only payload
    bool paced = true;            ///< false: the next frame is due as soon as the last was taken
    bool audio_paced = true;      ///< kept for front ends: false lets iso run unpaced

    std::string source;            ///< Y4M file to show; empty: the generated scene
    uint32_t tone_hz = 1000;       ///< microphone: tone, with a click each second
    uint32_t seed = 1;             ///< texture of the generated scene
    uint16_t lux = 320;            ///< ambient light that the sensor reports
    uint8_t self_test_result = 0;  ///< first reply byte of the video self test, 0: passed

    /// Reads the members named as above from a JSON object ("identity": "boot-code" | "run-time",
    /// "boot_code": "newer" | "older"; the rest by their names). Throws std::invalid_argument with
    /// a sentence that names the member when a name is unknown or a value out of range.
    static CameraConfig from_json(const nlohmann::json& object);
};

}  // namespace virtcam::model
