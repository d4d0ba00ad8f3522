// The time base that the video and the audio capture threads share.
#pragma once

#include <stdint.h>

/// Wall-clock time in microseconds, cut to 32 bits: it wraps about every 71.6 minutes.
unsigned long GetTickCount();

/// Time since a capture thread started, advanced once a turn from wrapping tick readings.
class CaptureClock {
  public:
    CaptureClock() : m_nLastTick(Reading()) {}

    /// Reads the tick and adds what has passed since the last reading. A reading that is not
    /// greater counts as a wrap of the counter, an equal one too.
    void Advance();

    /// 90 kHz presentation time, cut to 32 bits.
    uint32_t Cts() const;

  private:
    static uint32_t Reading() { return static_cast<uint32_t>(GetTickCount()); }

    uint64_t m_nTimestamp = 0;  // microseconds
    uint32_t m_nLastTick;
};
