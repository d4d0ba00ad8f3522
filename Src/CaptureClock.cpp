#include "CaptureClock.h"

#include <sys/time.h>

unsigned long GetTickCount() {
    timeval now;
    gettimeofday(&now, nullptr);
    const uint64_t microseconds =
        static_cast<uint64_t>(now.tv_sec) * 1000000u + static_cast<uint64_t>(now.tv_usec);
    return static_cast<uint32_t>(microseconds);
}

void CaptureClock::Advance() {
    const uint32_t tick = Reading();
    if (tick > m_nLastTick) {
        m_nTimestamp += tick - m_nLastTick;
    } else {
        m_nTimestamp += uint64_t{0xFFFFFFFFu - m_nLastTick} + tick;
    }
    m_nLastTick = tick;
}

uint32_t CaptureClock::Cts() const {
    constexpr double kTicksPerMicrosecond = 0.09;
    return static_cast<uint32_t>(
        static_cast<uint64_t>(static_cast<double>(m_nTimestamp) * kTicksPerMicrosecond));
}
