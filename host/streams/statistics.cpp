#include "host/streams/statistics.h"

#include <algorithm>

namespace camhost {

namespace {

double milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

constexpr double kTicksPerMillisecond = 90;

}  // namespace

IntervalTracker::Summary IntervalTracker::summary() const {
    Summary result;
    if (intervals_.empty()) {
        return result;
    }
    std::vector<float> sorted = intervals_;
    const auto middle = sorted.begin() + static_cast<ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end());
    result.median_ms = *middle;
    result.longest_ms = *std::max_element(sorted.begin(), sorted.end());
    result.gaps = static_cast<size_t>(std::count_if(sorted.begin(), sorted.end(), [&](float each) {
        return each > kGapFactor * result.median_ms;
    }));
    return result;
}

double StreamSummary::records_per_second() const {
    return seconds > 0 && records > 1 ? static_cast<double>(records - 1) / seconds : 0;
}

double StreamSummary::kilobits_per_second() const {
    return seconds > 0 && records > 1 ? static_cast<double>(bytes) * 8 / 1000 / seconds : 0;
}

void StreamStatistics::add(const Record& record, uint64_t pictures, bool restarted) {
    if (record.end_of_stream) {
        ++totals_.end_markers;
        return;
    }
    if (stream_ == Stream::kPcm) {
        if (restarted) {
            sound_.restart(sample_rate_);
        }
        constexpr size_t kFrameBytes = 4;  // 16-bit stereo
        sound_.add(record.arrival.time_since_epoch(), record.data.size() / kFrameBytes);
    }
    if (totals_.records == 0) {
        first_arrival_ = record.arrival;
        last_delivery_ = record.arrival;
        last_time_stamp_ = record.time_stamp;
    } else {
        add_interval(record, restarted);
    }
    last_arrival_ = record.arrival;
    ++totals_.records;
    totals_.pictures += pictures;
    totals_.bytes += record.data.size();
}

void StreamStatistics::add_interval(const Record& record, bool restarted) {
    totals_.restarts += restarted ? 1 : 0;
    if (info(stream_).time_stamped) {
        // Modular, as the 32-bit clock is.
        const auto ticks = static_cast<int32_t>(record.time_stamp - last_time_stamp_);
        if (ticks == 0 && !restarted) {
            return;  // Another part of the same delivery: parameter sets, blocks of one transfer.
        }
        last_time_stamp_ = record.time_stamp;
        if (!restarted) {
            add_time_stamp_interval(ticks);
        }
    }
    arrivals_.add(milliseconds(record.arrival - last_delivery_));
    last_delivery_ = record.arrival;
}

void StreamStatistics::add_time_stamp_interval(int32_t ticks) {
    if (ticks < 0) {
        ++totals_.steps_back;
        return;
    }
    totals_.clock_jumps += static_cast<uint64_t>(ticks / kClockJumpTicks);
    time_stamps_.add(ticks % kClockJumpTicks / kTicksPerMillisecond);
}

StreamSummary StreamStatistics::summary() const {
    StreamSummary result = totals_;
    result.stream = stream_;
    if (result.records > 0) {
        result.seconds = milliseconds(last_arrival_ - first_arrival_) / 1000;
    }
    result.arrival = arrivals_.summary();
    if (info(stream_).time_stamped) {
        result.time_stamps = time_stamps_.summary();
    }
    if (stream_ == Stream::kPcm) {
        // Its blocks come by twos and threes, at unequal times: only their sum tells.
        const SampleClock::Summary missing = sound_.summary();
        result.arrival.gaps = missing.gaps;
        result.time_stamps->gaps = missing.gaps;
        result.missing_samples = missing.missing;
    }
    return result;
}

}  // namespace camhost
