// Which lock is held where: hosts and workers depend on it for not waiting for each other.
#include <atomic>
#include <memory>
#include <thread>

#include "tests/object/CameraTest.h"
#include "tests/object/ParkedLoader.h"
#include "tests/support/LockProbe.h"

namespace test {
namespace {

struct LockState {
    bool start_stop = false;
    bool control = false;
    bool observers = false;
    bool audio_observers = false;

    static LockState Now() {
        return {!IsFree(m_start_stop_preview_lock), !IsFree(m_video_ctrl_lock),
                !IsFree(m_observer_lock), !IsFree(m_audio_observer_lock)};
    }
    /// The control locks alone: capture threads hold the observer locks whenever they deliver.
    static LockState Controls() { return {Now().start_stop, Now().control, false, false}; }
    /// What compares with `expected`.
    static LockState Like(const LockState& expected) {
        return expected.observers || expected.audio_observers ? Now() : Controls();
    }
    bool operator==(const LockState&) const = default;
};

std::ostream& operator<<(std::ostream& out, const LockState& state) {
    return out << "held: start/stop " << state.start_stop << ", control " << state.control
               << ", observers " << state.observers << ", audio observers "
               << state.audio_observers;
}

constexpr LockState kNone = {};
constexpr LockState kControl = {false, true, false, false};
constexpr LockState kStartStopAndControl = {true, true, false, false};
constexpr LockState kObservers = {false, false, true, false};
constexpr LockState kAudioObservers = {false, false, false, true};

class Locking : public CameraTest {
  protected:
    /// Runs `call` and compares the locks during each of its pauses, of which there must be some.
    void ExpectDuringPauses(const LockState& expected, const std::function<void()>& call) {
        // Copied into the hook: another thread may still be inside it when this returns.
        const auto pauses = std::make_shared<std::atomic<size_t>>(0);
        clock().on_sleep([pauses, expected,
                          self = std::this_thread::get_id()](const SleepCall& sleep) {
            if (sleep.thread == self) {
                EXPECT_EQ(LockState::Like(expected), expected) << sleep.duration.count() << " us";
                ++*pauses;
            }
        });
        call();
        clock().on_sleep(nullptr);
        EXPECT_GT(*pauses, 0u);
        EXPECT_EQ(LockState::Controls(), kNone);
    }

