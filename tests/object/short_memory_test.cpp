// Memory that is short where the plug-in asks for it by itself: what the host is told, and that the
// next try works. What it asks for through libraries: tests/scarcity.
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>

#include <atomic>
#include <new>
#include <string>

#include "AitDevice.h"
#include "AudioCaptureThread.h"
#include "CameraFwLoader.h"
#include "V4l2Capture.h"
#include "VideoCaptureThread.h"
#include "tests/object/CameraTest.h"

namespace {

/// The next request for memory between `least` and `most` bytes fails, once, of those that report
/// failure by null (`nothrow`) or of the others.
struct Failure {
    std::atomic<bool> armed{false};
    bool nothrow = false;
    size_t least = 0;
    size_t most = 0;
    const char* thread = nullptr;  ///< null: any
};
Failure g_Failure;

bool IsThisThread(const char* wanted) {
    char name[16] = {};
    return pthread_getname_np(pthread_self(), name, sizeof name) == 0 &&
           std::string(name) == wanted;
}

bool ShallFail(size_t size, bool nothrow) {
    return g_Failure.armed && nothrow == g_Failure.nothrow && size >= g_Failure.least &&
           size <= g_Failure.most &&
           (g_Failure.thread == nullptr || IsThisThread(g_Failure.thread)) &&
           g_Failure.armed.exchange(false);
}

}  // namespace

void* operator new(size_t size) {
    void* block = ShallFail(size, false) ? nullptr : malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return ShallFail(size, true) ? nullptr : malloc(size);
}

void operator delete(void* block) noexcept {
    free(block);
}

void operator delete(void* block, size_t) noexcept {
    free(block);
}

namespace test {
namespace {

class ShortMemory : public CameraTest {
  protected:
    ~ShortMemory() override { g_Failure.armed = false; }

    static void Fail(bool nothrow, size_t least, size_t most, const char* thread = nullptr) {
        g_Failure.nothrow = nothrow;
        g_Failure.least = least;
        g_Failure.most = most;
        g_Failure.thread = thread;
        g_Failure.armed = true;
    }
    template <typename T>
    static void FailFor(bool nothrow, const char* thread = nullptr) {
        Fail(nothrow, sizeof(T), sizeof(T), thread);
    }
    /// A listing that has not changed is not looked at again.
    static void Replug() {
        virtcam::bus::unplug();
        virtcam::bus::plug();
    }
    void ExpectRefusal() {
        EXPECT_FALSE(Init()) << log_listing();
        EXPECT_FALSE(g_Failure.armed) << "it was never asked for";
        EXPECT_EQ(camera_->GetState(), CAM_STATE_DISCONNECTED);
        Replug();
    }
    void ExpectTheNextTryToWork() {
        EXPECT_TRUE(Init()) << log_listing();
        EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);
        EXPECT_TRUE(camera_->StartRecording());
        EXPECT_TRUE(camera_->StopRecording());
        ExpectUnusualRelease();
    }
    /// A start answers false and leaves nothing, the next one works.
    void ExpectOneFalseStart() {
        EXPECT_FALSE(camera_->StartRecording());
        EXPECT_FALSE(g_Failure.armed) << "it was never asked for";
        EXPECT_LOG(1, "No memory or thread for the capture threads.\r\n");
        EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);
        EXPECT_TRUE(camera_->StartRecording());
        EXPECT_EQ(camera_->GetState(), CAM_STATE_PLAYING);
        EXPECT_TRUE(camera_->StopRecording());
        Forget();
    }
};

TEST_F(ShortMemory, ForTheLoader) {
    Create();
    FailFor<CCameraFwLoader>(true);
    ExpectRefusal();
    EXPECT_LOG(1, "No memory or thread for the firmware loader.\r\n");
    ExpectTheNextTryToWork();
}

TEST_F(ShortMemory, ForTheLoaderInsideTheCallback) {
    static ICameraSubject* camera = nullptr;
    virtcam::bus::unplug();
    Create();
    camera = camera_;
    const InitDoneCallback again = [](bool usable) {
        FailFor<CCameraFwLoader>(true);
        InitAnswers::Callback(usable);
        camera->Init(InitAnswers::Callback, 0);
    };
    camera_->Init(again, 0);
    EXPECT_TRUE(InitAnswers::instance().Wait(2));
    EXPECT_EQ(InitAnswers::instance().All(), (std::vector<bool>{false, false}));
    EXPECT_FALSE(g_Failure.armed) << "it was never asked for";
    virtcam::bus::plug();
    ExpectTheNextTryToWork();
}

TEST_F(ShortMemory, ForTheOpenDevice) {
    Create();
    FailFor<AitDevHandle>(true, "ait-loader");
    ExpectRefusal();
    EXPECT_LOG(1, "No memory for the device.\r\n");
    ExpectTheNextTryToWork();
}

TEST_F(ShortMemory, ForTheVersionFiles) {
    virtcam::bus::reset(BootCodeCamera());
    WriteFile("/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin", ImageOf(3000));
    const std::string text = std::string(20000, ' ') + "<Version>1</Version>";
    WriteFile("/mtd_exe/lumo/opxCamera.xml", text);
    WriteFile("/mtd_rwcommon/lumo/bin/opxCamera.xml", text);
    Create();
    constexpr size_t kGrown = 8192;  // to which the text grows with its second piece
    Fail(false, kGrown, 2 * kGrown, "ait-loader");
    ExpectTheNextTryToWork();  // the downloaded firmware is taken
    EXPECT_FALSE(g_Failure.armed) << "it was never asked for";
    EXPECT_LOG(1, "No memory for the version files.\r\n");
}

TEST_F(ShortMemory, ForTheVideoAdapter) {
    Create();
    FailFor<AitUvcCapture>(false, "ait-loader");
    ExpectRefusal();
    EXPECT_LOG(1, "No memory for the adapters.\r\n");
    ExpectTheNextTryToWork();
}

TEST_F(ShortMemory, ForTheCaptureThreads) {
    Ready();
    FailFor<CVideoCaptureThread>(true);
    ExpectOneFalseStart();
    FailFor<CAudioCaptureThread>(true);
    ExpectOneFalseStart();
}

TEST_F(ShortMemory, ForAnObserver) {
    Create();
    RecordingObserver main(CAM_STREAM_H264_MAIN);
    log().reset();
    FailFor<ICameraObserver*>(false);
    EXPECT_FALSE(camera_->RegisterObserver(&main));
    EXPECT_LOG(1, "No memory for an observer.\r\n");
    EXPECT_TRUE(camera_->RegisterObserver(&main));
    EXPECT_TRUE(camera_->RemoveObserver(&main));
}

/// The blocks of sound are on the capture thread's stack: it asks for nothing.
TEST_F(ShortMemory, StopsNoSound) {
    for (const bool nothrow : {false, true}) {
        std::filesystem::remove("/mtd_rwarea/camera_l5");
        Ready();
        g_embedded_cam_dbg_level = 0;  // the recorder of the log asks for some
        RecordingObserver sound(CAM_STREAM_PCM);
        camera_->RegisterObserver(&sound);
        Fail(nothrow, 0, SIZE_MAX, "ait-audio");
        EXPECT_TRUE(camera_->StartRecording());
        EXPECT_TRUE(sound.WaitFor(3));
        EXPECT_TRUE(g_Failure.armed) << "it was asked for";
        EXPECT_TRUE(camera_->StopRecording());
        camera_->RemoveObserver(&sound);
        Destroy();
        Replug();
    }
}

}  // namespace
}  // namespace test
