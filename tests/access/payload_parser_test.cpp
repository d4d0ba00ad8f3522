// The multiplexed frame: parser and key-frame scan.
#include "PayloadParser.h"

#include <cstring>

#include "tests/support/PluginTest.h"

namespace test {
namespace {

constexpr uint16_t kBare = 28;  // wHeaderLen of a header of 32 bytes

/// A frame that is put together sub-stream by sub-stream, with the buffer's spare bytes behind it.
class Frame {
  public:
    Frame& Add(uint16_t type, uint32_t valid, uint32_t room, uint16_t headerLen = kBare) {
        TmkFramebaseHeader header = {};
        header.wVersion = 1;
        header.wHeaderLen = headerLen;
        header.wStreamType = type;
        header.wImageWidth = static_cast<uint16_t>(100 + type);
        header.wImageHeight = static_cast<uint16_t>(200 + type);
        header.wFrameRate = static_cast<uint16_t>(300 + type);
        header.dwFrameSeq = 400u + type;
        header.dwTimeStamp = 500u + type;
        header.dwReserved = valid;
        header.dwPlayloadSize = room;
        const size_t at = bytes_.size();
        bytes_.resize(at + 4 + headerLen, 0xEE);
        bytes_.resize(std::max(bytes_.size(), at + sizeof header), 0xEE);
        std::memcpy(bytes_.data() + at, &header, sizeof header);
        bytes_.resize(at + 4 + headerLen, 0xEE);
        data_.push_back(bytes_.size());
        return *this;
    }
    Frame& Data(size_t count) {
        bytes_.resize(bytes_.size() + count, 0xDD);
        return *this;
    }

    int Parse() {
        size_ = bytes_.size();
        bytes_.resize(size_ + 64, 0xDD);
        return H264Parser_tmk_mode(bytes_.data(), static_cast<unsigned>(size_), &sample);
    }
    uint8_t* DataOf(size_t index) { return bytes_.data() + data_[index]; }
    uint8_t* Bytes() { return bytes_.data(); }

    AitH264_MediaSample sample;

