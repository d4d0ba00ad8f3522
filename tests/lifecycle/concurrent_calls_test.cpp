// A host that calls from four threads at once while recording runs and restarts, and a camera that
// is unplugged in the middle of it.
//
// Lasts AITCAM_STRESS_SECONDS (default 6).
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>

#include "tests/object/CameraTest.h"

namespace test {
namespace {

class ConcurrentCalls : public CameraTest {
  protected:
    static std::chrono::milliseconds Duration() {
        const char* text = getenv("AITCAM_STRESS_SECONDS");
        return std::chrono::seconds(text != nullptr ? std::atoi(text) : 6);
    }

    /// Lets real time pass: the sleeps of this executable are shortened.
    static void Pass(std::chrono::milliseconds time) {
        virtcam::bus::wait_until([] { return false; }, time);
    }

    /// One random call; `random` belongs to the calling thread.
    void CallSomething(std::mt19937& random, RecordingObserver& observer) {
        const auto pick = [&](int limit) {
            return static_cast<int>(random() % static_cast<unsigned>(limit));
        };
        CAM_PROP_VALUE param;
        ++calls_;
        switch (pick(16)) {
            case 0:
                camera_->StopRecording();
                [[fallthrough]];
            case 1:
            case 2:
                camera_->StartRecording();
                break;
            case 3:
            case 4:
                camera_->RegisterObserver(&observer);
                break;
            case 5:
                camera_->RemoveObserver(&observer);
                break;
            case 6:
                camera_->GetCapability(static_cast<CAM_CAPABILITY>(pick(15)));
                break;
            case 7:
            case 8:
            case 9:
            case 10:
                camera_->GetProperty(static_cast<CAM_PROPERTY>(pick(75)), &param);
                break;
            default:
                SetSomething(pick);
        }
    }

    /// One random property: those that restart recording and one of each other kind.
    template <typename Pick>
    void SetSomething(const Pick& pick) {
        const auto set = [&](CAM_PROPERTY property, int value) {
            CAM_PROP_VALUE param;
            param.value = value;
            camera_->SetProperty(property, &param);
        };
        switch (pick(12)) {
            case 0:
                return set(CAM_PROPERTY_BITRATE, pick(4000000));
            case 1:
                return set(CAM_PROPERTY_FRAMERATE, 1 + pick(30));
            case 2:
                return set(CAM_PROPERTY_NEWGOP, 1);
            case 3:
                return set(CAM_PROPERTY_DIMENSION,
                           pick(2) != 0 ? 480 << 16 | 640 : 240 << 16 | 320);
            case 4:
                return set(CAM_PROPERTY_MICVOLUME, pick(101));
            case 5:
                return set(CAM_PROPERTY_SAMPLERATE, pick(2) != 0 ? 16000 : 24000);
            case 6:
                return set(CAM_PROPERTY_SIGNAL_TYPE, pick(9));
            case 7:
                return set(CAM_PROPERTY_VIDEO_MODE, pick(3));
            case 8:
                return set(CAM_PROPERTY_PAN, pick(10));
            case 9:
                return set(CAM_PROPERTY_MIRROR, pick(2));
            case 10:
                return set(CAM_PROPERTY_CROP_GRAY, pick(2) * 0x00100010);
            default:
                return set(CAM_PROPERTY_TRIGGER_JPEG, 1);
        }
    }

    /// Sets each property that can be read, and reads it back.
    void ExpectValuesReadBack() {
        const std::pair<CAM_PROPERTY, int> values[] = {{CAM_PROPERTY_BITRATE, 1234567},
                                                       {CAM_PROPERTY_FRAMERATE, 17},
                                                       {CAM_PROPERTY_MICVOLUME, 63},
                                                       {CAM_PROPERTY_SAMPLERATE, 24000},
                                                       {CAM_PROPERTY_DIMENSION, 320 | 240 << 16},
                                                       {CAM_PROPERTY_SIGNAL_TYPE, 3},
                                                       {CAM_PROPERTY_ZOOM, 4},
                                                       {CAM_PROPERTY_PAN, -5},
                                                       {CAM_PROPERTY_TILT, 6},
                                                       {CAM_PROPERTY_FACE_TRACKING, 1}};
        for (const auto& [property, value] : values) {
            EXPECT_TRUE(Set(property, value)) << property;
        }
        for (const auto& [property, value] : values) {
            EXPECT_TRUE(Get(property)) << property;
            EXPECT_EQ(last_.value, value) << property;
        }
    }

