// Start and stop of an audio stream, rate and volume.
#include <future>

#include "tests/driver/AudioEngineTest.h"

namespace test {
namespace {

using namespace std::chrono_literals;

class UacStream : public AudioEngineTest {
  protected:
    UacStream() { Open(); }

    /// The device's volume range, in bytes as they travel.
    static void Range(const char* max, const char* min) {
        virtcam::bus::add_fault(
            {{"on", {{"control", {{"request", 0x83}}}}}, {"do", {{"reply", max}}}});
        virtcam::bus::add_fault(
            {{"on", {{"control", {{"request", 0x82}}}}}, {"do", {{"reply", min}}}});
    }
    static nlohmann::json OnRequest(int type, int request, const nlohmann::json& action) {
        return {{"on", {{"control", {{"type", type}, {"request", request}}}}}, {"do", action}};
    }
    /// A start that meets this fault fails with this line after so many requests, selects no
    /// setting and leaves nothing.
    void ExpectFailedStart(const nlohmann::json& fault, const char* line, size_t requests);
};

const Logged kStartLine{4, "CLibUSB_UacCtrl::UAC_EnableAudioStream  16000 Hz\r\n"};
const Logged kVolumeLine{4, "UAC SetVolume Min=-4096, Max=0, Vol=-1\r\n"};

void UacStream::ExpectFailedStart(const nlohmann::json& fault, const char* line, size_t requests) {
    Forget();
    virtcam::bus::clear_faults();
    virtcam::bus::add_fault(fault);
    EXPECT_EQ(Start(), -1);
    EXPECT_EQ(Log(), (Lines{kStartLine, {4, line}}));
    EXPECT_EQ(Requests().size(), requests);
    EXPECT_TRUE(usb().alternate_settings().empty());
    ExpectIdle();
}

TEST_F(UacStream, SetsAndReadsTheRateReadsTheRangeAndAppliesTheVolume) {
    ASSERT_EQ(Start(), 0);
    EXPECT_EQ(Requests(),
              (Sequence{Write(0x22, 0x01, 0x0100, 0x0082, {0x80, 0x3E, 0x00}),
                        Read(0xA2, 0x81, 0x0100, 0x0082, 3), Read(0xA1, 0x83, 0x0200, 0x0503, 2),
                        Read(0xA1, 0x82, 0x0200, 0x0503, 2),
                        Write(0x21, 0x01, 0x0200, 0x0503, {0xFF, 0xFF})}));
    EXPECT_EQ(Answers(), (std::vector<Bytes>{{0x80, 0x3E, 0x00}, {0x00, 0x00}, {0x00, 0xF0}}));
    EXPECT_EQ(Log(), (Lines{kStartLine, kVolumeLine}));
    EXPECT_TRUE(m_Engine->IsStreaming);
    EXPECT_EQ(m_Engine->UAC_GetMaxVolume(), 0);
    EXPECT_EQ(m_Engine->UAC_GetMinVolume(), -4096);
    EXPECT_EQ(m_Engine->UAC_GetCurVolume(), -1);
}

TEST_F(UacStream, RateTravelsAsThreeBytes) {
    virtcam::bus::add_fault(OnRequest(0x22, 0x01, {{"actual_length", 3}}));
    for (const int rate : {24000, 0x123456, 0x7F123456}) {
        Forget();
        Start(rate);
        ASSERT_FALSE(Requests().empty());
        EXPECT_EQ(Requests()[0].data,
                  (Bytes{static_cast<uint8_t>(rate), static_cast<uint8_t>(rate >> 8),
                         static_cast<uint8_t>(rate >> 16)}));
        EXPECT_LOG(4,
                   "CLibUSB_UacCtrl::UAC_EnableAudioStream  " + std::to_string(rate) + " Hz\r\n");
        m_Engine->UAC_DisableAudioStream();
    }
}

TEST_F(UacStream, OrderOfTheStartOnTheBus) {
    ASSERT_EQ(Start(), 0);
    EXPECT_EQ(Calls(), (std::vector<std::string>{
                           "libusb_control_transfer 1", "libusb_control_transfer 129",
                           "libusb_control_transfer 131", "libusb_control_transfer 130",
                           "libusb_set_interface_alt_setting 3", "libusb_alloc_transfer 10",
                           "libusb_alloc_transfer 10", "libusb_get_max_iso_packet_size 130",
                           "libusb_submit_transfer 130", "libusb_submit_transfer 130",
                           "libusb_control_transfer 1"}));
    EXPECT_EQ(usb().alternate_settings(), (std::vector<std::pair<int, int>>{{3, 1}}));
}

TEST_F(UacStream, SubmitsTwoTransfersOfTenPackets) {
    virtcam::bus::add_fault(FailCall("libusb_get_max_iso_packet_size", 64));
    ASSERT_EQ(Start(), 0);
    const auto submits = usb().submits();
    ASSERT_EQ(submits.size(), 2u);
    for (int i = 0; i < 2; ++i) {
        const auto& call = submits[static_cast<size_t>(i)];
        EXPECT_EQ(call.contents.endpoint, 0x82);
        EXPECT_EQ(call.contents.type, LIBUSB_TRANSFER_TYPE_ISOCHRONOUS);
        EXPECT_EQ(call.contents.timeout, 1000u);
        EXPECT_EQ(call.contents.length, 640);
        EXPECT_EQ(call.contents.num_iso_packets, 10);
        EXPECT_EQ(call.packet_lengths, (std::vector<unsigned int>(10, 64)));
        EXPECT_EQ(call.contents.callback, &AudioEngine::callback);
        EXPECT_EQ(call.contents.dev_handle, m_Engine->m_pDevH);
        const auto* param = static_cast<AudioEngine::TransferCbParam*>(call.contents.user_data);
        EXPECT_EQ(param->pThis, m_Engine.get());
        EXPECT_EQ(param->transfer_id, i);
        EXPECT_EQ(param->transfer_buf, call.contents.buffer);
        call.contents.buffer[10240 - 1] = 1;  // at least so many bytes, however small the packets
    }
    ASSERT_NE(m_Engine->Queue(), nullptr);
    EXPECT_EQ(m_Engine->Queue()->GetEmptyCnt(), 4u);
    EXPECT_EQ(virtcam::bus::last_timeout(0x82), 1000u);
}

TEST_F(UacStream, BuffersHaveTheSizeOfTheTransferAndAtLeast10240Bytes) {
    struct Case {
        int packet;
        size_t transfer;
    };
    for (const Case& test :
         {Case{64, 10240}, Case{1024, 10240}, Case{1025, 10250}, Case{3072, 30720}}) {
        m_Engine->UAC_DisableAudioStream();
        virtcam::bus::clear_faults();
        virtcam::bus::add_fault(FailCall("libusb_get_max_iso_packet_size", test.packet));
        take_array_sizes();
        ASSERT_EQ(Start(), 0);
        std::vector<size_t> expected(2, test.transfer);
        expected.insert(expected.end(), 4,
                        static_cast<size_t>(10 * test.packet) + CFrameBuf::kSpareBytes);
        EXPECT_EQ(take_array_sizes(), expected);
    }
}

TEST_F(UacStream, WithoutADeviceNothingIsSent) {
    AudioEngine engine;
    Forget();
    EXPECT_EQ(engine.UAC_EnableAudioStream(kRate), -1);
    EXPECT_EQ(engine.UAC_DisableAudioStream(), -1);
    EXPECT_EQ(engine.UAC_SetSamplingRate(kRate), -1);
    EXPECT_EQ(engine.UAC_SetCurVolume(0), -1);
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(Calls().empty());
}

TEST_F(UacStream, RateThatCannotBeSetFailsTheStart) {
    ExpectFailedStart(OnRequest(0x22, 0x01, "stall"), "Failed to SET sampling rate: (-9)\n", 1);
    ExpectFailedStart(OnRequest(0x22, 0x01, {{"actual_length", 2}}),
                      "Failed to SET sampling rate: (2)\n", 1);
}

TEST_F(UacStream, RateThatCannotBeReadBackFailsTheStart) {
    ExpectFailedStart(OnRequest(0xA2, 0x81, "stall"), "Failed to GET sampling rate: (-9)\n", 2);
    ExpectFailedStart(OnRequest(0xA2, 0x81, {{"short", 2}}), "Failed to GET sampling rate: (2)\n",
                      2);
}

TEST_F(UacStream, VolumeLimitThatCannotBeReadFailsTheStart) {
    for (const int request : {0x83, 0x82}) {
        for (const auto& [action, code] :
             {std::pair<nlohmann::json, int>{"stall", -9}, {{{"short", 1}}, 1}}) {
            Forget();
            virtcam::bus::clear_faults();
            virtcam::bus::add_fault(OnRequest(0xA1, request, action));
            EXPECT_EQ(Start(), -1);
            EXPECT_EQ(
                Log(),
                (Lines{kStartLine,
                       {4, "libusb_control_transfer: Error: (" + std::to_string(code) + ")\n"}}));
            EXPECT_EQ(Requests().size(), request == 0x83 ? 3u : 4u);
            ExpectIdle();
        }
    }
}

TEST_F(UacStream, StreamingSettingThatIsRefusedFailsTheStart) {
    virtcam::bus::add_fault(FailCall("libusb_set_interface_alt_setting", LIBUSB_ERROR_OTHER));
    EXPECT_EQ(Start(), -1);
    EXPECT_EQ(Log(), (Lines{kStartLine, {4, "UAC_EnableAudioStream Error: IF = 3, Alt = 1"}}));
    EXPECT_EQ(CountCalls("libusb_alloc_transfer"), 0u);
    ExpectIdle();
}

TEST_F(UacStream, PacketSizeMustBePositive) {
    for (const int answer : {0, int{LIBUSB_ERROR_NOT_FOUND}}) {
        Forget();
        virtcam::bus::clear_faults();
        virtcam::bus::add_fault(FailCall("libusb_get_max_iso_packet_size", answer));
        EXPECT_EQ(Start(), -1);
        EXPECT_EQ(Log(), (Lines{kStartLine, {4, "libusb_get_max_iso_packet_size Fail"}}));
        EXPECT_TRUE(usb().submits().empty());
        EXPECT_FALSE(m_Engine->IsStreaming);
        EXPECT_EQ(m_Engine->Queue(), nullptr);
    }
    virtcam::bus::clear_faults();
    virtcam::bus::add_fault(FailCall("libusb_get_max_iso_packet_size", 1));
    EXPECT_EQ(Start(), 0);
    EXPECT_EQ(usb().submits().at(0).contents.length, 10);
}

TEST_F(UacStream, FirstRefusedSubmitLeavesTheRestForTheNextStop) {
    virtcam::bus::add_fault(FailCall("libusb_submit_transfer", LIBUSB_ERROR_BUSY, 1));
    EXPECT_EQ(Start(), -1);
    EXPECT_EQ(Log(), (Lines{kStartLine, {4, "libusb_fill_iso_transfer error: Audio 0\n"}}));
    EXPECT_TRUE(m_Engine->IsStreaming);
    EXPECT_NE(m_Engine->Queue(), nullptr);
    EXPECT_EQ(usb().submits().size(), 1u);
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 1u);
    EXPECT_EQ(Requests().size(), 4u);  // the volume is not applied
    EXPECT_EQ(m_Engine->UAC_DisableAudioStream(), 0);
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 2u);
    ExpectIdle();
}

