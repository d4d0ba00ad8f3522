// What tests steer: scripted streams, held completions, waiting.
#include <algorithm>

#include "virtcam/bus/bus.h"

namespace virtcam::bus {

size_t Bus::pending(uint8_t endpoint) {
    const std::lock_guard lock(mutex_);
    const auto found = queues_.find(endpoint);
    return found == queues_.end() ? 0 : found->second.urbs.size();
}

std::optional<unsigned> Bus::last_timeout(uint8_t endpoint) {
    const std::lock_guard lock(mutex_);
    const auto found = queues_.find(endpoint);
    return found == queues_.end() ? std::nullopt : found->second.last_timeout;
}

bool Bus::wait_until(const std::function<bool()>& predicate, std::chrono::milliseconds limit) {
    constexpr auto kPoll = std::chrono::milliseconds(10);  // for what the bus does not see change
    const TimePoint deadline = std::chrono::steady_clock::now() + limit;
    while (!predicate()) {
        const TimePoint now = std::chrono::steady_clock::now();
        if (now >= deadline) {
            return false;
        }
        Lock lock(mutex_);
        change_.wait_until(lock, std::min(deadline, now + kPoll));
    }
    return true;
}

void Bus::script_stream(bool on) {
    const std::lock_guard lock(mutex_);
    scripted_ = on;
    for (auto& [endpoint, queue] : queues_) {
        queue.scripted.clear();
        queue.started = false;
    }
    serve_all();
    clock_ticker_->poke();
}

void Bus::push(uint8_t endpoint, Outcome outcome) {
    const std::lock_guard lock(mutex_);
    queues_[endpoint].scripted.push_back(std::move(outcome));
    serve(endpoint);
}

void Bus::hold(uint8_t endpoint) {
    const std::lock_guard lock(mutex_);
    queues_[endpoint].hold = true;
}

void Bus::release_held(uint8_t endpoint) {
    const std::lock_guard lock(mutex_);
    auto& queue = queues_[endpoint];
    queue.hold = false;
    for (Urb* urb : std::exchange(queue.held, {})) {
        publish(*urb);
    }
}

}  // namespace virtcam::bus
