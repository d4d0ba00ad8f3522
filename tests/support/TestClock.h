// Time under the test's control: the sleeps and the wall clock of the statically linked plug-in are
// link-wrapped (see CMakeLists.txt) and come here. The virtual bus, a library of its own, keeps
// real time.
#pragma once

#include <sys/time.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

namespace test {

/// One sleep that the code under test asked for.
struct SleepCall {
    enum class Function { kSleep, kUsleep, kNanosleep } function;
    std::chrono::microseconds duration;
    std::thread::id thread;
};

class TestClock {
  public:
    static TestClock& instance();

    /// Sleeps of 10 ms and more are cut to `limit` (default 1 ms); shorter ones stay real. All are
    /// recorded with the length that was asked for. This is the state that reset() gives.
    void shorten(std::chrono::microseconds limit = std::chrono::milliseconds(1));
    /// A sleep that is cut goes on while this holds, for as long as was asked for at most: what a
    /// device of real time does meanwhile is done at its end. Kept by reset(); empty: none.
    void lengthen_while(std::function<bool()> busy);
    /// Sleeps take their real time.
    void real_time();
    /// Forgets records, hook and clock override, and shortens.
    void reset();

    std::vector<SleepCall> sleeps() const;
    /// Number of recorded sleeps of exactly this length.
    size_t count(std::chrono::microseconds duration) const;

    /// Called before each sleep of 10 ms and more, on the sleeping thread, without locks held.
    void on_sleep(std::function<void(const SleepCall&)> hook);

    /// What gettimeofday answers to the code under test, once per call; the last element stays.
    /// Empty: real time.
    void set_wall_clock(std::vector<timeval> readings);

    // For the wrappers.
    void sleep_called(SleepCall::Function function, std::chrono::microseconds duration);
    std::optional<timeval> next_wall_clock();

  private:
    TestClock() = default;
    struct State;
    static State& state();
};

}  // namespace test
