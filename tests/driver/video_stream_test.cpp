// Negotiation, start and stop of a video stream.
#include <array>
#include <future>

#include "tests/driver/VideoEngineTest.h"
#include "tests/support/LeakCheck.h"

namespace test {
namespace {

using namespace std::chrono_literals;
using virtcam::bus::TransferStatus;

class UvcStream : public VideoEngineTest {
  protected:
    UvcStream() { Open(); }

    /// The n-th of the six requests of a start, from 1, is answered like this.
    static void FailRequest(int nth, const nlohmann::json& action) {
        virtcam::bus::add_fault(
            {{"on", {{"control", {{"index", 1}}}}}, {"nth", nth}, {"do", action}});
    }
};

/// The probe block that the engine proposes.
Bytes Probe(uint8_t format, uint8_t frame, uint32_t interval, uint32_t maxFrame = 0x100000,
            uint32_t maxPayload = 0x2000) {
    Bytes block = {1, 0, format, frame};
    const auto append32 = [&](uint32_t value) {
        for (int shift = 0; shift < 32; shift += 8) {
            block.push_back(static_cast<uint8_t>(value >> shift));
        }
    };
    append32(interval);
    block.insert(block.end(), 10, 0);
    append32(maxFrame);
    append32(maxPayload);
    return block;
}

constexpr uint32_t kThirtyPerSecond = 333333;

std::string Hex(const Bytes& bytes) {
    std::string text;
    char digits[3];
    for (const uint8_t byte : bytes) {
        snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

TEST_F(UvcStream, NegotiatesInTwoPasses) {
    const Bytes limits = Probe(9, 9, 1, 2, 3);
    const Bytes agreed = Probe(4, 4, 400000, 0x123456, 0x1234);
    FailRequest(2, {{"reply", Hex(limits)}});
    FailRequest(3, {{"reply", Hex(limits)}});
    FailRequest(5, {{"reply", Hex(agreed)}});
    FailRequest(6, {{"return", 26}});
    ASSERT_EQ(Start(), 0);
    const Bytes proposal = Probe(4, 4, kThirtyPerSecond);
    // The sixth carries the device's answer; the fourth nothing of the limits.
    EXPECT_EQ(Requests(),
              (Sequence{Write(0x21, 0x01, 0x0100, 1, proposal), Read(0xA1, 0x83, 0x0100, 1, 26),
                        Read(0xA1, 0x82, 0x0100, 1, 26), Write(0x21, 0x01, 0x0100, 1, proposal),
                        Read(0xA1, 0x81, 0x0100, 1, 26), Write(0x21, 0x01, 0x0200, 1, agreed)}));
    EXPECT_EQ(Answers(), (std::vector<Bytes>{limits, limits, agreed}));
}

TEST_F(UvcStream, ProposalCarriesIndicesAndInterval) {
    struct Case {
        int format, frame, fps;
        uint32_t interval;
    };
    for (const Case& test : {Case{2, 1, 30, 333333}, Case{3, 1, 15, 666666}, Case{4, 5, 7, 1428571},
                             Case{1, 1, 1, 10000000}, Case{4, 2, -30, 0xFFFAE9EBu}}) {
        Forget();
        Start(test.format, test.frame, test.fps);
        ASSERT_FALSE(Requests().empty());
        EXPECT_EQ(Requests()[0].data, Probe(static_cast<uint8_t>(test.format),
                                            static_cast<uint8_t>(test.frame), test.interval));
    }
}

TEST_F(UvcStream, StartLogsItsStepsInOrder) {
    ASSERT_EQ(Start(2, 1), 0);
    EXPECT_EQ(Log(), (Lines{{4, "UVC_EnableVideoStream start video FormatID:2 FrameID:1\r\n"},
                            {4, "Max Frame Size = 2097152\n"},
                            {4, "Max Payload Transfer Size = 8192\n"}}));
    EXPECT_TRUE(m_Engine->IsStreaming);
}

TEST_F(UvcStream, SubmitsThreeTransfersOfThePayloadSize) {
    ASSERT_EQ(Start(), 0);
    const auto submits = usb().submits();
    ASSERT_EQ(submits.size(), 3u);
    for (int i = 0; i < 3; ++i) {
        const libusb_transfer& transfer = submits[static_cast<size_t>(i)].contents;
        EXPECT_EQ(transfer.endpoint, 0x81);
        EXPECT_EQ(transfer.type, LIBUSB_TRANSFER_TYPE_BULK);
        EXPECT_EQ(transfer.timeout, 5000u);
        EXPECT_EQ(transfer.length, 8192);
        EXPECT_EQ(transfer.num_iso_packets, 0);
        EXPECT_EQ(transfer.dev_handle, m_Engine->m_pDevH);
        EXPECT_EQ(transfer.callback, &VideoEngine::callback);
        const auto* param = static_cast<VideoEngine::TransferCbParam*>(transfer.user_data);
        EXPECT_EQ(param->pThis, m_Engine.get());
        EXPECT_EQ(param->transfer_id, i);
        EXPECT_EQ(param->transfer_buf, transfer.buffer);
        EXPECT_EQ(param->status, VideoEngine::_READY);
        transfer.buffer[8192 + 511] = 1;  // the spare bytes are owned
    }
    EXPECT_EQ(virtcam::bus::last_timeout(0x81), 5000u);
    const auto calls = Calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "libusb_alloc_transfer 0"), 3);
}

TEST_F(UvcStream, BuffersAndQueueExistWithTheFirstBufferTaken) {
    ASSERT_EQ(Start(), 0);
    ASSERT_NE(m_Engine->Queue(), nullptr);
    EXPECT_EQ(m_Engine->Queue()->GetCnt(), 0u);
    EXPECT_EQ(m_Engine->Queue()->GetEmptyCnt(), 5u);
}

TEST_F(UvcStream, AllMemoryIsAllocatedAtTheStart) {
    take_array_sizes();
    ASSERT_EQ(Start(), 0);
    std::vector<size_t> expected(5, 0x200000 + CFrameBuf::kSpareBytes);
    expected.insert(expected.end(), 3, 8192 + 512);
    EXPECT_EQ(take_array_sizes(), expected);
    for (int i = 0; i < 10; ++i) {
        Deliver(Payload(0, Pattern(8)));
        DeliverEnd(0);
        Take();
    }
    EXPECT_TRUE(take_array_sizes().empty());
}

TEST_F(UvcStream, OrderOfTheStartOnTheBus) {
    ASSERT_EQ(Start(), 0);
    const std::vector<std::string> expected = {
        "libusb_control_transfer 1",      "libusb_control_transfer 131",
        "libusb_control_transfer 130",    "libusb_control_transfer 1",
        "libusb_control_transfer 129",    "libusb_control_transfer 1",
        "libusb_get_max_packet_size 129", "libusb_alloc_transfer 0",
        "libusb_alloc_transfer 0",        "libusb_alloc_transfer 0",
        "libusb_submit_transfer 129",     "libusb_submit_transfer 129",
        "libusb_submit_transfer 129"};
    EXPECT_EQ(Calls(), expected);
}

TEST_F(UvcStream, WithoutADeviceNothingIsSent) {
    VideoEngine engine;
    Forget();
    EXPECT_EQ(engine.UVC_EnableVideoStream(4, 4, 30), -1);
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(Calls().empty());
}

TEST_F(UvcStream, FrameRateZeroIsRefusedBeforeAnyRequest) {
    EXPECT_EQ(Start(4, 4, 0), -1);
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(Calls().empty());
}

struct RequestFailure {
    const char* text;
};
constexpr RequestFailure kRequestFailures[] = {
    {"UVC_query_ctrl Error:Probe UVC_SET_CUR\n"}, {"UVC_query_ctrl Error:Probe UVC_GET_MAX\n"},
    {"UVC_query_ctrl Error:Probe UVC_GET_MIN\n"}, {"UVC_query_ctrl Error:Probe UVC_SET_CUR\n"},
    {"UVC_query_ctrl Error:Probe UVC_GET_CUR\n"}, {"UVC_query_ctrl Error:Commit UVC_SET_CUR\n"},
};

TEST_F(UvcStream, EachRequestMustMoveExactly26Bytes) {
    for (int nth = 1; nth <= 6; ++nth) {
        for (const nlohmann::json& action :
             {nlohmann::json{{"stall", true}}, nlohmann::json{{"actual_length", 25}},
              nlohmann::json{{"short", 0}}}) {
            Forget();
            virtcam::bus::clear_faults();
            FailRequest(nth, action);
            EXPECT_EQ(Start(), -1);
            EXPECT_EQ(Log(),
                      (Lines{{4, "UVC_EnableVideoStream start video FormatID:4 FrameID:4\r\n"},
                             {4, kRequestFailures[nth - 1].text}}));
            EXPECT_EQ(Requests().size(), static_cast<size_t>(nth));
            EXPECT_EQ(CountCalls("libusb_alloc_transfer"), 0u);
            EXPECT_EQ(CountCalls("libusb_get_max_packet_size"), 0u);
            ExpectIdle();
        }
    }
}

TEST_F(UvcStream, PacketSizeOfTheEndpointMustBePositive) {
    for (const int answer : {0, int{LIBUSB_ERROR_NOT_FOUND}, int{LIBUSB_ERROR_OTHER}}) {
        Forget();
        virtcam::bus::clear_faults();
        virtcam::bus::add_fault(FailCall("libusb_get_max_packet_size", answer));
        EXPECT_EQ(Start(), -1);
        EXPECT_EQ(log().texts().back(), "libusb_get_max_packet_size Fail");
        EXPECT_EQ(log().lines().back().level, 4u);
        ExpectIdle();
    }
    virtcam::bus::clear_faults();
    virtcam::bus::add_fault(FailCall("libusb_get_max_packet_size", 1));
    EXPECT_EQ(Start(), 0);
}

TEST_F(UvcStream, PayloadSizeOfTheDeviceIsUsedWithinLimits) {
    struct Case {
        uint32_t offered;
        int used;
    };
    for (const Case& test :
         {Case{0, 8192}, Case{12, 8192}, Case{13, 13}, Case{384, 384}, Case{5120, 5120},
          Case{65536, 65536}, Case{0x200000, 0x200000}, Case{0x200001, 0x200000},
          Case{0x7FFFFFFF, 0x200000}, Case{0x80000000, 0x200000}, Case{0xFFFFFFFF, 0x200000}}) {
        m_Engine->UVC_DisableVideoStream();
        Forget();
        virtcam::bus::clear_faults();
        FailRequest(5, {{"reply", Hex(Probe(4, 4, kThirtyPerSecond, 0, test.offered))}});
        FailRequest(6, {{"return", 26}});
        ASSERT_EQ(Start(), 0) << test.offered;
        EXPECT_LOG(4, "Max Payload Transfer Size = " + std::to_string(test.used) + "\n");
        EXPECT_LOG(4, "Max Frame Size = 2097152\n");
        ASSERT_EQ(usb().submits().size(), 3u);
        EXPECT_EQ(usb().submits()[0].contents.length, test.used);
        usb().submits()[2].contents.buffer[test.used + 511] = 1;
    }
}

TEST_F(UvcStream, SizeOfFrameThatTheDeviceNegotiatesIsNotUsed) {
    for (const uint32_t size : {0u, 0x10000u, 0xFFFFFFFFu}) {
        m_Engine->UVC_DisableVideoStream();
        Forget();
        virtcam::bus::clear_faults();
        FailRequest(5, {{"reply", Hex(Probe(4, 4, kThirtyPerSecond, size))}});
        FailRequest(6, {{"return", 26}});
        ASSERT_EQ(Start(), 0);
        EXPECT_LOG(4, "Max Frame Size = 2097152\n");
    }
}

TEST_F(UvcStream, RefusedSubmitFreesItsTransferAndTheOthersGoOn) {
    for (int nth = 1; nth <= 3; ++nth) {
        Forget();
        virtcam::bus::clear_faults();
        virtcam::bus::add_fault(FailCall("libusb_submit_transfer", LIBUSB_ERROR_BUSY, nth));
        EXPECT_EQ(Start(), nth == 3 ? LIBUSB_ERROR_BUSY : 0);
        EXPECT_LOG_COUNT(4, "libusb_submit_transfer error: Video 3\n", 1);
        EXPECT_EQ(usb().submits().size(), 3u);
        EXPECT_EQ(CountCalls("libusb_free_transfer"), 1u);
        EXPECT_EQ(InFlight(), 2u);
        EXPECT_TRUE(m_Engine->IsStreaming);
        Deliver(Payload(0, Pattern(9)));
        DeliverEnd(0);
        EXPECT_EQ(Take(), Pattern(9));
        ForgetLog();
        m_Engine->UVC_DisableVideoStream();
        EXPECT_EQ(log().count_containing("cancel bulk transfer."), 2u);
        ExpectIdle();
    }
}

TEST_F(UvcStream, AllSubmitsRefusedLeavesAStreamThatCanBeStopped) {
    virtcam::bus::add_fault(
        {{"on", {{"call", "libusb_submit_transfer"}}}, {"do", {{"return", -1}}}});
    EXPECT_EQ(Start(), -1);
    EXPECT_LOG_COUNT(4, "libusb_submit_transfer error: Video 3\n", 3);
    EXPECT_TRUE(m_Engine->IsStreaming);
    EXPECT_EQ(m_Engine->UVC_DisableVideoStream(), 0);
    ExpectIdle();
}

TEST_F(UvcStream, TransferThatLibusbDoesNotGiveCountsAsRefused) {
    for (int nth = 1; nth <= 3; ++nth) {
        Forget();
        virtcam::bus::clear_faults();
        virtcam::bus::add_fault(
            {{"on", {{"call", "libusb_alloc_transfer"}}}, {"nth", nth}, {"do", "null"}});
        EXPECT_EQ(Start(), nth == 3 ? LIBUSB_ERROR_NO_MEM : 0);
        EXPECT_LOG_COUNT(4, "libusb_submit_transfer error: Video 3\n", 1);
        EXPECT_EQ(usb().submits().size(), 2u);
        EXPECT_EQ(InFlight(), 2u);
        m_Engine->UVC_DisableVideoStream();
        EXPECT_EQ(InFlight(), 0u);
        EXPECT_EQ(CountCalls("libusb_free_transfer"), 2u);
    }
}

TEST_F(UvcStream, StartWhileStreamingStopsFirst) {
    ASSERT_EQ(Start(4, 4), 0);
    Deliver(Payload(0, Pattern(5)));
    Forget();
    ASSERT_EQ(Start(4, 1), 0);
    const auto texts = log().texts();
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts.front(), "Video lock +\r\n");
    EXPECT_LOG_COUNT(4, "UVC_DisableVideoStream finish.\r\n", 1);
    EXPECT_LOG_COUNT(4, "UVC_EnableVideoStream start video FormatID:4 FrameID:1\r\n", 1);
    EXPECT_EQ(InFlight(), 3u);
    // What had been gathered is gone.
    DeliverEnd(0);
    EXPECT_EQ(Queued(), 0u);
}

TEST_F(UvcStream, FailedRestartLeavesTheStreamStopped) {
    ASSERT_EQ(Start(), 0);
    virtcam::bus::add_fault(
        {{"on", {{"control", {{"type", 0x21}, {"index", 1}}}}}, {"do", "stall"}});
    EXPECT_EQ(Start(), -1);
    ExpectIdle();
}

TEST_F(UvcStream, FailedFrameRateLeavesARunningStreamAlone) {
    ASSERT_EQ(Start(), 0);
    EXPECT_EQ(Start(4, 4, 0), -1);
    EXPECT_TRUE(m_Engine->IsStreaming);
    EXPECT_EQ(InFlight(), 3u);
}

// --- stop ----------------------------------------------------------------------------------------

const Lines kStopLog = {
    {4, "Video lock +\r\n"},
    {4, "UVC_DisableVideoStream:: cancel bulk transfer. 0\r\n"},
    {4, "UVC_DisableVideoStream:: cancel bulk transfer. 1\r\n"},
    {4, "UVC_DisableVideoStream:: cancel bulk transfer. 2\r\n"},
    {4, "Video lock -\r\n"},
    {4, "CLibUSB_UvcCtrl::UVC_DisableVideoStream free bulk transfer \r\n"},
    {4, "CLibUSB_UvcCtrl::UVC_DisableVideoStream free bulk transfer \r\n"},
    {4, "CLibUSB_UvcCtrl::UVC_DisableVideoStream free bulk transfer \r\n"},
    {4, "UVC_DisableVideoStream finish.\r\n"},
};

TEST_F(UvcStream, StopLogsItsStepsAndFreesEverything) {
    ASSERT_EQ(Start(), 0);
    Forget();
    EXPECT_EQ(m_Engine->UVC_DisableVideoStream(), 0);
    EXPECT_EQ(Log(), kStopLog);
    // No event thread runs here: the stop reaps by itself, in short rounds with pauses.
    EXPECT_EQ(usb().event_timeouts(), (std::vector<long>{1000}));
    EXPECT_EQ(Sleeps(1ms), 1u);
    EXPECT_FALSE(m_Engine->IsStreaming);
    EXPECT_EQ(m_Engine->Queue(), nullptr);
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 3u);
}

