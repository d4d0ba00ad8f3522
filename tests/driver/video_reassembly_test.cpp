// Payloads into frames: boundaries, errors, full queue, hostile lengths, endings of transfers.
#include <future>

#include "tests/driver/VideoEngineTest.h"

namespace test {
namespace {

using namespace std::chrono_literals;

using virtcam::bus::TransferStatus;

class UvcReassembly : public VideoEngineTest {
  protected:
    UvcReassembly() { Stream(); }

    /// Publishes `count` frames of one byte each, 1, 2, 3 ...
    void FillQueue(int count) {
        for (int i = 0; i < count; ++i) {
            Deliver(Payload(m_Fid, {static_cast<uint8_t>(i + 1)}));
            DeliverEnd(m_Fid);
            m_Fid ^= kFid;
        }
    }
    size_t FillBuffer();

    uint8_t m_Fid = 0;
};

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST_F(UvcReassembly, PayloadsOfOneFrameIdMakeOneFrame) {
    const Bytes a = Pattern(100, 1);
    const Bytes b = Pattern(50, 99);
    const Bytes d = Pattern(30, 200);
    Deliver(Payload(0, a));
    Deliver(Payload(0, b));
    EXPECT_EQ(Queued(), 0u);
    DeliverEnd(0);
    EXPECT_EQ(Queued(), 1u);
    Deliver(Payload(kFid, d));
    EXPECT_EQ(Queued(), 1u);
    EXPECT_EQ(Take(), a + b);
    DeliverEnd(kFid);
    EXPECT_EQ(Take(), d);
    EXPECT_TRUE(Log().empty()) << log_listing();
}

TEST_F(UvcReassembly, EveryPayloadIsResubmitted) {
    EXPECT_EQ(InFlight(), 3u);
    Deliver(Payload(0, Pattern(10)));
    EXPECT_EQ(InFlight(), 3u);
    DeliverEnd(0);
    EXPECT_EQ(InFlight(), 3u);
    EXPECT_EQ(usb().submits().size(), 2u);
}

TEST_F(UvcReassembly, EndOfFrameWithDataPublishesWhatCameBeforeIt) {
    const Bytes a = Pattern(20, 1);
    const Bytes b = Pattern(8, 50);
    Deliver(Payload(0, a));
    Deliver(Payload(kEof, b));
    ASSERT_EQ(Queued(), 1u);
    // The payload's own data goes where the frame was gathered when it arrived: over its start.
    EXPECT_EQ(Take(), b + Bytes(a.begin() + 8, a.end()));
}

TEST_F(UvcReassembly, DataOfAnEndOfFrameCountsForTheNextFrameWithoutBeingInIt) {
    Deliver(Payload(0, Pattern(20)));
    Deliver(Payload(kEof, Pattern(8)));
    EXPECT_EQ(Take().size(), 20u);
    DeliverEnd(kFid);
    const Bytes next = Take();
    EXPECT_EQ(next, Bytes(8, 0));  // counted, but its bytes are in the buffer published before
}

TEST_F(UvcReassembly, ToggledFrameIdAlonePublishes) {
    const Bytes a = Pattern(20, 1);
    Deliver(Payload(0, a));
    Deliver(Payload(kFid, {}));
    EXPECT_EQ(Queued(), 1u);
    EXPECT_EQ(Take(), a);
    // The same frame ID again is no boundary.
    Deliver(Payload(kFid, Pattern(5)));
    Deliver(Payload(kFid, Pattern(5)));
    EXPECT_EQ(Queued(), 0u);
    Deliver(Payload(0, {}));
    EXPECT_EQ(Take().size(), 10u);
}

TEST_F(UvcReassembly, FirstPayloadIsComparedWithFrameIdZero) {
    Deliver(Payload(kFid, Pattern(5)));  // a boundary with nothing gathered
    EXPECT_EQ(Queued(), 0u);
    DeliverEnd(kFid);
    EXPECT_EQ(Take().size(), 5u);
}

TEST_F(UvcReassembly, OnlyTheFrameIdBitIsCompared) {
    Deliver(Payload(0x3C, Pattern(5)));
    Deliver(Payload(0x00, Pattern(5)));
    EXPECT_EQ(Queued(), 0u);
    Deliver(Payload(0x80, Pattern(5)));
    EXPECT_EQ(Queued(), 0u);
    DeliverEnd(0);
    EXPECT_EQ(Take().size(), 15u);
}

TEST_F(UvcReassembly, OnlyBoundariesRememberTheFlags) {
    Deliver(Payload(kFid | kEof));  // boundary: frame ID 1 remembered
    Deliver(Payload(kFid, Pattern(5)));
    EXPECT_EQ(Queued(), 0u);
    DeliverEnd(0);  // boundary again, remembered 0
    EXPECT_EQ(Take().size(), 5u);
    Deliver(Payload(0, Pattern(6)));
    Deliver(Payload(kFid, {}));
    EXPECT_EQ(Take().size(), 6u);
}

TEST_F(UvcReassembly, HeaderOnlyEndsPublishNothingOfTheirOwn) {
    DeliverEnd(0);
    DeliverEnd(0);
    DeliverEnd(kFid);
    EXPECT_EQ(Queued(), 0u);
    EXPECT_EQ(InFlight(), 3u);
}

TEST_F(UvcReassembly, PayloadWithTheErrorBitIsDropped) {
    Deliver(Payload(0, Pattern(10, 1)));
    Deliver(Payload(kErr, Pattern(10, 2)));
    EXPECT_EQ(Log(), (Lines{{4, "Dropping payload (error bit set).\n"}}));
    EXPECT_EQ(InFlight(), 3u);
    DeliverEnd(0);
    EXPECT_EQ(Take(), Pattern(10, 1));
}

TEST_F(UvcReassembly, EndOfFrameWithTheErrorBitStillPublishes) {
    Deliver(Payload(0, Pattern(10, 1)));
    Deliver(Payload(kEof | kErr, Pattern(10, 2)));
    EXPECT_EQ(Queued(), 1u);
    EXPECT_EQ(Log(), (Lines{{4, "Dropping payload (error bit set).\n"}}));
    EXPECT_EQ(Take(), Pattern(10, 1));
}

TEST_F(UvcReassembly, AnotherHeaderLengthOnABoundaryMakesThePayloadErroneous) {
    for (const int length : {0, 1, 2, 11, 13, 16, 255}) {
        ForgetLog();
        Deliver(Payload(kEof, Pattern(4), static_cast<uint8_t>(length)));
        EXPECT_EQ(Log(), (Lines{{4, "UVC Payload Header Length = " + std::to_string(length) + "\n"},
                                {4, "Dropping payload (error bit set).\n"}}));
        EXPECT_EQ(InFlight(), 3u);
    }
    EXPECT_EQ(Queued(), 0u);
}

TEST_F(UvcReassembly, HeaderLengthIsNotLookedAtInsideAFrame) {
    Deliver(Payload(0, Pattern(4), 16));
    Deliver(Payload(0, Pattern(4, 9), 0));
    EXPECT_TRUE(Log().empty());
    DeliverEnd(0);
    EXPECT_EQ(Take(), Pattern(4) + Pattern(4, 9));
}

TEST_F(UvcReassembly, LongHeaderOnABoundaryPublishesTheFrameAndCopiesBehindIt) {
    Deliver(Payload(0, Pattern(10, 1)));
    unsigned char* buffer = m_Engine->Queue()->GetWritePtr(0)->buf;
    Deliver(Payload(kEof, Pattern(6, 77), 16));
    ASSERT_EQ(Queued(), 1u);
    // Behind the frame's 10 bytes: everything from offset 12 of the transfer, uncounted.
    EXPECT_EQ(Bytes(buffer + 10, buffer + 16), Pattern(6, 77));
    EXPECT_EQ(buffer[16], 0);
    EXPECT_EQ(Take(), Pattern(10, 1));
}

TEST_F(UvcReassembly, ShortHeaderOnABoundaryCopiesNothing) {
    unsigned char* buffer = m_Engine->Queue()->GetWritePtr(0)->buf;
    Deliver(Payload(kEof, Pattern(6, 77), 11));
    EXPECT_EQ(Bytes(buffer, buffer + 6), Bytes(6, 0));
}

TEST_F(UvcReassembly, LongHeaderWithFewerBytesThanTwelveCopiesNothing) {
    for (size_t count = 2; count <= 12; ++count) {
        Bytes bytes = Payload(kEof, {}, 255);
        bytes.resize(count);
        Deliver(bytes);
    }
    EXPECT_EQ(log().count(4, "UVC Payload Header Length = 255\n"), 11u);
    EXPECT_EQ(InFlight(), 3u);
    EXPECT_EQ(Queued(), 0u);
}

TEST_F(UvcReassembly, PayloadOfOneByteHasNoFlags) {
    Deliver(Payload(kFid | kEof));  // leaves frame ID 1 and an end-of-frame bit in the buffers
    Deliver(Payload(kFid | kEof));
    Deliver(Payload(kFid | kEof));
    ForgetLog();
    Deliver({16});  // flags count as 0, another frame ID: a boundary
    EXPECT_EQ(Log(), (Lines{{4, "UVC Payload Header Length = 16\n"},
                            {4, "Dropping payload (error bit set).\n"}}));
    ForgetLog();
    Deliver({16});
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(InFlight(), 3u);
}

TEST_F(UvcReassembly, EmptyTransfersChangeNothing) {
    Deliver(Payload(kFid | kEof));
    Deliver(Payload(kFid, Pattern(10)));
    Deliver({});  // no flags either: with flags of 0 it would be a boundary
    Deliver({});
    EXPECT_EQ(Queued(), 0u);
    EXPECT_EQ(InFlight(), 3u);
    EXPECT_TRUE(Log().empty());
    DeliverEnd(kFid);
    EXPECT_EQ(Take(), Pattern(10));
}

TEST_F(UvcReassembly, PayloadsUpToTwelveBytesAppendNothing) {
    Deliver(Payload(0, Pattern(3)));
    for (size_t count = 2; count <= 12; ++count) {
        Bytes bytes = Payload(0);
        bytes.resize(count);
        Deliver(bytes);
    }
    Deliver(Payload(0, {42}));  // 13 bytes: one of data
    DeliverEnd(0);
    EXPECT_EQ(Take(), Pattern(3) + Bytes{42});
}

// --- capacity ------------------------------------------------------------------------------------

constexpr size_t kCapacity = 0x200000;
constexpr size_t kTransferSize = 8192;
constexpr size_t kDataSize = kTransferSize - 12;

/// Fills the buffer with whole payloads and returns how many bytes are left in it.
size_t UvcReassembly::FillBuffer() {
    const Bytes full = Pattern(kDataSize);
    size_t gathered = 0;
    while (gathered + kDataSize <= kCapacity) {
        Deliver(Payload(0, full));
        gathered += kDataSize;
    }
    return kCapacity - gathered;
}

TEST_F(UvcReassembly, FrameFillsTheWholeBufferAndNoByteMore) {
    const size_t rest = FillBuffer();
    ASSERT_GT(rest, 1u);
    Deliver(Payload(0, Pattern(rest + 1)));
    EXPECT_EQ(Log(), (Lines{{4, "Fram size exceed MaxFrameSize!! 2097153\n"}}));
    EXPECT_EQ(InFlight(), 3u);
    ForgetLog();
    Deliver(Payload(0, Pattern(rest)));  // what was gathered was kept, and this just fits
    EXPECT_TRUE(Log().empty());
    Deliver(Payload(0, {1}));
    EXPECT_EQ(Log(), (Lines{{4, "Fram size exceed MaxFrameSize!! 2097153\n"}}));
    // A boundary with a long header has no room left to copy to.
    unsigned char* buffer = m_Engine->Queue()->GetWritePtr(0)->buf;
    Deliver(Payload(kEof, Bytes(100, 0xEE), 13));
    for (size_t i = 0; i < CFrameBuf::kSpareBytes; ++i) {
        ASSERT_EQ(buffer[kCapacity + i], 0) << i;
    }
    EXPECT_EQ(Take().size(), kCapacity);
}

TEST_F(UvcReassembly, CopyOfALongHeaderStopsAtTheBuffersEnd) {
    const size_t rest = FillBuffer();
    ASSERT_LT(rest, kDataSize);
    unsigned char* buffer = m_Engine->Queue()->GetWritePtr(0)->buf;
    Deliver(Payload(kEof, Bytes(kDataSize, 0xEE), 255));
    EXPECT_EQ(buffer[kCapacity - rest], 0xEE);
    EXPECT_EQ(buffer[kCapacity - 1], 0xEE);
    for (size_t i = 0; i < CFrameBuf::kSpareBytes; ++i) {
        ASSERT_EQ(buffer[kCapacity + i], 0) << i;
    }
}

TEST_F(UvcReassembly, LengthBeyondTheTransferCountsAsTheTransfer) {
    constexpr size_t kTransfer = 8192;
    const Bytes data = Pattern(kTransfer - 12);
    Deliver(Payload(0, data), TransferStatus::kCompleted, static_cast<int>(kTransfer) + 100);
    DeliverEnd(0);
    EXPECT_EQ(Take(), data);
}

// --- full queue ----------------------------------------------------------------------------------

TEST_F(UvcReassembly, FifthFrameFillsTheQueueAndTheEngineWaitsForASixthBuffer) {
    ExpireWaits();
    FillQueue(4);
    EXPECT_EQ(system_calls().timed_wait_calls, 0);
    FillQueue(1);
    EXPECT_EQ(Queued(), 5u);
    ASSERT_EQ(timed_wait_lengths().size(), 1u);
    EXPECT_EQ(timed_wait_lengths()[0], 500ms);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(InFlight(), 3u);
}

TEST_F(UvcReassembly, WithoutABufferDataIsLostUpToTheNextEndOfFrame) {
    ExpireWaits();
    FillQueue(5);
    ForgetLog();
    Deliver(Payload(m_Fid, {91}));
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(Take(), Bytes{1});  // there is room again, but no end of frame yet
    Deliver(Payload(m_Fid, {92}));
    EXPECT_TRUE(Log().empty());
    DeliverEnd(m_Fid);
    EXPECT_EQ(Log(),
              (Lines{{1, "Dropped a UVC frame,Now trying to request a new frame buffer.\r\n"}}));
    EXPECT_EQ(InFlight(), 3u);
    m_Fid ^= kFid;
    Deliver(Payload(m_Fid, {93}));
    DeliverEnd(m_Fid);
    EXPECT_EQ(Queued(), 5u);
    for (const uint8_t expected : {2, 3, 4, 5, 93}) {
        EXPECT_EQ(Take(), Bytes{expected});
    }
}

TEST_F(UvcReassembly, EachEndOfFrameAsksAgainWhileTheQueueIsFull) {
    ExpireWaits();
    FillQueue(5);
    const int before = system_calls().timed_wait_calls;
    DeliverEnd(0);
    DeliverEnd(kFid);
    EXPECT_EQ(system_calls().timed_wait_calls, before + 2);
    EXPECT_EQ(timed_wait_lengths().back(), 500ms);
    EXPECT_LOG_COUNT(1, "Dropped a UVC frame,Now trying to request a new frame buffer.\r\n", 2);
    EXPECT_EQ(InFlight(), 3u);
    EXPECT_EQ(Queued(), 5u);
}

TEST_F(UvcReassembly, WithoutABufferAnEndOfFrameNeedsThreeBytes) {
    ExpireWaits();
    FillQueue(5);
    ForgetLog();
    Deliver({12, kEof});
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(InFlight(), 3u);
    Deliver({});
    EXPECT_TRUE(Log().empty());
    Deliver({12, kEof, 0});
    EXPECT_LOG_COUNT(1, "Dropped a UVC frame,Now trying to request a new frame buffer.\r\n", 1);
}

TEST_F(UvcReassembly, WithoutABufferHeadersAndErrorsAreNotLookedAt) {
    ExpireWaits();
    FillQueue(5);
    ForgetLog();
    Deliver(Payload(kErr, {1}, 200));
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(InFlight(), 3u);
}

TEST_F(UvcReassembly, ConsumerThatReadsInTimeGivesTheWaitingEngineItsBuffer) {
    FillQueue(4);
    virtcam::bus::push_bulk(TransferStatus::kCompleted, Payload(m_Fid, {5}));
    m_Engine->handle_libusb_event();
    virtcam::bus::push_bulk(TransferStatus::kCompleted,
                            Payload(static_cast<uint8_t>(m_Fid | kEof)));
    auto engine = std::async(std::launch::async, [&] { m_Engine->handle_libusb_event(); });
    while (m_Engine->Queue()->GetNumWaiters() == 0) {
        ASSERT_NE(engine.wait_for(std::chrono::milliseconds(0)), std::future_status::ready);
    }
    EXPECT_EQ(Take(), Bytes{1});
    engine.get();
    m_Fid ^= kFid;
    Deliver(Payload(m_Fid, {6}));
    DeliverEnd(m_Fid);
    EXPECT_EQ(Queued(), 5u);
    EXPECT_EQ(log().count_containing("Dropped"), 0u);
}

// --- endings of transfers ------------------------------------------------------------------------

TEST_F(UvcReassembly, TimedOutTransferIsLoggedAndResubmittedWithoutItsData) {
    Deliver(Payload(0, Pattern(10)));
    Deliver(Payload(0, Pattern(5)), TransferStatus::kTimedOut);
    EXPECT_EQ(Log(), (Lines{{4, "LIBUSB_TRANSFER_TIMED_OUT! EP = 81\n"}}));
    EXPECT_EQ(InFlight(), 3u);
    DeliverEnd(0);
    EXPECT_EQ(Take(), Pattern(10));
}

TEST_F(UvcReassembly, OtherEndingsLeaveTheTransferIdleAndTheStreamGoesOn) {
    struct Ending {
        TransferStatus status;
        const char* text;
    };
    const Ending endings[] = {
        {TransferStatus::kCancelled, "LIBUSB_TRANSFER_CANCELLED!\n"},
        {TransferStatus::kNoDevice, "LIBUSB_TRANSFER_NO_DEVICE \r\n"},
        {TransferStatus::kOverflow, "LIBUSB_TRANSFER_OVERFLOW! EP = 81\n"},
        {TransferStatus::kError, "Audio Transfer Unknown Status=1\r\n"},
        {TransferStatus::kStall, "Audio Transfer Unknown Status=4\r\n"},
    };
    for (const Ending& ending : endings) {
        ASSERT_EQ(m_Engine->UVC_EnableVideoStream(4, 4, 30), 0);
        ForgetLog();
        Deliver(Payload(0, Pattern(7, 9)), ending.status);
        EXPECT_EQ(Log(), (Lines{{4, ending.text}}));
        EXPECT_EQ(InFlight(), 2u);
        Deliver(Payload(0, Pattern(10)));
        Deliver(Payload(kEof));
        EXPECT_EQ(Take(), Pattern(10));
        EXPECT_EQ(InFlight(), 2u);
        m_Engine->m_bDeviceGone = false;
    }
}

TEST_F(UvcReassembly, NoDeviceCompletionIsRemembered) {
    EXPECT_FALSE(m_Engine->m_bDeviceGone);
    Deliver({}, TransferStatus::kError);
    EXPECT_FALSE(m_Engine->m_bDeviceGone);
    Deliver({}, TransferStatus::kNoDevice);
    EXPECT_TRUE(m_Engine->m_bDeviceGone);
}

TEST_F(UvcReassembly, AllTransfersLostLeavesTheConsumerWithNothing) {
    for (int i = 0; i < 3; ++i) {
        Deliver({}, TransferStatus::kError);
    }
    EXPECT_EQ(InFlight(), 0u);
    unsigned char* data = nullptr;
    unsigned int length = 0;
    ExpireWaits();
    EXPECT_EQ(m_Engine->DequeFrameBuf(&data, &length), 0u);
}

TEST_F(UvcReassembly, OnceTheStreamHasEndedNobodyWaitsForABuffer) {
    ExpireWaits();
    FillQueue(5);
    m_Engine->IsStreaming = false;
    DeliverEnd(m_Fid);
    EXPECT_EQ(timed_wait_lengths().back(), 0ms);
    m_Engine->IsStreaming = true;
}

TEST_F(UvcReassembly, StopWakesAnEngineThatWaitsForABuffer) {
    FillQueue(4);
    Deliver(Payload(m_Fid, {5}));
    system_calls().endless_timed_waits = true;
    virtcam::bus::push_bulk(TransferStatus::kCompleted,
                            Payload(static_cast<uint8_t>(m_Fid | kEof)));
    auto round = std::async(std::launch::async, [&] { m_Engine->handle_libusb_event(); });
    while (m_Engine->Queue()->GetNumWaiters() == 0) {
        std::this_thread::yield();
    }
    auto stop = std::async(std::launch::async, [&] { return m_Engine->UVC_DisableVideoStream(); });
    const bool ended = stop.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    if (!ended) {
        m_Engine->Queue()->WakeWait();
    }
    EXPECT_TRUE(ended);
    stop.get();
    round.get();
}

TEST_F(UvcReassembly, ReadIntoNothingConsumesTheFrame) {
    Deliver(Payload(0, {1}));
    DeliverEnd(0);
    EXPECT_EQ(m_Engine->ReadFrame(nullptr, 0), 0u);
    EXPECT_EQ(Queued(), 0u);
}

TEST_F(UvcReassembly, CompletionAfterTheStreamHasEndedIsNotResubmitted) {
    m_Engine->IsStreaming = false;
    Deliver(Payload(0, Pattern(5)));
    EXPECT_EQ(Log(), (Lines{{4, "Stop submit transfer.\r\n"}}));
    EXPECT_EQ(InFlight(), 2u);
    m_Engine->IsStreaming = true;
}

TEST_F(UvcReassembly, TimedOutDataCountsWhenTheStreamHasEnded) {
    m_Engine->IsStreaming = false;
    Deliver(Payload(0, Pattern(5)), TransferStatus::kTimedOut);
    EXPECT_EQ(Log(), (Lines{{4, "LIBUSB_TRANSFER_TIMED_OUT! EP = 81\n"},
                            {4, "status 2\n"},
                            {4, "Stop submit transfer.\r\n"}}));
    m_Engine->IsStreaming = true;
    DeliverEnd(0);
    EXPECT_EQ(Take(), Pattern(5));
}

TEST_F(UvcReassembly, CallbackWithoutTransferOrOwnerReturns) {
    VideoEngine::callback(nullptr);
    libusb_transfer transfer = {};
    VideoEngine::callback(&transfer);
    VideoEngine::TransferCbParam abandoned(nullptr, 0, 16);
    transfer.user_data = &abandoned;
    VideoEngine::callback(&transfer);
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(usb().submits().empty());
}

TEST_F(UvcReassembly, CallbackWithoutAQueueReturns) {
    m_Engine->UVC_DisableVideoStream();
    Forget();
    VideoEngine::TransferCbParam param(m_Engine.get(), 0, 16);
    libusb_transfer transfer = {};
    transfer.user_data = &param;
    transfer.status = LIBUSB_TRANSFER_CANCELLED;
    VideoEngine::callback(&transfer);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(m_Engine->FillVideoBuf_Bulk(&transfer), 0);  // nothing holds a buffer either
    EXPECT_TRUE(usb().submits().empty());
}

TEST_F(UvcReassembly, RefusedResubmitLeavesTheTransferIdle) {
    virtcam::bus::add_fault(FailCall("libusb_submit_transfer", LIBUSB_ERROR_NO_MEM));
    Deliver(Payload(0, Pattern(5)));
    EXPECT_EQ(InFlight(), 2u);
    DeliverEnd(0);
    EXPECT_EQ(Take(), Pattern(5));
}

// --- consumer ------------------------------------------------------------------------------------

TEST_F(UvcReassembly, ReadFrameCopiesAtMostTheSizeAndConsumesTheFrame) {
    const Bytes frame = Pattern(20);
    Deliver(Payload(0, frame));
    DeliverEnd(0);
    Bytes target(21, 0xCC);
    EXPECT_EQ(m_Engine->ReadFrame(target.data(), 8), 8u);
    EXPECT_EQ(Bytes(target.begin(), target.begin() + 8), Bytes(frame.begin(), frame.begin() + 8));
    EXPECT_EQ(target[8], 0xCC);
    EXPECT_EQ(Queued(), 0u);  // the rest is lost
    Deliver(Payload(kFid, frame));
    DeliverEnd(kFid);
    EXPECT_EQ(m_Engine->ReadFrame(target.data(), 21), 20u);
    EXPECT_EQ(Bytes(target.begin(), target.begin() + 20), frame);
    EXPECT_EQ(target[20], 0xCC);
}

TEST_F(UvcReassembly, ReadersWaitHalfASecondAndGiveUp) {
    ExpireWaits();
    uint8_t byte = 7;
    EXPECT_EQ(m_Engine->ReadFrame(&byte, 1), 0u);
    EXPECT_EQ(byte, 7);
    unsigned char* data = &byte;
    unsigned int length = 9;
    EXPECT_EQ(m_Engine->DequeFrameBuf(&data, &length), 0u);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 0u);
    ASSERT_EQ(timed_wait_lengths().size(), 2u);
    EXPECT_EQ(timed_wait_lengths()[0], 500ms);
    EXPECT_EQ(timed_wait_lengths()[1], 500ms);
}

TEST_F(UvcReassembly, LentFrameStaysQueuedUntilItIsHandedBack) {
    Deliver(Payload(0, Pattern(6)));
    DeliverEnd(0);
    unsigned char* data = nullptr;
    unsigned int length = 0;
    EXPECT_EQ(m_Engine->DequeFrameBuf(&data, &length), 6u);
    EXPECT_EQ(length, 6u);
    EXPECT_EQ(Bytes(data, data + length), Pattern(6));
    EXPECT_EQ(Queued(), 1u);
    EXPECT_EQ(m_Engine->QueueFrameBuf(), 0u);
    EXPECT_EQ(Queued(), 0u);
}

TEST_F(UvcReassembly, EmptyPublishedFrameIsReleasedAndCountsAsNone) {
    m_Engine->Queue()->WriteDone();  // as a stop publishes a buffer that holds nothing
    EXPECT_EQ(Queued(), 1u);
    uint8_t byte = 0;
    unsigned char* data = &byte;
    unsigned int length = 9;
    EXPECT_EQ(m_Engine->DequeFrameBuf(&data, &length), 0u);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(Queued(), 0u);
}

TEST_F(UvcReassembly, OneByteFrameIsDelivered) {
    Deliver(Payload(0, {77}));
    DeliverEnd(0);
    EXPECT_EQ(Take(), Bytes{77});
}

class UvcConsumer : public VideoEngineTest {};

TEST_F(UvcConsumer, WithoutAStreamThereIsNothingToTake) {
    Open();
    uint8_t byte = 7;
    EXPECT_EQ(m_Engine->ReadFrame(&byte, 1), 0u);
    unsigned char* data = &byte;
    unsigned int length = 9;
    EXPECT_EQ(m_Engine->DequeFrameBuf(&data, &length), 0u);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(m_Engine->QueueFrameBuf(), 0u);
    EXPECT_EQ(system_calls().timed_wait_calls, 0);
}

TEST_F(UvcConsumer, LeftoversOfAnotherPathReturnZero) {
    Open();
    int length = 3;
    EXPECT_EQ(m_Engine->FillVideoBuf(nullptr, &length), 0);
    EXPECT_EQ(m_Engine->GetIsoData(nullptr, &length), 0);
    EXPECT_EQ(m_Engine->GetIsoDataMJPG(nullptr, &length), 0);
    EXPECT_EQ(length, 3);
}

}  // namespace
}  // namespace test
