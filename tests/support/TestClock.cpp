#include "tests/support/TestClock.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>

extern "C" {
unsigned int __real_sleep(unsigned int seconds);
int __real_usleep(useconds_t microseconds);
int __real_nanosleep(const timespec* duration, timespec* rest);
int __real_gettimeofday(timeval* now, void* zone);
}

namespace test {

using std::chrono::microseconds;

namespace {
constexpr microseconds kLongSleep{10000};
constexpr size_t kMostSleeps = 100'000;  // of a usual test

void pass(microseconds duration) {
    const auto count = duration.count();
    timespec rest{static_cast<time_t>(count / 1000000), static_cast<long>(count % 1000000) * 1000};
    __real_nanosleep(&rest, nullptr);
}

}  // namespace

struct TestClock::State {
    // The thread that sleeps asks for no memory: tests of its own requests count them.
    State() { sleeps.reserve(kMostSleeps); }

    std::mutex mutex;
    bool shortened = true;
    microseconds limit{1000};
    std::vector<SleepCall> sleeps;
    std::function<void(const SleepCall&)> hook;
    std::function<bool()> busy;
    std::vector<timeval> readings;
    size_t next_reading = 0;
};

TestClock& TestClock::instance() {
    static TestClock clock;
    return clock;
}

TestClock::State& TestClock::state() {
    static auto* state = new State;  // outlives every thread of the code under test
    return *state;
}

void TestClock::shorten(microseconds limit) {
    std::lock_guard lock(state().mutex);
    state().shortened = true;
    state().limit = limit;
}

void TestClock::lengthen_while(std::function<bool()> busy) {
    std::lock_guard lock(state().mutex);
    state().busy = std::move(busy);
}

void TestClock::real_time() {
    std::lock_guard lock(state().mutex);
    state().shortened = false;
}

void TestClock::reset() {
    std::lock_guard lock(state().mutex);
    state().shortened = true;
    state().limit = std::chrono::milliseconds(1);
    state().sleeps.clear();
    state().hook = nullptr;
    state().readings.clear();
    state().next_reading = 0;
}

std::vector<SleepCall> TestClock::sleeps() const {
    std::lock_guard lock(state().mutex);
    return state().sleeps;
}

size_t TestClock::count(microseconds duration) const {
    const auto calls = sleeps();
    return static_cast<size_t>(
        std::count_if(calls.begin(), calls.end(),
                      [&](const SleepCall& call) { return call.duration == duration; }));
}

void TestClock::on_sleep(std::function<void(const SleepCall&)> hook) {
    std::lock_guard lock(state().mutex);
    state().hook = std::move(hook);
}

void TestClock::set_wall_clock(std::vector<timeval> readings) {
    std::lock_guard lock(state().mutex);
    state().readings = std::move(readings);
    state().next_reading = 0;
}

void TestClock::sleep_called(SleepCall::Function function, microseconds duration) {
    const SleepCall call{function, duration, std::this_thread::get_id()};
    std::function<void(const SleepCall&)> hook;
    std::function<bool()> busy;
    {
        std::lock_guard lock(state().mutex);
        state().sleeps.push_back(call);
        if (duration >= kLongSleep) {
            hook = state().hook;
            if (state().shortened) {
                busy = state().busy;
                duration = std::min(duration, state().limit);
            }
        }
    }
    if (hook) {
        hook(call);
    }
    pass(duration);
    constexpr microseconds kRound{1000};
    for (microseconds rest = call.duration - duration; busy && rest.count() > 0 && busy();
         rest -= kRound) {
        pass(kRound);
    }
}

std::optional<timeval> TestClock::next_wall_clock() {
    std::lock_guard lock(state().mutex);
    if (state().readings.empty()) {
        return std::nullopt;
    }
    const size_t index = std::min(state().next_reading, state().readings.size() - 1);
    ++state().next_reading;
    return state().readings[index];
}

}  // namespace test

extern "C" {

unsigned int __wrap_sleep(unsigned int seconds) {
    test::TestClock::instance().sleep_called(test::SleepCall::Function::kSleep,
                                             std::chrono::seconds(seconds));
    return 0;
}

int __wrap_usleep(useconds_t duration) {
    test::TestClock::instance().sleep_called(test::SleepCall::Function::kUsleep,
                                             std::chrono::microseconds(duration));
    return 0;
}

int __wrap_nanosleep(const timespec* duration, timespec*) {
    test::TestClock::instance().sleep_called(
        test::SleepCall::Function::kNanosleep,
        std::chrono::seconds(duration->tv_sec) +
            std::chrono::microseconds(duration->tv_nsec / 1000));
    return 0;
}

int __wrap_gettimeofday(timeval* now, void* zone) {
    const auto reading = test::TestClock::instance().next_wall_clock();
    if (!reading) {
        return __real_gettimeofday(now, zone);
    }
    *now = *reading;
    return 0;
}
}
