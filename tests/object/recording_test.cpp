// Recording control: what reaches the camera, in order, and how each start and stop ends.
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <thread>

#include "tests/object/CameraTest.h"
#include "tests/object/ObjectFields.h"
#include "tests/support/ThreadShortage.h"

namespace test {
namespace {

std::vector<uint8_t> Probe(uint8_t format, uint8_t frame) {
    std::vector<uint8_t> block = {1, 0, format, frame, 0x15, 0x16, 0x05, 0, 0, 0,    0, 0, 0,
                                  0, 0, 0,      0,     0,    0,    0x10, 0, 0, 0x20, 0, 0};
    block.resize(18);
    const uint8_t sizes[] = {0, 0, 0x10, 0, 0, 0x20, 0, 0};
    block.insert(block.end(), sizes, sizes + 8);
    return block;
}

class Recording : public CameraTest {
  protected:
    static Sequence Negotiation(uint8_t format = 4, uint8_t frame = 1) {
        const auto probe = Probe(format, frame);
        return {Write(0x21, 0x01, 0x0100, 0x0001, probe, 5000),
                Read(0xA1, 0x83, 0x0100, 0x0001, 26, 5000),
                Read(0xA1, 0x82, 0x0100, 0x0001, 26, 5000),
                Write(0x21, 0x01, 0x0100, 0x0001, probe, 5000),
                Read(0xA1, 0x81, 0x0100, 0x0001, 26, 5000)};
    }
    static Sequence Rates() { return {Isp({0x08, 0xFF, 0xD0, 0x07}), Isp({0x02, 30})}; }
    static Sequence SubRates(uint8_t fps) {
        return {Isp({13, 1}), Isp({0x08, 0xFF, 0x20, 0x03}), Isp({0x02, fps}), Isp({13, 0})};
    }
    static Sequence Sound(uint16_t rate = 16000, uint16_t volume = 0xF4CC) {
        return {Write(0x22, 0x01, 0x0100, 0x0082,
                      {static_cast<uint8_t>(rate), static_cast<uint8_t>(rate >> 8), 0}, 5000),
                Read(0xA2, 0x81, 0x0100, 0x0082, 3, 5000),
                Read(0xA1, 0x83, 0x0200, 0x0503, 2, 5000),
                Read(0xA1, 0x82, 0x0200, 0x0503, 2, 5000),
                Write(0x21, 0x01, 0x0200, 0x0503, {0xFF, 0xFF}, 5000),
                Write(0x21, 0x01, 0x0200, 0x0503,
                      {static_cast<uint8_t>(volume), static_cast<uint8_t>(volume >> 8)}, 5000)};
    }
    /// What was sent, with the commit, whose block is the device's answer, taken out after checking
    /// it.
    Sequence SentWithoutCommit() {
        Sequence sent;
        for (const Request& request : Sent()) {
            if (request.value == 0x0200 && request.index == 0x0001) {
                EXPECT_EQ(request.type, 0x21);
                EXPECT_EQ(request.length, 26);
                ++commits_;
            } else {
                sent.push_back(request);
            }
        }
        return sent;
    }
    void ExpectTheVideoThreadToEndWithTheObject() {
        EXPECT_NO_LOG(4, "Exit VideoCapture thread.\r\n");
        Destroy();
        EXPECT_LOG_COUNT(4, "Exit VideoCapture thread.\r\n", 1);
    }
    static void Append(Sequence& to, const Sequence& more) {
        to.insert(to.end(), more.begin(), more.end());
    }

