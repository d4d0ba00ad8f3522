// The engines with their event threads, and the capture adapters over them.
#include <errno.h>

#include <future>
#include <memory>

#include "V4l2Capture.h"
#include "tests/driver/EngineTest.h"

namespace test {
namespace {

using namespace std::chrono_literals;
using virtcam::bus::TransferStatus;
constexpr auto kLimit = 10s;
constexpr uint32_t kNv12 = 0x3231564E;

class VideoThreadEngine : public CAIT_CAM_LIB {
  public:
    ~VideoThreadEngine() override { Stop(); }
    using pThread::Running;
    using pThread::Shutdown;
    using UsbStreamEngine::IsStreaming;
};

class VideoThread : public EngineTest {
  protected:
    VideoThread() : m_Engine(std::make_unique<VideoThreadEngine>()) {
        m_Engine->Init(kVendor, kProduct);
        Forget();
    }
    ~VideoThread() override {
        if (m_Engine != nullptr) {
            m_Engine->DisableStream();
        }
    }
    std::unique_ptr<VideoThreadEngine> m_Engine;
};

const Logged kThreadEnd{4, "CAIT_CAM_LIB::run() Exit libusb thread.\n"};

TEST_F(VideoThread, StartsTheThreadAfterTheStreamAndLetsItSettle) {
    bool streaming = false;
    clock().on_sleep([&](const SleepCall& call) {
        if (call.duration == 30ms) {
            streaming = m_Engine->IsStreaming && m_Engine->Running;
        }
    });
    EXPECT_EQ(m_Engine->EnableStream(4, 4, 30), 0);
    clock().on_sleep(nullptr);
    EXPECT_EQ(Sleeps(30ms), 1u);
    EXPECT_TRUE(streaming);
    EXPECT_TRUE(m_Engine->Running);
}

TEST_F(VideoThread, ThreadRaisesItsPriorityAndDeliversFrames) {
    ASSERT_EQ(m_Engine->EnableStream(4, 4, 30), 0);
    virtcam::bus::push_bulk(TransferStatus::kCompleted, Payload(0, {1, 2, 3}));
    virtcam::bus::push_bulk(TransferStatus::kCompleted, Payload(kEof));
    uint8_t data[8] = {};
    unsigned int count = 0;
    const auto end = std::chrono::steady_clock::now() + kLimit;
    while (count == 0 && std::chrono::steady_clock::now() < end) {
        count = m_Engine->ReadFrame(data, sizeof data);
    }
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(data[2], 3);
    EXPECT_EQ(system_calls().setpriority_calls, 2);  // the start's caller, then the thread itself
    EXPECT_EQ(system_calls().last_priority, -19);
    EXPECT_EQ(log().count(1, "setpriority error!"), 0u);
}

TEST_F(VideoThread, RefusedPriorityIsLoggedAndTheThreadGoesOn) {
    system_calls().setpriority = EACCES;
    ASSERT_EQ(m_Engine->EnableStream(4, 4, 30), 0);
    EXPECT_TRUE(log().wait_for(1, "setpriority error!", kLimit));
    EXPECT_TRUE(virtcam::bus::wait_until([&] { return !usb().event_timeouts().empty(); }, kLimit));
    m_Engine->DisableStream();
    EXPECT_LOG_COUNT(1, "setpriority error!", 1);
}

TEST_F(VideoThread, FailedStartStartsNoThread) {
    virtcam::bus::add_fault({{"on", {{"control", {{"request", 0x83}}}}}, {"do", "stall"}});
    EXPECT_EQ(m_Engine->EnableStream(4, 4, 30), -1);
    EXPECT_FALSE(m_Engine->Running);
    EXPECT_EQ(Sleeps(30ms), 0u);
    EXPECT_EQ(system_calls().setpriority_calls, 0);
}

TEST_F(VideoThread, StartWithoutAThreadFailsAndLeavesNothing) {
    system_calls().pthread_create = EAGAIN;
    EXPECT_EQ(m_Engine->EnableStream(4, 4, 30), -1);
    EXPECT_FALSE(m_Engine->IsStreaming);
    EXPECT_EQ(virtcam::bus::pending(0x81), 0u);
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 3u);
    system_calls().pthread_create = 0;
    EXPECT_EQ(m_Engine->EnableStream(4, 4, 30), 0);
}

TEST_F(VideoThread, StopEndsStreamThenThreadThenSelectsIdleAgain) {
    ASSERT_EQ(m_Engine->EnableStream(4, 4, 30), 0);
    Forget();
    EXPECT_EQ(m_Engine->DisableStream(), 0);
    ExpectInOrder({{4, "UVC_DisableVideoStream +\r\n"},
                   {4, "UVC_DisableVideoStream finish.\r\n"},
                   {4, "UVC_DisableVideoStream -\r\n"},
                   {4, "VideoTransferStop +\r\n"},
                   {4, "pthread_cancel+\n"},
                   kThreadEnd,
                   {4, "pthread_cancel-\n"},
                   {4, "VideoTransferStop -\r\n"}});
    EXPECT_EQ(usb().alternate_settings(), (std::vector<std::pair<int, int>>{{1, 0}, {1, 0}}));
    EXPECT_FALSE(m_Engine->Running);
    EXPECT_FALSE(m_Engine->IsStreaming);
}

TEST_F(VideoThread, StopOfAnEngineThatNeverStreamedOnlySelectsIdle) {
    EXPECT_EQ(m_Engine->DisableStream(), 0);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(usb().alternate_settings(), (std::vector<std::pair<int, int>>{{1, 0}}));
    VideoThreadEngine closed;
    Forget();
    EXPECT_EQ(closed.DisableStream(), 0);
    EXPECT_TRUE(usb().alternate_settings().empty());
}

TEST_F(VideoThread, DestructionSaysItsFrame) {
    Forget();
    m_Engine.reset();
    EXPECT_EQ(Log(), (Lines{{4, "CAIT_CAM_LIB::~CAIT_CAM_LIB()+\r\n"},
                            {4, "CAIT_CAM_LIB::~CAIT_CAM_LIB()-\r\n"},
                            {4, "LibUSB_UvcCtrl::~CLibUSB_UvcCtrl()\r\n"}}));
}

TEST_F(VideoThread, DestructionWithARunningStreamLeavesNothing) {
    ASSERT_EQ(m_Engine->EnableStream(4, 4, 30), 0);
    m_Engine.reset();
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 3u);
}

