#include "virtcam/line/ticker.h"

#include <algorithm>

namespace virtcam::line {

void Ticker::start() {
    const std::lock_guard lock(mutex_);
    stopping_ = false;
    thread_ = std::thread([this] { run(); });
}

void Ticker::stop() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Ticker::poke() {
    {
        const std::lock_guard lock(mutex_);
        poked_ = true;
    }
    wake_.notify_all();
}

void Ticker::run() {
    // Far enough for 'never', near enough that no clock conversion overflows.
    constexpr auto kIdle = std::chrono::hours(1);
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        poked_ = false;
        lock.unlock();
        const TimePoint next = step_();
        lock.lock();
        const TimePoint limit = std::min(next, std::chrono::steady_clock::now() + kIdle);
        wake_.wait_until(lock, limit, [this] { return poked_ || stopping_; });
    }
}

}  // namespace virtcam::line
