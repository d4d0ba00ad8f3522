#include "host/streams/sample_clock.h"

#include <algorithm>

namespace camhost {

void SampleClock::restart(int rate) {
    rate_ = rate;
    begun_ = false;
}

void SampleClock::add(std::chrono::duration<double, std::milli> when, size_t frames) {
    const double per_ms = rate_ / 1000.0;
    if (!begun_) {
        begun_ = true;
        frames_ = 0;
        begin_ms_ = when.count() - static_cast<double>(frames) / per_ms;
    }
    frames_ += frames;
    const double late = when.count() - begin_ms_ - static_cast<double>(frames_) / per_ms;
    if (late < 0) {
        begin_ms_ += late;  // An earlier one was late itself.
    } else if (late > kToleranceMs) {
        const auto missing = static_cast<uint64_t>(late * per_ms);
        ++gaps_;
        missing_ += missing;
        frames_ += missing;
    }
}

}  // namespace camhost