TEST_F(VideoThread, TheEngineStopsItsThreadItself) {
    m_Engine.reset();  // it has the interfaces
    auto engine = std::make_unique<CAIT_CAM_LIB>();
    engine->Init(kVendor, kProduct);
    ASSERT_EQ(engine->EnableStream(4, 4, 30), 0);
    Forget();
    engine.reset();
    const std::string begin = "CAIT_CAM_LIB::~CAIT_CAM_LIB()+\r\n";
    const std::string end = "CAIT_CAM_LIB::~CAIT_CAM_LIB()-\r\n";
    ExpectInOrder({{4, begin}, kThreadEnd, {4, end}});
}

TEST_F(VideoThread, RestartsManyTimes) {
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(m_Engine->EnableStream(4, 4, 30), 0);
        ASSERT_EQ(m_Engine->DisableStream(), 0);
    }
    EXPECT_EQ(virtcam::bus::pending(0x81), 0u);
}

TEST_F(VideoThread, ConsumerProducerAndControlsRunSideBySide) {
    ASSERT_EQ(m_Engine->EnableStream(4, 4, 30), 0);
    constexpr int kFrames = 50;
    auto consumer = std::async(std::launch::async, [&] {
        int frames = 0;
        const auto end = std::chrono::steady_clock::now() + kLimit;
        while (frames < kFrames && std::chrono::steady_clock::now() < end) {
            unsigned char* data = nullptr;
            unsigned int length = 0;
            if (m_Engine->DequeFrameBuf(&data, &length) != 0) {
                EXPECT_EQ(data[0], static_cast<uint8_t>(frames));
                ++frames;
                m_Engine->QueueFrameBuf();
            }
        }
        return frames;
    });
    auto controls = std::async(std::launch::async, [&] {
        for (int i = 0; i < 30; ++i) {
            EXPECT_TRUE(m_Engine->RequestKeyFrame());
        }
    });
    for (int i = 0; i < kFrames; ++i) {
        const auto fid = static_cast<uint8_t>(i & 1);
        virtcam::bus::push_bulk(TransferStatus::kCompleted,
                                Payload(fid, {static_cast<uint8_t>(i)}));
        virtcam::bus::push_bulk(TransferStatus::kCompleted,
                                Payload(static_cast<uint8_t>(fid | kEof)));
    }
    EXPECT_EQ(consumer.get(), kFrames);
    controls.get();
}

