// Every host call in every stage of a camera's life, by one thread and by two.
#include <cstdio>
#include <cstdlib>
#include <future>
#include <optional>

#include "tests/object/CameraTest.h"
#include "tests/object/ParkedLoader.h"

namespace test {
namespace {

/// Stages of a camera's life, in the order of the table's columns.
enum Stage { kCreated, kInitialising, kReady, kPlaying, kGone, kStages };
constexpr const char* kStageNames[] = {"Created", "Initialising", "Ready", "Playing", "Gone"};

bool SetTo(ICameraSubject& camera, CAM_PROPERTY property, int value) {
    CAM_PROP_VALUE param;
    param.value = value;
    return camera.SetProperty(property, &param);
}
bool GetOf(ICameraSubject& camera, CAM_PROPERTY property) {
    CAM_PROP_VALUE param = {};
    return camera.GetProperty(property, &param);
}
/// An observer that comes and goes.
bool Visit(ICameraSubject& camera, CAM_STREAM_TYPE type) {
    RecordingObserver visitor(type);
    const bool came = camera.RegisterObserver(&visitor);
    return camera.RemoveObserver(&visitor) && came;
}

struct HostCall {
    const char* name;
    bool (*make)(ICameraSubject& camera);
    bool answers[kStages];
};

// clang-format off
const HostCall kCalls[] = {
    // call                  created initialising ready playing gone
    {"GetState",             [](auto& c) { return c.GetState() >= CAM_STATE_DISCONNECTED; },
                             {true,  true,        true,  true,  true}},
    {"a main observer",      [](auto& c) { return Visit(c, CAM_STREAM_H264_MAIN); },
                             {true,  true,        true,  true,  true}},
    {"an observer of sound", [](auto& c) { return Visit(c, CAM_STREAM_PCM); },
                             {true,  true,        true,  true,  true}},
    {"StartRecording",       [](auto& c) { return c.StartRecording(); },
                             {true,  true,        true,  true,  true}},
    {"StopRecording",        [](auto& c) { return c.StopRecording(); },
                             {false, false,       false, true,  false}},
    {"set bit rate",         [](auto& c) { return SetTo(c, CAM_PROPERTY_BITRATE, 1000000); },
                             {false, false,       true,  true,  false}},
    {"set an option",        [](auto& c) { return SetTo(c, CAM_PROPERTY_FLIP, 1); },
                             {false, false,       true,  true,  false}},
    {"set signal type",      [](auto& c) { return SetTo(c, CAM_PROPERTY_SIGNAL_TYPE,
                                                        CAM_SIGNAL_H264_YUYV); },  // restarts
                             {false, false,       false, true,  false}},
    {"set sample rate",      [](auto& c) { return SetTo(c, CAM_PROPERTY_SAMPLERATE, 16000); },
                             {true,  true,        true,  true,  true}},
    {"set what does nothing", [](auto& c) { return SetTo(c, CAM_PROPERTY_AUTO_FOCUS, 1); },
                             {true,  true,        true,  true,  true}},
    {"get what is kept",     [](auto& c) { return GetOf(c, CAM_PROPERTY_BITRATE); },
                             {true,  true,        true,  true,  true}},
    {"get from the camera",  [](auto& c) { return GetOf(c, CAM_PROPERTY_LUX); },
                             {false, false,       true,  true,  false}},
    {"GetCapability",        [](auto& c) { return c.GetCapability(CAM_CAPABILITY_SIGNAL_TYPE); },
                             {true,  true,        true,  true,  true}},
    {"OnFrameArrival",       [](auto& c) { return c.OnFrameArrival(nullptr); },
                             {false, false,       false, false, false}},
    {"SetStreamFormat",      [](auto& c) { return c.SetStreamFormat(CAM_STR_FORMAT_TS); },
                             {true,  true,        true,  true,  true}},
    {"Execute",              [](auto& c) { return c.Execute(0, nullptr) != nullptr; },
                             {false, false,       false, false, false}},
    {"StartTest",            [](auto& c) { return c.StartTest(); },
                             {true,  true,        true,  true,  true}},
    {"StopTest",             [](auto& c) { return c.StopTest(); },
                             {true,  true,        true,  true,  true}},
    {"PrintStatus",          [](auto& c) { return c.PrintStatus(); },
                             {true,  true,        true,  true,  true}},
};
// clang-format on

class HostCalls : public CameraTest, public ::testing::WithParamInterface<Stage> {
  protected:
    void SetUp() override {
        Enter();
        ASSERT_NE(camera_, nullptr);
        entered_ = camera_->GetState();
    }

