// The parts of the element that know nothing of GStreamer's objects.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "gst/capture_times.h"
#include "gst/h264_stream.h"
#include "gst/stream_choice.h"
#include "gst/stream_queue.h"
#include "host/base/exit_code.h"
#include "tests/host/fake_content.h"

namespace gstcam::test {
namespace {

using camhost::Selector;
using camhost::Stream;
using camhost::StreamSet;
using gstcam::AccessUnits;
using gstcam::CaptureTimes;
using gstcam::choose_streams;
using gstcam::OffsetTracker;
using gstcam::sequence_parameters;
using gstcam::SoundTimes;
using gstcam::StreamQueue;
using testing::HasSubstr;

constexpr int64_t kMs = 1'000'000;

// --- times

TEST(Offset, EarlySightIsFollowedAtOnceAndALateOneSlowly) {
    OffsetTracker tracker(500 * kMs);
    EXPECT_EQ(tracker.map(0, 100 * kMs), 100 * kMs);
    EXPECT_EQ(tracker.map(10 * kMs, 105 * kMs), 105 * kMs);
    const int64_t late = tracker.map(20 * kMs, 147 * kMs);
    EXPECT_GE(late, 115 * kMs);
    EXPECT_LE(late, 116 * kMs);
    EXPECT_FALSE(tracker.began_anew());
}

TEST(Offset, DriftOfTheFastestSlewLeavesAMillisecond) {
    OffsetTracker tracker(500 * kMs);
    int64_t worst = 0;
    for (int64_t i = 0; i < 30 * 3600; ++i) {
        const int64_t local = i * 33 * kMs;
        const int64_t seen = local + local / 2000;  // 500 ppm
        worst = std::max(worst, seen - tracker.map(local, seen));
    }
    EXPECT_LE(worst, 11 * kMs / 10);
}

TEST(Times, WrapOf32BitsIsNoJump) {
    CaptureTimes times;
    const uint32_t near_the_end = 0xFFFFFFFFU - 44;
    EXPECT_EQ(times.map(near_the_end, 1000 * kMs), 1000 * kMs);
    EXPECT_NEAR(static_cast<double>(times.map(45, 1001 * kMs + 500)), 1001.0 * kMs, 1000);
    EXPECT_EQ(times.jumps(), 0U);
}

TEST(Times, JumpOf4295SecondsIsPutRight) {
    CaptureTimes times;
    times.map(3000, 1000 * kMs);
    EXPECT_EQ(times.map(3000 + 386'547'056, 1033 * kMs), 1033 * kMs);
    EXPECT_EQ(times.map(6000 + 386'547'056, 1067 * kMs) / kMs, 1066);
    EXPECT_EQ(times.jumps(), 1U);
}

TEST(Times, RestartIsNoJump) {
    CaptureTimes times;
    times.map(900'000, 1000 * kMs);
    times.reset();
    EXPECT_EQ(times.map(0, 2000 * kMs), 2000 * kMs);
    EXPECT_EQ(times.jumps(), 0U);
}

/// Blocks of 15 ms from transfers of 10 ms: each comes with the transfer that completes it.
int64_t transfer_end(int64_t block) {
    const int64_t end = (block + 1) * 15;
    return (end + 9) / 10 * 10 * kMs;
}

TEST(Sound, BlocksOfUnevenTransfersAreContiguous) {
    SoundTimes times;
    int64_t expected = 0;
    for (int64_t i = 0; i < 400; ++i) {
        const auto block = times.next(240, 16000, transfer_end(i));
        EXPECT_EQ(block.duration, 15 * kMs);
        EXPECT_FALSE(block.lost);
        if (i > 2) {
            EXPECT_NEAR(static_cast<double>(block.begin), static_cast<double>(expected), 0.2 * kMs);
            EXPECT_NEAR(static_cast<double>(block.begin), static_cast<double>(i * 15 * kMs),
                        0.2 * kMs);
        }
        expected = block.begin + block.duration;
    }
}

TEST(Sound, SamplesThatStayAwayAreALoss) {
    SoundTimes times;
    for (int64_t i = 0; i < 10; ++i) {
        EXPECT_FALSE(times.next(240, 16000, transfer_end(i)).lost);
    }
    int64_t late = 10;
    SoundTimes::Block block;
    do {
        block = times.next(240, 16000, transfer_end(late + 4));
        ++late;
    } while (!block.lost && late < 40);
    EXPECT_TRUE(block.lost);
    EXPECT_NEAR(static_cast<double>(block.begin), static_cast<double>((late + 3) * 15 * kMs),
                6.0 * kMs);
}

TEST(Sound, BlocksThatWaitedForTheThreadAreNone) {
    SoundTimes times;
    for (int64_t i = 0; i < 40; ++i) {
        const bool stalled = i >= 10 && i < 20;  // found together, when the thread is run again
        const auto block = times.next(240, 16000, transfer_end(stalled ? 19 : i));
        EXPECT_FALSE(block.lost) << i;
        if (i > 2) {
            EXPECT_NEAR(static_cast<double>(block.begin), static_cast<double>(i * 15 * kMs),
                        3.0 * kMs)
                << i;
        }
    }
}

// --- queue

using Queue = StreamQueue<int>;

Queue::Push put(Queue& queue, int64_t ms, bool key, int number = 0) {
    const auto would = queue.would_take(ms * kMs, key);
    if (would != Queue::Push::kTaken) {
        queue.note_drop();
        return would;
    }
    return queue.push({number, ms * kMs, key, false});
}

TEST(Queue, DropsTheNewestWhileItIsFull) {
    Queue queue(false);
    queue.open(100 * kMs);
    EXPECT_EQ(put(queue, 0, true, 1), Queue::Push::kTaken);
    EXPECT_EQ(put(queue, 99, true, 2), Queue::Push::kTaken);
    EXPECT_EQ(put(queue, 100, true, 3), Queue::Push::kDropped);
    Queue::Entry entry;
    ASSERT_EQ(queue.pop(&entry), Queue::Pop::kEntry);
    EXPECT_EQ(entry.payload, 1);
    EXPECT_TRUE(entry.discontinuity) << "the first";
    EXPECT_EQ(put(queue, 133, true, 4), Queue::Push::kTaken);
    ASSERT_EQ(queue.pop(&entry), Queue::Pop::kEntry);
    EXPECT_FALSE(entry.discontinuity);
    ASSERT_EQ(queue.pop(&entry), Queue::Pop::kEntry);
    EXPECT_EQ(entry.payload, 4);
    EXPECT_TRUE(entry.discontinuity) << "3 is missing before it";
    EXPECT_EQ(queue.figures().dropped, 1U);
    EXPECT_EQ(queue.figures().discontinuities, 2U);
}

TEST(Queue, AfterADropNothingButAKeyIsTaken) {
    Queue queue(true);
    queue.open(100 * kMs);
    EXPECT_EQ(put(queue, 0, false), Queue::Push::kDroppedForWantOfKey) << "to begin with";
    EXPECT_EQ(put(queue, 10, true), Queue::Push::kTaken);
    EXPECT_EQ(put(queue, 20, false), Queue::Push::kTaken);
    EXPECT_EQ(put(queue, 110, true), Queue::Push::kDropped) << "a key, too";
    Queue::Entry entry;
    queue.pop(&entry);
    queue.pop(&entry);
    EXPECT_EQ(put(queue, 120, false), Queue::Push::kDroppedForWantOfKey);
    EXPECT_EQ(put(queue, 130, true), Queue::Push::kTaken);
    queue.pop(&entry);
    EXPECT_TRUE(entry.discontinuity);
}

TEST(Queue, EndComesAfterWhatIsQueued) {
    Queue queue(false);
    queue.open(100 * kMs);
    put(queue, 0, true);
    queue.end();
    EXPECT_EQ(put(queue, 1, true), Queue::Push::kClosed);
    Queue::Entry entry;
    EXPECT_EQ(queue.pop(&entry), Queue::Pop::kEntry);
    EXPECT_EQ(queue.pop(&entry), Queue::Pop::kEnd);
}

TEST(Queue, HeldQueueForgetsWhatItHasAndGoesOnWithAMark) {
    Queue queue(false);
    queue.open(100 * kMs);
    put(queue, 0, true, 1);
    Queue::Entry entry;
    queue.pop(&entry);
    put(queue, 10, true, 2);
    queue.hold(true);
    std::thread later([&] {
        queue.hold(false);
        put(queue, 20, true, 3);
    });
    ASSERT_EQ(queue.pop(&entry), Queue::Pop::kEntry);
    later.join();
    EXPECT_EQ(entry.payload, 3);
    EXPECT_TRUE(entry.discontinuity);
}

TEST(Queue, ClosingWakesWhoWaits) {
    Queue queue(false);
    queue.open(100 * kMs);
    std::thread waiting([&] {
        Queue::Entry entry;
        EXPECT_EQ(queue.pop(&entry), Queue::Pop::kClosed);
    });
    queue.close();
    waiting.join();
}

TEST(Queue, ProducerAndConsumerSeeEveryEntryOnce) {
    Queue queue(false);
    queue.open(1'000'000 * kMs);
    std::thread producer([&] {
        for (int i = 0; i < 20'000; ++i) {
            put(queue, i, true, i);
        }
        queue.end();
    });
    int expected = 0;
    Queue::Entry entry;
    while (queue.pop(&entry) == Queue::Pop::kEntry) {
        EXPECT_EQ(entry.payload, expected++);
    }
    producer.join();
    EXPECT_EQ(expected, 20'000);
}

// --- H.264

TEST(H264, RecordsOfAKeyFrameMakeOneUnit) {
    AccessUnits units;
    const auto parts = fake::split_key_frame();
    ASSERT_EQ(parts.size(), 3U);
    EXPECT_FALSE(units.add(parts[0]));
    EXPECT_FALSE(units.add(parts[1]));
    const auto unit = units.add(parts[2]);
    ASSERT_TRUE(unit);
    EXPECT_TRUE(unit->key);
    std::vector<uint8_t> whole(unit->head.begin(), unit->head.end());
    whole.insert(whole.end(), unit->body.begin(), unit->body.end());
    EXPECT_EQ(whole, fake::h264_units().front());
    const auto next = units.add(fake::h264_units()[1]);
    ASSERT_TRUE(next);
    EXPECT_TRUE(next->head.empty());
    EXPECT_FALSE(next->key);
}

TEST(H264, ParameterSetsWithoutAPictureAreGivenUp) {
    AccessUnits units;
    const auto parts = fake::split_key_frame();
    for (size_t bytes = 0; bytes <= AccessUnits::kMostWaiting; bytes += parts[0].size()) {
        EXPECT_FALSE(units.add(parts[0]));
    }
    auto unit = units.add(parts[2]);
    ASSERT_TRUE(unit);
    EXPECT_LT(unit->head.size(), AccessUnits::kMostWaiting);
    EXPECT_TRUE(unit->lost);
    unit = units.add(parts[2]);
    ASSERT_TRUE(unit);
    EXPECT_FALSE(unit->lost);
}

TEST(H264, SizeIsReadFromTheSequenceParameters) {
    const auto found = sequence_parameters(fake::h264_units().front());
    ASSERT_TRUE(found);
    EXPECT_EQ(found->width, fake::kWidth);
    EXPECT_EQ(found->height, fake::kHeight);
    EXPECT_FALSE(sequence_parameters(fake::h264_units()[1]));
}

/// Bits to bytes, behind a start code and the header of a sequence parameter set.
std::vector<uint8_t> sps_of(const std::string& bits) {
    std::vector<uint8_t> bytes{0, 0, 1, 0x67};
    for (size_t i = 0; i < bits.size(); i += 8) {
        bytes.push_back(
            static_cast<uint8_t>(std::stoi((bits + "00000000").substr(i, 8), nullptr, 2)));
    }
    return bytes;
}

std::string ue(unsigned value) {
    std::string bits;
    for (unsigned rest = value + 1; rest > 0; rest /= 2) {
        bits.insert(bits.begin(), rest % 2 != 0 ? '1' : '0');
    }
    return std::string(bits.size() - 1, '0') + bits;
}

TEST(H264, CroppedSizeOfAHighProfileInFields) {
    const std::string high =
        "01100100"
        "00000000"
        "00101000";  // profile 100, level 40
    const std::string head = ue(0) + ue(1) + ue(0) + ue(0) + "0" + "0";
    const std::string order = ue(0) + ue(2) + ue(4) + "0";
    // 120 macroblocks, 34 pairs of macroblock rows, fields; 4 rows of pixels are cut at the bottom
    const std::string size =
        ue(119) + ue(33) + "0" + "0" + "1" + "1" + ue(0) + ue(0) + ue(0) + ue(2);
    const auto found = sequence_parameters(sps_of(high + head + order + size + "0" + "1"));
    ASSERT_TRUE(found);
    EXPECT_EQ(found->width, 1920);
    EXPECT_EQ(found->height, 1080);
}

TEST(H264, ParametersThatAreCutOffAreNone) {
    auto unit = fake::h264_units().front();
    for (size_t size = 0; size < 12; ++size) {
        EXPECT_FALSE(sequence_parameters({unit.data(), size})) << size;
    }
}

TEST(H264, SizeThatNoPictureHasIsNone) {
    const std::string base =
        "01000010"
        "00000000"
        "00011110" +
        ue(0) + ue(0) + ue(2) + ue(1) + "0";
    EXPECT_FALSE(sequence_parameters(sps_of(base + ue(99'999) + ue(5) + "1" + "0" + "0" + "1")));
    EXPECT_FALSE(sequence_parameters(
        sps_of(base + ue(3) + ue(3) + "1" + "0" + "1" + ue(40) + ue(0) + ue(0) + ue(0) + "1")));
}

// --- combinations

TEST(Choice, CarriesWhatIsWantedAndTheLeastBesides) {
    const auto by_signal = [](const StreamSet& wanted) {
        return choose_streams(Selector::kSignalType, wanted, "").combination;
    };
    EXPECT_EQ(by_signal({Stream::kH264Main}), CAM_SIGNAL_H264_H264);
    EXPECT_EQ(by_signal({Stream::kGray}), CAM_SIGNAL_GRAY);
    EXPECT_EQ(by_signal({Stream::kPcm}), CAM_SIGNAL_H264_H264);
    EXPECT_EQ(by_signal({Stream::kH264Main, Stream::kGray}), CAM_SIGNAL_H264_GRAY);
    EXPECT_EQ(by_signal({Stream::kH264Sub, Stream::kGray}), CAM_SIGNAL_H264_H264_GRAY);
    EXPECT_EQ(by_signal({Stream::kYuy2, Stream::kPcm}), CAM_SIGNAL_H264_YUYV);
    EXPECT_EQ(by_signal({Stream::kNv21}), CAM_SIGNAL_H264_NV21);
    EXPECT_EQ(by_signal({Stream::kJpeg}), CAM_SIGNAL_H264_MJPEG);
    EXPECT_EQ(by_signal({Stream::kJpeg, Stream::kGray}), CAM_SIGNAL_H264_GRAY_JPEG);
}

TEST(Choice, Nv12GoesWithEach) {
    const auto choice = choose_streams(Selector::kSignalType, {Stream::kNv12, Stream::kYuy2}, "");
    EXPECT_EQ(choice.combination, CAM_SIGNAL_H264_YUYV);
    EXPECT_TRUE(choice.nv12);
}

TEST(Choice, VideoModesHaveTheirOwn) {
    EXPECT_EQ(choose_streams(Selector::kVideoMode, {Stream::kH264Sub}, "").combination,
              CAM_VIDEO_H264_H264);
    EXPECT_THROW(choose_streams(Selector::kVideoMode, {Stream::kGray}, ""), camhost::Failure);
}

TEST(Choice, NameDecidesAndMustCarryAll) {
    EXPECT_EQ(choose_streams(Selector::kSignalType, {Stream::kH264Main}, "h264-yuyv").combination,
              CAM_SIGNAL_H264_YUYV);
    try {
        choose_streams(Selector::kSignalType, {Stream::kH264Main}, "gray");
        FAIL() << "gray carries no H.264";
    } catch (const camhost::Failure& failure) {
        EXPECT_THAT(failure.what(), HasSubstr("gray (gray, audio)"));
        EXPECT_THAT(failure.what(), HasSubstr("nv12 goes with each"));
    }
}

}  // namespace
}  // namespace gstcam::test
