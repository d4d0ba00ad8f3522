// The control of one camera, without GStreamer: its thread, those of the plug-in and the caller's.
// ThreadSanitizer sees all of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <thread>

#include "gst/camera_control.h"

namespace gstcam::test {
namespace {

using camhost::Stream;
using camhost::StreamSet;
using std::chrono::milliseconds;
using testing::ElementsAre;

constexpr std::chrono::seconds kPatience{20};

/// Counts what comes.
class Sink : public RecordSink {
  public:
    bool take(Stream stream, const CCameraData&) override {
        ++records_[static_cast<size_t>(stream)];
        return wants_key_.exchange(false);
    }
    void recording_ended() override { ++ended_; }
    void settings(const StreamSettings& settings, bool) override {
        sample_rate_ = settings.sample_rate;
    }

    bool wait_for(Stream stream, int count) const {
        const auto deadline = camhost::Clock::now() + kPatience;
        while (records_[static_cast<size_t>(stream)] < count && camhost::Clock::now() < deadline) {
            std::this_thread::sleep_for(milliseconds(1));
        }
        return records_[static_cast<size_t>(stream)] >= count;
    }

    std::array<std::atomic<int>, camhost::kStreamCount> records_{};
    std::atomic<bool> wants_key_{false};
    std::atomic<int> ended_{0};
    std::atomic<int> sample_rate_{0};
};

class Listener : public CameraListener {
  public:
    void progress(Progress progress) override {
        const std::lock_guard lock(mutex_);
        steps_.push_back(progress);
        changed_.notify_all();
    }
    void failed(Trouble trouble, const std::string&) override {
        const std::lock_guard lock(mutex_);
        trouble_ = trouble;
        changed_.notify_all();
    }
    void warned(const std::string& sentence) override {
        if (on_warning_) {
            on_warning_(sentence);
        }
    }

    std::optional<Trouble> trouble() {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, kPatience, [this] { return trouble_.has_value(); });
        return trouble_;
    }
    bool ready() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [this] {
            return !steps_.empty() && steps_.back() == Progress::kReady;
        });
    }

    std::function<void(const std::string&)> on_warning_;  ///< set before the control is made

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Progress> steps_;
    std::optional<Trouble> trouble_;
};

camhost::Assignment assignment(const char* text) {
    return camhost::parse_assignment(text);
}

class Control : public testing::Test {
  protected:
    void SetUp() override { setenv("FAKE_CAMERA", "", 1); }

    std::unique_ptr<CameraControl> make(std::vector<camhost::Assignment> assignments = {}) {
        CameraControl::Options options;
        options.plugin = getenv("FAKE_PLUGIN");
        options.assignments = std::move(assignments);
        return std::make_unique<CameraControl>(options, sink_, listener_);
    }
    static CameraControl::Wish recording(const StreamSet& streams) {
        CameraControl::Wish wish;
        wish.record = true;
        wish.streams = streams;
        return wish;
    }

    Sink sink_;
    Listener listener_;
};

TEST_F(Control, RecordsWhatIsWishedForAndStops) {
    const auto control = make();
    control->wish(recording({Stream::kH264Main}));
    EXPECT_TRUE(sink_.wait_for(Stream::kH264Main, 5));
    CameraControl::Wish wish = recording({Stream::kH264Main});
    wish.record = false;
    control->wish(wish);
    const auto deadline = camhost::Clock::now() + kPatience;
    while (sink_.ended_ == 0 && camhost::Clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(1));
    }
    EXPECT_EQ(sink_.ended_, 1);
}

/// A wait for a still that nobody asks for would keep a processor busy.
TEST_F(Control, WaitsWhileItRecordsWithoutStills) {
    const auto control = make();
    CameraControl::Wish wish = recording({Stream::kH264Main});
    wish.jpeg_interval = milliseconds(1);
    control->wish(wish);
    ASSERT_TRUE(sink_.wait_for(Stream::kH264Main, 5));
    const auto begin = camhost::Clock::now();
    const std::clock_t used = std::clock();  // of all threads
    ASSERT_TRUE(sink_.wait_for(Stream::kH264Main, 20));
    const std::chrono::duration<double> passed = camhost::Clock::now() - begin;
    EXPECT_LT(static_cast<double>(std::clock() - used) / CLOCKS_PER_SEC, passed.count() / 4);
}

