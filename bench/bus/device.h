// One device of the measuring bus, and the contexts through which programs handle its events.
#pragma once

#include <libusb-1.0/libusb.h>
#include <pthread.h>
#include <sched.h>

#include <array>
#include <atomic>
#include <deque>
#include <mutex>
#include <vector>

#include "bench/bus/bell.h"
#include "bench/bus/traffic.h"

namespace bench {

/// Guards a few instructions; cheaper than a mutex and none of those that are counted.
class SpinLock {
  public:
    void lock() {
        while (taken_.test_and_set(std::memory_order_acquire)) {
            sched_yield();
        }
    }
    void unlock() { taken_.clear(std::memory_order_release); }

  private:
    std::atomic_flag taken_ = ATOMIC_FLAG_INIT;
};

/// The stream of one device: decides what the next payload is and whether it may be sent.
class Stream {
  public:
    void start(const Traffic& traffic);
    void stop();

    bool active() const { return active_.load(); }
    const Traffic& traffic() const { return traffic_; }
    /// 0: the next payload may go now; UINT64_MAX: not before a delivery; else the instant in ns.
    uint64_t due();
    /// Writes the next payload into the transfer.
    void fill(libusb_transfer* transfer);
    void deliver() {
        delivered_.fetch_add(1);
        bell_.ring();
    }

    Bell& bell() { return bell_; }
    uint64_t delivered_frames() const { return delivered_.load(); }
    uint64_t sent_frames() const { return sent_.load(); }
    uint64_t ended_at(uint64_t number) const { return ends_[number % kEnds].load(); }
    clockid_t event_clock() const { return event_clock_.load(); }
    void enter_thread();
    std::mutex& sending() { return sending_; }

  private:
    static constexpr size_t kEnds = 4096;

    bool at_end() const;
    void fill_special(libusb_transfer* transfer);
    void end_frame();

    std::mutex sending_;  ///< held for a round of payloads
    Traffic traffic_;
    std::atomic<bool> active_{false};
    std::atomic<uint64_t> delivered_{0}, sent_{0};
    std::atomic<unsigned> generation_{0};
    uint64_t number_ = 0;
    uint32_t offset_ = 0;
    uint8_t frame_id_ = 0;
    bool held_ = false;  ///< the end of the frame has had to wait
    uint64_t begin_ns_ = 0;
    std::array<std::atomic<uint64_t>, kEnds> ends_{};
    std::atomic<clockid_t> event_clock_{CLOCK_THREAD_CPUTIME_ID};
    Bell bell_;
};

Stream& stream(Side side);
unsigned iso_packet_bytes();
bool iso_paced();

}  // namespace bench

struct libusb_device {
    libusb_context* context;
    bench::Side side;
    libusb_device_descriptor descriptor;
};

struct libusb_context {
    libusb_device devices[bench::kSides];
    bench::SpinLock lock;  ///< of the two lists
    std::deque<libusb_transfer*> pending, cancelled;
    std::atomic<bool> any_cancelled{false};
    std::atomic<bench::Stream*> stream{nullptr};  ///< that of the transfers, once there are any
    uint64_t next_iso = 0;
    bench::Bell bell;  ///< for contexts without a stream
    bench::Bell& waker() { return stream != nullptr ? stream.load()->bell() : bell; }
};

struct libusb_device_handle {
    libusb_device* device;
};