TEST_F(VideoThread, UnplugWhileStreaming) {
    ASSERT_EQ(m_Engine->EnableStream(4, 4, 30), 0);
    virtcam::bus::unplug();
    EXPECT_TRUE(log().wait_for(4, "LIBUSB_TRANSFER_NO_DEVICE \r\n", kLimit));
    EXPECT_TRUE(virtcam::bus::wait_until([] { return virtcam::bus::pending(0x81) == 0; }, kLimit));
    EXPECT_FALSE(m_Engine->RequestKeyFrame());
    Forget();
    EXPECT_EQ(m_Engine->DisableStream(), 0);
    EXPECT_TRUE(usb().alternate_settings().empty());
    EXPECT_LT(m_Engine->EnableStream(4, 4, 30), 0);  // the dead handle stays dead
}

// --- video adapter -------------------------------------------------------------------------------

class VideoCapture : public EngineTest {
  protected:
    void Open() {
        m_Capture = std::make_unique<AitUvcCapture>(kVendor, kProduct);
        ASSERT_TRUE(m_Capture->IsReady());
        Forget();
    }
    /// Format, frame and interval of the first proposal since the logs were cleared.
    static std::vector<uint32_t> Proposed() {
        for (const auto& record : virtcam::bus::control_log()) {
            if (record.setup.value == 0x0100 && record.setup.index == 1 &&
                record.data.size() == 26) {
                const auto& d = record.data;
                return {d[2], d[3],
                        static_cast<uint32_t>(d[4] | d[5] << 8 | d[6] << 16 | d[7] << 24)};
            }
        }
        return {};
    }
    std::unique_ptr<AitUvcCapture> m_Capture;
};

TEST_F(VideoCapture, WithoutACameraItIsNotReady) {
    virtcam::bus::unplug();
    ForgetLog();
    AitUvcCapture capture(kVendor, kProduct);
    EXPECT_FALSE(capture.IsReady());
    EXPECT_EQ(Log(), (Lines{{4, "AIT Camera Device not found\n"},
                            {1, "AitUvcCapture:: Device not exist.\r\n"}}));
    EXPECT_FALSE(capture.ConfigureDev(1280, 720, 0, 30));
    EXPECT_EQ(log().texts().back(), "Failed to start streaming.\r\n");
}

TEST_F(VideoCapture, OpensTheIdentityThatItWasGiven) {
    AitUvcCapture capture(0x1234, 0x2065);
    EXPECT_EQ(usb().opens().front(), (std::pair<int, int>{0x1234, 0x2065}));
}

struct SizeCase {
    uint32_t width, height, pixFmt, format, frame;
};

TEST_F(VideoCapture, SizeAndPixelFormatChooseTheIndices) {
    Open();
    // Negotiation is refused at its second request: the proposal has been seen by then.
    virtcam::bus::add_fault({{"on", {{"control", {{"request", 0x83}}}}}, {"do", "stall"}});
    for (const SizeCase& test :
         {SizeCase{864, 486, kNv12, 2, 1}, SizeCase{864, 486, 0, 3, 1},
          SizeCase{864, 487, kNv12, 3, 1}, SizeCase{865, 486, kNv12, 3, 1},
          SizeCase{1280, 720, kNv12, 3, 1}, SizeCase{864, 486, kNv12 + 1, 3, 1},
          SizeCase{1280, 720, 1, 3, 1}, SizeCase{1280, 720, 0, 4, 4}, SizeCase{640, 480, 0, 4, 1},
          SizeCase{320, 240, 0, 4, 3}, SizeCase{160, 120, 0, 4, 2}, SizeCase{1920, 1080, 0, 4, 5},
          SizeCase{1280, 480, 0, 3, 1}, SizeCase{640, 720, 0, 3, 1}, SizeCase{0, 0, 0, 3, 1}}) {
        Forget();
        EXPECT_FALSE(m_Capture->ConfigureDev(test.width, test.height, test.pixFmt, 15));
        EXPECT_EQ(Proposed(), (std::vector<uint32_t>{test.format, test.frame, 333333}))
            << test.width << "x" << test.height << " " << test.pixFmt;
        EXPECT_EQ(log().lines().back().level, 4u);
        EXPECT_EQ(log().texts().back(), "Failed to start streaming.\r\n");
    }
}