TEST_F(UacStream, SecondRefusedSubmitLeavesTheFirstInFlight) {
    virtcam::bus::add_fault(FailCall("libusb_submit_transfer", LIBUSB_ERROR_BUSY, 2));
    EXPECT_EQ(Start(), -1);
    EXPECT_EQ(log().texts().back(), "libusb_fill_iso_transfer error: Audio 1\n");
    EXPECT_TRUE(m_Engine->IsStreaming);
    EXPECT_EQ(InFlight(), 1u);
    Forget();
    // The next start runs a full stop first.
    EXPECT_EQ(Start(), 0);
    EXPECT_EQ(CountCalls("libusb_cancel_transfer"), 1u);
    EXPECT_EQ(usb().alternate_settings(), (std::vector<std::pair<int, int>>{{3, 0}, {3, 1}}));
    EXPECT_EQ(Sleeps(400ms), 1u);
    EXPECT_EQ(InFlight(), 2u);
}

TEST_F(UacStream, TransferThatLibusbDoesNotGiveCountsAsARefusedSubmit) {
    for (int nth = 1; nth <= 2; ++nth) {
        Forget();
        virtcam::bus::clear_faults();
        virtcam::bus::add_fault(
            {{"on", {{"call", "libusb_alloc_transfer"}}}, {"nth", nth}, {"do", "null"}});
        EXPECT_EQ(Start(), -1);
        EXPECT_EQ(log().texts().back(),
                  "libusb_fill_iso_transfer error: Audio " + std::to_string(nth - 1) + "\n");
        EXPECT_EQ(usb().submits().size(), static_cast<size_t>(nth - 1));
        EXPECT_TRUE(m_Engine->IsStreaming);
        EXPECT_NE(m_Engine->Queue(), nullptr);
        EXPECT_EQ(m_Engine->UAC_DisableAudioStream(), 0);
        EXPECT_EQ(CountCalls("libusb_free_transfer"), 1u);
        ExpectIdle();
    }
}

