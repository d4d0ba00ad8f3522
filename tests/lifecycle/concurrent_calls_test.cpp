// A host that calls from four threads at once while recording runs and restarts, and a camera that
// is unplugged in the middle of it.
//
// Lasts AITCAM_STRESS_SECONDS (default 6).
#include <cstdlib>
#include <random>
#include <thread>

#include "tests/object/CameraTest.h"

namespace test {
namespace {

class ConcurrentCalls : public CameraTest {
  protected:
    static std::chrono::seconds Duration() {
        const char* text = getenv("AITCAM_STRESS_SECONDS");
        return std::chrono::seconds(text != nullptr ? std::atoi(text) : 6);
    }

    /// Lets real time pass: the sleeps of this executable are shortened.
    static void Pass(std::chrono::milliseconds time) {
        virtbus::wait_until([] { return false; }, time);
    }

    /// One random call; `random` belongs to the calling thread.
    void CallSomething(std::mt19937& random, RecordingObserver& observer) {
        const auto pick = [&](int limit) {
            return static_cast<int>(random() % static_cast<unsigned>(limit));
        };
        CAM_PROP_VALUE param;
        switch (pick(9)) {
            case 0:
                param.value = pick(4000000);
                camera_->SetProperty(CAM_PROPERTY_BITRATE, &param);
                break;
            case 1:
                param.value = pick(101);
                camera_->SetProperty(CAM_PROPERTY_MICVOLUME, &param);
                break;
            case 2:
                param.value = pick(9);
                camera_->SetProperty(CAM_PROPERTY_SIGNAL_TYPE, &param);
                break;
            case 3:
                param.value = pick(2) != 0 ? 16000 : 24000;
                camera_->SetProperty(CAM_PROPERTY_SAMPLERATE, &param);
                break;
            case 4:
                camera_->GetProperty(static_cast<CAM_PROPERTY>(pick(72)), &param);
                break;
            case 5:
                camera_->RegisterObserver(&observer);
                break;
            case 6:
                camera_->RemoveObserver(&observer);
                break;
            case 7:
                camera_->GetCapability(static_cast<CAM_CAPABILITY>(pick(14)));
                break;
            default:
                if (pick(2) != 0) {
                    camera_->StartRecording();
                } else {
                    camera_->StopRecording();
                }
        }
    }
};

TEST_F(ConcurrentCalls, FromFourThreadsWithAnUnplug) {
    // Quiet: the recorder would keep hundreds of thousands of lines.
    std::filesystem::remove("/mtd_rwarea/camera_l5");
    Create();
    ASSERT_TRUE(Init());
    std::atomic<bool> over{false};
    std::vector<std::thread> callers;
    for (unsigned i = 0; i < 4; ++i) {
        callers.emplace_back([&, i] {
            std::mt19937 random(i + 1);
            const int types[] = {CAM_STREAM_H264_MAIN, CAM_STREAM_GRAY, CAM_STREAM_PCM,
                                 CAM_STREAM_YUYV};
            RecordingObserver observer(types[i]);
            while (!over) {
                CallSomething(random, observer);
            }
            camera_->RemoveObserver(&observer);
        });
    }
    Pass(Duration() / 2);
    virtbus::unplug();
    ASSERT_TRUE(InitAnswers::instance().Wait(2));
    Pass(Duration() / 2);
    over = true;
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(camera_->m_State, CAM_STATE_DISCONNECTED);

    // The last word of each setting is what is answered, also on a lost camera.
    Set(CAM_PROPERTY_BITRATE, 1234567);
    Set(CAM_PROPERTY_FRAMERATE, 17);
    SetPair(CAM_PROPERTY_DIMENSION, 320, 240);
    Get(CAM_PROPERTY_BITRATE);
    EXPECT_EQ(last_.value, 1234567);
    Get(CAM_PROPERTY_FRAMERATE);
    EXPECT_EQ(last_.value, 17);
    Get(CAM_PROPERTY_DIMENSION);
    EXPECT_EQ(last_.res[0], 320);
    Destroy();
    InitAnswers::instance().Clear();
    // When the stop of the video is the first to notice the unplug, its handle cannot be closed.
    if (log().has(1, "The lost device's handle is left open, this libusb cannot close it.\r\n")) {
        ExpectComplaint("libusb_exit: 1 device handle still open");
        ExpectComplaint("a handle of 114d:2066 was never closed");
    }

    virtbus::plug();
    Create();
    ASSERT_TRUE(Init());
    ExpectUnusualRelease();
    RecordingObserver main(CAM_STREAM_H264_MAIN);
    camera_->RegisterObserver(&main);
    ASSERT_TRUE(camera_->StartRecording());
    EXPECT_TRUE(main.WaitFor(5));
    EXPECT_TRUE(camera_->StopRecording());
    camera_->RemoveObserver(&main);
}

}  // namespace
}  // namespace test
