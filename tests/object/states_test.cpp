// Every operation that asks for the state, in every state.
#include <cstdio>
#include <memory>

#include "tests/object/CameraTest.h"
#include "tests/object/ObjectFields.h"

namespace test {
namespace {

constexpr int kStates = 16;
const char kNoCapturer[] = "video_capturer is NULL or m_State is CAM_STATE_DISCONNECTED !!! \r\n";

class States : public CameraTest {
  protected:
    /// Puts the object into a state and forgets what went before.
    void Enter(int state) {
        camera_->SetState(static_cast<CAM_STATE>(state));
        Forget();
    }
    static void Report(int state, const char* operation, bool expected, bool outcome) {
        std::printf("state %2d  %-18s expected %-5s outcome %s\n", state, operation,
                    expected ? "true" : "false", outcome ? "true" : "false");
        EXPECT_EQ(outcome, expected) << operation << " in state " << state << log_listing();
    }
};

TEST_F(States, StopRecording) {
    Ready();
    for (int state = 0; state < kStates; ++state) {
        Enter(state);
        const bool disconnected = state == CAM_STATE_DISCONNECTED;
        const bool playing = state == CAM_STATE_PLAYING;
        Report(state, "StopRecording", playing, camera_->StopRecording());
        EXPECT_EQ(camera_->m_State, playing ? CAM_STATE_READY : state);
        EXPECT_LOG_COUNT(1, "Abnormal StopRecording.\r\n",
                         static_cast<size_t>(!playing && !disconnected));
        EXPECT_LOG_COUNT(1, "video_capturer is NULL or m_State is CAM_STATE_DISCONNECTED !!!\r\n",
                         static_cast<size_t>(disconnected));
        // A lost camera's light is not switched, and nobody is told of an end.
        EXPECT_EQ(Sent(), disconnected ? Sequence{} : std::vector{Light(0)});
        EXPECT_LOG_COUNT(1, "Null Gray or NV12 Data is received !!!\r\n", disconnected ? 0u : 2u);
    }
    camera_->SetState(CAM_STATE_READY);
}

TEST_F(States, StartRecording) {
    Ready();
    for (int state = 0; state < kStates; ++state) {
        Enter(state);
        const bool ready = state == CAM_STATE_READY;
        Report(state, "StartRecording", true, camera_->StartRecording());
        EXPECT_EQ(camera_->m_State, ready ? CAM_STATE_PLAYING : state);
        EXPECT_LOG_COUNT(1, "StartRecording twice\r\n", static_cast<size_t>(!ready));
        EXPECT_EQ(Sent().empty(), !ready);
        if (ready) {
            EXPECT_TRUE(camera_->StopRecording());
        }
    }
    camera_->SetState(CAM_STATE_READY);
}

TEST_F(States, ADisconnectionDuringAStartStays) {
    struct Unplugged : CAudioCapture {
        explicit Unplugged(ICameraSubject* camera) : CAudioCapture(0x114D, 1), camera_(camera) {}
        bool ConfigureDev(uint8_t, uint32_t, uint32_t) override { return true; }
        int GetBuf(unsigned char**, unsigned int*) override {
            std::this_thread::sleep_for(1ms);
            return 0;
        }
        bool SetVolume(int) override {  // the last step of a start
            camera_->SetState(CAM_STATE_DISCONNECTED);
            return true;
        }
        ICameraSubject* camera_;
    };
    Ready();
    const std::unique_ptr<CAudioCapture> usual(
        (object_->*MemberOf(AudioCapturerTag())).exchange(new Unplugged(camera_)));
    EXPECT_FALSE(camera_->StartRecording());
    EXPECT_EQ(camera_->m_State, CAM_STATE_DISCONNECTED);
    camera_->SetState(CAM_STATE_PLAYING);
    EXPECT_TRUE(camera_->StopRecording());
}

TEST_F(States, Properties) {
    Ready();
    for (int state = 0; state < kStates; ++state) {
        const bool connected = state != CAM_STATE_DISCONNECTED;
        Enter(state);
        Report(state, "set key frame", connected, Set(CAM_PROPERTY_NEWGOP, 1));
        EXPECT_LOG_COUNT(1, kNoCapturer, static_cast<size_t>(!connected));
        Report(state, "set volume", connected, Set(CAM_PROPERTY_MICVOLUME, 1));
        Report(state, "set option", connected, Set(CAM_PROPERTY_FLIP, 1));
        Report(state, "set NV12 size", true, Set(CAM_PROPERTY_CHANGE_NV12_RESOLUTION, 1));
        Report(state, "get light", connected, Get(CAM_PROPERTY_LUX));
        Report(state, "get video test", connected, Get(CAM_PROPERTY_VIDEO_TEST));
        Report(state, "get zoom", true, Get(CAM_PROPERTY_ZOOM));
        Report(state, "switch light", connected, object_->TurnOnOffLED(1));
        Report(state, "get audio test", true, Get(CAM_PROPERTY_AUDIO_TEST));
        EXPECT_EQ(last_.value, 1);  // the loader's camera is there in every state
        EXPECT_EQ(camera_->m_State, state);
        if (state == CAM_STATE_PLAYING) {
            continue;  // where these three restart recording
        }
        Enter(state);
        Report(state, "set size", false, SetPair(CAM_PROPERTY_DIMENSION, 100 + state, 100));
        Report(state, "set signal type", false, Set(CAM_PROPERTY_SIGNAL_TYPE, state % 3));
        Report(state, "set video mode", false, Set(CAM_PROPERTY_VIDEO_MODE, CAM_VIDEO_H264_JPEG));
        EXPECT_LOG_COUNT(1, kNoCapturer, 3);
        EXPECT_TRUE(Sent().empty());
    }
    camera_->SetState(CAM_STATE_READY);
}

TEST_F(States, RegistrationOfAMainObserver) {
    Ready();
    for (int state = 0; state < kStates; ++state) {
        RecordingObserver main(CAM_STREAM_H264_MAIN);
        Enter(state);
        Report(state, "register", true, camera_->RegisterObserver(&main));
        const Sequence key_frame = {Isp({0x04})};
        EXPECT_EQ(Sent(), state == CAM_STATE_PLAYING ? key_frame : Sequence{});
        Report(state, "remove", true, camera_->RemoveObserver(&main));
    }
    camera_->SetState(CAM_STATE_READY);
}

TEST_F(States, ANewcomerBeforeTheAdaptersIsOnlyListed) {
    Create();
    camera_->SetState(CAM_STATE_PLAYING);
    RecordingObserver main(CAM_STREAM_H264_MAIN);
    EXPECT_TRUE(camera_->RegisterObserver(&main));
    EXPECT_TRUE(Sent().empty());
    EXPECT_TRUE(camera_->RemoveObserver(&main));
}

TEST_F(States, SampleRateWithoutAdaptersIsOnlyKept) {
    Create();
    camera_->SetState(CAM_STATE_PLAYING);
    EXPECT_TRUE(Set(CAM_PROPERTY_SAMPLERATE, 24000));
    EXPECT_EQ(log().count_containing("StopRecording"), 0u);
    EXPECT_FALSE(SetPair(CAM_PROPERTY_DIMENSION, 320, 240));
    EXPECT_LOG_COUNT(1, kNoCapturer, 1);
}

}  // namespace
}  // namespace test