TEST_F(UacStream, StartAfterAFailedStartTearsDownWhatItLeft) {
    virtcam::bus::add_fault(FailCall("libusb_get_max_iso_packet_size", 0));
    EXPECT_EQ(Start(), -1);
    Forget();
    EXPECT_EQ(Start(), 0);
    EXPECT_EQ(log().count_containing("LIBUSB_TRANSFER_CANCELLED"), 0u);
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 2u);
    EXPECT_EQ(Log(), (Lines{kStartLine, kVolumeLine}));
}

TEST_F(UacStream, StartWhileStreamingStopsFirst) {
    ASSERT_EQ(Start(), 0);
    Forget();
    ASSERT_EQ(Start(24000), 0);
    EXPECT_EQ(usb().alternate_settings(), (std::vector<std::pair<int, int>>{{3, 0}, {3, 1}}));
    EXPECT_EQ(InFlight(), 2u);
}

// --- volume --------------------------------------------------------------------------------------

struct VolumeCase {
    const char* max;
    const char* min;
    int chosen;
};

TEST_F(UacStream, InitialVolumeIsKeptInsideTheRangeElse30PercentAboveTheMinimum) {
    for (const VolumeCase& test :
         {VolumeCase{"0000", "00f0", -1},     // -4096 to 0 contains -1
          VolumeCase{"6400", "0000", 30},     // 0 to 100
          VolumeCase{"ffff", "00f0", -1},     // -4096 to -1
          VolumeCase{"feff", "00f0", -2868},  // -4096 to -2
          VolumeCase{"0a00", "ffff", -1},     // -1 to 10
          VolumeCase{"0a00", "0000", 3},      // 0 to 10
          VolumeCase{"0300", "0000", 0},      // truncated
          VolumeCase{"ff7f", "0100", 9830}, VolumeCase{"0500", "0500", 5}}) {
        virtcam::bus::clear_faults();
        Range(test.max, test.min);
        Close();
        Open();
        ASSERT_EQ(Start(), 0);
        EXPECT_EQ(m_Engine->UAC_GetCurVolume(), test.chosen) << test.max << " " << test.min;
        EXPECT_EQ(Requests().back().data, (Bytes{static_cast<uint8_t>(test.chosen),
                                                 static_cast<uint8_t>(test.chosen >> 8)}));
        m_Engine->UAC_DisableAudioStream();
    }
}