    void Enter() {
        switch (GetParam()) {
            case kCreated:
                return Create();
            case kInitialising:
                Create();
                loader_.emplace([this] { camera_->Init(InitAnswers::Callback, 0); });
                return;
            case kReady:
                return Ready();
            case kPlaying:
                return Playing();
            default:
                Ready(false);
                virtcam::bus::unplug();
                ASSERT_TRUE(InitAnswers::instance().Wait(2));
        }
    }
    /// Undoes what a start or a stop did to the stage.
    void Return() {
        if (GetParam() == kReady && camera_->GetState() == CAM_STATE_PLAYING) {
            EXPECT_TRUE(camera_->StopRecording());
        }
        if (GetParam() == kPlaying && camera_->GetState() == CAM_STATE_READY) {
            EXPECT_TRUE(camera_->StartRecording());
        }
        EXPECT_EQ(camera_->GetState(), entered_);
        log().reset();
    }
    /// The camera still becomes what it would have become, and delivers.
    void ExpectALifeAfterwards() {
        if (GetParam() == kGone) {
            return;
        }
        if (GetParam() == kCreated) {
            ASSERT_TRUE(Init()) << log_listing();
            ExpectUnusualRelease();
        } else if (GetParam() == kInitialising) {
            loader_.reset();
            ASSERT_TRUE(InitAnswers::instance().Wait(1));
            ASSERT_TRUE(InitAnswers::instance().All()[0]) << log_listing();
            ExpectUnusualRelease();
        }
        RecordingObserver main(CAM_STREAM_H264_MAIN), sound(CAM_STREAM_PCM);
        EXPECT_TRUE(camera_->RegisterObserver(&main));
        EXPECT_TRUE(camera_->RegisterObserver(&sound));
        EXPECT_TRUE(camera_->StartRecording());
        EXPECT_TRUE(main.WaitFor(3));
        EXPECT_TRUE(sound.WaitFor(3));
        EXPECT_TRUE(camera_->StopRecording());
        EXPECT_TRUE(camera_->RemoveObserver(&main));
        EXPECT_TRUE(camera_->RemoveObserver(&sound));
    }

    std::optional<ParkedLoader> loader_;
    CAM_STATE entered_ = CAM_STATE_DISCONNECTED;
};
INSTANTIATE_TEST_SUITE_P(Stage, HostCalls,
                         ::testing::Values(kCreated, kInitialising, kReady, kPlaying, kGone),
                         [](const auto& stage) { return std::string(kStageNames[stage.param]); });

TEST_P(HostCalls, ByOneThreadAnswerAsTheTableSays) {
    for (const HostCall& call : kCalls) {
        EXPECT_EQ(call.make(*camera_), call.answers[GetParam()]) << call.name << log_listing();
        Return();
    }
    ExpectALifeAfterwards();
}

/// Both calls of every pair return, whatever they answer.
TEST_P(HostCalls, ByTwoThreadsReturnAndLeaveTheCameraUsable) {
    const auto in_time = [](std::future<bool>& answer, const HostCall& one, const HostCall& other) {
        if (answer.wait_for(kLimit) != std::future_status::ready) {
            std::fprintf(stderr, "%s beside %s does not return\n", one.name, other.name);
            std::abort();  // nobody can take a thread out of a call
        }
    };
    for (const HostCall& one : kCalls) {
        for (const HostCall* other = &one; other != std::end(kCalls); ++other) {
            auto first = std::async(std::launch::async, [&] { return one.make(*camera_); });
            auto second = std::async(std::launch::async, [&] { return other->make(*camera_); });
            in_time(first, one, *other);
            in_time(second, *other, one);
            Return();
        }
    }
    ExpectALifeAfterwards();
}

}  // namespace
}  // namespace test
