// The time by which the camera and its front ends go.
#pragma once

#include <chrono>
#include <cstdint>

namespace virtcam::model {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// Number of the bus's frame of 1 ms at a moment: 11 bits (USB 2.0, 8.4.3.1).
inline uint16_t bus_frame_number(TimePoint now) {
    constexpr auto kFrameNumbers = 2048;
    const auto frames =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
    return static_cast<uint16_t>(frames % kFrameNumbers);
}

}  // namespace virtcam::model