TEST_F(VideoCapture, ConfiguresStreamsAndUnconfigures) {
    Open();
    EXPECT_TRUE(m_Capture->ConfigureDev(1280, 720, 0, 15));
    EXPECT_EQ(Proposed(), (std::vector<uint32_t>{4, 4, 333333}));
    EXPECT_EQ(virtcam::bus::pending(0x81), 3u);
    virtcam::bus::push_bulk(TransferStatus::kCompleted, Payload(0, {5, 6, 7}));
    virtcam::bus::push_bulk(TransferStatus::kCompleted, Payload(kEof));
    MediaSample sample;
    sample.AllocBuffer(2, nullptr);
    EXPECT_EQ(m_Capture->CaptureFrame(sample), 2);  // cut to the sample's buffer
    EXPECT_EQ(sample.GetSampleSize(), 2u);
    EXPECT_EQ(sample.GetBuffer()[1], 6);
    Forget();
    m_Capture->UnConfigureDev();
    EXPECT_LOG(4, "UVC_DisableVideoStream +\r\n");
    EXPECT_EQ(virtcam::bus::pending(0x81), 0u);
    sample.SetSampleSize(9);
    EXPECT_EQ(m_Capture->CaptureFrame(sample), 0);
    EXPECT_EQ(sample.GetSampleSize(), 9u);
}

TEST_F(VideoCapture, CaptureBeforeConfigurationLeavesTheSampleAlone) {
    Open();
    MediaSample sample;
    sample.AllocBuffer(4, nullptr);
    sample.SetSampleSize(3);
    EXPECT_EQ(m_Capture->CaptureFrame(sample), 0);
    EXPECT_EQ(sample.GetSampleSize(), 3u);
    EXPECT_EQ(system_calls().timed_wait_calls, 0);
}

TEST_F(VideoCapture, CaptureWithoutAFrameSetsTheSampleEmpty) {
    Open();
    ASSERT_TRUE(m_Capture->ConfigureDev(1280, 720, 0, 30));
    system_calls().pthread_cond_timedwait = ETIMEDOUT;
    MediaSample sample;
    sample.AllocBuffer(4, nullptr);
    sample.SetSampleSize(3);
    EXPECT_EQ(m_Capture->CaptureFrame(sample), 0);
    EXPECT_EQ(sample.GetSampleSize(), 0u);
    uint8_t byte = 7;
    m_Capture->CaptureFrame(&byte, 1);  // does nothing
    EXPECT_EQ(byte, 7);
}

TEST_F(VideoCapture, FailedConfigurationIsUnconfigured) {
    Open();
    ASSERT_TRUE(m_Capture->ConfigureDev(1280, 720, 0, 30));
    virtcam::bus::add_fault({{"on", {{"control", {{"request", 0x83}}}}}, {"do", "stall"}});
    EXPECT_FALSE(m_Capture->ConfigureDev(640, 480, 0, 30));
    MediaSample sample;
    sample.AllocBuffer(4, nullptr);
    sample.SetSampleSize(3);
    EXPECT_EQ(m_Capture->CaptureFrame(sample), 0);
    EXPECT_EQ(sample.GetSampleSize(), 3u);
}

TEST_F(VideoCapture, ResetUsesTheArgumentsOfTheLastConfiguration) {
    Open();
    ASSERT_TRUE(m_Capture->ConfigureDev(864, 486, kNv12, 12));
    Forget();
    EXPECT_TRUE(m_Capture->ResetStream());
    EXPECT_EQ(Proposed(), (std::vector<uint32_t>{2, 1, 333333}));
    EXPECT_LOG_COUNT(4, "UVC_DisableVideoStream +\r\n", 1);
    EXPECT_EQ(virtcam::bus::pending(0x81), 3u);
    virtcam::bus::add_fault({{"on", {{"control", {{"request", 0x83}}}}}, {"do", "stall"}});
    EXPECT_FALSE(m_Capture->ResetStream());
}

struct CountingVideo : AitUvcCapture {
    using AitUvcCapture::AitUvcCapture;
    void UnConfigureDev() override {
        ++unconfigured;
        AitUvcCapture::UnConfigureDev();
    }
    int unconfigured = 0;
};

TEST_F(VideoCapture, EveryConfigurationUnconfiguresThroughTheTable) {
    CountingVideo capture(kVendor, kProduct);
    ASSERT_TRUE(capture.ConfigureDev(1280, 720, 0, 30));
    EXPECT_EQ(capture.unconfigured, 1);
    ASSERT_TRUE(capture.ResetStream());
    EXPECT_EQ(capture.unconfigured, 3);  // its own and the configuration's
}

