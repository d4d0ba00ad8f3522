// Failures of the C library that the code under test can be made to meet.
#pragma once

#include <time.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <vector>

namespace test {

/// Each member is 0 for the real call, else the error that the call answers (errno value; for
/// malloc family any non-zero value: null). Process-wide, reset with reset_system_calls().
struct SystemCallFailures {
    std::atomic<int> setpriority{0};
    std::atomic<int> pthread_create{0};
    std::atomic<int> pthread_mutexattr_init{0};
    std::atomic<int> calloc{0};
    /// The next `n` timed waits answer EINTR at once.
    std::atomic<int> interrupted_timed_waits{0};
    /// Every further timed wait answers this at once, ETIMEDOUT included.
    std::atomic<int> pthread_cond_timedwait{0};
    /// Timed waits end by a signal only.
    std::atomic<bool> endless_timed_waits{false};
    // What was asked for.
    std::atomic<int> setpriority_calls{0};
    std::atomic<int> setpriority_calls_at_create{0};  ///< how many went before the last thread
    std::atomic<int> last_priority{0};
    std::atomic<int> last_priority_which{-1};
    std::atomic<long> last_priority_who{-1};
    std::atomic<int> timed_wait_calls{0};
    std::atomic<int> detached_threads{0};
};

SystemCallFailures& system_calls();
void reset_system_calls();
/// Called in place of each timed wait, with the mutex let go of and no lock held; the wait then
/// answers ETIMEDOUT. Empty: none. reset_system_calls() takes it away.
void on_timed_wait(std::function<void()> hook);
/// Lengths of the timed waits since the reset, in order: from the thread's last look at the monotonic
/// clock to the deadline that it gave.
std::vector<std::chrono::nanoseconds> timed_wait_lengths();

}  // namespace test
