// The consumer of one side: takes its frames on whatever thread they come, counts and times them.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "bench/bus/traffic.h"

namespace bench {

/// What the consumer does with the frames of one run.
struct Consumption {
    uint64_t warm = 0;         ///< frames before the measurement
    uint64_t frames = 0;       ///< frames that are measured
    bool read = false;         ///< every byte of every frame is read
    int cpu = -1;              ///< where its thread goes; -1: anywhere
    uint64_t stall_every = 0;  ///< frames; 0: it never stalls
    unsigned stall_us = 0;
    bool open_ended = false;  ///< the last frame may never come: the clocks are read at each one
};

/// Of the measured frames. Times in nanoseconds.
struct Outcome {
    uint64_t received = 0;
    uint64_t bytes = 0;
    uint64_t out_of_order = 0;
    uint64_t wall = 0;
    uint64_t event_cpu = 0, consumer_cpu = 0;
    uint64_t voluntary_switches = 0, involuntary_switches = 0;  ///< of the whole process
    std::vector<uint64_t> latencies;  ///< last payload handed over to frame in hand
};

class Consumer {
  public:
    explicit Consumer(Side side) : side_(side) {}

    /// Before traffic begins.
    void arm(const Consumption& plan);
    /// One frame, on the side's own thread; valid during the call.
    void take(const uint8_t* data, size_t size);
    /// Waits until the last measured frame has come, or until the limit. False: it has not.
    bool wait(unsigned limit_ms);
    /// After the wait, with traffic paused.
    Outcome outcome();

  private:
    struct Reading {
        uint64_t wall, event_cpu, consumer_cpu, voluntary, involuntary;
    };
    Reading read_clocks() const;
    void enter_thread();

    const Side side_;
    std::mutex mutex_;  ///< one frame, or a change of the plan
    std::condition_variable done_changed_;
    Consumption plan_;
    Outcome outcome_;
    Reading begin_ = {}, end_ = {};
    uint64_t expected_ = 0;
    uint64_t sum_ = 0;
    bool begun_ = false, done_ = false;
    unsigned generation_ = 0;
};

/// Sends `traffic`, consumes it as planned and returns what came of it; the number of frames is the
/// plan's. An open loop (no window) is given `grace_ms` for the last frames.
Outcome run(Side side, Consumer& consumer, Traffic traffic, const Consumption& plan,
            unsigned limit_ms = 20000, unsigned grace_ms = 100);

}  // namespace bench