TEST_F(VideoCapture, AStreamWhoseLastTransferIsRefusedHasNoThread) {
    Open();
    virtcam::bus::add_fault(FailCall("libusb_submit_transfer", LIBUSB_ERROR_BUSY, 3));
    EXPECT_FALSE(m_Capture->ConfigureDev(1280, 720, 0, 30));
    EXPECT_EQ(system_calls().setpriority_calls, 0);
    EXPECT_EQ(virtcam::bus::pending(0x81), 2u);
    EXPECT_TRUE(m_Capture->ConfigureDev(1280, 720, 0, 30));  // reaped without an event thread
    EXPECT_EQ(virtcam::bus::pending(0x81), 3u);
    EXPECT_TRUE(log().texts(1).empty());
}

TEST_F(VideoCapture, LendsFramesWithoutCopy) {
    Open();
    uint8_t byte = 0;
    uint8_t* data = &byte;
    uint32_t length = 4;
    EXPECT_EQ(m_Capture->GetFrameBuf(&data, &length), 0);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 0u);
    m_Capture->RetFrameBuf();
    ASSERT_TRUE(m_Capture->ConfigureDev(1280, 720, 0, 30));
    for (const uint8_t fid : {0, 1}) {
        virtcam::bus::push_bulk(TransferStatus::kCompleted, Payload(fid, {uint8_t(fid + 5)}));
        virtcam::bus::push_bulk(TransferStatus::kCompleted,
                                Payload(static_cast<uint8_t>(fid | kEof)));
    }
    for (const uint8_t expected : {5, 6}) {
        EXPECT_EQ(m_Capture->GetFrameBuf(&data, &length), 1);
        EXPECT_EQ(data[0], expected);
        m_Capture->RetFrameBuf();
    }
}

TEST_F(VideoCapture, ControlsAreForwarded) {
    Open();
    EXPECT_TRUE(m_Capture->SetBitrate(0x10ABCD));  // the low 16 bits
    EXPECT_TRUE(m_Capture->SetFramerate(0x10011E));
    EXPECT_TRUE(m_Capture->RequestKeyFrame());
    EXPECT_TRUE(m_Capture->SetPU(5, 2));
    EXPECT_FALSE(m_Capture->SetPU(4, 2));
    EXPECT_TRUE(m_Capture->SetPTZ(0x009A090D, 3));
    int value = 0;
    EXPECT_TRUE(m_Capture->GetPTZ(0x009A090D, &value));
    EXPECT_EQ(value, 3);
    EXPECT_FALSE(m_Capture->GetPTZ(0x009A090B, &value));
    EXPECT_EQ(
        Requests(),
        (Sequence{Write(0x21, 0x01, 0x0100, 0x0600, {0x08, 0xFF, 0xCD, 0xAB, 0, 0, 0, 0}),
                  Write(0x21, 0x01, 0x0100, 0x0600, {0x02, 0x1E, 0x01, 0, 0, 0, 0, 0}),
                  Write(0x21, 0x01, 0x0100, 0x0600, {0x04, 0, 0, 0, 0, 0, 0, 0}),
                  Write(0x21, 0x01, 0x0500, 0x0300, {2}), Write(0x21, 0x01, 0x0B00, 0x0100, {3, 0}),
                  Read(0xA1, 0x81, 0x0B00, 0x0100, 2)}));
    EXPECT_EQ(Answers(), (std::vector<Bytes>{{3, 0}}));
    virtcam::bus::clear_logs();
    virtcam::bus::add_fault(
        {{"on", {{"control", nlohmann::json::object()}}}, {"do", {{"return", 2}}}});
    Bytes data = {1, 2, 3};
    EXPECT_EQ(m_Capture->AitCommandSend(0x0E, data.data(), 3), 2);
    EXPECT_EQ(m_Capture->AitCommandGet(0x0F, data.data(), 3), 2);
    const auto requests = Requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0], Write(0x21, 0x01, 0x0E00, 0x0600, {1, 2, 3}));
    EXPECT_EQ(requests[1].value, 0x0F00);
}

TEST_F(VideoCapture, DestructionStopsARunningStream) {
    Open();
    ASSERT_TRUE(m_Capture->ConfigureDev(1280, 720, 0, 30));
    Forget();
    m_Capture.reset();
    EXPECT_LOG(4, "UVC_DisableVideoStream +\r\n");
    EXPECT_EQ(CountCalls("libusb_close"), 1u);
}