    int commits_ = 0;
};

TEST_F(Recording, StartBySignalType) {
    Ready();
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_EQ(camera_->GetState(), CAM_STATE_PLAYING);
    Sequence expected = {Mmp({1, 6}), Isp({13, 0})};
    Append(expected, Negotiation());
    Append(expected, Rates());
    Append(expected, SubRates(15));
    expected.push_back(Write(0x21, 0x01, 0x0500, 0x0300, {2}, 5000));
    Append(expected, Sound());
    expected.push_back(Light(1));
    EXPECT_EQ(SentWithoutCommit(), expected);
    EXPECT_EQ(commits_, 1);
    EXPECT_EQ(
        Texts(1),
        (std::vector<std::string>{
            "CAitOrixCamera::StartRecording open device VID=0x114D, PID=0x2066 W=640 H=480\r\n"}));
    ExpectInOrder({{4, "CAitOrixCamera::StartRecording\r\n"},
                   {4, "Signale Type = CAM_SIGNAL_H264_GRAY_SI\r\n"},
                   {4, "Set stream target(ID)=0\r\n"},
                   {4, "Set stream target(ID)=1\r\n"},
                   {4, "Set stream target(ID)=0\r\n"},
                   {4, "Succeed in setting flicker !!!\r\n"},
                   {4, "*********** Start Audio Capture Thread*************\r\n"},
                   {4, "*********** Audio Capture Thread Init finish.\r\n*************\r\n"}},
                  OfThisThread);
    camera_->StopRecording();
}

/// Names of the process's threads, as `ps -T` shows them.
std::set<std::string> ThreadNames() {
    std::set<std::string> names;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        if (std::getline(std::ifstream(task.path() / "comm"), name)) {
            names.insert(name);
        }
    }
    return names;
}

TEST_F(Recording, EveryWorkerHasAName) {
    Playing();
    const std::set<std::string> workers = {"ait-loader", "ait-video", "ait-video-usb", "ait-audio",
                                           "ait-audio-usb"};
    // Each thread names itself when it begins.
    virtcam::bus::wait_until(
        [&] {
            const auto names = ThreadNames();
            return std::includes(names.begin(), names.end(), workers.begin(), workers.end());
        },
        kLimit);
    EXPECT_THAT(ThreadNames(), ::testing::IsSupersetOf(workers));
    camera_->StopRecording();
}

TEST_F(Recording, StopUndoesIt) {
    Playing();
    RecordingObserver gray(CAM_STREAM_GRAY), nv12(CAM_STREAM_NV12);
    camera_->RegisterObserver(&gray);
    camera_->RegisterObserver(&nv12);
    Forget();
    EXPECT_TRUE(camera_->StopRecording());
    EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);
    EXPECT_EQ(Sent(), (Sequence{Light(0)}));
    EXPECT_EQ(nv12.Count(), 1u);
    EXPECT_EQ(gray.size_, 0u);
    ExpectInOrder({{4, "CAitOrixCamera:: stop audio capture thread\r\n"},
                   {4, "UAC_DisableAudioStream+\r\n"},
                   {4, "CAitOrixCamera:: stop video capture thread \r\n"},
                   {4, "UVC_DisableVideoStream +\r\n"}},
                  OfThisThread);
    EXPECT_LOG_COUNT(1, "CAitOrixCamera::StopRecording\r\n", 1);
    EXPECT_NO_LOG(1, "Abnormal StopRecording.\r\n");
    EXPECT_EQ(clock().count(10ms), 1u);
    camera_->RemoveObserver(&gray);
    camera_->RemoveObserver(&nv12);
}

TEST_F(Recording, StopTellsTheEndBetweenThreadAndStream) {
    Playing();
    EXPECT_TRUE(camera_->StopRecording());
    const Lines lines = Log([](const LogLine& line) {
        return OfThisThread(line) &&
               (line.function == "StopRecording" || line.function == "DisableStream" ||
                line.function == "OnFrameArrival");
    });
    EXPECT_EQ(lines, (Lines{{1, "CAitOrixCamera::StopRecording\r\n"},
                            {4, "CAitOrixCamera:: stop audio capture thread\r\n"},
                            {4, "UAC_DisableAudioStream+\r\n"},
                            {4, "UAC_DisableAudioStream-\r\n"},
                            {4, "AudioTransferStop+\r\n"},
                            {4, "AudioTransferStop-\r\n"},
                            {4, "CAitOrixCamera:: stop video capture thread \r\n"},
                            {1, "Null Gray or NV12 Data is received !!!\r\n"},
                            {5, "OnFrameArrival, StreamType=5\r\n"},
                            {1, "Null Gray or NV12 Data is received !!!\r\n"},
                            {5, "OnFrameArrival, StreamType=7\r\n"},
                            {4, "UVC_DisableVideoStream +\r\n"},
                            {4, "UVC_DisableVideoStream -\r\n"},
                            {4, "VideoTransferStop +\r\n"},
                            {4, "VideoTransferStop -\r\n"}}));
}

