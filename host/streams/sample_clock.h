// Missing sound, found by counting samples.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace camhost {

/// Deliveries of sound come in unequal pieces at unequal times; what is missing shows in their sum
/// only. One thread.
class SampleClock {
  public:
    /// Jitter of a shared machine and of the pieces stays below this.
    static constexpr double kToleranceMs = 100;

    explicit SampleClock(int rate = 16'000) : rate_(rate) {}

    /// A delivery of `frames` samples (of all channels) that was complete at `when`.
    void add(std::chrono::duration<double, std::milli> when, size_t frames);
    /// Sound begins anew, at this rate (Hz).
    void restart(int rate);

    /// Places at which sound is missing.
    size_t gaps() const { return gaps_; }
    /// Samples that are missing there, all together.
    uint64_t missing() const { return missing_; }

  private:
    int rate_;
    bool begun_ = false;
    double begin_ms_ = 0;  ///< when the first sample would have been, by the earliest delivery
    uint64_t frames_ = 0;  ///< delivered and missing, since then
    size_t gaps_ = 0;
    uint64_t missing_ = 0;
};

}  // namespace camhost
