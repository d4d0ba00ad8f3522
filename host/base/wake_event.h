// Wakes the one thread that controls the camera, from any other thread.
#pragma once

#include <chrono>

namespace camhost {

using Clock = std::chrono::steady_clock;

/// A wake-up that stays until it is consumed, so that none is lost between test and wait.
class WakeEvent {
  public:
    WakeEvent();
    ~WakeEvent();
    WakeEvent(const WakeEvent&) = delete;
    WakeEvent& operator=(const WakeEvent&) = delete;

    /// Any thread.
    void signal();
    /// Waits until signal() or `deadline` and consumes the signal. The controlling thread only.
    void wait_until(Clock::time_point deadline);
    /// Consumes a signal without waiting.
    void clear();
    /// Readable while a signal is pending; for poll() beside other descriptors.
    int fd() const { return fd_; }

  private:
    int fd_;
};

}  // namespace camhost
