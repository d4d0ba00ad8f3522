// The road from the observers' threads to the writer's thread.
#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <vector>

#include "host/streams/record.h"

namespace camhost {

/// Bounded queue of records with a pool of their buffers. The plug-in's capture threads push and
/// must never wait for the disk: a record that finds the queue full is dropped and counted. The
/// empty record that ends a stream is always taken. Once the pool has grown to the working set,
/// pushing allocates nothing.
class RecordQueue {
  public:
    struct Limits {
        size_t records = 1024;
        size_t bytes = size_t{64} << 20;
    };

    RecordQueue() : RecordQueue(Limits()) {}
    explicit RecordQueue(const Limits& limits) : limits_(limits) {}

    /// Copies the record's bytes in. Any thread; false when it was dropped.
    bool push(Stream stream, const void* data, size_t size, uint32_t time_stamp);

    /// Moves the oldest record into `record`, whose own buffer goes back to the pool. Waits for
    /// one; false when the queue is closed and empty. The writer's thread only.
    bool pop(Record* record);

    /// No record is accepted any more; pop() hands out what is left. Any thread.
    void close();

    /// Records of the stream that found no room.
    uint64_t dropped(Stream stream) const;

  private:
    const Limits limits_;
    mutable std::mutex mutex_;
    std::condition_variable available_;
    std::deque<Record> queue_;
    std::vector<std::vector<uint8_t>> pool_;
    size_t queued_bytes_ = 0;
    bool closed_ = false;
    std::array<uint64_t, kStreamCount> dropped_{};
};

}  // namespace camhost
