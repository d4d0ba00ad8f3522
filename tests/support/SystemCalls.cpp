#include "tests/support/SystemCalls.h"

#include <errno.h>
#include <pthread.h>
#include <stddef.h>
#include <sys/resource.h>

#include <mutex>

#include "tests/support/ThreadShortage.h"

extern "C" {
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attribute, void* (*start)(void*),
                          void* argument);
int __real_pthread_mutexattr_init(pthread_mutexattr_t* attribute);
int __real_pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                  const timespec* deadline);
void* __real_calloc(size_t count, size_t size);
int __real_clock_gettime(clockid_t clock, timespec* now);
}

namespace test {

namespace {
struct Deadlines {
    // The thread that waits asks for no memory: tests of its own requests count them.
    Deadlines() { lengths.reserve(kMostWaits); }

    static constexpr size_t kMostWaits = 100'000;  // of a usual test
    std::mutex mutex;
    std::vector<std::chrono::nanoseconds> lengths;
    std::function<void()> hook;
};
Deadlines& deadlines() {
    static auto* all = new Deadlines;  // outlives every thread of the code under test
    return *all;
}

thread_local timespec g_LastLook{};
std::atomic<int> g_ThreadsLeft{-1};  // negative: without end
std::atomic<bool> g_OnlyOneIsRefused{false};

std::chrono::nanoseconds SinceBoot(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}
}  // namespace

SystemCallFailures& system_calls() {
    static SystemCallFailures failures;
    return failures;
}

void reset_system_calls() {
    SystemCallFailures& failures = system_calls();
    failures.setpriority = 0;
    failures.pthread_create = 0;
    failures.pthread_mutexattr_init = 0;
    failures.calloc = 0;
    failures.interrupted_timed_waits = 0;
    failures.pthread_cond_timedwait = 0;
    failures.endless_timed_waits = false;
    failures.setpriority_calls = 0;
    failures.setpriority_calls_at_create = 0;
    failures.last_priority = 0;
    failures.last_priority_which = -1;
    failures.last_priority_who = -1;
    failures.timed_wait_calls = 0;
    failures.detached_threads = 0;
    run_out_of_threads(-1);
    std::lock_guard lock(deadlines().mutex);
    deadlines().lengths.clear();
    deadlines().hook = nullptr;
}

void run_out_of_threads(int started) {
    g_OnlyOneIsRefused = false;
    g_ThreadsLeft = started;
}

void refuse_one_thread(int started) {
    run_out_of_threads(started);
    g_OnlyOneIsRefused = true;
}

static bool take_thread() {
    int left = g_ThreadsLeft;
    while (left > 0 && !g_ThreadsLeft.compare_exchange_weak(left, left - 1)) {
    }
    if (left == 0 && g_OnlyOneIsRefused.exchange(false)) {
        g_ThreadsLeft = -1;
    }
    return left != 0;
}

void on_timed_wait(std::function<void()> hook) {
    std::lock_guard lock(deadlines().mutex);
    deadlines().hook = std::move(hook);
}

std::vector<std::chrono::nanoseconds> timed_wait_lengths() {
    std::lock_guard lock(deadlines().mutex);
    return deadlines().lengths;
}

/// Returns the hook that goes in place of the wait.
static std::function<void()> record_deadline(const timespec& deadline) {
    std::lock_guard lock(deadlines().mutex);
    deadlines().lengths.push_back(SinceBoot(deadline) - SinceBoot(g_LastLook));
    g_LastLook = {};  // the next wait takes a look of its own
    return deadlines().hook;
}

}  // namespace test

extern "C" {

// Never the real one: a test may not renice the machine's work, and may not depend on the right to.
int __wrap_setpriority(int which, id_t who, int priority) {
    test::SystemCallFailures& failures = test::system_calls();
    ++failures.setpriority_calls;
    failures.last_priority = priority;
    failures.last_priority_which = which;
    failures.last_priority_who = static_cast<long>(who);
    if (failures.setpriority != 0) {
        errno = failures.setpriority;
        return -1;
    }
    return 0;
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attribute, void* (*start)(void*),
                          void* argument) {
    test::SystemCallFailures& failures = test::system_calls();
    failures.setpriority_calls_at_create = failures.setpriority_calls.load();
    int detach_state = PTHREAD_CREATE_JOINABLE;
    if (attribute != nullptr) {
        pthread_attr_getdetachstate(attribute, &detach_state);
    }
    if (detach_state == PTHREAD_CREATE_DETACHED) {
        ++failures.detached_threads;
    }
    const int error = test::take_thread() ? failures.pthread_create.load() : EAGAIN;
    if (error != 0) {
        *thread = pthread_self();  // as the C library, which stores an id before it fails
        return error;
    }
    return __real_pthread_create(thread, attribute, start, argument);
}

int __wrap_pthread_mutexattr_init(pthread_mutexattr_t* attribute) {
    const int error = test::system_calls().pthread_mutexattr_init;
    return error != 0 ? error : __real_pthread_mutexattr_init(attribute);
}

int __wrap_pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                  const timespec* deadline) {
    test::SystemCallFailures& failures = test::system_calls();
    ++failures.timed_wait_calls;
    const std::function<void()> hook = test::record_deadline(*deadline);
    if (hook) {
        pthread_mutex_unlock(mutex);
        hook();
        pthread_mutex_lock(mutex);
        return ETIMEDOUT;
    }
    if (failures.interrupted_timed_waits > 0) {
        --failures.interrupted_timed_waits;
        return EINTR;
    }
    if (const int error = failures.pthread_cond_timedwait; error != 0) {
        return error;
    }
    if (failures.endless_timed_waits) {
        return pthread_cond_wait(cond, mutex);
    }
    return __real_pthread_cond_timedwait(cond, mutex, deadline);
}

int __wrap_clock_gettime(clockid_t clock, timespec* now) {
    const int result = __real_clock_gettime(clock, now);
    if (clock == CLOCK_MONOTONIC) {
        test::g_LastLook = *now;
    }
    return result;
}

void* __wrap_calloc(size_t count, size_t size) {
    return test::system_calls().calloc != 0 ? nullptr : __real_calloc(count, size);
}
}