TEST_F(UacStream, RangeTurnedRoundIsSurvived) {
    Range("00f0", "0000");  // maximum below the minimum: no volume is inside
    ASSERT_EQ(Start(), 0);
    EXPECT_EQ(m_Engine->UAC_GetCurVolume(), -1228);
    EXPECT_EQ(Requests().size(), 4u);  // refused, not sent
}

TEST_F(UacStream, VolumeSurvivesARestart) {
    ASSERT_EQ(Start(), 0);
    EXPECT_EQ(m_Engine->UAC_SetCurVolume(-1000), 0);
    EXPECT_EQ(m_Engine->UAC_DisableAudioStream(), 0);
    Forget();
    ASSERT_EQ(Start(), 0);
    EXPECT_EQ(m_Engine->UAC_GetCurVolume(), -1000);
    EXPECT_EQ(Requests().back(), Write(0x21, 0x01, 0x0200, 0x0503, {0x18, 0xFC}));
}

TEST_F(UacStream, VolumeIsSetWithinTheRangeOnly) {
    ASSERT_EQ(Start(), 0);
    Forget();
    EXPECT_EQ(m_Engine->UAC_SetCurVolume(1), -1);
    EXPECT_EQ(m_Engine->UAC_SetCurVolume(-4097), -1);
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(Requests().empty());
    EXPECT_EQ(m_Engine->UAC_SetCurVolume(0), 0);
    EXPECT_EQ(m_Engine->UAC_GetCurVolume(), 0);
    EXPECT_EQ(m_Engine->UAC_SetCurVolume(-4096), 0);
    EXPECT_EQ(m_Engine->UAC_GetCurVolume(), -4096);
    EXPECT_EQ(Requests(), (Sequence{Write(0x21, 0x01, 0x0200, 0x0503, {0x00, 0x00}),
                                    Write(0x21, 0x01, 0x0200, 0x0503, {0x00, 0xF0})}));
    EXPECT_EQ(Log(), (Lines{{4, "UAC SetVolume Min=-4096, Max=0, Vol=0\r\n"},
                            {4, "UAC SetVolume Min=-4096, Max=0, Vol=-4096\r\n"}}));
}