TEST_F(UvcStream, StopCancelsThenSelectsTheIdleSettingThenFrees) {
    ASSERT_EQ(Start(), 0);
    Forget();
    m_Engine->UVC_DisableVideoStream();
    EXPECT_EQ(Calls(),
              (std::vector<std::string>{
                  "libusb_cancel_transfer 129", "libusb_cancel_transfer 129",
                  "libusb_cancel_transfer 129", "libusb_set_interface_alt_setting 1",
                  "libusb_free_transfer", "libusb_free_transfer", "libusb_free_transfer"}));
    EXPECT_EQ(usb().alternate_settings(), (std::vector<std::pair<int, int>>{{1, 0}}));
}

TEST_F(UvcStream, StopSleeps200MillisecondsBetweenCancellingAndSelecting) {
    ASSERT_EQ(Start(), 0);
    Forget();
    size_t cancelled = 0;
    size_t selected = 99;
    clock().on_sleep([&](const SleepCall& call) {
        if (call.duration == 200ms) {
            cancelled = CountCalls("libusb_cancel_transfer");
            selected = CountCalls("libusb_set_interface_alt_setting");
        }
    });
    m_Engine->UVC_DisableVideoStream();
    EXPECT_EQ(Sleeps(200ms), 1u);
    EXPECT_EQ(cancelled, 3u);
    EXPECT_EQ(selected, 0u);
}

