// Takes the streams of a running camera to files.
#pragma once

#include <array>
#include <atomic>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/streams/presentation_times.h"
#include "host/streams/record_queue.h"
#include "host/streams/statistics.h"
#include "host/streams/stream_observer.h"
#include "host/writers/mkv_file.h"
#include "host/writers/stream_writer.h"

namespace camhost {

/// One stream at the end of a recording.
struct RecordedStream {
    StreamSummary figures;
    WrittenStream written;
    std::string error;  ///< why its files are incomplete; empty when they are not
};

/// Registers an observer per stream and writes what arrives, on a thread of its own. Files are
/// made when their first record arrives, so that a silent stream leaves none.
class Recorder {
  public:
    /// `folder` exists. `sample_rate`: of the sound, in Hz.
    Recorder(const StreamSet& streams, const std::filesystem::path& folder, int sample_rate,
             const RecordQueue::Limits& limits = {});
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// Begins to observe `camera`, which is borrowed until detach().
    void attach(ICameraSubject& camera);
    /// Ends observing: after this the camera calls nothing of the recorder any more.
    void detach();
    /// The rate of the sound after the next restart of recording, in Hz.
    void expect_sample_rate(int hertz) { sample_rate_.store(hertz); }
    /// Records taken so far, of all streams. Any thread.
    uint64_t records() const { return records_.load(); }

    /// Waits until everything is written and completes the files; one entry for each chosen
    /// stream, in the order of kStreams. Once, after detach().
    std::vector<RecordedStream> finish();

  private:
    std::vector<ICameraObserver*> observers() const;

    struct Channel {
        Channel(Stream stream, int sample_rate) : statistics(stream, sample_rate) {}
        std::unique_ptr<StreamObserver> observer;
        StreamStatistics statistics;
        std::unique_ptr<StreamWriter> writer;
        std::string error;
        PresentationTimes times;
        std::vector<MkvPacket> packets;  ///< of H.264 and sound, as they lie in their files
        uint64_t written = 0;            ///< bytes
        bool open = false;               ///< the last packet waits for its slice
        bool restarts = false;  ///< the next record is the first after a restart of recording
    };

    void write_records();
    void note_end_of_recording();
    void write_record(Channel& channel, const Record& record);
    std::unique_ptr<StreamWriter> make_writer(Stream stream) const;
    static void note_packet(Channel& channel, const Record& record, bool restarted);
    void write_container(std::vector<RecordedStream>& streams) const;
    std::vector<MkvSound> sounds(const RecordedStream& stream) const;
    RecordedStream finish_channel(Stream stream, Channel& channel) const;

    std::filesystem::path folder_;
    std::atomic<int> sample_rate_;
    std::atomic<uint64_t> records_{0};
    RecordQueue queue_;
    std::array<std::optional<Channel>, kStreamCount> channels_;
    /// Where NV12 is not chosen: takes only the end of it, which tells where recording ended.
    std::unique_ptr<StreamObserver> end_observer_;
    ICameraSubject* camera_ = nullptr;
    std::thread writer_thread_;
};

}  // namespace camhost