TEST_F(Recording, StopSwitchesTheLightOffFirst) {
    Playing();
    EXPECT_TRUE(camera_->StopRecording());
    std::vector<std::string> calls;
    for (const auto& call : virtcam::bus::call_log()) {
        if (call.thread != std::this_thread::get_id()) {
            continue;
        }
        if (call.name == "libusb_control_transfer") {
            calls.push_back(call.name);
        } else if (call.name == "libusb_cancel_transfer" ||
                   call.name == "libusb_set_interface_alt_setting") {
            calls.push_back(call.name + " " + std::to_string(call.argument.value_or(-1)));
        }
    }
    EXPECT_EQ(calls, (std::vector<std::string>{
                         "libusb_control_transfer", "libusb_cancel_transfer 130",
                         "libusb_cancel_transfer 130", "libusb_set_interface_alt_setting 3",
                         "libusb_cancel_transfer 129", "libusb_cancel_transfer 129",
                         "libusb_cancel_transfer 129", "libusb_set_interface_alt_setting 1",
                         "libusb_set_interface_alt_setting 1"}));
}

TEST_F(Recording, StartTwice) {
    Playing();
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_LOG_COUNT(1, "StartRecording twice\r\n", 1);
    EXPECT_TRUE(Sent().empty());
    camera_->StopRecording();
}

TEST_F(Recording, StartInAnyStateButReadyDoesNothing) {
    Create();
    for (int state = 0; state < 16; ++state) {
        if (state == CAM_STATE_READY) {
            continue;
        }
        camera_->SetState(static_cast<CAM_STATE>(state));
        log().reset();
        EXPECT_TRUE(camera_->StartRecording());
        EXPECT_LOG_COUNT(1, "StartRecording twice\r\n", 1);
        EXPECT_EQ(camera_->m_State, state);
    }
}

TEST_F(Recording, WithoutAdapterThereIsNoVideo) {
    Create();
    camera_->SetState(CAM_STATE_READY);
    EXPECT_FALSE(camera_->StartRecording());
    EXPECT_LOG(1, "CAitOrixCamera::StartRecording, Can't open video break\r\n");
    EXPECT_FALSE(camera_->StopRecording());
    EXPECT_LOG(1, "video_capturer is NULL or m_State is CAM_STATE_DISCONNECTED !!!\r\n");
}

TEST_F(Recording, StopWhileReadyIsAbnormal) {
    Ready();
    EXPECT_FALSE(camera_->StopRecording());
    EXPECT_LOG_COUNT(1, "Abnormal StopRecording.\r\n", 1);
    EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);
    EXPECT_LOG_COUNT(1, "Null Gray or NV12 Data is received !!!\r\n", 2);
}

TEST_F(Recording, StopWhileDisconnectedLeavesTheVideo) {
    Playing();
    camera_->SetState(CAM_STATE_DISCONNECTED);
    EXPECT_FALSE(camera_->StopRecording());
    EXPECT_LOG(1, "video_capturer is NULL or m_State is CAM_STATE_DISCONNECTED !!!\r\n");
    EXPECT_LOG(4, "UAC_DisableAudioStream-\r\n");
    EXPECT_NO_LOG(4, "CAitOrixCamera:: stop video capture thread \r\n");
    EXPECT_EQ(camera_->GetState(), CAM_STATE_DISCONNECTED);
    ExpectTheVideoThreadToEndWithTheObject();
}

// --- selection of streams ------------------------------------------------------------------------

struct SignalCase {
    int type;
    uint8_t code;
    const char* text;
};

TEST_F(Recording, EverySignalType) {
    const SignalCase cases[] = {
        {0, 0, "Signale Type = CAM_SIGNAL_H264_YUYV\r\n"},
        {1, 1, "Signale Type = CAM_SIGNAL_H264_GRAY\r\n"},
        {2, 2, "Signale Type = CAM_SIGNAL_GRAY\r\n"},
        {3, 3, "Signale Type = CAM_SIGNAL_H264_H264_GRAY\r\n"},
        {4, 4, "Signale Type = CAM_SIGNAL_H264_NV21\r\n"},
        {6, 6, "Signale Type = CAM_SIGNAL_H264_GRAY_SI\r\n"},
        {7, 7, "Signale Type = CAM_SIGNAL_H264_H264\r\n"},
        {8, 8, "Signale Type = CAM_SIGNAL_H264_MJPEG\r\n"},
    };
    Ready();
    for (const SignalCase& c : cases) {
        Set(CAM_PROPERTY_SIGNAL_TYPE, c.type);  // kept, although nothing plays
        Forget();
        ASSERT_TRUE(camera_->StartRecording());
        EXPECT_LOG_COUNT(4, c.text, 1);
        EXPECT_EQ(Sent().at(0), Mmp({1, c.code}));
        camera_->StopRecording();
    }
}