TEST_F(UvcStream, StopWithoutAStreamIsHarmlessAndSaysItsFrame) {
    EXPECT_EQ(m_Engine->UVC_DisableVideoStream(), 0);
    EXPECT_EQ(Log(), (Lines{{4, "Video lock +\r\n"},
                            {4, "Video lock -\r\n"},
                            {4, "UVC_DisableVideoStream finish.\r\n"}}));
    EXPECT_EQ(usb().alternate_settings(), (std::vector<std::pair<int, int>>{{1, 0}}));
    EXPECT_EQ(m_Engine->UVC_DisableVideoStream(), 0);
}

TEST_F(UvcStream, StopWithoutADeviceSelectsNothing) {
    VideoEngine engine;
    Forget();
    EXPECT_EQ(engine.UVC_DisableVideoStream(), 0);
    EXPECT_TRUE(usb().alternate_settings().empty());
    EXPECT_EQ(log().count_containing("Error!!"), 0u);
}

TEST_F(UvcStream, RefusedIdleSettingIsLoggedAndTheStopGoesOn) {
    ASSERT_EQ(Start(), 0);
    Forget();
    virtcam::bus::add_fault(FailCall("libusb_set_interface_alt_setting", LIBUSB_ERROR_OTHER));
    EXPECT_EQ(m_Engine->UVC_DisableVideoStream(), 0);
    auto expected = kStopLog;
    expected.insert(expected.begin() + 5, {4, "UAC_DisableVideoStream: IF = 1, Alt = 0 Error!!"});
    EXPECT_EQ(Log(), expected);
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 3u);
}

