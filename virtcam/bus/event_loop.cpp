#include "virtcam/bus/event_loop.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "virtcam/bus/status_codes.h"

namespace virtcam::bus {
namespace {

/// Context whose callbacks this thread is running, to refuse event handling from inside them.
thread_local const libusb_context* handled_here = nullptr;

class HandlingScope {
  public:
    explicit HandlingScope(const libusb_context* context) : outer_(handled_here) {
        handled_here = context;
    }
    ~HandlingScope() { handled_here = outer_; }
    HandlingScope(const HandlingScope&) = delete;
    HandlingScope& operator=(const HandlingScope&) = delete;

  private:
    const libusb_context* outer_;
};

void copy_bounded(uint8_t* target, size_t room, const std::vector<uint8_t>& data) {
    if (const size_t count = std::min(room, data.size()); count != 0) {
        std::memcpy(target, data.data(), count);
    }
}

void hand_over_packets(libusb_transfer& transfer, const line::Ending& ending) {
    size_t offset = 0;
    for (int i = 0; i < transfer.num_iso_packets; ++i) {
        auto& packet = transfer.iso_packet_desc[i];
        packet.actual_length = 0;
        packet.status = LIBUSB_TRANSFER_COMPLETED;
        if (static_cast<size_t>(i) < ending.packets.size()) {
            const line::PacketEnding& result = ending.packets[static_cast<size_t>(i)];
            copy_bounded(transfer.buffer + offset, packet.length, result.data);
            packet.actual_length = static_cast<unsigned>(result.count);
            packet.status = to_libusb(result.status);
        }
        offset += packet.length;
    }
    transfer.actual_length = 0;  // libusb counts nothing for isochronous transfers
}

void hand_over_data(libusb_transfer& transfer, const line::Ending& ending) {
    const size_t header =
        transfer.type == LIBUSB_TRANSFER_TYPE_CONTROL ? LIBUSB_CONTROL_SETUP_SIZE : 0;
    copy_bounded(transfer.buffer + header, static_cast<size_t>(transfer.length) - header,
                 ending.data);
    transfer.actual_length = static_cast<int>(ending.count);
    const bool is_short = ending.count + header < static_cast<size_t>(transfer.length);
    if ((transfer.flags & LIBUSB_TRANSFER_SHORT_NOT_OK) != 0 && is_short &&
        transfer.status == LIBUSB_TRANSFER_COMPLETED) {
        transfer.status = LIBUSB_TRANSFER_ERROR;
    }
}

void hand_over(const Urb& urb) {
    libusb_transfer& transfer = *urb.transfer;
    transfer.status = to_libusb(urb.ending.status);
    if (urb.is_iso()) {
        hand_over_packets(transfer, urb.ending);
    } else {
        hand_over_data(transfer, urb.ending);
    }
}

}  // namespace

bool EventLoop::refused_in_callback(const libusb_context* context) {
    if (handled_here != context) {
        return false;
    }
    shared_.complaints.raise("events_in_callback",
                             "event handling or a synchronous call inside a completion callback");
    return true;
}

bool EventLoop::try_lock_events(libusb_context* context) {
    {
        const Hold hold(shared_.lock);
        if (context->closing != 0) {
            return false;
        }
    }
    if (!context->events.try_lock()) {
        return false;
    }
    const Hold hold(shared_.lock);
    context->handler_active = true;
    return true;
}

void EventLoop::lock_events(libusb_context* context) {
    context->events.lock();
    const Hold hold(shared_.lock);
    context->handler_active = true;
}

void EventLoop::unlock_events(libusb_context* context) {
    {
        const Hold hold(shared_.lock);
        context->handler_active = false;
    }
    context->events.unlock();
    const std::lock_guard waiters(context->waiters);
    context->waiters_wake.notify_all();
}

bool EventLoop::event_handling_ok(libusb_context* context) {
    const Hold hold(shared_.lock);
    return context->closing == 0;
}

bool EventLoop::event_handler_active(libusb_context* context) {
    const Hold hold(shared_.lock);
    return context->closing != 0 || context->handler_active;
}

void EventLoop::interrupt(libusb_context* context) {
    const Hold hold(shared_.lock);
    context->interrupted = true;
    context->wake.notify_all();
}

bool EventLoop::wait_for_event(libusb_context* context, std::optional<TimePoint> deadline) {
    // The caller holds the lock through libusb_lock_event_waiters() and keeps it afterwards.
    std::unique_lock waiters(context->waiters, std::adopt_lock);
    bool over = false;
    if (deadline) {
        over = context->waiters_wake.wait_until(waiters, *deadline) == std::cv_status::timeout;
    } else {
        context->waiters_wake.wait(waiters);
    }
    waiters.release();
    return over;
}

int EventLoop::handle_events(libusb_context* context, TimePoint deadline,
                             const Finished& finished) {
    if (refused_in_callback(context)) {
        return LIBUSB_ERROR_BUSY;
    }
    for (;;) {
        if (try_lock_events(context)) {
            const int result = finished() ? LIBUSB_SUCCESS : run_events(context, deadline);
            unlock_events(context);
            return result;
        }
        std::unique_lock waiters(context->waiters);
        if (finished()) {
            return LIBUSB_SUCCESS;
        }
        if (event_handler_active(context)) {
            context->waiters_wake.wait_until(waiters, deadline);
            return LIBUSB_SUCCESS;
        }
    }
}

int EventLoop::handle_events_locked(libusb_context* context, TimePoint deadline) {
    return refused_in_callback(context) ? LIBUSB_ERROR_BUSY : run_events(context, deadline);
}

void EventLoop::exclude(libusb_context* context, const std::function<void()>& work) {
    if (handled_here == context) {
        const Hold hold(shared_.lock);
        work();
        return;
    }
    {
        const Hold hold(shared_.lock);
        ++context->closing;
        context->wake.notify_all();
    }
    lock_events(context);
    {
        const Hold hold(shared_.lock);
        --context->closing;
        work();
    }
    unlock_events(context);
}

int EventLoop::run_events(libusb_context* context, TimePoint deadline) {
    const HandlingScope scope(context);
    {
        Hold hold(shared_.lock);
        port_.sync();
        wait(context, deadline, hold);
        context->interrupted = false;
        // Only what is ready now: a callback that submits again must not keep the loop here.
        for (size_t left = context->completed.size(); left != 0 && !context->completed.empty();
             --left) {
            Urb* const urb = context->completed.front();
            context->completed.pop_front();
            deliver(*urb, hold);
        }
    }
    const std::lock_guard waiters(context->waiters);
    context->waiters_wake.notify_all();
    return LIBUSB_SUCCESS;
}

void EventLoop::wait(libusb_context* context, TimePoint deadline, Hold& hold) {
    for (;;) {
        const TimePoint now = model::Clock::now();
        channels_.expire(context, now);
        if (!context->completed.empty() || context->interrupted || context->closing != 0 ||
            now >= deadline) {
            return;
        }
        const TimePoint expiry = channels_.next_expiry(context).value_or(deadline);
        context->wake.wait_until(hold, std::min(deadline, expiry));
    }
}

void EventLoop::deliver(Urb& urb, Hold& hold) {
    libusb_transfer& transfer = *urb.transfer;
    hand_over(urb);
    urb.state = Urb::State::kIdle;  // from here on it may be submitted or freed
    const bool free_after = (transfer.flags & LIBUSB_TRANSFER_FREE_TRANSFER) != 0;
    shared_.changed();
    const auto callback = transfer.callback;
    if (callback == nullptr) {
        return;  // a synchronous call, which sees the state
    }
    hold.unlock();
    callback(&transfer);
    hold.lock();
    if (free_after) {
        auto freed = transfers_.take(&transfer);
        hold.unlock();
        release(std::move(freed));
        hold.lock();
    }
}

}  // namespace virtcam::bus
