// Ctrl-C: the first asks, the second leaves.
#pragma once

#include <signal.h>

#include <atomic>
#include <thread>

#include "host/base/wake_event.h"

namespace camhost {

/// Takes SIGINT and SIGTERM on a thread of its own, so that no signal cuts short a wait inside the
/// plug-in. Make it before any other thread exists: the others inherit the blocked mask.
/// The first signal sets requested() and wakes the controlling thread; a second one, while the
/// first is not answered with clear(), ends the process at once with ExitCode::kInterrupted.
class InterruptWatcher {
  public:
    explicit InterruptWatcher(WakeEvent& wake);
    ~InterruptWatcher();
    InterruptWatcher(const InterruptWatcher&) = delete;
    InterruptWatcher& operator=(const InterruptWatcher&) = delete;

    bool requested() const { return requested_.load(); }
    /// Forgets the request; the next signal is a first one again.
    void clear() { requested_.store(false); }

  private:
    void run();
    void on_signal();

    WakeEvent& wake_;
    WakeEvent stop_;
    sigset_t previous_mask_;
    int signals_;
    std::atomic<bool> requested_{false};
    std::thread thread_;
};

}  // namespace camhost
