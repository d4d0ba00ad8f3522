#include "bench/compare/consumer.h"

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>

#include "bench/compare/reading.h"

namespace bench {
namespace {

using std::chrono::milliseconds;

uint64_t clock_ns(clockid_t clock) {
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

/// The number that the device has written over the frame's last bytes.
uint64_t number_of(const uint8_t* data, size_t size) {
    uint64_t number = UINT64_MAX;
    if (size >= sizeof number) {
        std::memcpy(&number, data + size - sizeof number, sizeof number);
    }
    return number;
}

}  // namespace

Consumer::Reading Consumer::read_clocks() const {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return {now_ns(), clock_ns(event_clock(side_)), clock_ns(CLOCK_THREAD_CPUTIME_ID),
            static_cast<uint64_t>(usage.ru_nvcsw), static_cast<uint64_t>(usage.ru_nivcsw)};
}

void Consumer::arm(const Consumption& plan) {
    std::lock_guard lock(mutex_);
    plan_ = plan;
    outcome_ = {};
    outcome_.latencies.reserve(plan.frames);
    expected_ = plan.warm;
    begun_ = done_ = false;
    ++generation_;
}

void Consumer::enter_thread() {
    static thread_local unsigned entered = 0;
    if (entered == generation_) {
        return;
    }
    entered = generation_;
    if (plan_.cpu >= 0) {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(static_cast<unsigned>(plan_.cpu), &set);
        sched_setaffinity(0, sizeof set, &set);
    }
}

void Consumer::take(const uint8_t* data, size_t size) {
    const uint64_t arrival = now_ns();
    const uint64_t number = number_of(data, size);
    bool last = false;
    {
        std::lock_guard lock(mutex_);
        enter_thread();
        const bool measured = number >= plan_.warm && number < plan_.warm + plan_.frames && !done_;
        if (measured && !begun_) {
            begun_ = true;
            begin_ = read_clocks();
        }
        if (plan_.read) {
            sum_ += sum_of(data, size);
        }
        if (measured) {
            outcome_.out_of_order += number < expected_ ? 1 : 0;
            expected_ = number + 1;
            ++outcome_.received;
            outcome_.bytes += size;
            outcome_.latencies.push_back(arrival - ended_at(side_, number));
        }
        if (plan_.stall_every != 0 && number % plan_.stall_every == plan_.stall_every - 1) {
            std::this_thread::sleep_for(std::chrono::microseconds(plan_.stall_us));
        }
        last = measured && number == plan_.warm + plan_.frames - 1;
        if (measured && (last || plan_.open_ended)) {
            end_ = read_clocks();
        }
        done_ = done_ || last;
    }
    delivered(side_);
    if (last) {
        done_changed_.notify_all();
    }
}

bool Consumer::wait(unsigned limit_ms) {
    std::unique_lock lock(mutex_);
    return done_changed_.wait_for(lock, milliseconds(limit_ms), [&] { return done_; });
}

Outcome Consumer::outcome() {
    std::lock_guard lock(mutex_);
    outcome_.wall = end_.wall - begin_.wall;
    outcome_.event_cpu = end_.event_cpu - begin_.event_cpu;
    outcome_.consumer_cpu = end_.consumer_cpu - begin_.consumer_cpu;
    outcome_.voluntary_switches = end_.voluntary - begin_.voluntary;
    outcome_.involuntary_switches = end_.involuntary - begin_.involuntary;
    return std::move(outcome_);
}

namespace {

/// A few frames in lock step: a consumer that has waited in vain for a while may be pausing.
void awaken(Side side, Consumer& consumer, Traffic traffic, unsigned limit_ms) {
    traffic.window = 1;
    traffic.frames_per_second = 0;
    traffic.frames = 5;
    consumer.arm({.warm = 0, .frames = traffic.frames});
    send(side, traffic);
    consumer.wait(limit_ms);
    pause(side);
}

}  // namespace

Outcome run(Side side, Consumer& consumer, Traffic traffic, const Consumption& plan,
            unsigned limit_ms, unsigned grace_ms) {
    if (traffic.window == 0) {
        Traffic first = traffic;
        first.header_only_end = side == Side::kPlugin;
        awaken(side, consumer, first, limit_ms);
    }
    consumer.arm(plan);
    traffic.frames = plan.warm + plan.frames;
    send(side, traffic);
    const bool open_loop = traffic.window == 0;
    if (!open_loop) {
        consumer.wait(limit_ms);
    } else {
        // Without looking while frames come: the process's context switches are counted.
        std::this_thread::sleep_for(std::chrono::duration<double>(
            static_cast<double>(traffic.frames) / traffic.frames_per_second));
        consumer.wait(grace_ms);
    }
    pause(side);
    return consumer.outcome();
}

}  // namespace bench