// Selections that SetProperty never lets through, although the start knows what to do with them.

TEST_F(Recording, SignalTypesThatAreNeverSet) {
    const SignalCase cases[] = {
        {5, 5, "Signale Type = CAM_SIGNAL_H264_GRAY_JPEG\r\n"},
        {9, 0, "Unknown Signal Type\r\n"},
        {CAM_SIGNAL_MULTI_CAST, 0, "Unknown Signal Type\r\n"},
        {-1, 0, "Unknown Signal Type\r\n"},
    };
    Ready();
    for (const SignalCase& c : cases) {
        object_->*MemberOf(SignalTypeTag()) = static_cast<CAM_SIGNAL_TYPE>(c.type);
        Forget();
        ASSERT_TRUE(camera_->StartRecording());
        EXPECT_LOG_COUNT(4, c.text, 1);
        EXPECT_EQ(Sent().at(0), Mmp({1, c.code}));
        EXPECT_TRUE(camera_->StopRecording());
    }
}

TEST_F(Recording, VideoModesThatAreNeverSetSelectNothing) {
    SetPlatform(kTenchP);
    Ready();
    for (const int mode : {3, 6, -1}) {
        object_->*MemberOf(VideoModeTag()) = static_cast<CAM_VIDEO_MODE>(mode);
        Forget();
        ASSERT_TRUE(camera_->StartRecording());
        EXPECT_LOG_COUNT(4, "Unknown Video Mode\r\n", 1);
        EXPECT_EQ(Sent().at(0), Mmp({0x02, 0x01}));  // the option word is set all the same
        EXPECT_EQ(Sent().at(2), Mmp({0x02, 0x02, 0x01}));
        EXPECT_TRUE(camera_->StopRecording());
    }
}

TEST_F(Recording, EachPlatformBeginsWithItsOwnCombination) {
    const std::pair<const char*, uint8_t> cases[] = {
        {kBream, 6},    {kPerch, 6},    {"T-XX14X", 6}, {"T-GFSXX", 6}, {"T-GFPXX", 6},
        {kRuffPlus, 7}, {"T-EXPXX", 7}, {kTenchP, 8},   {kTenchS, 8},   {"", 8}};
    for (const auto& [info, code] : cases) {
        SetPlatform(info);
        Ready();
        ASSERT_TRUE(camera_->StartRecording());
        EXPECT_EQ(Sent().at(0), Mmp({1, code})) << info;
        // Only by video mode is the option word touched.
        EXPECT_EQ(Sent().at(1), code == 6 ? Isp({13, 0}) : Mmp({0x02, 0x01})) << info;
        Destroy();
        InitAnswers::instance().Clear();
        virtcam::bus::power_cycle();
    }
}

TEST_F(Recording, AnUnknownVideoModeKeepsTheCallMode) {
    SetPlatform(kTenchS);  // call mode with its first combination
    Playing();
    EXPECT_TRUE(camera_->StopRecording());
    object_->*MemberOf(VideoModeTag()) = CAM_VIDEO_H264_YUV;
    object_->SetVideoOption(0x01);
    Forget();
    ASSERT_TRUE(camera_->StartRecording());
    EXPECT_EQ(Sent().at(2), Mmp({0x02, 0x02, 0x30}));
    EXPECT_TRUE(camera_->StopRecording());
}

TEST_F(Recording, WithNeitherWayOfSelectionNothingIsSelected) {
    Ready();
    object_->*MemberOf(TvModeTag()) = static_cast<TV_MODE>(2);
    ASSERT_TRUE(camera_->StartRecording());
    EXPECT_EQ(Sent().at(0), Isp({13, 0}));
    EXPECT_TRUE(camera_->StopRecording());
}

