// What tests steer: scripted streams, held completions, waiting.
#include <algorithm>

#include "virtcam/bus/bus.h"

namespace virtcam::bus {

size_t Bus::pending(uint8_t endpoint) {
    const std::lock_guard lock(mutex_);
    const auto found = channels_.find(endpoint);
    return found == channels_.end() ? 0 : found->second.endpoint.waiting().size();
}

std::optional<unsigned> Bus::last_timeout(uint8_t endpoint) {
    const std::lock_guard lock(mutex_);
    const auto found = channels_.find(endpoint);
    return found == channels_.end() ? std::nullopt : found->second.last_timeout;
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
    for (auto& [address, channel] : channels_) {
        channel.scripted.clear();
        channel.endpoint.stop_clock();
    }
    serve_all();
    clock_ticker_->poke();
}

void Bus::push(uint8_t endpoint, line::Ending ending) {
    const std::lock_guard lock(mutex_);
    Channel& target = channel(endpoint);
    target.scripted.push_back(std::move(ending));
    serve(target);
}

void Bus::hold(uint8_t endpoint) {
    const std::lock_guard lock(mutex_);
    channel(endpoint).hold = true;
}

void Bus::release_held(uint8_t endpoint) {
    const std::lock_guard lock(mutex_);
    Channel& queue = channel(endpoint);
    queue.hold = false;
    for (Urb* urb : std::exchange(queue.held, {})) {
        publish(*urb);
    }
}

}  // namespace virtcam::bus
