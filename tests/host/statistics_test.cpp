#include "host/streams/statistics.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "host/streams/presentation_times.h"
#include "host/streams/record_queue.h"
#include "host/streams/sample_clock.h"

namespace camhost::test {
namespace {

using std::chrono::milliseconds;

Record record(Stream stream, milliseconds at, uint32_t time_stamp, size_t size = 100) {
    Record made;
    made.stream = stream;
    made.arrival = Clock::time_point(milliseconds(1'000'000) + at);
    made.time_stamp = time_stamp;
    made.data.resize(size);
    return made;
}

TEST(Intervals, GapIsWellAboveTheMedian) {
    IntervalTracker tracker;
    EXPECT_EQ(tracker.summary().gaps, 0U);
    for (const double each : {33.0, 34.0, 33.0, 40.0, 66.0, 33.0, 100.0}) {
        tracker.add(each);
    }
    EXPECT_EQ(tracker.summary().gaps, 2U);
    EXPECT_NEAR(tracker.summary().median_ms, 34.0, 0.01);
    EXPECT_NEAR(tracker.summary().longest_ms, 100.0, 0.01);
}

TEST(Statistics, CountsRatesFromTheFirstToTheLastArrival) {
    StreamStatistics statistics(Stream::kGray);
    for (int i = 0; i <= 10; ++i) {
        statistics.add(record(Stream::kGray, milliseconds(100 * i), 0), 1, false);
    }
    const StreamSummary summary = statistics.summary();
    EXPECT_EQ(summary.records, 11U);
    EXPECT_EQ(summary.bytes, 1100U);
    EXPECT_NEAR(summary.records_per_second(), 10.0, 0.001);
    EXPECT_NEAR(summary.kilobits_per_second(), 8.8, 0.001);
    EXPECT_FALSE(summary.time_stamps.has_value());
}

TEST(Statistics, OneRecordHasNoRate) {
    StreamStatistics statistics(Stream::kJpeg);
    statistics.add(record(Stream::kJpeg, milliseconds(5), 0), 1, false);
    EXPECT_EQ(statistics.summary().records_per_second(), 0);
    EXPECT_EQ(statistics.summary().kilobits_per_second(), 0);
}

TEST(Statistics, PartsOfOneDeliveryMakeNoInterval) {
    StreamStatistics statistics(Stream::kPcm);
    for (int i = 0; i < 20; ++i) {
        const auto stamp = static_cast<uint32_t>(2700 * (i / 2));
        statistics.add(record(Stream::kPcm, milliseconds(30 * (i / 2)), stamp, 960), 1, false);
    }
    const StreamSummary summary = statistics.summary();
    EXPECT_EQ(summary.records, 20U);
    EXPECT_EQ(summary.arrival.gaps, 0U);
    EXPECT_NEAR(summary.arrival.longest_ms, 30, 0.01);
    EXPECT_NEAR(summary.time_stamps->median_ms, 30, 0.01);
}

TEST(Statistics, LostPictureIsAGapOfArrivalAndOfTimeStamps) {
    StreamStatistics statistics(Stream::kH264Main);
    for (const int i : {0, 1, 2, 3, 4, 6, 7, 8, 9}) {
        statistics.add(
            record(Stream::kH264Main, milliseconds(33 * i), static_cast<uint32_t>(2970 * i)), 1,
            false);
    }
    EXPECT_EQ(statistics.summary().arrival.gaps, 1U);
    EXPECT_EQ(statistics.summary().time_stamps->gaps, 1U);
    EXPECT_NEAR(statistics.summary().time_stamps->longest_ms, 66, 0.01);
}

TEST(Statistics, RestartBeginsTheTimeStampsAnew) {
    StreamStatistics statistics(Stream::kH264Main);
    statistics.add(record(Stream::kH264Main, milliseconds(0), 90'000), 1, false);
    statistics.add(record(Stream::kH264Main, milliseconds(500), 100), 1, true);
    statistics.add(record(Stream::kH264Main, milliseconds(533), 3070), 1, false);
    EXPECT_EQ(statistics.summary().restarts, 1U);
    EXPECT_EQ(statistics.summary().steps_back, 0U);
    EXPECT_NEAR(statistics.summary().time_stamps->longest_ms, 33, 0.01);
    EXPECT_NEAR(statistics.summary().arrival.longest_ms, 500, 0.01);
}

TEST(Statistics, StepBackIsCounted) {
    StreamStatistics statistics(Stream::kH264Main);
    statistics.add(record(Stream::kH264Main, milliseconds(0), 3000), 1, false);
    statistics.add(record(Stream::kH264Main, milliseconds(33), 2999), 1, false);
    EXPECT_EQ(statistics.summary().steps_back, 1U);
    EXPECT_EQ(statistics.summary().restarts, 0U);
}

TEST(Statistics, JumpsOfThePluginsClockAreTakenOut) {
    StreamStatistics statistics(Stream::kPcm);
    uint32_t stamp = 0;
    for (int i = 0; i < 40; ++i) {
        statistics.add(record(Stream::kPcm, milliseconds(15 * i), stamp), 1, false);
        stamp += 1350 + (i % 3 == 0 ? 386'547'056U : 0U);  // also past 32 bits
    }
    EXPECT_EQ(statistics.summary().clock_jumps, 13U);
    EXPECT_EQ(statistics.summary().steps_back, 0U);
    EXPECT_NEAR(statistics.summary().time_stamps->longest_ms, 15, 0.02);
}

TEST(Statistics, WrapOfTheClockIsNoRestart) {
    StreamStatistics statistics(Stream::kPcm);
    statistics.add(record(Stream::kPcm, milliseconds(0), 0xFFFFFF00), 1, false);
    statistics.add(record(Stream::kPcm, milliseconds(15), 0x00000446), 1, false);
    EXPECT_EQ(statistics.summary().restarts, 0U);
    EXPECT_NEAR(statistics.summary().time_stamps->longest_ms, 15, 0.01);
}

TEST(Statistics, EmptyRecordsAreEndMarkers) {
    StreamStatistics statistics(Stream::kGray);
    Record end = record(Stream::kGray, milliseconds(0), 0, 0);
    end.end_of_stream = true;
    statistics.add(end, 1, false);
    EXPECT_EQ(statistics.summary().records, 0U);
    EXPECT_EQ(statistics.summary().end_markers, 1U);
}

TEST(RecordQueue, HandsOutInOrder) {
    RecordQueue queue;
    const uint8_t first[] = {1, 2, 3};
    const uint8_t second[] = {4};
    EXPECT_TRUE(queue.push(Stream::kPcm, first, sizeof(first), 7));
    EXPECT_TRUE(queue.push(Stream::kGray, second, sizeof(second), 0));
    EXPECT_TRUE(queue.push(Stream::kGray, nullptr, 0, 0));
    queue.close();
    Record record;
    ASSERT_TRUE(queue.pop(&record));
    EXPECT_EQ(record.stream, Stream::kPcm);
    EXPECT_EQ(record.time_stamp, 7U);
    EXPECT_EQ(record.data, (std::vector<uint8_t>{1, 2, 3}));
    ASSERT_TRUE(queue.pop(&record));
    EXPECT_FALSE(record.end_of_stream);
    ASSERT_TRUE(queue.pop(&record));
    EXPECT_TRUE(record.end_of_stream);
    EXPECT_FALSE(queue.pop(&record));
}

TEST(RecordQueue, FullQueueDropsAndCounts) {
    RecordQueue by_count({2, 1000});
    RecordQueue by_bytes({100, 10});
    const uint8_t bytes[8] = {};
    EXPECT_TRUE(by_count.push(Stream::kPcm, bytes, 1, 0));
    EXPECT_TRUE(by_count.push(Stream::kPcm, bytes, 1, 0));
    EXPECT_FALSE(by_count.push(Stream::kGray, bytes, 1, 0));
    EXPECT_EQ(by_count.dropped(Stream::kGray), 1U);
    EXPECT_EQ(by_count.dropped(Stream::kPcm), 0U);
    EXPECT_TRUE(by_count.push(Stream::kGray, nullptr, 0, 0)) << "the end of a stream";
    EXPECT_TRUE(by_bytes.push(Stream::kPcm, bytes, 8, 0));
    EXPECT_FALSE(by_bytes.push(Stream::kPcm, bytes, 8, 0));
    Record record;
    ASSERT_TRUE(by_bytes.pop(&record));
    EXPECT_TRUE(by_bytes.push(Stream::kPcm, bytes, 8, 0)) << "room came back";
}

TEST(RecordQueue, ClosedQueueTakesNothing) {
    RecordQueue queue;
    queue.close();
    const uint8_t byte = 0;
    EXPECT_FALSE(queue.push(Stream::kPcm, &byte, 1, 0));
}

TEST(RecordQueue, TwoProducersLoseNothing) {
    RecordQueue queue;
    constexpr uint32_t kEach = 400;
    const auto produce = [&queue](Stream stream) {
        const std::vector<uint8_t> bytes(960);
        for (uint32_t i = 0; i < kEach; ++i) {
            queue.push(stream, bytes.data(), bytes.size(), i);
        }
    };
    std::thread audio(produce, Stream::kPcm);
    std::thread video(produce, Stream::kH264Main);
    uint32_t next[kStreamCount] = {};
    Record record;
    for (uint32_t i = 0; i < 2 * kEach; ++i) {
        ASSERT_TRUE(queue.pop(&record));
        EXPECT_EQ(record.time_stamp, next[static_cast<size_t>(record.stream)]++);
    }
    audio.join();
    video.join();
}

/// Deliveries of 240 samples of 16 kHz every 15 ms, each as late as `late` says.
SampleClock clock_of(const std::function<double(int)>& late) {
    SampleClock clock(16'000);
    for (int i = 0; i < 200; ++i) {
        clock.add(std::chrono::duration<double, std::milli>(1000 + 15 * i + late(i)), 240);
    }
    return clock;
}

TEST(SampleClock, WholeSoundHasNoGapsHoweverItArrives) {
    EXPECT_EQ(clock_of([](int i) { return i % 2 == 0 ? 0 : 9; }).summary().gaps, 0U);
    const auto burst = [](int i) { return i >= 50 && i < 60 ? 15.0 * (60 - i) : 0; };
    EXPECT_EQ(clock_of(burst).summary().gaps, 0U) << "made up for";
    EXPECT_EQ(clock_of([](int i) { return i == 199 ? 150 : 0; }).summary().gaps, 0U)
        << "the last one may still be";
}

TEST(SampleClock, CountsWhatIsNeverMadeUpFor) {
    SampleClock clock = clock_of([](int i) { return (i >= 30 ? 150 : 0) + (i >= 70 ? 60 : 0); });
    EXPECT_EQ(clock.summary().gaps, 2U);
    EXPECT_NEAR(static_cast<double>(clock.summary().missing), 210 * 16, 16);
    clock.restart(24'000);
    for (int i = 0; i < 20; ++i) {
        clock.add(std::chrono::duration<double, std::milli>(9000 + 10 * i), 240);
    }
    EXPECT_EQ(clock.summary().gaps, 2U) << "a restart is no gap";
}

TEST(PresentationTimes, FollowTheTimeStampsFromTheFirstArrivalOn) {
    PresentationTimes times;
    Record record;
    record.arrival = Clock::time_point(std::chrono::seconds(5));
    record.time_stamp = 0xFFFFFF00;
    EXPECT_EQ(times.next(record, false), 5'000'000);
    record.arrival += std::chrono::milliseconds(70);  // late; its time stamp is not
    record.time_stamp += 3000;                        // and wraps
    EXPECT_EQ(times.next(record, false), 5'033'333);
    record.time_stamp -= 900;
    EXPECT_EQ(times.next(record, false), 5'033'333) << "never back";
    record.arrival += std::chrono::seconds(2);
    record.time_stamp = 0;
    EXPECT_EQ(times.next(record, true), 7'033'333) << "bridged by arrivals";
    record.time_stamp += static_cast<uint32_t>(StreamStatistics::kClockJumpTicks) + 90;
    EXPECT_EQ(times.next(record, false), 7'034'333) << "the jump is left out";
}

}  // namespace
}  // namespace camhost::test