struct ModeCase {
    const char* platform;
    int mode;
    int bitrate;
    int code;  // -1: none sent
    const char* text;
    bool callMode;
};

constexpr int kSps = 7, kPps = 8;  // H.264, table 7-1

/// Types of the NAL units that begin the first two records of the main stream.
struct FirstUnits : ICameraObserver {
    FirstUnits() { m_StreamType = CAM_STREAM_H264_MAIN; }
    bool Update(const CCameraData* data) override {
        std::lock_guard lock(mutex);
        if (types.size() < 2) {
            types.push_back(static_cast<const uint8_t*>(data->m_pData)[4] & 0x1F);
        }
        changed.notify_all();
        return true;
    }
    bool WaitForTwo() {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, kLimit, [&] { return types.size() == 2; });
    }
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<int> types;
};

class VideoModes : public Recording, public ::testing::WithParamInterface<ModeCase> {};

TEST_P(VideoModes, SelectCombinationAndMirrors) {
    SetPlatform(GetParam().platform);
    Ready();
    Set(CAM_PROPERTY_BITRATE, GetParam().bitrate);
    Set(CAM_PROPERTY_VIDEO_MODE, GetParam().mode);
    // Bits of the word before: mirror, flip and both local mirrors.
    ASSERT_GE(object_->SetVideoOption(0x80000033), 0);
    FirstUnits units;
    camera_->RegisterObserver(&units);
    Forget();
    ASSERT_TRUE(camera_->StartRecording());
    EXPECT_LOG_COUNT(4, GetParam().text, 1);
    const unsigned options = GetParam().callMode ? 0x80000032 : 0x80000003;
    char line[80];
    snprintf(line, sizeof line, "last_options = 80000033, cur_options = %X\r\n", options);
    EXPECT_LOG_COUNT(4, line, 1);
    Sequence expected;
    if (GetParam().code >= 0) {
        expected.push_back(Mmp({1, static_cast<uint8_t>(GetParam().code)}));
    }
    Append(expected, {Mmp({0x02, 0x01}), MmpResult(),
                      Mmp({0x02, 0x02, static_cast<uint8_t>(options), 0, 0, 0x80}), Isp({13, 0})});
    const Sequence sent = Sent();
    ASSERT_GE(sent.size(), expected.size());
    EXPECT_EQ(Sequence(sent.begin(), sent.begin() + static_cast<long>(expected.size())), expected);
    EXPECT_EQ(log().has(4, "Set TMK signal type = 0x07 \r\n"), GetParam().code == 7);

    // In call mode a key frame comes in three records: the parameter sets travel alone.
    ASSERT_TRUE(units.WaitForTwo());
    camera_->StopRecording();
    camera_->RemoveObserver(&units);
    EXPECT_EQ(units.types[0], kSps);
    EXPECT_EQ(units.types[1] == kPps, GetParam().callMode);
}

INSTANTIATE_TEST_SUITE_P(
    Modes, VideoModes,
    ::testing::Values(ModeCase{kTenchP, 0, 1500000, 7, "Video mode is Dual H264\r\n", false},
                      ModeCase{kTenchP, 0, 1500001, 7, "Video mode is Dual H264\r\n", true},
                      ModeCase{kTenchS, 0, 1500000, 7, "Video mode is Dual H264\r\n", true},
                      ModeCase{kRuffPlus, 0, 2000000, 7, "Video mode is Dual H264\r\n", true},
                      ModeCase{kTenchS, 1, 2000000, 8, "Video mode is H264+JPEG\r\n", true},
                      ModeCase{kTenchS, 2, 2000000, 8, "Video mode is H264+JPEG\r\n", true},
                      ModeCase{kTenchS, 2, 1500000, 8, "Video mode is H264+JPEG\r\n", false},
                      ModeCase{kTenchP, 1, 2000000, 8, "Video mode is H264+JPEG\r\n", false},
                      ModeCase{kTenchP, 2, 1500000, 8, "Video mode is H264+JPEG\r\n", false}));

