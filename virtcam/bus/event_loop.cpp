// Event handling: the only place where completions reach the program.
//
// As in libusb, one thread at a time handles the events of a context, holding its event lock
// through the callbacks; others wait until it has finished a round or their own business is done.
#include <algorithm>
#include <cstring>
#include <vector>

#include "virtcam/bus/bus.h"
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

}  // namespace

bool Bus::in_callback_of(const libusb_context* context) {
    return handled_here == context;
}

void Bus::refuse_in_callback() {
    complaints_.raise("events_in_callback",
                      "event handling or a synchronous call inside a completion callback");
}

bool Bus::try_lock_events(libusb_context* context) {
    {
        const std::lock_guard lock(mutex_);
        if (context->closing != 0) {
            return false;
        }
    }
    if (!context->events.try_lock()) {
        return false;
    }
    const std::lock_guard lock(mutex_);
    context->handler_active = true;
    return true;
}

void Bus::lock_events(libusb_context* context) {
    context->events.lock();
    const std::lock_guard lock(mutex_);
    context->handler_active = true;
}

void Bus::unlock_events(libusb_context* context) {
    {
        const std::lock_guard lock(mutex_);
        context->handler_active = false;
    }
    context->events.unlock();
    const std::lock_guard waiters(context->waiters);
    context->waiters_wake.notify_all();
}

bool Bus::event_handling_ok(libusb_context* context) {
    const std::lock_guard lock(mutex_);
    return context->closing == 0;
}

bool Bus::event_handler_active(libusb_context* context) {
    const std::lock_guard lock(mutex_);
    return context->closing != 0 || context->handler_active;
}

void Bus::interrupt(libusb_context* context) {
    const std::lock_guard lock(mutex_);
    context->interrupted = true;
    context->wake.notify_all();
}

bool Bus::wait_for_event(libusb_context* context, std::optional<TimePoint> deadline) {
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

int Bus::handle_events(libusb_context* context, TimePoint deadline, const Finished& finished) {
    if (in_callback_of(context)) {
        refuse_in_callback();
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

int Bus::handle_events_locked(libusb_context* context, TimePoint deadline) {
    if (in_callback_of(context)) {
        refuse_in_callback();
        return LIBUSB_ERROR_BUSY;
    }
    return run_events(context, deadline);
}

std::vector<Urb*> Bus::expiring(const libusb_context* context) const {
    std::vector<Urb*> urbs;
    for (const auto& [address, channel] : channels_) {
        for (line::Request* const request : channel.endpoint.waiting()) {
            auto* const urb = static_cast<Urb*>(request);
            if (urb->handle->context == context && urb->expires) {
                urbs.push_back(urb);
            }
        }
    }
    std::stable_sort(urbs.begin(), urbs.end(),
                     [](const Urb* a, const Urb* b) { return *a->expires < *b->expires; });
    return urbs;
}

std::optional<TimePoint> Bus::next_expiry(libusb_context* context) {
    const std::lock_guard lock(mutex_);
    const auto urbs = expiring(context);
    return urbs.empty() ? std::nullopt : urbs.front()->expires;
}

/// Ends what has timed out, in the order of the due times.
void Bus::expire(libusb_context* context, TimePoint now) {
    std::vector<Urb*> late = expiring(context);
    std::erase_if(late, [&](const Urb* urb) { return *urb->expires > now; });
    for (Urb* urb : late) {
        finish(*urb, line::ended(faults::Status::kTimedOut));
    }
    for (Urb* urb : late) {
        serve(channel(urb->endpoint));  // what was queued behind it
    }
}

int Bus::run_events(libusb_context* context, TimePoint deadline) {
    const HandlingScope scope(context);
    {
        Lock lock(mutex_);
        sync_presence();
        for (;;) {
            const TimePoint now = std::chrono::steady_clock::now();
            expire(context, now);
            if (!context->completed.empty() || context->interrupted || context->closing != 0 ||
                now >= deadline) {
                break;
            }
            const auto urbs = expiring(context);
            const auto first = urbs.empty() ? std::nullopt : urbs.front()->expires;
            context->wake.wait_until(lock, std::min(deadline, first.value_or(deadline)));
        }
        context->interrupted = false;
        // Only what is ready now: a callback that submits again must not keep the loop here.
        for (size_t left = context->completed.size(); left != 0 && !context->completed.empty();
             --left) {
            Urb* const urb = context->completed.front();
            context->completed.pop_front();
            deliver(*urb, lock);
        }
    }
    const std::lock_guard waiters(context->waiters);
    context->waiters_wake.notify_all();
    return LIBUSB_SUCCESS;
}

void Bus::deliver(Urb& urb, Lock& lock) {
    libusb_transfer& transfer = *urb.transfer;
    transfer.status = to_libusb(urb.ending.status);
    if (transfer.type == LIBUSB_TRANSFER_TYPE_ISOCHRONOUS) {
        hand_over_packets(transfer, urb.ending);
    } else {
        hand_over_data(transfer, urb.ending);
    }
    urb.state = Urb::State::kIdle;  // from here on it may be submitted or freed
    const bool free_after = (transfer.flags & LIBUSB_TRANSFER_FREE_TRANSFER) != 0;
    changed();
    const auto callback = transfer.callback;
    if (callback == nullptr) {
        return;  // a synchronous call, which sees the state
    }
    lock.unlock();
    callback(&transfer);
    if (free_after) {
        free(&transfer);
    }
    lock.lock();
}

void Bus::close(libusb_device_handle* handle) {
    if (handle == nullptr) {
        return;
    }
    libusb_context* context = nullptr;
    {
        const std::lock_guard lock(mutex_);
        if (!usable(handle, "libusb_close")) {
            return;
        }
        context = handle->context;
    }
    if (in_callback_of(context)) {
        const std::lock_guard lock(mutex_);
        close_locked(handle);
        return;
    }
    {
        // Nobody may be handing over a transfer of this handle meanwhile.
        const std::lock_guard lock(mutex_);
        ++context->closing;
        context->wake.notify_all();
    }
    lock_events(context);
    {
        const std::lock_guard lock(mutex_);
        --context->closing;
        close_locked(handle);
    }
    unlock_events(context);
}

}  // namespace virtcam::bus
