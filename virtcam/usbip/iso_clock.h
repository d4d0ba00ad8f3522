// The clock of an isochronous endpoint: one packet each millisecond.
#pragma once

#include <chrono>

#include "virtcam/model/clock.h"

namespace virtcam::usbip {

/// The kernel's virtual host controller schedules nothing, so the device keeps the time. Being
/// late now and then must not slow the stream down: the next request is due by the clock, not by
/// the answer before it. Only after a pause the clock starts anew.
class IsoClock {
  public:
    /// When a request of `packets` packets, next in line at `now`, is to be answered.
    model::TimePoint due(size_t packets, model::TimePoint now) {
        if (now - at_ > kPause) {
            at_ = now;
        }
        return at_ + std::chrono::milliseconds(packets);
    }
    void answered(size_t packets) { at_ += std::chrono::milliseconds(packets); }

  private:
    static constexpr std::chrono::milliseconds kPause{200};
    model::TimePoint at_{};
};

}  // namespace virtcam::usbip