TEST_F(Recording, OptionsThatCannotBeReadDoNotStopTheStart) {
    SetPlatform(kTenchP);
    Ready();
    FailControl({{"type", 0xA1}, {"value", 0x0F00}}, {{"return", "LIBUSB_ERROR_IO"}});
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_LOG_COUNT(1, "GetVideoOption of StartRecording was Failed !!! \r\n", 1);
    EXPECT_EQ(Sent().at(3), Isp({13, 0}));
    camera_->StopRecording();
}

TEST_F(Recording, SubRatesByPlatform) {
    for (const auto& [platform, fps] :
         {std::pair<const char*, int>{kTenchS, 0}, {kTenchP, 30}, {kRuffPlus, 15}, {kPerch, 15}}) {
        SetPlatform(platform);
        Ready();
        ASSERT_TRUE(camera_->StartRecording());
        Sequence rates;
        for (const Request& request : Sent()) {
            if (request.value == 0x0100 && request.index == 0x0600) {
                rates.push_back(request);
            }
        }
        Sequence expected = {Isp({13, 0})};
        Append(expected, Rates());
        if (fps != 0) {
            Append(expected, SubRates(static_cast<uint8_t>(fps)));
        }
        EXPECT_EQ(rates, expected) << platform;
        EXPECT_EQ(log().has(4, "Set stream target(ID)=1\r\n"), fps != 0);
        Destroy();
        InitAnswers::instance().Clear();
        virtcam::bus::power_cycle();
    }
}

TEST_F(Recording, SizeBitrateAndRateAsSetBefore) {
    Ready();
    SetPair(CAM_PROPERTY_DIMENSION, 1280, 720);
    Set(CAM_PROPERTY_BITRATE, 3999999);
    Set(CAM_PROPERTY_FRAMERATE, 24);
    Set(CAM_PROPERTY_SAMPLERATE, 24000);
    Forget();
    ASSERT_TRUE(camera_->StartRecording());
    EXPECT_LOG(
        1, "CAitOrixCamera::StartRecording open device VID=0x114D, PID=0x2066 W=1280 H=720\r\n");
    const Sequence sent = SentWithoutCommit();
    Sequence expected = {Mmp({1, 6}), Isp({13, 0})};
    Append(expected, Negotiation(4, 4));
    Append(expected, {Isp({0x08, 0xFF, 0x9F, 0x0F}), Isp({0x02, 24})});
    ASSERT_GE(sent.size(), expected.size());
    EXPECT_EQ(Sequence(sent.begin(), sent.begin() + static_cast<long>(expected.size())), expected);
    EXPECT_NE(std::find(sent.begin(), sent.end(), Sound(24000)[0]), sent.end());
    camera_->StopRecording();
}

// --- failures ------------------------------------------------------------------------------------

TEST_F(Recording, FailedTargetsAreReportedAndPassedOver) {
    Ready();
    FailControl({{"value", 0x0100}, {"index", 0x0600}, {"data", "0D"}},
                {{"return", "LIBUSB_ERROR_IO"}});
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_LOG_COUNT(1, "Failed to set video mode.\r\n", 3);
    camera_->StopRecording();
}

TEST_F(Recording, AFailedCombinationIsIgnored) {
    Ready();
    FailControl({{"value", 0x0E00}}, {{"return", "LIBUSB_ERROR_IO"}});
    EXPECT_TRUE(camera_->StartRecording());
    camera_->StopRecording();
}

TEST_F(Recording, VideoThatCannotBeOpenedEndsTheStart) {
    Ready();
    FailControl({{"value", 0x0200}, {"index", 0x0001}}, {{"return", "LIBUSB_ERROR_PIPE"}});
    EXPECT_FALSE(camera_->StartRecording());
    EXPECT_LOG_COUNT(1, "Failed to config device. W=640,H=480,Fmt=0,Fps=30\r\n", 1);
    EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);
    EXPECT_NO_LOG(4, "*********** Start Audio Capture Thread*************\r\n");
    virtcam::bus::clear_faults();
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_TRUE(camera_->StopRecording());
}