TEST_F(UvcStream, CompletionsDuringTheStopAreNotResubmitted) {
    ASSERT_EQ(Start(), 0);
    Forget();
    virtcam::bus::push_bulk(TransferStatus::kCompleted,
                            Payload(0, Pattern(5)));  // completes unseen
    m_Engine->UVC_DisableVideoStream();
    EXPECT_TRUE(usb().submits().empty());
    EXPECT_EQ(InFlight(), 0u);
    EXPECT_EQ(log().count_containing("LIBUSB_TRANSFER_CANCELLED"), 0u);
}

TEST_F(UvcStream, StopWaitsForLateCancellations) {
    ASSERT_EQ(Start(), 0);
    virtcam::bus::hold_completions(0x81);
    Forget();
    std::promise<void> cancelled;
    clock().on_sleep([&](const SleepCall& call) {
        if (call.duration == 200ms) {
            cancelled.set_value();
        }
    });
    auto stop = std::async(std::launch::async, [&] { return m_Engine->UVC_DisableVideoStream(); });
    cancelled.get_future().get();
    EXPECT_EQ(stop.wait_for(50ms), std::future_status::timeout);
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 0u);
    virtcam::bus::release_completions(0x81);
    EXPECT_EQ(stop.get(), 0);
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 3u);
    EXPECT_TRUE(log().texts(1).empty());
}

