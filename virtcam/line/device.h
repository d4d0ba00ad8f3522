// The far end of the line: the camera, and the failures that are scripted for it.
#pragma once

#include <optional>

#include "virtcam/faults/rule_set.h"
#include "virtcam/line/ending.h"
#include "virtcam/line/request.h"
#include "virtcam/model/camera.h"

namespace virtcam::line {

/// What endpoints put requests to. The front end that owns it serialises the calls.
class Device {
  public:
    virtual ~Device() = default;

    virtual model::Camera& camera() = 0;
    virtual faults::RuleSet& rules() = 0;
    /// Carries out a change of presence. May withdraw requests from any endpoint.
    virtual void run(faults::DeviceAction action) = 0;
    /// True when isochronous endpoints keep to one packet per millisecond.
    virtual bool iso_paced() const = 0;
    /// The device's answer to a request at `now`, nothing when it has none yet. The camera's, unless a front
    /// end has others.
    virtual std::optional<Ending> answer(const Request& request, model::TimePoint now);
};

}  // namespace virtcam::line