TEST_F(Recording, SoundThatCannotBeOpenedEndsTheStartWithTheVideoRunning) {
    Ready();
    FailControl({{"type", 0x22}}, "stall");
    RecordingObserver main(CAM_STREAM_H264_MAIN);
    camera_->RegisterObserver(&main);
    EXPECT_FALSE(camera_->StartRecording());
    EXPECT_LOG_COUNT(4, "Failed to open audio streaming.\r\n", 1);
    EXPECT_LOG_COUNT(4, "Failed to SET sampling rate: (-9)\n", 1);
    EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);
    EXPECT_TRUE(main.WaitFor(main.Count() + 3));
    EXPECT_FALSE(camera_->StopRecording());
    EXPECT_LOG(4, "CAitOrixCamera:: stop video capture thread \r\n");
    EXPECT_LOG(1, "Abnormal StopRecording.\r\n");
    virtcam::bus::clear_faults();
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_TRUE(camera_->StopRecording());
    camera_->RemoveObserver(&main);
}

TEST_F(Recording, ALossInTheMiddleOfAStartEndsIt) {
    Ready();
    const auto self = std::this_thread::get_id();
    clock().on_sleep([&](const SleepCall& sleep) {
        if (sleep.thread == self) {
            camera_->SetState(CAM_STATE_DISCONNECTED);
        }
    });
    EXPECT_FALSE(camera_->StartRecording());
    clock().on_sleep(nullptr);
    EXPECT_LOG_COUNT(1, "Failed in setting flicker !!!\r\n", 1);
    EXPECT_LOG_COUNT(4, "*********** Start Audio Capture Thread*************\r\n", 1);
    EXPECT_LOG_COUNT(4, "CAitOrixCamera::StartRecording, Can't open video device , break\r\n", 1);
    EXPECT_EQ(camera_->m_State, CAM_STATE_DISCONNECTED);
    ExpectTheVideoThreadToEndWithTheObject();
}

TEST_F(Recording, WithoutOneOfItsThreadsAStartAnswersFalseAndLeavesNothing) {
    constexpr int kThreads = 4;  // the streams' event threads and the capture threads
    Ready();
    for (int started = 0; started < kThreads; ++started) {
        SCOPED_TRACE(std::to_string(started) + " threads start before it");
        refuse_one_thread(started);
        EXPECT_FALSE(camera_->StartRecording());
        run_out_of_threads(-1);
        EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);
        RecordingObserver main(CAM_STREAM_H264_MAIN), sound(CAM_STREAM_PCM);
        camera_->RegisterObserver(&main);
        camera_->RegisterObserver(&sound);
        EXPECT_TRUE(camera_->StartRecording());
        EXPECT_EQ(camera_->GetState(), CAM_STATE_PLAYING);
        EXPECT_TRUE(main.WaitFor(1));
        EXPECT_TRUE(sound.WaitFor(1));
        EXPECT_TRUE(camera_->StopRecording());
        camera_->RemoveObserver(&main);
        camera_->RemoveObserver(&sound);
    }
}

/// The camera has fallen silent, so the capture threads wait for their queues, and waits that began
/// before the step have seen the time of before.
class AClockThatStepsBack : public Recording {
  protected:
    static constexpr auto kBound = 20s;

    void WaitOnAClockThatIsAhead() {
        clock().set_wall_clock({timeval{time(nullptr) + 60, 0}});
        Playing();
        virtcam::bus::add_fault({{"on", {{"transfer", "any"}}}, {"do", {{"timeout", "wait"}}}});
        const int before = system_calls().timed_wait_calls;
        virtcam::bus::wait_until([&] { return system_calls().timed_wait_calls > before + 4; }, 3s);
    }
    static auto LengthOf(const std::function<void()>& call) {
        const auto begin = std::chrono::steady_clock::now();
        call();
        return std::chrono::steady_clock::now() - begin;
    }
};

TEST_F(AClockThatStepsBack, HoldsNoStop) {
    WaitOnAClockThatIsAhead();
    EXPECT_LT(LengthOf([this] { EXPECT_TRUE(camera_->StopRecording()); }), kBound);
}

TEST_F(AClockThatStepsBack, HoldsNoDestruction) {
    WaitOnAClockThatIsAhead();
    EXPECT_LT(LengthOf([this] { Destroy(); }), kBound);
}

TEST_F(AClockThatStepsBack, HoldsNoOtherCallBehindAStop) {
    WaitOnAClockThatIsAhead();
    std::thread stop([this] { camera_->StopRecording(); });
    EXPECT_LT(LengthOf([this] {
                  EXPECT_TRUE(log().wait_for(1, "CAitOrixCamera::StopRecording\r\n", kLimit));
                  EXPECT_TRUE(Get(CAM_PROPERTY_BITRATE));
              }),
              kBound);
    stop.join();
}

