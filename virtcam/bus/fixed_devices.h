// The devices beside the camera: the root hub and those that the configuration adds.
#pragma once

#include <memory>
#include <vector>

#include "virtcam/bus/objects.h"
#include "virtcam/line/config.h"

namespace virtcam::bus {

/// The root hub, at address 1, followed by the others at ports 1, 2, ...
std::vector<std::shared_ptr<const DeviceInfo>> make_fixed_devices(
    const std::vector<line::OtherDevice>& others);

}  // namespace virtcam::bus
