// Instants of records on the pipeline's clock.
#pragma once

#include <cstdint>

#include "gst/offset_tracker.h"

namespace gstcam {

/// The 90 kHz time of one capture thread of the plug-in, unwrapped and mapped to the pipeline's
/// clock. The plug-in takes two equal readings of its microsecond clock for a wrap of 32 bits, and
/// its time then jumps by 4295 s; a change of the machine's wall clock shows too. Either is a new
/// beginning here. One thread.
class CaptureTimes {
  public:
    /// The instant of a record in ns, at most `seen`.
    int64_t map(uint32_t ticks, int64_t seen) {
        ticks_ += static_cast<int32_t>(ticks - last_);
        last_ = ticks;
        const int64_t instant = tracker_.map(ticks_ * kNanosecondsPer9Ticks / 9, seen);
        jumps_ += tracker_.began_anew() && !fresh_ ? 1 : 0;
        fresh_ = false;
        return instant;
    }

    /// Recording was restarted, and with it the time.
    void reset() {
        tracker_.reset();
        fresh_ = true;
    }
    uint64_t jumps() const { return jumps_; }

  private:
    static constexpr int64_t kNanosecondsPer9Ticks = 100'000;
    static constexpr int64_t kTolerance = 500'000'000;

    OffsetTracker tracker_{kTolerance};
    uint32_t last_ = 0;
    int64_t ticks_ = 0;
    uint64_t jumps_ = 0;
    bool fresh_ = true;
};

/// Begin times of blocks of sound, contiguous while no sample is lost. A block is seen when the
/// transfer that completes it has come, which is anything up to a transfer's length after its last
/// sample. One thread.
class SoundTimes {
  public:
    struct Block {
        int64_t begin = 0;     ///< ns
        int64_t duration = 0;  ///< ns
        bool lost = false;     ///< samples are missing before it
    };

    /// `end`: instant at which the block of so many samples was there.
    Block next(int64_t samples, int64_t rate, int64_t end) {
        const int64_t duration = samples * kSecond / rate;
        const int64_t begin = tracker_.map(elapsed_, end - duration);
        elapsed_ += duration;
        const bool lost = tracker_.began_anew() && !fresh_;
        fresh_ = false;
        return {begin, duration, lost};
    }

    void reset() {
        tracker_.reset();
        fresh_ = true;
    }

  private:
    static constexpr int64_t kSecond = 1'000'000'000;
    static constexpr int64_t kTolerance = 40'000'000;  ///< more than a transfer and two blocks
    /// A thread that was not run for a while finds its blocks all at once, late and complete.
    static constexpr int64_t kPatience = 200'000'000;

    OffsetTracker tracker_{kTolerance, kPatience};
    int64_t elapsed_ = 0;
    bool fresh_ = true;
};

}  // namespace gstcam