TEST_F(Recording, SoundThatStillRunsIsLeftAlone) {
    Playing();
    camera_->SetState(CAM_STATE_READY);  // as a host may
    Forget();
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_NO_LOG(4, "*********** Start Audio Capture Thread*************\r\n");
    EXPECT_NO_LOG(4, "Exit Audio capture thread.\r\n");
    EXPECT_LOG_COUNT(4, "Exit VideoCapture thread.\r\n", 1);
    const auto sent = Sent();
    EXPECT_EQ(sent.at(sent.size() - 2), Sound().back());  // the volume, before the light
    EXPECT_TRUE(camera_->StopRecording());
}

TEST_F(Recording, TheRateOfTheStreamIsAlwaysThirty) {
    Ready();
    Set(CAM_PROPERTY_FRAMERATE, 24);
    SetPair(CAM_PROPERTY_DIMENSION, -1, 720);
    FailControl({{"value", 0x0200}, {"index", 0x0001}}, {{"return", "LIBUSB_ERROR_PIPE"}});
    EXPECT_FALSE(camera_->StartRecording());
    EXPECT_LOG_COUNT(1, "Failed to config device. W=-1,H=720,Fmt=0,Fps=30\r\n", 1);
}

TEST_F(Recording, AStartAfterSuchAStartTakesANewVideoThread) {
    Ready();
    virtcam::bus::add_fault({{"on", {{"control", {{"type", 0x22}}}}}, {"nth", 1}, {"do", "stall"}});
    EXPECT_FALSE(camera_->StartRecording());
    RecordingObserver main(CAM_STREAM_H264_MAIN);
    camera_->RegisterObserver(&main);
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_LOG_COUNT(4, "Exit VideoCapture thread.\r\n", 1);
    EXPECT_TRUE(main.WaitFor(3));
    EXPECT_TRUE(camera_->StopRecording());
    camera_->RemoveObserver(&main);
}

TEST_F(Recording, FlickerThatFailsIsTriedAgain) {
    Ready();
    virtcam::bus::add_fault({{"on", {{"control", {{"index", 0x0300}}}}},
                             {"nth", 1},
                             {"do", {{"return", "LIBUSB_ERROR_IO"}}}});
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_LOG_COUNT(1, "Failed in setting flicker !!!\r\n", 1);
    camera_->StopRecording();
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_LOG_COUNT(4, "Succeed in setting flicker !!!\r\n", 1);
    camera_->StopRecording();
}

// --- data ----------------------------------------------------------------------------------------

TEST_F(Recording, DeliversEveryStreamOfItsCombination) {
    Ready();
    RecordingObserver main(CAM_STREAM_H264_MAIN), sub(CAM_STREAM_H264_SUB), gray(CAM_STREAM_GRAY),
        sound(CAM_STREAM_PCM), nv12(CAM_STREAM_NV12);
    for (RecordingObserver* observer : {&main, &sub, &gray, &sound, &nv12}) {
        camera_->RegisterObserver(observer);
    }
    Set(CAM_PROPERTY_SIGNAL_TYPE, CAM_SIGNAL_H264_H264_GRAY);
    ASSERT_TRUE(camera_->StartRecording());
    EXPECT_TRUE(Set(CAM_PROPERTY_NV12_MODE_CONTROL, 1));
    EXPECT_TRUE(main.WaitFor(5));
    EXPECT_TRUE(sub.WaitFor(3));
    EXPECT_TRUE(gray.WaitFor(3));
    EXPECT_TRUE(nv12.WaitFor(2));
    EXPECT_TRUE(sound.WaitFor(5));
    for (RecordingObserver* observer : {&main, &sub, &gray, &sound, &nv12}) {
        camera_->RemoveObserver(observer);  // before the empty records of the stop
    }
    EXPECT_EQ(gray.size_, 320u * 240u);
    EXPECT_EQ(nv12.size_, 640u * 480u * 3 / 2);
    EXPECT_EQ(sound.size_, 960u);
    camera_->StopRecording();
}

}  // namespace
}  // namespace test