TEST_F(UacStream, FailedVolumeIsLoggedAndNotRemembered) {
    ASSERT_EQ(Start(), 0);
    Forget();
    virtcam::bus::add_fault(OnRequest(0x21, 0x01, "stall"));
    EXPECT_EQ(m_Engine->UAC_SetCurVolume(-5), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(Log(), (Lines{{4, "UAC SetVolume Min=-4096, Max=0, Vol=-5\r\n"},
                            {4, "UAC_SetCurVolume: Error: (-9)\n"}}));
    EXPECT_EQ(m_Engine->UAC_GetCurVolume(), -1);
    virtcam::bus::clear_faults();
    virtcam::bus::add_fault(OnRequest(0x21, 0x01, {{"actual_length", 0}}));
    EXPECT_EQ(m_Engine->UAC_SetCurVolume(-5), 0);  // only a negative result is a failure
    EXPECT_EQ(m_Engine->UAC_GetCurVolume(), -5);
}

TEST_F(UacStream, VolumeThatIsRefusedDoesNotFailTheStart) {
    virtcam::bus::add_fault(OnRequest(0x21, 0x01, "stall"));
    EXPECT_EQ(Start(), 0);
    EXPECT_LOG(4, "UAC_SetCurVolume: Error: (-9)\n");
}

TEST_F(UacStream, SamplingRateIsSetByItself) {
    EXPECT_EQ(m_Engine->UAC_SetSamplingRate(24000), 3);
    EXPECT_EQ(Requests(), (Sequence{Write(0x22, 0x01, 0x0100, 0x0082, {0xC0, 0x5D, 0x00})}));
    EXPECT_TRUE(Log().empty());
    virtcam::bus::add_fault(OnRequest(0x22, 0x01, "stall"));
    EXPECT_EQ(m_Engine->UAC_SetSamplingRate(24000), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(Log(), (Lines{{4, "UAC_SetSamplingRate: Error: (-9)\n"}}));
}

// --- stop ----------------------------------------------------------------------------------------

TEST_F(UacStream, StopCancelsSelectsIdleSleepsAndFrees) {
    ASSERT_EQ(Start(), 0);
    Forget();
    size_t selected = 0;
    size_t freed = 99;
    clock().on_sleep([&](const SleepCall& call) {
        if (call.duration != 400ms) {
            return;
        }
        selected = CountCalls("libusb_set_interface_alt_setting");
        freed = CountCalls("libusb_free_transfer");
    });
    EXPECT_EQ(m_Engine->UAC_DisableAudioStream(), 0);
    EXPECT_EQ(Calls(),
              (std::vector<std::string>{"libusb_cancel_transfer 130", "libusb_cancel_transfer 130",
                                        "libusb_set_interface_alt_setting 3",
                                        "libusb_free_transfer", "libusb_free_transfer"}));
    EXPECT_EQ(usb().alternate_settings(), (std::vector<std::pair<int, int>>{{3, 0}}));
    EXPECT_EQ(Sleeps(400ms), 1u);
    EXPECT_EQ(selected, 1u);
    EXPECT_EQ(freed, 0u);
    ExpectIdle();
}

TEST_F(UacStream, CancelledCompletionsAreLoggedWhileTheQueueExists) {
    ASSERT_EQ(Start(), 0);
    Forget();
    m_Engine->UAC_DisableAudioStream();
    EXPECT_EQ(Log(),
              (Lines{{4, "LIBUSB_TRANSFER_CANCELLED!\n"}, {4, "LIBUSB_TRANSFER_CANCELLED!\n"}}));
}

TEST_F(UacStream, RefusedIdleSettingEndsTheStopWithoutFreeing) {
    ASSERT_EQ(Start(), 0);
    Forget();
    virtcam::bus::add_fault(FailCall("libusb_set_interface_alt_setting", LIBUSB_ERROR_OTHER));
    EXPECT_EQ(m_Engine->UAC_DisableAudioStream(), -1);
    EXPECT_EQ(Log(), (Lines{{4, "UAC_DisableAudioStream: IF = 3, Alt = 0 Error!!"}}));
    EXPECT_FALSE(m_Engine->IsStreaming);
    EXPECT_NE(m_Engine->Queue(), nullptr);
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 0u);
    EXPECT_EQ(Sleeps(400ms), 0u);
    // The next start tears it down silently and streams.
    Forget();
    EXPECT_EQ(Start(), 0);
    EXPECT_EQ(log().count_containing("LIBUSB_TRANSFER_CANCELLED"), 0u);
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 2u);
    EXPECT_EQ(InFlight(), 2u);
}

