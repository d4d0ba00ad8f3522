// The clock of an isochronous endpoint: one packet each millisecond.
#pragma once

#include <chrono>
#include <optional>

#include "virtcam/model/clock.h"

namespace virtcam::line {

/// No host controller schedules here, so the device keeps the time. A host that is late loses no
/// packets: the next request is due by the clock, not by the answer before it. Only when nothing
/// has waited for a while the clock starts anew.
class IsoClock {
  public:
    /// A request is first in line at `now`.
    void resume(model::TimePoint now) {
        if (!running_ || (idle_since_ && now - *idle_since_ >= kPause)) {
            at_ = now;
        }
        running_ = true;
        idle_since_.reset();
    }
    /// When a request of `packets` packets, first in line, is to be answered.
    model::TimePoint due(size_t packets) const { return at_ + std::chrono::milliseconds(packets); }
    void answered(size_t packets) { at_ += std::chrono::milliseconds(packets); }
    /// Nothing waits any more.
    void idle(model::TimePoint now) { idle_since_ = now; }
    /// The next request starts the clock, however soon it comes.
    void stop() { running_ = false; }

  private:
    static constexpr std::chrono::milliseconds kPause{200};

    bool running_ = false;
    model::TimePoint at_{};  ///< end of the last packet delivered
    std::optional<model::TimePoint> idle_since_;
};

}  // namespace virtcam::line
