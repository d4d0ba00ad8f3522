// What the plug-in reports through the completion callback of Init.
#pragma once

#include <mutex>

#include "host/base/wake_event.h"

namespace camhost {

/// The callback is a plain function without user data, so its receiver is one per process. It is
/// called on a thread of the plug-in: once when Init has ended, and again with false when the
/// camera goes away later.
class InitReport {
  public:
    struct Answer {
        unsigned calls = 0;
        bool usable = false;  ///< of the last call
    };

    static InitReport& instance();
    /// The function to hand to Init.
    static void on_init_done(bool usable);

    /// Forgets earlier calls and wakes `wake` at each new one; null ends that. The controlling
    /// thread, while no camera exists.
    void listen(WakeEvent* wake);
    Answer answer() const;

  private:
    mutable std::mutex mutex_;
    WakeEvent* wake_ = nullptr;
    Answer answer_;
};

}  // namespace camhost
