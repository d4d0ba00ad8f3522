// When the work of a front end is done: at its own time, earlier when asked, at once when poked.
#include "virtcam/line/ticker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <optional>
#include <utility>

namespace virtcam::line::test {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::seconds;
using TimePoint = Ticker::TimePoint;

TimePoint now() {
    return std::chrono::steady_clock::now();
}

/// Counts the steps; each wants the next one in an hour, unless `next` says otherwise.
class TickerTest : public ::testing::Test {
  protected:
    ~TickerTest() override { ticker_.stop(); }

    TimePoint step() {
        const std::unique_lock lock(mutex_);
        ++steps_;
        changed_.notify_all();
        return std::exchange(next_, std::nullopt).value_or(now() + hours(1));
    }

    bool reaches(int steps) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, seconds(20), [&] { return steps_ >= steps; });
    }

    void next_step_wants(TimePoint when) {
        const std::lock_guard lock(mutex_);
        next_ = when;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    int steps_ = 0;
    std::optional<TimePoint> next_;
    Ticker ticker_{[this] { return step(); }};
};

TEST_F(TickerTest, StepsAgainWhenTheStepWantedIt) {
    const TimePoint due = now() + milliseconds(5);
    next_step_wants(due);
    ticker_.start();
    ASSERT_TRUE(reaches(2));
    EXPECT_GE(now(), due);
}

TEST_F(TickerTest, StepsEarlierWhenAskedWhileItWaits) {
    ticker_.start();
    ASSERT_TRUE(reaches(1));
    const TimePoint due = now() + milliseconds(5);
    ticker_.wake_by(due);
    ASSERT_TRUE(reaches(2));
    EXPECT_GE(now(), due);
}

TEST_F(TickerTest, AWishForLaterChangesNothing) {
    ticker_.start();
    ASSERT_TRUE(reaches(1));
    ticker_.wake_by(now() + milliseconds(5));
    ticker_.wake_by(now() + hours(2));
    EXPECT_TRUE(reaches(2));
}

TEST_F(TickerTest, StepsAtOnceWhenPoked) {
    ticker_.start();
    ASSERT_TRUE(reaches(1));
    ticker_.poke();
    EXPECT_TRUE(reaches(2));
}

TEST_F(TickerTest, StopsWhileItWaitsAndStartsAgain) {
    ticker_.start();
    ASSERT_TRUE(reaches(1));
    ticker_.stop();
    ticker_.start();
    EXPECT_TRUE(reaches(2));
}

/// Whoever feeds the front end must not wait for a step that is long under way.
class DuringTheStep : public ::testing::Test {
  protected:
    ~DuringTheStep() override {
        gate_.open();
        ticker_.stop();
    }

    TimePoint step() {
        if (steps_.fetch_add(1) == 0) {
            inside_.set_value();
            opened_.wait();
        } else {
            again_.set_value();
        }
        return now() + hours(1);
    }

    class Gate {
      public:
        void open() {
            if (!std::exchange(open_, true)) {
                opened_.set_value();
            }
        }
        std::future<void> opened() { return opened_.get_future(); }

      private:
        std::promise<void> opened_;
        bool open_ = false;
    };

    std::atomic<int> steps_{0};
    std::promise<void> inside_;
    std::promise<void> again_;
    Gate gate_;
    std::future<void> opened_ = gate_.opened();
    Ticker ticker_{[this] { return step(); }};
};

TEST_F(DuringTheStep, AWishIsHeardAlthoughTheStepWantsAnHour) {
    ticker_.start();
    inside_.get_future().wait();
    ticker_.wake_by(now() + milliseconds(5));  // returns: the step still stands at its gate
    gate_.open();
    EXPECT_EQ(again_.get_future().wait_for(seconds(20)), std::future_status::ready);
}

}  // namespace
}  // namespace virtcam::line::test