    void CallWithAnUnplug(std::chrono::milliseconds time);
    void DestroyTheLostCamera();

    std::atomic<size_t> calls_{0};
    std::atomic<size_t> records_{0};
};

/// Four threads call at random, each with an observer of its own, until `over`.
class Callers {
  public:
    template <typename Call>
    Callers(ICameraSubject& camera, std::atomic<size_t>& records, Call call) {
        for (unsigned i = 0; i < std::size(kTypes); ++i) {
            threads_.emplace_back([&camera, &records, call, i, this] {
                std::mt19937 random(i + 1);
                RecordingObserver observer(kTypes[i]);
                while (!over_) {
                    call(random, observer);
                }
                camera.RemoveObserver(&observer);
                records += observer.Count();
            });
        }
    }
    ~Callers() {
        over_ = true;
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }
    Callers(const Callers&) = delete;
    Callers& operator=(const Callers&) = delete;

  private:
    static constexpr int kTypes[] = {CAM_STREAM_H264_MAIN, CAM_STREAM_GRAY, CAM_STREAM_PCM,
                                     CAM_STREAM_YUYV};
    std::atomic<bool> over_{false};
    std::vector<std::thread> threads_;
};

/// Calls for `time` with the cable pulled in the middle of it.
void ConcurrentCalls::CallWithAnUnplug(std::chrono::milliseconds time) {
    // Quiet: the recorder would keep hundreds of thousands of lines.
    std::filesystem::remove("/mtd_rwarea/camera_l5");
    Create();
    ASSERT_TRUE(Init());
    RecordingObserver listener(CAM_STREAM_PCM);  // stays, while those of the callers come and go
    camera_->RegisterObserver(&listener);
    {
        const Callers callers(*camera_, records_, [this](auto& random, auto& observer) {
            CallSomething(random, observer);
        });
        Pass(time / 2);
        EXPECT_TRUE(listener.WaitFor(1));
        virtcam::bus::unplug();
        ASSERT_TRUE(InitAnswers::instance().Wait(2));
        Pass(time / 2);
    }
    camera_->RemoveObserver(&listener);
    EXPECT_EQ(camera_->m_State, CAM_STATE_DISCONNECTED);
}

void ConcurrentCalls::DestroyTheLostCamera() {
    Destroy();
    InitAnswers::instance().Clear();
    // When the stop of the video is the first to notice the unplug, its handle cannot be closed.
    if (log().has(1, "The lost device's handle is left open, this libusb cannot close it.\r\n")) {
        ExpectComplaint("libusb_exit: 1 device handle still open");
        ExpectComplaint("a handle of 114d:2066 was never closed");
    }
}

TEST_F(ConcurrentCalls, FromFourThreadsWithAnUnplug) {
    CallWithAnUnplug(Duration());
    const size_t restarts = virtcam::bus::call_counts()["libusb_alloc_transfer"] / 5;
    std::printf("%zu calls, %zu starts, %zu records\n", calls_.load(), restarts, records_.load());
    EXPECT_GT(restarts, 1u);

    // What is remembered is answered, also on a lost camera.
    Set(CAM_PROPERTY_BITRATE, 1234567);
    Set(CAM_PROPERTY_FRAMERATE, 17);
    SetPair(CAM_PROPERTY_DIMENSION, 320, 200);
    Get(CAM_PROPERTY_BITRATE);
    EXPECT_EQ(last_.value, 1234567);
    Get(CAM_PROPERTY_FRAMERATE);
    EXPECT_EQ(last_.value, 17);
    Get(CAM_PROPERTY_DIMENSION);
    EXPECT_EQ(last_.res[0], 320);
    EXPECT_EQ(last_.res[1], 200);
    DestroyTheLostCamera();
}

TEST_F(ConcurrentCalls, ANewObjectAfterThemStreamsAndKeepsItsValues) {
    CallWithAnUnplug(Duration() / 3);
    DestroyTheLostCamera();
    virtcam::bus::plug();
    Create();
    ASSERT_TRUE(Init());
    ExpectUnusualRelease();
    RecordingObserver main(CAM_STREAM_H264_MAIN);
    camera_->RegisterObserver(&main);
    ASSERT_TRUE(camera_->StartRecording());
    EXPECT_TRUE(main.WaitFor(5));
    ExpectValuesReadBack();  // three of them restart recording
    EXPECT_TRUE(main.WaitFor(main.Count() + 5));
    EXPECT_TRUE(camera_->StopRecording());
    camera_->RemoveObserver(&main);
}

}  // namespace
}  // namespace test
