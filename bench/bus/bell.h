// What threads sleep on for lack of work.
#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <ctime>

namespace bench {

/// A futex, so that nobody else's wake-ups are counted.
class Bell {
  public:
    uint32_t reading() const { return count_.load(); }
    void ring() {
        count_.fetch_add(1);
        if (sleepers_.load() != 0) {
            syscall(SYS_futex, &count_, FUTEX_WAKE_PRIVATE, 64, nullptr, nullptr, 0);
        }
    }
    /// Sleeps until it rings after `reading` was taken, or until `deadline` (CLOCK_MONOTONIC, ns).
    void wait(uint32_t reading, uint64_t deadline) {
        constexpr uint64_t kSecond = 1'000'000'000;
        sleepers_.fetch_add(1);
        if (count_.load() == reading) {
            const timespec until = {static_cast<time_t>(deadline / kSecond),
                                    static_cast<long>(deadline % kSecond)};
            syscall(SYS_futex, &count_, FUTEX_WAIT_BITSET_PRIVATE, reading, &until, nullptr,
                    FUTEX_BITSET_MATCH_ANY);
        }
        sleepers_.fetch_sub(1);
    }

  private:
    std::atomic<uint32_t> count_{0};
    std::atomic<int> sleepers_{0};
};

}  // namespace bench
