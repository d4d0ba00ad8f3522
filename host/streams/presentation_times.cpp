#include "host/streams/presentation_times.h"

#include <algorithm>

#include "host/streams/statistics.h"

namespace camhost {

namespace {

int64_t microseconds(Clock::duration duration) {
    return std::chrono::duration_cast<std::chrono::microseconds>(duration).count();
}

}  // namespace

int64_t PresentationTimes::next(const Record& record, bool restarted) {
    if (!last_) {
        last_ = microseconds(record.arrival.time_since_epoch());
    } else if (restarted) {
        *last_ += microseconds(record.arrival - last_arrival_);
    } else {
        constexpr int64_t kMicrosecondsPerSecond = 1'000'000;
        constexpr int64_t kTicksPerSecond = 90'000;
        const auto ticks = static_cast<int32_t>(record.time_stamp - last_time_stamp_);
        *last_ += std::max(ticks, 0) % StreamStatistics::kClockJumpTicks * kMicrosecondsPerSecond /
                  kTicksPerSecond;
    }
    last_time_stamp_ = record.time_stamp;
    last_arrival_ = record.arrival;
    return *last_;
}

}  // namespace camhost
