// Standard and class descriptors of the camera's two identities.
#pragma once

#include <cstdint>
#include <string>

#include "virtcam/model/bytes.h"
#include "virtcam/model/camera_config.h"

namespace virtcam::model {

/// What the device is on the bus at the moment.
enum class Personality {
    kBootNewer,  ///< boot code with the bulk download interface
    kBootOlder,  ///< boot code with interface 0 only
    kRunTime,    ///< the camera: UVC 1.00 and UAC 1.0
};

namespace descriptors {

Bytes device(Personality personality, const CameraConfig& config);
/// DEVICE_QUALIFIER (USB 2.0, 9.6.2): no other speed is supported, the fields repeat the device's.
Bytes device_qualifier(Personality personality);
/// CONFIGURATION 1 with everything that follows it, wTotalLength filled in.
Bytes configuration(Personality personality);
/// UTF-8 text of string 1 (maker), 2 (product), 3 (serial number); empty for others.
std::string text(Personality personality, uint8_t index);
/// STRING descriptor `index`, 0 being the language list; empty when there is none.
Bytes string(Personality personality, uint8_t index);

/// True when alternate setting `alternate` of interface `number` exists.
bool has_alternate(Personality personality, uint8_t number, uint8_t alternate);
/// True when the configuration has this endpoint in any alternate setting.
bool has_endpoint(Personality personality, uint8_t address);

}  // namespace descriptors
}  // namespace virtcam::model