TEST_F(UvcStream, TransferThatIsNeverReapedIsLeakedAndItsCompletionIgnored) {
    ASSERT_EQ(Start(), 0);
    virtcam::bus::hold_completions(0x81);
    Forget();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(m_Engine->UVC_DisableVideoStream(), 0);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, 1900ms);
    EXPECT_LT(waited, 2950ms);
    EXPECT_EQ(log().texts(1), (std::vector<std::string>{
                                  "Transfer 0 was never given back, it is left to libusb.\r\n",
                                  "Transfer 1 was never given back, it is left to libusb.\r\n",
                                  "Transfer 2 was never given back, it is left to libusb.\r\n"}));
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 0u);
    ExpectComplaint("a transfer was never freed", 3);
    // The engine itself streams on, and what comes back then is none of its business.
    virtcam::bus::release_completions(0x81);
    ASSERT_EQ(Start(), 0);
    Forget();
    m_Engine->handle_libusb_event();
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(usb().submits().empty());
    EXPECT_EQ(InFlight(), 3u);
    Deliver(Payload(0, Pattern(4)));
    DeliverEnd(0);
    EXPECT_EQ(Take(), Pattern(4));
}

TEST_F(UvcStream, CancellationThatFailsIsNotCounted) {
    ASSERT_EQ(Start(), 0);
    for (int i = 0; i < 3; ++i) {
        Deliver({}, TransferStatus::kError);  // idle: nothing to cancel, 'not found'
    }
    Forget();
    EXPECT_EQ(m_Engine->UVC_DisableVideoStream(), 0);
    EXPECT_EQ(Log(), kStopLog);
}