// --- audio engine with its thread ----------------------------------------------------------------

class AudioThreadEngine : public CAIT_AUDIO_LIB {
  public:
    ~AudioThreadEngine() override { Stop(); }
    using pThread::Running;
    using UsbStreamEngine::IsStreaming;
};

class AudioThread : public EngineTest {
  protected:
    AudioThread() : m_Engine(std::make_unique<AudioThreadEngine>()) {
        m_Engine->Init(kVendor, kProduct);
        ExpectComplaint("libusb_release_interface: interface 1 was not claimed");
        ExpectComplaint("libusb_close: claimed and not released: interface 2, 3");
        Forget();
    }
    ~AudioThread() override {
        if (m_Engine != nullptr) {
            m_Engine->DisableStream();
        }
    }
    static void Range(const char* max, const char* min) {
        virtcam::bus::add_fault(
            {{"on", {{"control", {{"request", 0x83}}}}}, {"do", {{"reply", max}}}});
        virtcam::bus::add_fault(
            {{"on", {{"control", {{"request", 0x82}}}}}, {"do", {{"reply", min}}}});
    }
    std::unique_ptr<AudioThreadEngine> m_Engine;
};

TEST_F(AudioThread, StartsTheThreadWithoutSettling) {
    EXPECT_EQ(m_Engine->EnableStream(16000), 0);
    EXPECT_TRUE(m_Engine->Running);
    EXPECT_EQ(Sleeps(30ms), 0u);
    virtcam::bus::push_iso({{TransferStatus::kCompleted, {1, 2}, std::nullopt}});
    uint8_t data[4];
    unsigned int count = 0;
    const auto end = std::chrono::steady_clock::now() + kLimit;
    while (count == 0 && std::chrono::steady_clock::now() < end) {
        count = m_Engine->ReadFrame(data, sizeof data);
    }
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(system_calls().setpriority_calls, 2);
}

TEST_F(AudioThread, StartWithoutAThreadFailsAndLeavesNothing) {
    system_calls().pthread_create = EAGAIN;
    EXPECT_EQ(m_Engine->EnableStream(16000), -1);
    EXPECT_FALSE(m_Engine->IsStreaming);
    EXPECT_EQ(virtcam::bus::pending(0x82), 0u);
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 2u);
    system_calls().pthread_create = 0;
    EXPECT_EQ(m_Engine->EnableStream(16000), 0);
}

TEST_F(AudioThread, FailedStartStillRunsTheThreadUntilDestruction) {
    virtcam::bus::add_fault({{"on", {{"control", {{"type", 0x22}}}}}, {"do", "stall"}});
    EXPECT_EQ(m_Engine->EnableStream(16000), -1);
    EXPECT_TRUE(m_Engine->Running);
    EXPECT_TRUE(virtcam::bus::wait_until([&] { return !usb().event_timeouts().empty(); }, kLimit));
    Forget();
    EXPECT_EQ(m_Engine->DisableStream(), 0);
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(m_Engine->Running);
    // A start that succeeds uses the thread that is there.
    virtcam::bus::clear_faults();
    EXPECT_EQ(m_Engine->EnableStream(16000), 0);
    m_Engine.reset();
    EXPECT_LOG_COUNT(4, "CAIT_CAM_LIB::run() Exit libusb thread.\n", 1);
}

TEST_F(AudioThread, StopEndsStreamThenThread) {
    ASSERT_EQ(m_Engine->EnableStream(16000), 0);
    Forget();
    EXPECT_EQ(m_Engine->DisableStream(), 0);
    ExpectInOrder({{4, "UAC_DisableAudioStream+\r\n"},
                   {4, "UAC_DisableAudioStream-\r\n"},
                   {4, "AudioTransferStop+\r\n"},
                   {4, "AudioTransferStop+\n"},
                   kThreadEnd,
                   {4, "AudioTransferStop-\n"},
                   {4, "AudioTransferStop-\r\n"}});
    EXPECT_EQ(usb().alternate_settings(), (std::vector<std::pair<int, int>>{{3, 0}}));
    EXPECT_FALSE(m_Engine->Running);
}

TEST_F(AudioThread, StopWithoutAStreamDoesNothing) {
    EXPECT_EQ(m_Engine->DisableStream(), 0);
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(Calls().empty());
}

