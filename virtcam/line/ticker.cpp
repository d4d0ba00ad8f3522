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

void Ticker::wake_by(TimePoint when) {
    {
        const std::lock_guard lock(mutex_);
        if (when >= wake_at_) {
            return;
        }
        wake_at_ = when;
    }
    wake_.notify_all();
}

void Ticker::run() {
    // Far enough for 'never', near enough that no clock conversion overflows.
    constexpr auto kIdle = std::chrono::hours(1);
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        poked_ = false;
        wake_at_ = TimePoint::max();
        lock.unlock();
        const TimePoint next = step_();
        lock.lock();
        wake_at_ = std::min(wake_at_, next);
        for (TimePoint now = std::chrono::steady_clock::now();
             !poked_ && !stopping_ && now < wake_at_; now = std::chrono::steady_clock::now()) {
            wake_.wait_until(lock, std::min(wake_at_, now + kIdle));
        }
    }
}

}  // namespace virtcam::line