    /// Runs `call` on another thread and compares the locks while its request `head` is under way.
    void ExpectDuringRequest(const LockState& expected, const std::vector<uint8_t>& head,
                             const std::function<void()>& call) {
        const auto under_way = [&] {
            for (const auto& record : virtcam::bus::control_log()) {
                if (record.data.size() >= head.size() &&
                    std::equal(head.begin(), head.end(), record.data.begin())) {
                    return true;
                }
            }
            return false;
        };
        const ParkedLoader parked;
        virtcam::bus::hold_completions(0);
        virtcam::bus::clear_logs();
        std::thread caller(call);
        EXPECT_TRUE(virtcam::bus::wait_until(under_way, kLimit));
        EXPECT_EQ(LockState::Like(expected), expected);
        virtcam::bus::release_completions(0);
        caller.join();
        EXPECT_EQ(LockState::Controls(), kNone);
    }
};

/// Looks at the locks from inside Update.
class LookingObserver : public ICameraObserver {
  public:
    explicit LookingObserver(CAM_STREAM_TYPE type) { m_StreamType = type; }
    bool Update(const CCameraData*) override {
        seen = LockState::Now();
        thread = std::this_thread::get_id();
        ++count;
        return true;
    }
    LockState seen;
    std::thread::id thread;
    int count = 0;
};

TEST_F(Locking, AStartAndAStopHoldBothControlLocks) {
    Ready();
    ExpectDuringPauses(kStartStopAndControl, [&] { EXPECT_TRUE(camera_->StartRecording()); });
    ExpectDuringPauses(kStartStopAndControl, [&] { EXPECT_TRUE(camera_->StopRecording()); });
}

TEST_F(Locking, ARestartingPropertyHoldsBothControlLocksThroughout) {
    Playing();
    ExpectDuringPauses(kStartStopAndControl,
                       [&] { EXPECT_TRUE(SetPair(CAM_PROPERTY_DIMENSION, 320, 240)); });
    ExpectDuringPauses(kStartStopAndControl,
                       [&] { EXPECT_TRUE(Set(CAM_PROPERTY_SAMPLERATE, 24000)); });
    ExpectDuringPauses(kStartStopAndControl,
                       [&] { EXPECT_TRUE(Set(CAM_PROPERTY_SIGNAL_TYPE, CAM_SIGNAL_H264_GRAY)); });
    ExpectDuringPauses(kStartStopAndControl,
                       [&] { EXPECT_TRUE(Set(CAM_PROPERTY_VIDEO_MODE, CAM_VIDEO_H264_JPEG)); });
    EXPECT_TRUE(camera_->StopRecording());
}

TEST_F(Locking, AnyOtherPropertyHoldsTheControlLockAlone) {
    Ready();
    ExpectDuringRequest(kControl, {0x04}, [&] { EXPECT_TRUE(Set(CAM_PROPERTY_NEWGOP, 0)); });
    ExpectDuringRequest(kControl, {0x02, 0x01}, [&] { EXPECT_TRUE(Set(CAM_PROPERTY_MIRROR, 1)); });
}

TEST_F(Locking, AQueryHoldsTheControlLockAlone) {
    Ready();
    ExpectDuringRequest(kControl, {0x12}, [&] { EXPECT_TRUE(Get(CAM_PROPERTY_LUX)); });
    // The two seconds of the self test included.
    ExpectDuringPauses(kControl, [&] { EXPECT_TRUE(Get(CAM_PROPERTY_VIDEO_TEST)); });
}

TEST_F(Locking, DeliveryHoldsOneObserverLock) {
    Create();
    LookingObserver main(CAM_STREAM_H264_MAIN), sound(CAM_STREAM_PCM);
    camera_->RegisterObserver(&main);
    camera_->RegisterObserver(&sound);
    EXPECT_EQ(LockState::Controls(), kNone);
    CCameraData record = {};
    record.m_type = CAM_STREAM_H264_MAIN;
    camera_->OnFrameArrival(&record);
    EXPECT_EQ(main.count, 1);
    EXPECT_EQ(main.seen, kObservers);
    record.m_type = CAM_STREAM_PCM;
    camera_->OnFrameArrival(&record);
    EXPECT_EQ(sound.count, 1);
    EXPECT_EQ(sound.seen, kAudioObservers);
    camera_->RemoveObserver(&main);
    camera_->RemoveObserver(&sound);
    EXPECT_EQ(LockState::Controls(), kNone);
}

/// NV12 is in no combination: the empty record is all that its observer gets.
TEST_F(Locking, TheEndOfARecordingIsToldByTheStoppingThreadUnderBothControlLocks) {
    Playing();
    LookingObserver nv12(CAM_STREAM_NV12);
    camera_->RegisterObserver(&nv12);
    std::thread stopping([&] { EXPECT_TRUE(camera_->StopRecording()); });
    const std::thread::id stopper = stopping.get_id();
    stopping.join();
    EXPECT_EQ(nv12.count, 1);
    EXPECT_EQ(nv12.thread, stopper);
    EXPECT_EQ(nv12.seen, (LockState{true, true, true, false}));
    camera_->RemoveObserver(&nv12);
}

TEST_F(Locking, RegistrationHoldsTheObserverLock) {
    Playing();
    RecordingObserver main(CAM_STREAM_H264_MAIN);
    ExpectDuringRequest(kObservers, {0x04}, [&] { EXPECT_TRUE(camera_->RegisterObserver(&main)); });
    camera_->RemoveObserver(&main);
    EXPECT_TRUE(camera_->StopRecording());
}

TEST_F(Locking, SoundObserversAreListedUnderBothObserverLocks) {
    Create();
    RecordingObserver sound(CAM_STREAM_PCM);
    for (const bool add : {true, false}) {
        std::thread caller;
        {
            pMutexLock audio(m_audio_observer_lock);
            log().reset();
            caller = std::thread([&] {
                EXPECT_TRUE(add ? camera_->RegisterObserver(&sound)
                                : camera_->RemoveObserver(&sound));
            });
            EXPECT_TRUE(log().wait_for(4, "CAM_STREAM_PCM\r\n", kLimit));
            // It waits for the second lock with the first one held.
            EXPECT_FALSE(virtcam::bus::wait_until([] { return IsFree(m_observer_lock); }, 100ms));
        }
        caller.join();
    }
}

TEST_F(Locking, CapabilitiesAndFormatNeedNone) {
    Create();
    pMutexLock start_stop(m_start_stop_preview_lock), control(m_video_ctrl_lock),
        observers(m_observer_lock), audio(m_audio_observer_lock);
    std::thread([&] {
        EXPECT_TRUE(camera_->GetCapability(CAM_CAPABILITY_ZOOM));
        EXPECT_TRUE(camera_->SetStreamFormat(CAM_STR_FORMAT_ES));
        EXPECT_EQ(camera_->GetState(), CAM_STATE_CONNECTING);
    }).join();
}

}  // namespace
}  // namespace test