TEST_F(AudioThread, DestructionSaysItsFrame) {
    Forget();
    m_Engine.reset();
    EXPECT_EQ(Log(), (Lines{{4, "CAIT_AUDIO_LIB::~CAIT_AUDIO_LIB()+"},
                            {4, "CAIT_AUDIO_LIB::~CAIT_AUDIO_LIB()-"},
                            {4, "CLibUSB_UacCtrl::~CLibUSB_UacCtrl() +\r\n"},
                            {4, "CLibUSB_UacCtrl::~CLibUSB_UacCtrl() -\r\n"}}));
}

TEST_F(AudioThread, VolumeIsAnOffsetAboveTheMinimum) {
    Range("6400", "0000");
    ASSERT_EQ(m_Engine->EnableStream(16000), 0);
    EXPECT_EQ(m_Engine->GetMinVolume(), 0u);
    EXPECT_EQ(m_Engine->GetMaxVolume(), 100u);
    EXPECT_EQ(m_Engine->GetCurVolume(), 30u);
    m_Engine->DisableStream();
    virtcam::bus::clear_faults();
    ASSERT_EQ(m_Engine->EnableStream(16000), 0);
    EXPECT_EQ(m_Engine->GetMinVolume(), static_cast<unsigned int>(-4096));
    EXPECT_EQ(m_Engine->GetMaxVolume(), 0u);
    EXPECT_EQ(m_Engine->SetCurVolume(96), 0);
    EXPECT_EQ(m_Engine->UAC_GetCurVolume(), -4000);
    EXPECT_EQ(m_Engine->GetCurVolume(), 96u);
    EXPECT_EQ(m_Engine->SetCurVolume(4097), -1);
    EXPECT_EQ(m_Engine->SetCurVolume(0x10000), 0);  // cut to 16 bits
    EXPECT_EQ(m_Engine->UAC_GetCurVolume(), -4096);
    EXPECT_EQ(m_Engine->SetSamplingRate(24000), 3);
}

// --- audio adapter -------------------------------------------------------------------------------

class AudioCapture : public EngineTest {
  protected:
    void Open() {
        m_Capture = std::make_unique<CAudioCapture>(kVendor, kProduct);
        ASSERT_TRUE(m_Capture->IsReady());
        ExpectComplaint("libusb_release_interface: interface 1 was not claimed");
        ExpectComplaint("libusb_close: claimed and not released: interface 2, 3");
        Forget();
    }
    std::unique_ptr<CAudioCapture> m_Capture;
};

TEST_F(AudioCapture, WithoutACameraItIsNotReady) {
    virtcam::bus::unplug();
    ForgetLog();
    CAudioCapture capture(kVendor, kProduct);
    EXPECT_FALSE(capture.IsReady());
    ASSERT_EQ(log().texts().size(), 2u);
    EXPECT_EQ(log().texts().back(), "CAudioCapture:: Device not exist.\r\n");
    EXPECT_FALSE(capture.ConfigureDev(2, 16000, 0));
    EXPECT_EQ(Log().back(), (Logged{4, "Failed to start streaming.\r\n"}));
}

TEST_F(AudioCapture, ChannelAndFormatAreIgnored) {
    Open();
    std::vector<Sequence> seen;
    for (const auto& [channel, format] : {std::pair<int, int>{2, 0}, {1, 7}}) {
        Forget();
        EXPECT_TRUE(m_Capture->ConfigureDev(static_cast<uint8_t>(channel), 16000,
                                            static_cast<uint32_t>(format)));
        seen.push_back(Requests());
    }
    EXPECT_EQ(seen[0], seen[1]);
    ASSERT_EQ(seen[0].size(), 5u);
    EXPECT_EQ(seen[0][0].data, (Bytes{0x80, 0x3E, 0}));
}

TEST_F(AudioCapture, SecondConfigurationStopsTheFirst) {
    Open();
    ASSERT_TRUE(m_Capture->ConfigureDev(2, 16000, 0));
    EXPECT_EQ(log().count_containing("UAC_DisableAudioStream+"), 0u);
    ASSERT_TRUE(m_Capture->ConfigureDev(2, 24000, 0));
    EXPECT_LOG_COUNT(4, "UAC_DisableAudioStream+\r\n", 1);
    m_Capture->UnConfigureDev();
    EXPECT_LOG_COUNT(4, "UAC_DisableAudioStream+\r\n", 2);
    ASSERT_TRUE(m_Capture->ConfigureDev(2, 16000, 0));
    EXPECT_LOG_COUNT(4, "UAC_DisableAudioStream+\r\n", 2);
}

