#include "bench/compare/bare_stream.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "bench/bus/bell.h"
#include "bench/bus/traffic.h"
#include "bench/compare/reading.h"

namespace bench {
namespace {

constexpr size_t kTransfers = 3, kBuffers = 5;
constexpr uint64_t kWarm = 20, kPatience = 100'000'000;

class BareStream {
  public:
    BareStream(uint32_t payload, uint32_t frame, uint64_t frames)
        : room_(payload - kPayloadHeader),
          frame_(frame),
          frames_(frames + kWarm),
          transfers_(kTransfers, std::vector<uint8_t>(payload, 1)),
          buffers_(kBuffers, std::vector<uint8_t>(frame, 1)) {}

    double measure() {
        std::thread reader([this] { read(); }), writer([this] { write(); });
        reader.join();
        writer.join();
        return static_cast<double>(end_ - begin_) / static_cast<double>(frames_ - kWarm);
    }

  private:
    static void pin() {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(0, &set);
        sched_setaffinity(0, sizeof set, &set);
    }

    void write() {
        pin();
        for (uint64_t k = 0; k < frames_; ++k) {
            for (uint32_t offset = 0; offset < frame_; offset += room_) {
                std::memcpy(buffers_[k % kBuffers].data() + offset,
                            transfers_[next_++ % kTransfers].data() + kPayloadHeader,
                            std::min(room_, frame_ - offset));
            }
            wait_until_read(k);
            pthread_mutex_lock(&mutex_);
            written_ = k + 1;
            const bool wake = waiting_;
            pthread_mutex_unlock(&mutex_);
            if (wake) {
                pthread_cond_signal(&changed_);
            }
        }
    }
    void wait_until_read(uint64_t count) {
        for (uint32_t reading = bell_.reading(); read_.load() < count; reading = bell_.reading()) {
            bell_.wait(reading, now_ns() + kPatience);
        }
    }

    void read() {
        pin();
        for (uint64_t k = 0; k < frames_; ++k) {
            pthread_mutex_lock(&mutex_);
            while (written_ == k) {
                waiting_ = true;
                pthread_cond_wait(&changed_, &mutex_);
                waiting_ = false;
            }
            pthread_mutex_unlock(&mutex_);
            begin_ = k == kWarm ? now_ns() : begin_;
            sum_ += sum_of(buffers_[k % kBuffers].data(), frame_);
            read_.store(k + 1);
            bell_.ring();
        }
        end_ = now_ns();
    }

    const uint32_t room_, frame_;
    const uint64_t frames_;
    std::vector<std::vector<uint8_t>> transfers_, buffers_;
    size_t next_ = 0;
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed_ = PTHREAD_COND_INITIALIZER;
    uint64_t written_ = 0;
    bool waiting_ = false;
    std::atomic<uint64_t> read_{0};
    Bell bell_;
    uint64_t begin_ = 0, end_ = 0, sum_ = 0;
};

}  // namespace

double bare_lock_step_ns(uint32_t payload, uint32_t frame, uint64_t frames) {
    return BareStream(payload, frame, frames).measure();
}

}  // namespace bench
