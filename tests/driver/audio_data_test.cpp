// Isochronous packets into frames.
#include "tests/driver/AudioEngineTest.h"

namespace test {
namespace {

using virtcam::bus::IsoPacket;
using virtcam::bus::TransferStatus;
using namespace std::chrono_literals;

class UacData : public AudioEngineTest {
  protected:
    UacData() { Stream(); }

    /// A stream whose endpoint takes packets of this size.
    void StreamPackets(int size) {
        virtcam::bus::add_fault(
            {{"on", {{"call", "libusb_get_max_iso_packet_size"}}}, {"do", {{"return", size}}}});
        ASSERT_EQ(m_Engine->UAC_EnableAudioStream(kRate), 0);
        Forget();
    }
};

IsoPacket Packet(Bytes bytes, TransferStatus status = TransferStatus::kCompleted) {
    return {status, std::move(bytes), std::nullopt};
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST_F(UacData, PacketsAreCopiedOneBehindTheOtherInOrder) {
    std::vector<IsoPacket> packets(10);
    packets[0] = Packet(Pattern(32, 1));
    packets[4] = Packet(Pattern(32, 60));
    packets[9] = Packet(Pattern(32, 130));
    Deliver(packets);
    ASSERT_EQ(Queued(), 1u);
    EXPECT_EQ(Take(), Pattern(32, 1) + Pattern(32, 60) + Pattern(32, 130));
    EXPECT_EQ(InFlight(), 2u);
    EXPECT_TRUE(Log().empty());
}

TEST_F(UacData, EveryTransferIsOneFrame) {
    for (uint8_t i = 1; i <= 3; ++i) {
        Deliver({Packet({i}), Packet({i})});
    }
    EXPECT_EQ(Queued(), 3u);
    for (uint8_t i = 1; i <= 3; ++i) {
        EXPECT_EQ(Take(), (Bytes{i, i}));
    }
    EXPECT_EQ(usb().submits().size(), 3u);
}

TEST_F(UacData, FillAnswersZeroWhetherOrNotThereIsRoom) {
    m_Engine->IsStreaming = false;  // what is filled here is not submitted again
    libusb_transfer transfer = {};
    for (unsigned i = 1; i <= 4; ++i) {
        EXPECT_EQ(m_Engine->FillAudioData(&transfer), 0);
        EXPECT_EQ(Queued(), i);
    }
    EXPECT_EQ(m_Engine->FillAudioData(&transfer), 0);
    EXPECT_EQ(Queued(), 4u);
    EXPECT_TRUE(usb().submits().empty());
}

TEST_F(UacData, PacketStatusIsNotExamined) {
    Deliver({Packet({1, 2}, TransferStatus::kError), Packet({3}, TransferStatus::kStall),
             Packet({4}, TransferStatus::kOverflow)});
    EXPECT_EQ(Take(), (Bytes{1, 2, 3, 4}));
}

TEST_F(UacData, EmptyTransferPublishesAnEmptyFrame) {
    Deliver({});
    EXPECT_EQ(Queued(), 1u);
    unsigned char* data = nullptr;
    unsigned int length = 5;
    EXPECT_EQ(m_Engine->DequeFrameBuf(&data, &length), 0u);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(Queued(), 0u);
}

TEST_F(UacData, LengthBeyondThePacketCountsAsThePacket) {
    Bytes full = Pattern(m_PacketSize);
    Deliver({{TransferStatus::kCompleted, full, m_PacketSize + 1}, Packet({1, 2, 3})});
    EXPECT_EQ(Take(), (full + Bytes{1, 2, 3}));
    Deliver({{TransferStatus::kCompleted, full, 0xFFFFFFFFu}, Packet({1, 2, 3})});
    EXPECT_EQ(Take(), (full + Bytes{1, 2, 3}));
}

TEST_F(UacData, FullPacketsFillTheBuffer) {
    std::vector<IsoPacket> packets;
    Bytes all;
    for (uint8_t i = 0; i < kPackets; ++i) {
        packets.push_back(Packet(Pattern(m_PacketSize, i)));
        all = all + Pattern(m_PacketSize, i);
    }
    Deliver(packets);
    EXPECT_EQ(Take(), all);
}

TEST_F(UacData, FullQueueDropsTheTransferWithALineAndResubmits) {
    for (uint8_t i = 1; i <= 4; ++i) {
        Deliver({Packet({i})});
    }
    EXPECT_TRUE(Log().empty());
    for (int i = 0; i < 2; ++i) {
        ForgetLog();
        Deliver({Packet({99})});
        EXPECT_EQ(Log(), (Lines{{5, "Audio frame drop. 4 buf, 0 offset\r\n"}}));
        EXPECT_EQ(InFlight(), 2u);
    }
    for (uint8_t i = 1; i <= 4; ++i) {
        EXPECT_EQ(Take(), Bytes{i});
    }
    EXPECT_EQ(Queued(), 0u);
    Deliver({Packet({7})});
    EXPECT_EQ(Take(), Bytes{7});
    EXPECT_EQ(system_calls().timed_wait_calls, 0);
}

TEST_F(UacData, TimedOutTransferIsFilledLikeACompletion) {
    Deliver({Packet({1, 2})}, TransferStatus::kTimedOut);
    EXPECT_EQ(Log(), (Lines{{4, "LIBUSB_TRANSFER_TIMED_OUT! EP = 82\n"}}));
    EXPECT_EQ(Take(), (Bytes{1, 2}));
    EXPECT_EQ(InFlight(), 2u);
}

TEST_F(UacData, OtherEndingsLeaveTheTransferIdle) {
    struct Ending {
        TransferStatus status;
        const char* text;
    };
    for (const Ending& ending :
         {Ending{TransferStatus::kCancelled, "LIBUSB_TRANSFER_CANCELLED!\n"},
          Ending{TransferStatus::kOverflow, "LIBUSB_TRANSFER_OVERFLOW! EP = 82\n"},
          Ending{TransferStatus::kError, "Audio Transfer Unknown Status=1\r\n"},
          Ending{TransferStatus::kStall, "Audio Transfer Unknown Status=4\r\n"},
          Ending{TransferStatus::kNoDevice, "LIBUSB_TRANSFER_NO_DEVICE \r\n"}}) {
        ASSERT_EQ(m_Engine->UAC_EnableAudioStream(kRate), 0);
        ForgetLog();
        Deliver({Packet({1})}, ending.status);
        EXPECT_EQ(Log(), (Lines{{4, ending.text}}));
        EXPECT_EQ(Queued(), 0u);
        EXPECT_EQ(InFlight(), 1u);
        Deliver({Packet({2})});
        EXPECT_EQ(Take(), Bytes{2});
        EXPECT_EQ(InFlight(), 1u);
        m_Engine->m_bDeviceGone = false;
    }
}

TEST_F(UacData, CompletionAfterTheStreamHasEndedIsPublishedAndNotResubmitted) {
    m_Engine->IsStreaming = false;
    Deliver({Packet({1})});
    EXPECT_EQ(Log(), (Lines{{4, "Stop submit audio transfer.\r\n"}}));
    EXPECT_EQ(Take(), Bytes{1});
    EXPECT_EQ(InFlight(), 1u);
    m_Engine->IsStreaming = true;
}

// --- wrap of the copy at 16,000 bytes ------------------------------------------------------------

constexpr int kLargePacket = 3000;

TEST_F(UacData, CopyWrapsAt16000Bytes) {
    StreamPackets(kLargePacket);
    std::vector<IsoPacket> packets;
    Bytes all;
    for (uint8_t i = 0; i < 6; ++i) {  // 18,000 bytes
        packets.push_back(Packet(Pattern(kLargePacket, static_cast<uint8_t>(i * 31 + 1))));
        all = all + packets.back().bytes;
    }
    unsigned char* buffer = m_Engine->Queue()->GetWritePtr(0)->buf;
    Deliver(packets);
    EXPECT_EQ(Log(), (Lines{{4, "offset  =15000\n"}, {4, "acture = 3000\n"}}));
    EXPECT_EQ(Bytes(buffer + 2000, buffer + 16000), Bytes(all.begin() + 2000, all.begin() + 16000));
    EXPECT_EQ(buffer[16000], 0);
    // The rest went to the start, and only it counts.
    EXPECT_EQ(Take(), Bytes(all.begin() + 16000, all.end()));
}

TEST_F(UacData, CopyThatEndsAtTheLimitWrapsToNothing) {
    StreamPackets(2000);
    std::vector<IsoPacket> packets(8, Packet(Pattern(2000)));
    unsigned char* buffer = m_Engine->Queue()->GetWritePtr(0)->buf;
    Deliver(packets);
    EXPECT_EQ(Log(), (Lines{{4, "offset  =14000\n"}, {4, "acture = 2000\n"}}));
    EXPECT_EQ(Bytes(buffer + 14000, buffer + 16000), Pattern(2000));
    EXPECT_EQ(Queued(), 1u);
    EXPECT_EQ(Take(), Bytes{});
}

TEST_F(UacData, CopyOneByteBelowTheLimitDoesNotWrap) {
    StreamPackets(2000);
    std::vector<IsoPacket> packets(8, Packet(Pattern(2000)));
    packets[7] = Packet(Pattern(1999));
    Deliver(packets);
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(Take().size(), 15999u);
}

TEST_F(UacData, PacketsAfterAWrapFollowTheRest) {
    StreamPackets(2000);
    std::vector<IsoPacket> packets(10, Packet(Pattern(2000)));
    packets[9] = Packet(Bytes(100, 0xEE));
    Deliver(packets);
    const Bytes frame = Take();
    ASSERT_EQ(frame.size(), 2100u);  // 8 wrap to nothing, one more, and the short one
    EXPECT_EQ(Bytes(frame.begin() + 2000, frame.end()), Bytes(100, 0xEE));
}

TEST_F(UacData, SmallBufferBoundsTheCopyNoEarlierThanItsEnd) {
    StreamPackets(1600);  // 16,000 bytes: the wrap limit is the buffer's end
    std::vector<IsoPacket> packets(10, Packet(Pattern(1600)));
    Deliver(packets);
    EXPECT_EQ(Log(), (Lines{{4, "offset  =14400\n"}, {4, "acture = 1600\n"}}));
    EXPECT_EQ(Queued(), 1u);
}

TEST_F(UacData, PacketsBeyondTheLimitAreCopiedToTheStart) {
    constexpr int kSize = 16001;
    StreamPackets(kSize);
    // A packet that ends at the limit, whose successors begin there and beyond.
    const Bytes third = Pattern(kSize, 3);
    unsigned char* buffer = m_Engine->Queue()->GetWritePtr(0)->buf;
    Deliver({Packet(Pattern(15999, 1)), Packet(Pattern(kSize, 2)), Packet(third),
             Packet({9, 8, 7, 6, 5})});
    EXPECT_EQ(Log(), (Lines{{4, "offset  =15999\n"},
                            {4, "acture = 16001\n"},
                            {4, "offset  =16000\n"},
                            {4, "acture = 16001\n"},
                            {4, "offset  =16001\n"},
                            {4, "acture = 5\n"}}));
    EXPECT_EQ(Bytes(buffer + 5, buffer + kSize), Bytes(third.begin() + 5, third.end()));
    EXPECT_EQ(Take(), (Bytes{9, 8, 7, 6, 5}));
}

TEST_F(UacData, LargestPacketsAreSurvived) {
    constexpr int kSize = 65535;  // what a SuperSpeed endpoint may claim
    StreamPackets(kSize);
    std::vector<IsoPacket> packets;
    for (uint8_t i = 0; i < kPackets; ++i) {
        packets.push_back(Packet(Pattern(kSize, i)));
    }
    Deliver(packets);
    EXPECT_EQ(Take(), Pattern(kSize, kPackets - 1));
}

TEST_F(UacData, ConsumerReadsByCopyToo) {
    Deliver({Packet({1, 2, 3, 4})});
    uint8_t target[4] = {};
    EXPECT_EQ(m_Engine->ReadFrame(target, 3), 3u);
    EXPECT_EQ(target[2], 3);
    EXPECT_EQ(target[3], 0);
    EXPECT_EQ(Queued(), 0u);
    ExpireWaits();
    EXPECT_EQ(m_Engine->ReadFrame(target, 3), 0u);
    ASSERT_EQ(timed_wait_lengths().size(), 1u);
    EXPECT_EQ(timed_wait_lengths()[0], 500ms);
}

}  // namespace
}  // namespace test
