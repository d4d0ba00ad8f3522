// Continuity of an H.264 stream.
#include "H264ErrorDetector.h"

#include "tests/support/PluginTest.h"

namespace test {
namespace {

constexpr auto kOk = H264_STATUS_OK;
constexpr auto kForce = H264_STATUS_FORCE_I;
constexpr auto kDrop = H264_STATUS_DROP;

class ErrorDetector : public PluginTest {
  protected:
    H264_STATUS P(unsigned sequence) { return Frame(0x41, sequence); }
    H264_STATUS Key(unsigned sequence) { return Frame(0x67, sequence); }
    H264_STATUS Frame(unsigned char nal, unsigned sequence, unsigned size = 5) {
        unsigned char bytes[5] = {0, 0, 0, 1, nal};
        return detector_.CheckFrame(bytes, size, sequence);
    }
    CH264_ErrorDetector detector_;
};

TEST_F(ErrorDetector, Numbers) {
    EXPECT_EQ(kOk, 0);
    EXPECT_EQ(kForce, 1);
    EXPECT_EQ(kDrop, 2);
    EXPECT_EQ(detector_.GetStatus(), kOk);
    EXPECT_FALSE(detector_.IsIframe());
}

TEST_F(ErrorDetector, FramesInSequencePass) {
    EXPECT_EQ(Key(10), kOk);
    EXPECT_TRUE(detector_.IsIframe());
    EXPECT_EQ(P(11), kOk);
    EXPECT_FALSE(detector_.IsIframe());
    EXPECT_EQ(P(12), kOk);
    EXPECT_EQ(Key(77), kOk);
    EXPECT_EQ(P(78), kOk);
}

TEST_F(ErrorDetector, AnythingButAPFrameIsAKeyFrame) {
    for (const int nal : {0x40, 0x42, 0x61, 0x65, 0x67, 0x68, 0x00, 0xFF}) {
        EXPECT_EQ(Frame(static_cast<unsigned char>(nal), 500), kOk);
        EXPECT_TRUE(detector_.IsIframe());
    }
}

TEST_F(ErrorDetector, AFrameWithoutANalHeaderIsAKeyFrame) {
    EXPECT_EQ(Frame(0x41, 50, 4), kOk);
    EXPECT_TRUE(detector_.IsIframe());
    EXPECT_EQ(detector_.CheckFrame(nullptr, 0, 60), kOk);
    EXPECT_EQ(Frame(0x41, 61, 5), kOk);
    EXPECT_FALSE(detector_.IsIframe());
}

TEST_F(ErrorDetector, AGapIsALossThatTheCallerActsOn) {
    Key(10);
    P(11);
    EXPECT_EQ(P(13), kForce);
    EXPECT_EQ(detector_.GetStatus(), kOk);  // the caller changes it
    EXPECT_EQ(P(14), kOk);                  // and if it does not, the sequence goes on
    EXPECT_EQ(P(14), kForce);               // a repetition is no continuation
    EXPECT_EQ(P(13), kForce);
}

TEST_F(ErrorDetector, AfterALossEverySixthPFrameAsksAgain) {
    Key(1);
    detector_.ChangeStatus(kForce);
    unsigned sequence = 1;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(P(++sequence), kDrop) << round << " " << i;
            EXPECT_EQ(detector_.GetStatus(), kDrop);
        }
        EXPECT_EQ(P(++sequence), kForce);
        if (round == 0) {
            detector_.ChangeStatus(kForce);
        } else {
            // Without a change of status the count of six begins anew all the same.
            EXPECT_EQ(detector_.GetStatus(), kDrop);
        }
        if (round == 1) {
            EXPECT_EQ(P(++sequence), kDrop);
            Key(++sequence);
            detector_.ChangeStatus(kForce);
        }
    }
}

/// A stream whose first key frame was lost, too.
TEST_F(ErrorDetector, CountsToSixWhereNoKeyFrameHasComeYet) {
    detector_.ChangeStatus(kForce);
    for (unsigned sequence = 11; sequence < 16; ++sequence) {
        EXPECT_EQ(P(sequence), kDrop) << sequence;
    }
    EXPECT_EQ(P(16), kForce);
}

TEST_F(ErrorDetector, AKeyFrameEndsTheDropping) {
    Key(1);
    detector_.ChangeStatus(kForce);
    P(2);
    P(3);
    EXPECT_EQ(Key(9), kOk);
    EXPECT_EQ(detector_.GetStatus(), kOk);
    EXPECT_EQ(P(10), kOk);
    detector_.ChangeStatus(kForce);  // and the count has begun anew
    for (unsigned sequence = 11; sequence < 16; ++sequence) {
        EXPECT_EQ(P(sequence), kDrop);
    }
    EXPECT_EQ(P(16), kForce);
}

TEST_F(ErrorDetector, SequenceZeroResets) {
    Key(5);
    detector_.ChangeStatus(kDrop);
    EXPECT_EQ(P(0), kOk);
    EXPECT_LOG_COUNT(4, "CH264_ErrorDetector RESET.\r\n", 1);
    EXPECT_FALSE(detector_.IsIframe());  // the kind of frame is noted all the same
    EXPECT_EQ(P(1), kOk);
    EXPECT_EQ(Key(0), kOk);
    EXPECT_EQ(P(2), kForce);
}

TEST_F(ErrorDetector, SequenceNumbersWrapIntoTheReset) {
    Key(0xFFFFFFFE);
    EXPECT_EQ(P(0xFFFFFFFF), kOk);
    EXPECT_EQ(P(0), kOk);
    EXPECT_EQ(P(1), kOk);
}

}  // namespace
}  // namespace test
