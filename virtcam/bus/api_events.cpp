// Exported functions: event handling and its locks.
#include <libusb-1.0/libusb.h>
#include <sys/time.h>

#include <chrono>

#include "virtcam/bus/call.h"

using virtcam::bus::Bus;
using virtcam::bus::bus;
using virtcam::bus::locked;
using virtcam::bus::TimePoint;

namespace {

constexpr timeval kLongWait{60, 0};  // libusb's own for the calls without a time-out

bool valid(const timeval& time) {
    return time.tv_sec >= 0 && time.tv_usec >= 0 && time.tv_usec < 1'000'000;
}

TimePoint after(const timeval& time) {
    return std::chrono::steady_clock::now() + std::chrono::seconds(time.tv_sec) +
           std::chrono::microseconds(time.tv_usec);
}

libusb_context* resolve(libusb_context* context, const char* call) {
    return locked([&](Bus& bus) { return bus.contexts().resolve(context, call); });
}

/// @param completed the program's flag; null: none.
int handle_events(libusb_context* context, const timeval& time, int* completed, const char* name) {
    const auto action = bus().begin_call(name, std::nullopt);
    if (action.result) {
        return *action.result;
    }
    libusb_context* const meant = resolve(context, name);
    if (meant == nullptr || !valid(time)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return bus().events().handle_events(meant, after(time), [completed] {
        return completed != nullptr && __atomic_load_n(completed, __ATOMIC_ACQUIRE) != 0;
    });
}

}  // namespace

int LIBUSB_CALL libusb_handle_events_timeout_completed(libusb_context* context, struct timeval* tv,
                                                       int* completed) {
    return handle_events(context, *tv, completed, "libusb_handle_events_timeout_completed");
}

int LIBUSB_CALL libusb_handle_events_timeout(libusb_context* context, struct timeval* tv) {
    return handle_events(context, *tv, nullptr, "libusb_handle_events_timeout");
}

int LIBUSB_CALL libusb_handle_events(libusb_context* context) {
    return handle_events(context, kLongWait, nullptr, "libusb_handle_events");
}

int LIBUSB_CALL libusb_handle_events_completed(libusb_context* context, int* completed) {
    return handle_events(context, kLongWait, completed, "libusb_handle_events_completed");
}

int LIBUSB_CALL libusb_handle_events_locked(libusb_context* context, struct timeval* tv) {
    libusb_context* const meant = resolve(context, "libusb_handle_events_locked");
    if (meant == nullptr || !valid(*tv)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return bus().events().handle_events_locked(meant, after(*tv));
}

int LIBUSB_CALL libusb_try_lock_events(libusb_context* context) {
    libusb_context* const meant = resolve(context, "libusb_try_lock_events");
    return meant != nullptr && bus().events().try_lock_events(meant) ? 0 : 1;
}

void LIBUSB_CALL libusb_lock_events(libusb_context* context) {
    if (auto* const meant = resolve(context, "libusb_lock_events")) {
        bus().events().lock_events(meant);
    }
}

void LIBUSB_CALL libusb_unlock_events(libusb_context* context) {
    if (auto* const meant = resolve(context, "libusb_unlock_events")) {
        bus().events().unlock_events(meant);
    }
}

int LIBUSB_CALL libusb_event_handling_ok(libusb_context* context) {
    auto* const meant = resolve(context, "libusb_event_handling_ok");
    return meant != nullptr && bus().events().event_handling_ok(meant);
}

int LIBUSB_CALL libusb_event_handler_active(libusb_context* context) {
    auto* const meant = resolve(context, "libusb_event_handler_active");
    return meant != nullptr && bus().events().event_handler_active(meant);
}

void LIBUSB_CALL libusb_interrupt_event_handler(libusb_context* context) {
    if (auto* const meant = resolve(context, "libusb_interrupt_event_handler")) {
        bus().events().interrupt(meant);
    }
}

void LIBUSB_CALL libusb_lock_event_waiters(libusb_context* context) {
    if (auto* const meant = resolve(context, "libusb_lock_event_waiters")) {
        meant->waiters.lock();
    }
}

void LIBUSB_CALL libusb_unlock_event_waiters(libusb_context* context) {
    if (auto* const meant = resolve(context, "libusb_unlock_event_waiters")) {
        meant->waiters.unlock();
    }
}

int LIBUSB_CALL libusb_wait_for_event(libusb_context* context, struct timeval* tv) {
    libusb_context* const meant = resolve(context, "libusb_wait_for_event");
    if (meant == nullptr || (tv != nullptr && !valid(*tv))) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const auto deadline = tv == nullptr ? std::nullopt : std::optional(after(*tv));
    return bus().events().wait_for_event(meant, deadline) ? 1 : 0;
}

int LIBUSB_CALL libusb_get_next_timeout(libusb_context* context, struct timeval* tv) {
    libusb_context* const meant = resolve(context, "libusb_get_next_timeout");
    if (meant == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const auto next = locked([&](Bus& bus) { return bus.channels().next_expiry(meant); });
    if (!next) {
        return 0;
    }
    const auto left = std::max(std::chrono::duration_cast<std::chrono::microseconds>(
                                   *next - std::chrono::steady_clock::now()),
                               std::chrono::microseconds(0));
    tv->tv_sec = static_cast<time_t>(left.count() / 1'000'000);
    tv->tv_usec = static_cast<suseconds_t>(left.count() % 1'000'000);
    return 1;
}
