// Event handling: the only place where completions reach the program.
//
// As in libusb, one thread at a time handles the events of a context, holding its event lock
// through the callbacks; others wait until it has finished a round or their own business is done.
#pragma once

#include <functional>
#include <optional>

#include "virtcam/bus/channels.h"
#include "virtcam/bus/port.h"
#include "virtcam/bus/transfers.h"

namespace virtcam::bus {

/// All functions without the lock (shared.h), unless they say otherwise.
class EventLoop {
  public:
    using Finished = std::function<bool()>;

    EventLoop(Shared& shared, Port& port, Channels& channels, Transfers& transfers)
        : shared_(shared), port_(port), channels_(channels), transfers_(transfers) {}

    /// One round of event handling; waits at most until `deadline`, less when `finished()` holds.
    int handle_events(libusb_context* context, TimePoint deadline, const Finished& finished);
    /// The same for a caller that holds the event lock.
    int handle_events_locked(libusb_context* context, TimePoint deadline);
    /// True, with a complaint, when the calling thread is in a callback of the context: it must not
    /// handle events there.
    bool refused_in_callback(const libusb_context* context);

    bool try_lock_events(libusb_context* context);
    void lock_events(libusb_context* context);
    void unlock_events(libusb_context* context);
    bool event_handling_ok(libusb_context* context);
    bool event_handler_active(libusb_context* context);
    void interrupt(libusb_context* context);
    /// Waits with the waiter lock held. Returns true when the time was over.
    bool wait_for_event(libusb_context* context, std::optional<TimePoint> deadline);

    /// Runs `work`, with the lock, while nobody hands over completions of the context, or from
    /// inside one of its callbacks.
    void exclude(libusb_context* context, const std::function<void()>& work);

  private:
    int run_events(libusb_context* context, TimePoint deadline);
    /// Waits, with the lock, for something to hand over.
    void wait(libusb_context* context, TimePoint deadline, Hold& hold);
    /// Called and left with the lock, which it gives up for the callback.
    void deliver(Urb& urb, Hold& hold);

    Shared& shared_;
    Port& port_;
    Channels& channels_;
    Transfers& transfers_;
};

}  // namespace virtcam::bus