TEST_F(UacStream, StopWithoutAStreamSelectsIdle) {
    EXPECT_EQ(m_Engine->UAC_DisableAudioStream(), 0);
    EXPECT_EQ(usb().alternate_settings(), (std::vector<std::pair<int, int>>{{3, 0}}));
    EXPECT_TRUE(Log().empty());
}

TEST_F(UacStream, CompletionsAfterTheStopBeganAreNotResubmitted) {
    ASSERT_EQ(Start(), 0);
    virtcam::bus::push_iso({{virtcam::bus::TransferStatus::kCompleted, Pattern(8), std::nullopt}});
    Forget();
    m_Engine->UAC_DisableAudioStream();
    EXPECT_TRUE(usb().submits().empty());
    EXPECT_LOG_COUNT(4, "Stop submit audio transfer.\r\n", 1);
    EXPECT_LOG_COUNT(4, "LIBUSB_TRANSFER_CANCELLED!\n", 1);
}

TEST_F(UacStream, TransferThatIsNeverReapedIsLeaked) {
    ASSERT_EQ(Start(), 0);
    virtcam::bus::hold_completions(0x82);
    Forget();
    EXPECT_EQ(m_Engine->UAC_DisableAudioStream(), 0);
    EXPECT_EQ(log().texts(1), (std::vector<std::string>{
                                  "Transfer 0 was never given back, it is left to libusb.\r\n",
                                  "Transfer 1 was never given back, it is left to libusb.\r\n"}));
    ExpectComplaint("a transfer was never freed", 2);
    // What comes back when the engine streams again is none of its business.
    virtcam::bus::release_completions(0x82);
    ASSERT_EQ(Start(), 0);
    Forget();
    m_Engine->handle_libusb_event();
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(InFlight(), 2u);
}

// --- device gone ---------------------------------------------------------------------------------

class UacGone : public AudioEngineTest {};

TEST_F(UacGone, NoSettingIsSelectedTheStopFailsAndTheHandleIsClosed) {
    m_Engine = std::make_unique<AudioEngine>();
    ASSERT_EQ(m_Engine->Init(kVendor, kProduct), 0);
    ASSERT_EQ(m_Engine->UAC_EnableAudioStream(kRate), 0);
    virtcam::bus::unplug();
    Forget();
    m_Engine->handle_libusb_event();
    EXPECT_LOG_COUNT(4, "LIBUSB_TRANSFER_NO_DEVICE \r\n", 2);
    EXPECT_TRUE(m_Engine->m_bDeviceGone);
    Forget();
    EXPECT_EQ(m_Engine->UAC_DisableAudioStream(), -1);
    EXPECT_TRUE(usb().alternate_settings().empty());
    EXPECT_EQ(log().texts().back(), "UAC_DisableAudioStream: IF = 3, Alt = 0 Error!!");
    Close();
    EXPECT_TRUE(log().texts(1).empty());
    EXPECT_EQ(CountCalls("libusb_close"), 1u);
}

}  // namespace
}  // namespace test
