// The clock of the tests themselves: what is cut, and for how long a cut sleep goes on.
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/TestClock.h"

namespace test {
namespace {

using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;

class Clock : public testing::Test {
  protected:
    void SetUp() override { clock().reset(); }
    void TearDown() override {
        clock().lengthen_while(nullptr);
        clock().reset();
    }
    static TestClock& clock() { return TestClock::instance(); }
    static auto asleep(useconds_t duration) {
        const auto begin = Steady::now();
        usleep(duration);
        return Steady::now() - begin;
    }
};

TEST_F(Clock, LongSleepIsCutAndRecordedWithItsLength) {
    EXPECT_LT(asleep(60'000'000), 30s);
    EXPECT_EQ(clock().count(60s), 1U);
}

TEST_F(Clock, CutSleepGoesOnWhileADeviceIsBusy) {
    int rounds = 0;
    clock().lengthen_while([&] { return ++rounds <= 20; });
    const auto slept = asleep(60'000'000);
    EXPECT_EQ(rounds, 21);
    EXPECT_GE(slept, 20ms);
    EXPECT_LT(slept, 30s);
}

TEST_F(Clock, BusyDeviceLengthensNoSleepBeyondWhatWasAskedFor) {
    int rounds = 0;
    clock().lengthen_while([&] {
        ++rounds;
        return true;
    });
    asleep(30'000);
    EXPECT_EQ(rounds, 29) << "a millisecond each, and one that was not cut";
}

TEST_F(Clock, ShortSleepStaysAsItIs) {
    clock().lengthen_while([] { return true; });
    const auto slept = asleep(5'000);
    EXPECT_GE(slept, 5ms);
    EXPECT_EQ(clock().count(5ms), 1U);
}

TEST_F(Clock, ResetKeepsTheDevice) {
    int rounds = 0;
    clock().lengthen_while([&] {
        ++rounds;
        return false;
    });
    clock().reset();
    asleep(30'000);
    EXPECT_EQ(rounds, 1);
}

}  // namespace
}  // namespace test
