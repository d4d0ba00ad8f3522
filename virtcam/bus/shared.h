// What the classes of the bus have in common: the lock, the complaints, the number of resets.
//
// The rule of the lock. One lock guards everything that these classes know. Whoever comes from
// outside takes it (locked() in call.h for a program's calls, Bus for tests and tickers) and holds
// it while he calls them; they call each other with it. Functions whose comment says "without the
// lock" take it themselves, because they wait or run the program's callbacks. It is never held
// while a callback runs or while Camera::advance() makes pictures; it may be held while the camera
// answers a request. Order: event lock of a context, waiter lock of a context, this lock, then the
// locks of camera, tickers and complaints, which are taken for a moment only.
#pragma once

#include <condition_variable>
#include <mutex>

#include "virtcam/bus/complaint_log.h"

namespace virtcam::bus {

using Hold = std::unique_lock<std::mutex>;

struct Shared {
    std::mutex lock;
    std::condition_variable change;  ///< raised at every change that a test may wait for
    ComplaintLog complaints;
    /// Counts resets. Objects of an earlier generation stay usable but are nobody's leak any more.
    unsigned generation = 0;

    void changed() { change.notify_all(); }
};

}  // namespace virtcam::bus
