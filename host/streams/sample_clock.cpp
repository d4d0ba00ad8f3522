#include "host/streams/sample_clock.h"

#include <algorithm>

namespace camhost {

void SampleClock::restart(int rate) {
    before_ = summary();
    rate_ = rate;
    frames_ = 0;
    lateness_.clear();
}

void SampleClock::add(std::chrono::duration<double, std::milli> when, size_t frames) {
    frames_ += frames;
    lateness_.push_back(when.count() - static_cast<double>(frames_) * 1000 / rate_);
}

SampleClock::Summary SampleClock::summary() const {
    Summary result = gaps_of_run();
    result.gaps += before_.gaps;
    result.missing += before_.missing;
    return result;
}

SampleClock::Summary SampleClock::gaps_of_run() const {
    // The last ones may still be caught up with: the earliest of them counts for all.
    constexpr size_t kUndecided = 10;
    Summary result;
    if (lateness_.size() <= kUndecided) {
        return result;
    }
    auto at = lateness_.rbegin() + kUndecided;
    double floor = *std::min_element(lateness_.rbegin(), at);
    for (; at != lateness_.rend(); ++at) {
        // Backwards: `floor` is the least that any later delivery was late.
        if (floor - *at > kToleranceMs) {
            ++result.gaps;
            result.missing += static_cast<uint64_t>((floor - *at) * rate_ / 1000);
        }
        floor = std::min(floor, *at);
    }
    return result;
}

}  // namespace camhost