TEST_F(UvcStream, AConsumerThatNeverLeavesKeepsTheBuffers) {
    {
        const MayLeak buffers;
        ASSERT_EQ(Start(), 0);
    }
    std::promise<void> entered, let_go;
    on_timed_wait([&] {
        entered.set_value();
        let_go.get_future().wait();
    });
    auto consumer = std::async(std::launch::async, [&] {
        uint8_t byte;
        return m_Engine->ReadFrame(&byte, 1);
    });
    entered.get_future().wait();
    m_Engine->UVC_DisableVideoStream();
    EXPECT_LOG_COUNT(
        1, "A consumer does not leave the frame queue, its buffers are left to it.\r\n", 1);
    let_go.set_value();
    EXPECT_EQ(consumer.get(), 0u);  // it still found its queue
}

TEST_F(UvcStream, FrameIdRemembersAcrossStreams) {
    ASSERT_EQ(Start(), 0);
    Deliver(Payload(kFid | kEof));
    m_Engine->UVC_DisableVideoStream();
    ASSERT_EQ(Start(), 0);
    Deliver(Payload(kFid, Pattern(3)));
    Deliver(Payload(0, {}));  // the change of frame ID ends it
    EXPECT_EQ(Take(), Pattern(3));
}

// --- device gone ---------------------------------------------------------------------------------

TEST_F(UvcStream, AfterTheDeviceHasGoneNoSettingIsSelected) {
    ASSERT_EQ(Start(), 0);
    virtcam::bus::unplug();
    Forget();
    m_Engine->handle_libusb_event();
    EXPECT_LOG_COUNT(4, "LIBUSB_TRANSFER_NO_DEVICE \r\n", 3);
    Forget();
    m_Engine->UVC_DisableVideoStream();
    EXPECT_TRUE(usb().alternate_settings().empty());
    EXPECT_LOG_COUNT(4, "UAC_DisableVideoStream: IF = 1, Alt = 0 Error!!", 1);
    m_Engine.reset();  // closes the handle: the bus would complain of a poisoned one
    EXPECT_TRUE(log().texts(1).empty());
}

