// From the time of one clock to that of another which is seen a little late.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

namespace gstcam {

/// Maps times of a local clock (the 90 kHz time of a capture thread, or the number of samples
/// played) to times of the pipeline's clock. Each mapping brings the instant at which the time was
/// seen, which is late by what passed in between, never early. So the offset follows early sights
/// at once and late ones slowly: it lies at the lower edge of what is seen, and follows the drift
/// of the clocks against each other. Nanoseconds. One thread.
class OffsetTracker {
  public:
    /// A sight that lies further than `tolerance` from the mapped time makes a new beginning: the
    /// local clock jumped, or began anew. Where sights may be late by more than that now and then,
    /// they must all be so for the time of `patience` to count.
    explicit OffsetTracker(int64_t tolerance, int64_t patience = 0)
        : tolerance_(tolerance), patience_(patience) {}

    /// The instant of `local`, at most `seen`.
    int64_t map(int64_t local, int64_t seen) {
        const int64_t sight = seen - local;
        began_anew_ = !offset_ || *offset_ - sight > tolerance_ || stays_late(sight, seen);
        if (began_anew_ || sight < *offset_) {
            offset_ = late_ ? late_->least : sight;
            late_.reset();
        } else if (!late_) {
            *offset_ += (sight - *offset_) / kSlowness;
        }
        return local + *offset_;
    }

    /// True when the last map() began anew; the first one does.
    bool began_anew() const { return began_anew_; }
    void reset() {
        offset_.reset();
        late_.reset();
    }

  private:
    /// At 30 sights a second, 500 ppm of drift (the most that a clock is slewed) leave 1 ms.
    static constexpr int64_t kSlowness = 64;

    struct Lateness {
        int64_t since;
        int64_t least;  ///< of the sights since then
    };

    /// True when the sights have been too late for long enough.
    bool stays_late(int64_t sight, int64_t seen) {
        if (!offset_ || sight - *offset_ <= tolerance_) {
            late_.reset();
            return false;
        }
        late_ =
            late_ ? Lateness{late_->since, std::min(late_->least, sight)} : Lateness{seen, sight};
        return seen - late_->since >= patience_;
    }

    const int64_t tolerance_;
    const int64_t patience_;
    std::optional<int64_t> offset_;
    std::optional<Lateness> late_;
    bool began_anew_ = false;
};

}  // namespace gstcam
