// Missing sound, found by counting samples.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace camhost {

/// Deliveries of sound come in unequal pieces at unequal times, and late ones are made up for: sound
/// is missing where no later delivery ever catches up. One thread.
class SampleClock {
  public:
    struct Summary {
        size_t gaps = 0;       ///< places at which sound is missing
        uint64_t missing = 0;  ///< samples, all together
    };
    /// What is less is no gap: clocks differ, and so do the pieces.
    static constexpr double kToleranceMs = 40;

    explicit SampleClock(int rate = 16'000) : rate_(rate) {}

    /// A delivery of `frames` samples (of all channels) that was complete at `when`.
    void add(std::chrono::duration<double, std::milli> when, size_t frames);
    /// Sound begins anew, at this rate (Hz).
    void restart(int rate);

    Summary summary() const;

  private:
    Summary gaps_of_run() const;

    int rate_;
    uint64_t frames_ = 0;           ///< since the last restart
    std::vector<double> lateness_;  ///< of each delivery since then, in ms from an arbitrary zero
    Summary before_;                ///< of the runs before
};

}  // namespace camhost