TEST_F(UvcStream, AnyRequestThatMissesTheDeviceIsRemembered) {
    virtcam::bus::add_fault(FailCall("libusb_control_transfer", LIBUSB_ERROR_NO_DEVICE));
    EXPECT_FALSE(m_Engine->RequestKeyFrame());
    EXPECT_TRUE(m_Engine->m_bDeviceGone);
    Forget();
    m_Engine->UVC_DisableVideoStream();
    EXPECT_TRUE(usb().alternate_settings().empty());
}

TEST_F(UvcStream, OtherErrorsDoNotMeanThatTheDeviceHasGone) {
    virtcam::bus::add_fault(FailCall("libusb_control_transfer", LIBUSB_ERROR_PIPE));
    EXPECT_FALSE(m_Engine->RequestKeyFrame());
    EXPECT_FALSE(m_Engine->m_bDeviceGone);
}

TEST_F(UvcStream, HandleBrokenByTheSettingIsLeaked) {
    ASSERT_EQ(Start(), 0);
    virtcam::bus::add_fault(FailCall("libusb_set_interface_alt_setting", LIBUSB_ERROR_NO_DEVICE));
    m_Engine->UVC_DisableVideoStream();
    Forget();
    m_Engine.reset();
    EXPECT_EQ(log().texts(1),
              (std::vector<std::string>{
                  "The lost device's handle is left open, this libusb cannot close it.\r\n"}));
    EXPECT_EQ(CountCalls("libusb_close"), 0u);
    ExpectComplaint("libusb_exit: 1 device handle still open");
    ExpectComplaint("a handle of 114d:2066 was never closed");
}

TEST_F(UvcStream, NewerLibusbClosesTheHandleThatMetTheLossInTheSetting) {
    for (const auto& [major, minor, micro] : {std::array<int, 3>{1, 0, 27}, {1, 1, 0}, {2, 0, 0}}) {
        Open();
        usb().set_version(major, minor, micro);
        virtcam::bus::add_fault(
            FailCall("libusb_set_interface_alt_setting", LIBUSB_ERROR_NO_DEVICE));
        m_Engine->UVC_DisableVideoStream();
        virtcam::bus::clear_logs();
        virtcam::bus::clear_faults();
        m_Engine.reset();
        EXPECT_EQ(CountCalls("libusb_close"), 1u);
        EXPECT_TRUE(log().texts(1).empty());
    }
}

TEST_F(UvcStream, SettingsAfterTheFirstMissAreNotAttempted) {
    usb().set_version(1, 1, 0);
    virtcam::bus::add_fault(FailCall("libusb_set_interface_alt_setting", LIBUSB_ERROR_NO_DEVICE));
    m_Engine->UVC_DisableVideoStream();
    const auto once = usb().alternate_settings().size();
    m_Engine->UVC_DisableVideoStream();
    EXPECT_EQ(usb().alternate_settings().size(), once);
}

TEST_F(UvcStream, UnplugDuringTheNegotiationFailsTheStart) {
    for (int nth = 1; nth <= 6; ++nth) {
        virtcam::bus::reset(QuietCamera());
        virtcam::bus::script_stream(true);
        m_Engine.reset();
        virtcam::bus::take_complaints();
        Open();
        virtcam::bus::add_fault(
            {{"on", {{"control", {{"index", 1}}}}}, {"nth", nth}, {"do", "unplug"}});
        EXPECT_EQ(Start(), -1);
        EXPECT_EQ(log().texts().back(), kRequestFailures[nth - 1].text);
        ExpectIdle();
    }
}

TEST_F(UvcStream, UnplugBetweenCommitAndFirstData) {
    virtcam::bus::add_fault(
        {{"on", {{"call", "libusb_submit_transfer"}}}, {"nth", 2}, {"do", {{"unplug", true}}}});
    Start();
    while (InFlight() != 0) {
        m_Engine->handle_libusb_event();
    }
    m_Engine->UVC_DisableVideoStream();
    EXPECT_EQ(m_Engine->Queue(), nullptr);
}

}  // namespace
}  // namespace test
