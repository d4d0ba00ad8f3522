#include "bench/compare/bare_wakeup.h"

#include <pthread.h>
#include <sched.h>
#include <time.h>

#include <thread>

#include "bench/bus/traffic.h"

namespace bench {
namespace {

void pin(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<unsigned>(cpu), &set);
    sched_setaffinity(0, sizeof set, &set);
}

void wait_until(uint64_t instant, bool spin) {
    if (!spin) {
        const timespec until = {static_cast<time_t>(instant / 1'000'000'000),
                                static_cast<long>(instant % 1'000'000'000)};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
    }
    while (now_ns() < instant) {
    }
}

}  // namespace

std::vector<uint64_t> bare_wakeups(int waker_cpu, int waiter_cpu, double per_second, int count,
                                   bool spin) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    int given = 0;
    uint64_t at = 0;
    std::vector<uint64_t> times;
    std::thread waiter([&] {
        pin(waiter_cpu);
        for (int taken = 0; taken < count; ++taken) {
            pthread_mutex_lock(&mutex);
            while (given == taken) {
                pthread_cond_wait(&changed, &mutex);
            }
            times.push_back(now_ns() - at);
            pthread_mutex_unlock(&mutex);
        }
    });
    std::thread waker([&] {
        pin(waker_cpu);
        const auto period = static_cast<uint64_t>(1e9 / per_second);
        uint64_t instant = now_ns() + period;
        for (int i = 0; i < count; ++i, instant += period) {
            wait_until(instant, spin);
            const uint64_t now = now_ns();
            pthread_mutex_lock(&mutex);
            at = now;
            ++given;
            pthread_mutex_unlock(&mutex);
            pthread_cond_signal(&changed);
        }
    });
    waker.join();
    waiter.join();
    return times;
}

}  // namespace bench