  private:
    std::vector<uint8_t> bytes_;
    std::vector<size_t> data_;
    size_t size_ = 0;
};

bool IsEmpty(const AitH264_MediaSample& sample) {
    AitH264_MediaSample empty;
    std::memset(&empty, 0, sizeof empty);
    return std::memcmp(&sample, &empty, sizeof empty) == 0;
}

const char kTooShort[] = "Parser Error, offset >= frame_size \r\n";

class PayloadParser : public PluginTest {
  protected:
    void ExpectTexts(const std::vector<std::string>& expected) {
        EXPECT_EQ(log().texts(4), expected);
        EXPECT_EQ(log().texts().size(), expected.size());
    }
};

TEST_F(PayloadParser, EmptyFrameSaysNothing) {
    Frame frame;
    std::memset(&frame.sample, 0xFF, sizeof frame.sample);
    EXPECT_EQ(frame.Parse(), 0);
    EXPECT_TRUE(IsEmpty(frame.sample));
    ExpectTexts({});
}

TEST_F(PayloadParser, FrameOfUpToAHeaderIsTooShort) {
    for (const size_t size : {1, 31, 32}) {
        log().reset();
        Frame frame;
        frame.Data(size);
        std::memset(&frame.sample, 0xFF, sizeof frame.sample);
        EXPECT_EQ(frame.Parse(), 0);
        EXPECT_TRUE(IsEmpty(frame.sample)) << size;
        ExpectTexts({kTooShort});
    }
}

TEST_F(PayloadParser, OneByteOfDataIsEnough) {
    Frame frame;
    frame.Add(0x2B, 1, 1).Data(1);
    EXPECT_EQ(frame.Parse(), 0);
    EXPECT_EQ(frame.sample.h264, frame.DataOf(0));
    ExpectTexts({});
}

TEST_F(PayloadParser, EachFormatFillsItsSlotAndNoOther) {
    struct Case {
        uint16_t type;
        uint8_t* AitH264_MediaSample::*data;
        uint32_t AitH264_MediaSample::*size;
        uint16_t AitH264_MediaSample::*width;
        uint16_t AitH264_MediaSample::*height;
        uint16_t AitH264_MediaSample::*crop;
        uint32_t AitH264_MediaSample::*sequence;
        uint32_t AitH264_MediaSample::*time;
    };
    typedef AitH264_MediaSample S;
    const Case cases[] = {
        {0x29, &S::yuy2, &S::yuy2_size, &S::yuy2_width, &S::yuy2_height, nullptr, nullptr, nullptr},
        {0x2A, &S::nv12, &S::nv12_size, &S::nv12_width, &S::nv12_height, &S::nv12_crop_flag,
         nullptr, nullptr},
        {0x2B, &S::h264, &S::h264_size, &S::h264_width, &S::h264_height, nullptr,
         &S::h264_frame_seq, &S::h264_timestamp},
        {0x2C, &S::mjpg, &S::mjpg_size, &S::mjpg_width, &S::mjpg_height, nullptr, nullptr, nullptr},
        {0x2D, &S::gray, &S::gray_size, &S::gray_width, &S::gray_height, &S::gray_crop_flag,
         nullptr, nullptr},
        {0x2F, &S::nv21, &S::nv21_size, &S::nv21_width, &S::nv21_height, nullptr, nullptr, nullptr},
        {0x35, &S::h264_2, &S::h264_2_size, &S::h264_2_width, &S::h264_2_height, nullptr,
         &S::h264_2_frame_seq, &S::h264_2_timestamp},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.type);
        Frame frame;
        frame.Add(c.type, 50, 64).Data(64);
        EXPECT_EQ(frame.Parse(), 0);
        AitH264_MediaSample expected;
        std::memset(&expected, 0, sizeof expected);
        expected.*c.data = frame.DataOf(0);
        expected.*c.size = 50;
        expected.*c.width = static_cast<uint16_t>(100 + c.type);
        expected.*c.height = static_cast<uint16_t>(200 + c.type);
        if (c.crop != nullptr) {
            expected.*c.crop = static_cast<uint16_t>(300 + c.type);
        }
        if (c.sequence != nullptr) {
            expected.*c.sequence = 400u + c.type;
            expected.*c.time = 500u + c.type;
        }
        EXPECT_EQ(std::memcmp(&frame.sample, &expected, sizeof expected), 0);
    }
    ExpectTexts({});
}

TEST_F(PayloadParser, FieldsLieWhereTheCameraPutsThem) {
    std::vector<uint8_t> bytes = {0x34, 0x12,         // version
                                  28,   0,            // header length
                                  0x2B, 0,            // stream type
                                  0x80, 0x02,         // width
                                  0xE0, 0x01,         // height
                                  0x77, 0x66,         // frame rate, or crop flag
                                  1,    2,    3, 4,   // sequence number
                                  5,    6,    7, 8,   // time stamp
                                  9,    9,    9, 9,   // flags
                                  8,    0,    0, 0,   // valid bytes
                                  32,   0,    0, 0};  // room
    bytes.resize(128, 0xDD);
    AitH264_MediaSample sample;
    H264Parser_tmk_mode(bytes.data(), 64, &sample);
    EXPECT_EQ(sample.h264, bytes.data() + 32);
    EXPECT_EQ(sample.h264_size, 8u);
    EXPECT_EQ(sample.h264_width, 0x280);
    EXPECT_EQ(sample.h264_height, 0x1E0);
    EXPECT_EQ(sample.h264_frame_seq, 0x04030201u);
    EXPECT_EQ(sample.h264_timestamp, 0x08070605u);
    bytes[4] = 0x2D;
    H264Parser_tmk_mode(bytes.data(), 64, &sample);
    EXPECT_EQ(sample.gray_crop_flag, 0x6677);
}

TEST_F(PayloadParser, UnknownFormatsEndTheParsingAndKeepWhatWasFilled) {
    for (const int type : {0x00, 0x28, 0x2E, 0x30, 0x31, 0x32, 0x33, 0x34, 0x36, 0xFFFF}) {
        log().reset();
        Frame frame;
        frame.Add(0x2D, 32, 32).Data(32).Add(static_cast<uint16_t>(type), 32, 32).Data(32);
        frame.Add(0x2B, 32, 32).Data(32);
        EXPECT_EQ(frame.Parse(), 0);
        EXPECT_EQ(frame.sample.gray, frame.DataOf(0));
        EXPECT_EQ(frame.sample.h264, nullptr);
        ExpectTexts({"Unknown Format ID " + std::to_string(type) + " \r\n"});
    }
}

TEST_F(PayloadParser, SubStreamsThatFillTheFrameEndSilently) {
    Frame frame;
    frame.Add(0x2B, 96, 96).Data(96).Add(0x2D, 64, 64).Data(64);
    EXPECT_EQ(frame.Parse(), 0);
    EXPECT_EQ(frame.sample.h264, frame.DataOf(0));
    EXPECT_EQ(frame.sample.h264_size, 96u);
    EXPECT_EQ(frame.sample.gray, frame.DataOf(1));
    EXPECT_EQ(frame.sample.gray_size, 64u);
    ExpectTexts({});
}

TEST_F(PayloadParser, TrailingBytesAreReportedButTheRecordIsComplete) {
    for (const size_t trailing : {1, 32}) {
        log().reset();
        Frame frame;
        frame.Add(0x2B, 96, 96).Data(96).Data(trailing);
        frame.Parse();
        EXPECT_EQ(frame.sample.h264_size, 96u);
        ExpectTexts({kTooShort});
    }
}

TEST_F(PayloadParser, TheSameFormatTwiceKeepsTheLater) {
    Frame frame;
    frame.Add(0x2C, 32, 32).Data(32).Add(0x2C, 48, 64).Data(64);
    frame.Parse();
    EXPECT_EQ(frame.sample.mjpg, frame.DataOf(1));
    EXPECT_EQ(frame.sample.mjpg_size, 48u);
}

TEST_F(PayloadParser, RoomBeyondTheFrameIsAnErrorWithTheTypeAndTheSizeAlone) {
    Frame frame;
    frame.Add(0x2C, 32, 32).Data(32).Add(0x2B, 32, 97).Data(64);
    frame.Parse();  // 64 + 97 > 64 + 32 + 64
    EXPECT_EQ(frame.sample.mjpg, frame.DataOf(0));
    EXPECT_EQ(frame.sample.h264, nullptr);
    ExpectTexts(
        {"Parser Error, offset+h->dwPlayloadSize > frame_size , Stream Type = "
         "0x2B,offse+h->dwPlayloadSize=97\r\n"});
}

TEST_F(PayloadParser, RoomThatEndsWithTheFrameLeavesOutTheHeader) {
    // The bound leaves out the header's own length: 32 bytes behind the frame are still accepted.
    Frame frame;
    frame.Add(0x2B, 96, 96).Data(64);
    frame.Parse();
    EXPECT_EQ(frame.sample.h264_size, 96u);
    ExpectTexts({});
}

TEST_F(PayloadParser, HugeRoomDoesNotWrap) {
    for (const uint32_t room : {0xFFFFFFFFu, 0xFFFFFFE0u, 0x80000000u}) {
        log().reset();
        Frame frame;
        frame.Add(0x2C, 32, 32).Data(32).Add(0x2B, 32, room).Data(64);
        frame.Parse();
        EXPECT_EQ(frame.sample.h264, nullptr);
        EXPECT_EQ(log().texts().size(), 1u);
    }
}

TEST_F(PayloadParser, ZeroesPaddingOfUpTo479Bytes) {
    struct Case {
        uint32_t valid;
        uint32_t room;
        bool zeroed;
    };
    for (const Case& c : {Case{1000, 1200, true},
                          {1000, 1479, true},
                          {1000, 1480, false},
                          {1000, 1500, false},
                          {999, 1000, true}}) {
        SCOPED_TRACE(c.room);
        Frame frame;
        frame.Add(0x2B, c.valid, c.room).Data(c.room).Add(0x2D, 32, 32).Data(32);
        frame.Parse();
        EXPECT_EQ(frame.sample.h264_size, c.valid);
        const uint8_t* data = frame.DataOf(0);
        EXPECT_EQ(data[c.valid - 1], 0xDD);
        for (uint32_t i = c.valid; i < c.room; ++i) {
            ASSERT_EQ(data[i], c.zeroed ? 0 : 0xDD) << i;
        }
        EXPECT_EQ(frame.sample.gray, frame.DataOf(1));
        ExpectTexts({});
    }
}

TEST_F(PayloadParser, DataLargerThanItsRoomLeavesTheBufferAlone) {
    for (const uint32_t valid : {65u, 1000u, 0xFFFFFE40u, 0xFFFFFE60u, 0xFFFFFE61u, 0xFFFFFFFFu}) {
        Frame frame;
        frame.Add(0x2B, valid, 64).Data(64).Add(0x2D, 32, 32).Data(32);
        frame.Parse();
        EXPECT_EQ(frame.sample.h264_size, valid);
        EXPECT_EQ(frame.sample.gray_size, 32u);
        EXPECT_EQ(frame.DataOf(0)[63], 0xDD);
    }
}

TEST_F(PayloadParser, PaddingThatReachesBehindTheFrameEndsQuietly) {
    Frame frame;
    frame.Add(0x2B, 90, 96).Data(64);  // data would end 32 bytes behind the frame
    frame.Parse();
    EXPECT_EQ(frame.sample.h264_size, 90u);
    EXPECT_EQ(frame.DataOf(0)[90], 0xDD);
    ExpectTexts({});
}

TEST_F(PayloadParser, PaddingThatEndsWithTheFrameIsZeroed) {
    Frame frame;
    frame.Add(0x2B, 90, 96).Data(96);
    frame.Parse();
    EXPECT_EQ(frame.DataOf(0)[89], 0xDD);
    EXPECT_EQ(frame.DataOf(0)[90], 0);
    EXPECT_EQ(frame.DataOf(0)[95], 0);
    EXPECT_EQ(frame.DataOf(0)[96], 0xDD);
}

TEST_F(PayloadParser, ALongerHeaderMovesTheData) {
    Frame frame;
    frame.Add(0x2B, 32, 32, kBare + 16).Data(32).Add(0x2D, 32, 32).Data(32);
    frame.Parse();
    EXPECT_EQ(frame.sample.h264, frame.Bytes() + 48);
    EXPECT_EQ(frame.sample.gray, frame.DataOf(1));
    ExpectTexts({});
}

TEST_F(PayloadParser, AShorterHeaderIsReadBeforeItsPaddingIsZeroed) {
    // Data begins inside the header: zeroing the padding must not change the step to the next one.
    TmkFramebaseHeader header = {};
    header.wHeaderLen = 0;
    header.wStreamType = 0x2B;
    header.dwReserved = 4;
    header.dwPlayloadSize = 60;
    std::vector<uint8_t> bytes(64 + 64 + 64, 0xDD);
    std::memcpy(bytes.data(), &header, sizeof header);
    header.wStreamType = 0x2D;
    header.wHeaderLen = kBare;
    header.dwReserved = header.dwPlayloadSize = 32;
    std::memcpy(bytes.data() + 64, &header, sizeof header);
    AitH264_MediaSample sample;
    H264Parser_tmk_mode(bytes.data(), 128, &sample);
    EXPECT_EQ(sample.h264, bytes.data() + 4);
    EXPECT_EQ(sample.gray, bytes.data() + 96);
    ExpectTexts({});
}

TEST_F(PayloadParser, ShowPrintsTheSizes) {
    AitH264_MediaSample sample = {};
    sample.h264_size = 1;
    sample.mjpg_size = 2;
    sample.gray_size = 3;
    sample.yuy2_size = 4;
    sample.h264_frame_seq = 5;
    ShowAitH264_MediaSample(&sample);
    ExpectTexts({"h264_size=1, mjpg_size=2, gray_size=3, yuy2_size=4,num=5\r\n"});
}

// --- key frame -----------------------------------------------------------------------------------

std::vector<uint8_t> KeyFrame() {
    std::vector<uint8_t> frame = {0, 0, 0, 1, 0x67, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    frame.insert(frame.end(), {0, 0, 0, 1, 0x68, 0xAA, 0xBB, 0xCC});
    frame.insert(frame.end(), {0, 0, 0, 1, 0x65});
    frame.resize(100, 0x77);
    return frame;
}

int Scan(std::vector<uint8_t> frame, H264KeyFrame* parts) {
    std::memset(parts, 0xFF, sizeof *parts);
    const int length = static_cast<int>(frame.size());
    frame.resize(frame.size() + 64);
    return ParseH264KeyFrame(frame.data(), length, parts);
}

bool IsZero(const H264KeyFrame& parts) {
    H264KeyFrame zero = {};
    return std::memcmp(&parts, &zero, sizeof zero) == 0;
}

TEST(KeyFrameScan, FindsTheThreeParts) {
    H264KeyFrame parts;
    ASSERT_EQ(Scan(KeyFrame(), &parts), 1);
    EXPECT_EQ(parts.sps_offset, 0);
    EXPECT_EQ(parts.sps_size, 15);
    EXPECT_EQ(parts.pps_offset, 15);
    EXPECT_EQ(parts.pps_size, 8);
    EXPECT_EQ(parts.idr_offset, 23);
    EXPECT_EQ(parts.idr_size, 77);
}

TEST(KeyFrameScan, NeedsTheStartCodeAtTheStartOnly) {
    for (int i = 0; i < 4; ++i) {
        std::vector<uint8_t> frame = KeyFrame();
        frame[static_cast<size_t>(i)] ^= 0x02;
        H264KeyFrame parts;
        EXPECT_EQ(Scan(frame, &parts), 0) << i;
        EXPECT_TRUE(IsZero(parts));
    }
    std::vector<uint8_t> frame = KeyFrame();
    frame[18] = 9;  // the start code before the PPS is not looked at
    H264KeyFrame parts;
    EXPECT_EQ(Scan(frame, &parts), 1);
}

TEST(KeyFrameScan, TheFirst0x68WinsWhereverItStands) {
    std::vector<uint8_t> frame = KeyFrame();
    frame[9] = 0x68;
    H264KeyFrame parts;
    ASSERT_EQ(Scan(frame, &parts), 1);
    EXPECT_EQ(parts.sps_size, 5);
    EXPECT_EQ(parts.idr_size, 100 - 8 - 5);
}

TEST(KeyFrameScan, AMatchAtTheStartOrNoneIsNoKeyFrame) {
    std::vector<uint8_t> frame = KeyFrame();
    frame[4] = 0x68;
    H264KeyFrame parts;
    EXPECT_EQ(Scan(frame, &parts), 0);
    frame = KeyFrame();
    frame[19] = 0x67;
    EXPECT_EQ(Scan(frame, &parts), 0);
    EXPECT_TRUE(IsZero(parts));
}

TEST(KeyFrameScan, LooksUpToFourBytesAhead) {
    std::vector<uint8_t> frame = {0, 0, 0, 1, 0x67, 9};
    H264KeyFrame parts;
    std::vector<uint8_t> bytes = frame;
    bytes.resize(70, 0);
    bytes[9] = 0x68;  // four bytes behind the last position, 5
    ASSERT_EQ(ParseH264KeyFrame(bytes.data(), 6, &parts), 1);
    EXPECT_EQ(parts.sps_size, 5);
    EXPECT_EQ(parts.idr_size, -7);
    bytes[9] = 0;
    bytes[10] = 0x68;
    EXPECT_EQ(ParseH264KeyFrame(bytes.data(), 6, &parts), 0);
}

TEST(KeyFrameScan, FiveBytesAreEnoughToBeginWith) {
    unsigned char bytes[16] = {0, 0, 0, 1, 0x67, 0x68};
    H264KeyFrame parts;
    EXPECT_EQ(ParseH264KeyFrame(bytes, 5, &parts), 1);
    EXPECT_EQ(parts.sps_size, 1);
    EXPECT_EQ(parts.idr_size, -4);
}

TEST(KeyFrameScan, FewerThanFiveBytesAreNotRead) {
    unsigned char bytes[4] = {0, 0, 0, 1};
    H264KeyFrame parts;
    for (const int length : {-1, 0, 1, 4}) {
        EXPECT_EQ(ParseH264KeyFrame(bytes, length, &parts), 0);
        EXPECT_TRUE(IsZero(parts));
    }
}

}  // namespace
}  // namespace test
