// The time by which the camera and its front ends go.
#pragma once

#include <chrono>

namespace virtcam::model {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

}  // namespace virtcam::model
