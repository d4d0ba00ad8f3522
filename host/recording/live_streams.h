// The streams of a running camera, second by second.
#pragma once

#include <array>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "host/streams/record_queue.h"
#include "host/streams/sample_clock.h"
#include "host/streams/stream_observer.h"

namespace camhost {

/// One stream in the second that has just passed.
struct LiveFigures {
    Stream stream = Stream::kPcm;
    double records_per_second = 0;
    double kilobits_per_second = 0;
    uint64_t gaps = 0;     ///< so far: intervals of more than 1.75 times the median; missing sound
    double jitter_ms = 0;  ///< standard deviation of the intervals
    std::optional<double> key_interval;  ///< seconds between the last two key frames
    std::optional<double> level_db;      ///< of the sound; 0 is full scale
    uint64_t dropped = 0;                ///< so far, by camhost
};

/// Observes every stream and keeps nothing of it. take() by one thread.
class LiveStreams {
  public:
    LiveStreams();
    ~LiveStreams();
    LiveStreams(const LiveStreams&) = delete;
    LiveStreams& operator=(const LiveStreams&) = delete;

    void attach(ICameraSubject& camera);
    void detach();
    /// The streams that have ever delivered; figures since the last call.
    std::vector<LiveFigures> take();

  private:
    struct Channel {
        uint64_t records = 0;  ///< ever
        uint64_t recent = 0;   ///< deliveries since the last take()
        uint64_t recent_bytes = 0;
        std::optional<Clock::time_point> last;
        std::deque<double> intervals;  ///< the latest, in ms
        size_t recent_intervals = 0;
        uint64_t gaps = 0;
        std::optional<Clock::time_point> last_key;
        std::optional<double> key_interval;
        double square_sum = 0;
        uint64_t samples = 0;
    };

    void run();
    void add(const Record& record);
    void add_sound(const Record& record, Channel& channel);
    static void note_gaps(Channel& channel);
    LiveFigures figures(const StreamInfo& row, Channel& channel, double seconds) const;

    RecordQueue queue_;
    std::vector<std::unique_ptr<StreamObserver>> observers_;
    ICameraSubject* camera_ = nullptr;
    std::mutex mutex_;
    std::array<Channel, kStreamCount> channels_;
    SampleClock sound_;
    Clock::time_point taken_ = Clock::now();
    std::thread thread_;
};

}  // namespace camhost