struct CountingAudio : CAudioCapture {
    using CAudioCapture::CAudioCapture;
    void UnConfigureDev() override {
        ++unconfigured;
        CAudioCapture::UnConfigureDev();
    }
    int unconfigured = 0;
};

TEST_F(AudioCapture, OnlyARunningConfigurationIsUnconfiguredThroughTheTable) {
    ExpectComplaint("libusb_release_interface: interface 1 was not claimed");
    ExpectComplaint("libusb_close: claimed and not released: interface 2, 3");
    CountingAudio capture(kVendor, kProduct);
    ASSERT_TRUE(capture.ConfigureDev(2, 16000, 0));
    EXPECT_EQ(capture.unconfigured, 0);
    ASSERT_TRUE(capture.ConfigureDev(2, 16000, 0));
    EXPECT_EQ(capture.unconfigured, 1);
    capture.CAudioCapture::UnConfigureDev();
    ASSERT_TRUE(capture.ConfigureDev(2, 16000, 0));
    EXPECT_EQ(capture.unconfigured, 1);
}

TEST_F(AudioCapture, FailedConfigurationIsReported) {
    Open();
    virtcam::bus::add_fault({{"on", {{"control", {{"type", 0x22}}}}}, {"do", "stall"}});
    EXPECT_FALSE(m_Capture->ConfigureDev(2, 8000, 0));
    EXPECT_LOG_COUNT(4, "Failed to start streaming.\r\n", 1);
}

TEST_F(AudioCapture, ReadsByCopyAndByLoan) {
    Open();
    uint8_t byte = 0;
    unsigned char* data = &byte;
    unsigned int length = 3;
    EXPECT_EQ(m_Capture->ReadAudioData(&byte, 1), 0);
    EXPECT_EQ(m_Capture->GetBuf(&data, &length), 0);
    EXPECT_EQ(data, nullptr);
    m_Capture->RetBuf();
    ASSERT_TRUE(m_Capture->ConfigureDev(2, 16000, 0));
    for (const uint8_t i : {1, 2, 3}) {
        virtcam::bus::push_iso({{TransferStatus::kCompleted, {i, i}, std::nullopt}});
    }
    EXPECT_EQ(m_Capture->ReadAudioData(&byte, 1), 1);
    EXPECT_EQ(byte, 1);
    for (const uint8_t expected : {2, 3}) {
        EXPECT_EQ(m_Capture->GetBuf(&data, &length), 2);
        EXPECT_EQ(data[1], expected);
        m_Capture->RetBuf();
    }
}

TEST_F(AudioCapture, PercentMapsOntoTheRange) {
    Open();
    ASSERT_TRUE(m_Capture->ConfigureDev(2, 16000, 0));
    struct Case {
        int percent;
        std::optional<int> volume;
    };
    for (const Case& test : {Case{50, -2048}, Case{0, -4096}, Case{100, 0}, Case{1, -4056},
                             Case{99, -41}, Case{150, std::nullopt}, Case{101, std::nullopt},
                             Case{-1, std::nullopt}, Case{0x7FFFFFFF, std::nullopt}}) {
        Forget();
        EXPECT_TRUE(m_Capture->SetVolume(test.percent));
        if (!test.volume) {
            EXPECT_TRUE(Requests().empty()) << test.percent;
            continue;
        }
        EXPECT_EQ(Requests(), (Sequence{Write(0x21, 0x01, 0x0200, 0x0503,
                                              {static_cast<uint8_t>(*test.volume),
                                               static_cast<uint8_t>(*test.volume >> 8)})}))
            << test.percent;
    }
}

TEST_F(AudioCapture, RateIsForwarded) {
    Open();
    EXPECT_EQ(m_Capture->SetSamplingRate(24000), 3);
    EXPECT_EQ(Requests().back().data, (Bytes{0xC0, 0x5D, 0x00}));
}

TEST_F(AudioCapture, DestructionStopsARunningStreamInsideItsFrame) {
    Open();
    ASSERT_TRUE(m_Capture->ConfigureDev(2, 16000, 0));
    Forget();
    m_Capture.reset();
    ExpectInOrder({{4, "CAudioCapture::~CAudioCapture+\r\n"},
                   {4, "UAC_DisableAudioStream+\r\n"},
                   {4, "CAudioCapture::~CAudioCapture-\r\n"},
                   {4, "CAIT_AUDIO_LIB::~CAIT_AUDIO_LIB()+"}});
}

}  // namespace
}  // namespace test