TEST_F(Control, PropertiesAreSetAndReadFromFourThreadsWhileItRecords) {
    const auto control = make({assignment("bitrate=1000000")});
    control->wish(recording({Stream::kH264Main, Stream::kPcm}));
    ASSERT_TRUE(sink_.wait_for(Stream::kH264Main, 1));
    std::vector<std::thread> threads;
    for (const char* text : {"zoom=3", "size=320x240", "sample-rate=24000", "brightness=2"}) {
        threads.emplace_back([&, text] {
            for (int i = 0; i < 20; ++i) {
                control->set(assignment(text));
                control->get(CAM_PROPERTY_BITRATE);
                control->post(assignment("key-frame"));
                sink_.wants_key_ = true;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(control->get(CAM_PROPERTY_ZOOM)->value, 3);
    EXPECT_EQ(control->get(CAM_PROPERTY_BITRATE)->value, 1000000);
    EXPECT_EQ(sink_.sample_rate_, 24000);
    EXPECT_GE(sink_.ended_, 2) << "restarts";
}

TEST_F(Control, PropertyMayBeSetFromInsideAWarning) {
    CameraControl* made = nullptr;
    std::atomic<bool> done{false};
    listener_.on_warning_ = [&](const std::string&) {
        made->set(assignment("zoom=7"));
        done = true;
    };
    const auto control = make();
    made = control.get();
    ASSERT_TRUE(listener_.ready());
    control->wish(recording({Stream::kH264Main}));
    ASSERT_TRUE(sink_.wait_for(Stream::kH264Main, 1));
    control->set(assignment("sharpness=1"));
    EXPECT_TRUE(done);
    EXPECT_EQ(control->get(CAM_PROPERTY_ZOOM)->value, 7);
}

TEST_F(Control, WishThatCannotBeHadIsToldAndTheNextOneIsFollowed) {
    const auto control = make();
    control->wish(recording({Stream::kGray, Stream::kYuy2}));
    EXPECT_EQ(listener_.trouble(), Trouble::kCombination);
    control->wish(recording({Stream::kGray}));
    EXPECT_TRUE(sink_.wait_for(Stream::kGray, 1));
}

TEST_F(Control, EndsWhileCallersSetProperties) {
    auto control = make();
    control->wish(recording({Stream::kH264Main}));
    ASSERT_TRUE(sink_.wait_for(Stream::kH264Main, 1));
    std::atomic<bool> stop{false};
    std::thread setter([&] {
        while (!stop) {
            control->post(assignment("zoom=1"));
            control->get(CAM_PROPERTY_ZOOM);
        }
    });
    std::this_thread::yield();
    stop = true;
    setter.join();
    control.reset();
    EXPECT_GE(sink_.ended_, 1);
}

TEST_F(Control, LossIsTold) {
    setenv("FAKE_CAMERA", "lost", 1);
    const auto control = make();
    control->wish(recording({Stream::kH264Main}));
    EXPECT_EQ(listener_.trouble(), Trouble::kGone);
}

TEST_F(Control, SecondControlFindsTheCameraTaken) {
    const auto first = make();
    ASSERT_TRUE(listener_.ready());
    Listener listener;
    CameraControl::Options options;
    options.plugin = getenv("FAKE_PLUGIN");
    const CameraControl second(options, sink_, listener);
    EXPECT_EQ(listener.trouble(), Trouble::kBusy);
}

TEST_F(Control, BeginsAndEndsAtOnce) {
    for (int i = 0; i < 20; ++i) {
        make();
    }
}

}  // namespace
}  // namespace gstcam::test
