// What the table at the end of a recording is made of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/streams/record.h"
#include "host/streams/sample_clock.h"

namespace camhost {

/// Intervals between deliveries of one stream, in milliseconds.
class IntervalTracker {
  public:
    struct Summary {
        size_t gaps = 0;  ///< intervals longer than kGapFactor times the median
        double median_ms = 0;
        double longest_ms = 0;
    };
    /// One picture missing doubles the interval; jitter of a shared machine stays below this.
    static constexpr double kGapFactor = 1.75;

    void add(double milliseconds) { intervals_.push_back(static_cast<float>(milliseconds)); }
    Summary summary() const;

  private:
    std::vector<float> intervals_;
};

struct StreamSummary {
    Stream stream = Stream::kPcm;
    uint64_t records = 0;
    uint64_t pictures = 0;  ///< H.264: access units; elsewhere the same as records
    uint64_t bytes = 0;
    uint64_t end_markers = 0;
    uint64_t dropped = 0;          ///< records that camhost itself could not take, see RecordQueue
    uint64_t restarts = 0;         ///< times that recording was restarted
    uint64_t steps_back = 0;       ///< time stamps before the one that they follow, restarts apart
    uint64_t missing_samples = 0;  ///< PCM: what its gaps come to
    uint64_t clock_jumps = 0;      ///< see StreamStatistics::kClockJumpTicks
    double seconds = 0;            ///< from the first arrival to the last
    IntervalTracker::Summary arrival;
    std::optional<IntervalTracker::Summary> time_stamps;

    double records_per_second() const;  ///< 0 when there are too few to tell
    double kilobits_per_second() const;
};

/// Gathers one stream's figures, record by record. One thread.
class StreamStatistics {
  public:
    /// The plug-in takes two equal readings of its microsecond clock for a wrap of 32 bits, and its
    /// time stamps then jump by 2^32 - 1 us (4295 s). Such jumps are counted and taken out of the
    /// intervals, which would show nothing else.
    static constexpr int32_t kClockJumpTicks = 386'547'056;

    /// @param sample_rate of sound, in Hz.
    explicit StreamStatistics(Stream stream, int sample_rate = 16'000)
        : stream_(stream), sample_rate_(sample_rate), sound_(sample_rate) {}

    /// `pictures` is the number of pictures that the record completes; `restarted` tells that it is
    /// the first after a restart of recording, so that its time stamp begins anew.
    void add(const Record& record, uint64_t pictures, bool restarted);
    /// The rate of the sound from the next restart on.
    void set_sample_rate(int hertz) { sample_rate_ = hertz; }
    StreamSummary summary() const;
    uint64_t records() const { return totals_.records; }

  private:
    void add_interval(const Record& record, bool restarted);
    void add_time_stamp_interval(int32_t ticks);

    Stream stream_;
    int sample_rate_ = 16'000;
    SampleClock sound_;
    StreamSummary totals_;
    Clock::time_point first_arrival_;
    Clock::time_point last_arrival_;
    Clock::time_point last_delivery_;
    uint32_t last_time_stamp_ = 0;
    IntervalTracker arrivals_;
    IntervalTracker time_stamps_;
};

}  // namespace camhost
