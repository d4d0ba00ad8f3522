#include "tests/simulation/world.h"

#include <errno.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

extern "C" {
int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __real_pthread_join(pthread_t, void**);
int __real_pthread_mutex_lock(pthread_mutex_t*);
int __real_pthread_mutex_trylock(pthread_mutex_t*);
int __real_pthread_mutex_unlock(pthread_mutex_t*);
int __real_pthread_cond_wait(pthread_cond_t*, pthread_mutex_t*);
int __real_pthread_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const timespec*);
int __real_pthread_cond_signal(pthread_cond_t*);
int __real_usleep(useconds_t);
unsigned int __real_sleep(unsigned int);
int __real_clock_gettime(clockid_t, timespec*);
int __real_gettimeofday(timeval*, void*);
int __real_setpriority(int, id_t, int);
}

// std::chrono::steady_clock::now. A class comes back elsewhere than a number on 32-bit ARM.
using SteadyTime = std::chrono::steady_clock::time_point;
SteadyTime real_steady_now() asm("__real__ZNSt6chrono3_V212steady_clock3nowEv");
SteadyTime wrap_steady_now() asm("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");

namespace sim {
namespace {

/// A thread of the World. Only the one that runs touches any of this.
struct Thread {
    Thread() { sem_init(&turn, 0, 0); }
    ~Thread() { sem_destroy(&turn); }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    sem_t turn;  // posted when it is this one's
    pthread_t id = 0;
    void* (*start)(void*) = nullptr;
    void* argument = nullptr;
    const void* waits_for = nullptr;  // null while it is ready, and in a sleep
    Time deadline{};
    bool waits = false;
    bool timed_out = false;
    bool ended = false;
};

struct State {
    Time now{};
    Time wall_step{};
    std::vector<std::unique_ptr<Thread>> threads;
    std::deque<Thread*> ready;
    std::function<size_t(size_t)> choice;
};

constexpr Time kWallClockAtBegin = std::chrono::seconds(1700000000);
State* g_State = nullptr;
thread_local Thread* t_Self = nullptr;

[[noreturn]] void report_deadlock() {
    fprintf(stderr, "sim: all threads wait for good, at %.6f s\n",
            std::chrono::duration<double>(g_State->now).count());
    for (const auto& thread : g_State->threads) {
        char name[16] = "(ended)";
        if (!thread->ended) {
            pthread_getname_np(thread->id, name, sizeof name);
            fprintf(stderr, "sim:   %s waits for %p\n", name, thread->waits_for);
        }
    }
    abort();
}

void make_ready(Thread& thread, bool timed_out) {
    thread.waits = false;
    thread.timed_out = timed_out;
    g_State->ready.push_back(&thread);
}

/// Jumps to the next deadline.
void advance() {
    Time next = kForever;
    for (const auto& thread : g_State->threads) {
        if (thread->waits) {
            next = std::min(next, thread->deadline);
        }
    }
    if (next == kForever) {
        report_deadlock();
    }
    g_State->now = std::max(g_State->now, next);
    for (const auto& thread : g_State->threads) {
        if (thread->waits && thread->deadline <= g_State->now) {
            make_ready(*thread, true);
        }
    }
}

Thread& take_next() {
    if (g_State->ready.empty()) {
        advance();
    }
    const size_t count = g_State->ready.size();
    const size_t index = count > 1 && g_State->choice ? g_State->choice(count) % count : 0;
    Thread& next = *g_State->ready[index];
    g_State->ready.erase(g_State->ready.begin() + static_cast<std::ptrdiff_t>(index));
    return next;
}

void await_turn(Thread& self) {
    while (sem_wait(&self.turn) != 0) {  // a signal came
    }
}

/// Somebody's turn; comes back when it is the caller's again.
void give_way() {
    Thread& next = take_next();
    if (&next != t_Self) {
        Thread& self = *t_Self;
        sem_post(&next.turn);
        await_turn(self);
    }
}

bool wait_until(const void* object, Time deadline) {
    t_Self->waits = true;
    t_Self->waits_for = object;
    t_Self->deadline = deadline;
    give_way();
    return !t_Self->timed_out;
}

/// True when there was one.
bool wake_one(const void* object) {
    for (const auto& thread : g_State->threads) {
        if (thread->waits && thread->waits_for == object) {
            make_ready(*thread, false);
            return true;
        }
    }
    return false;
}

void* run_thread(void* argument) {
    auto* self = static_cast<Thread*>(argument);
    await_turn(*self);
    t_Self = self;
    void* result = self->start(self->argument);
    self->ended = true;
    World::wake_all(self);
    t_Self = nullptr;
    sem_post(&take_next().turn);
    return result;
}

Thread* find(pthread_t id) {
    for (const auto& thread : g_State->threads) {
        if (thread->id == id) {
            return thread.get();
        }
    }
    return nullptr;
}

Time after(Time time) {
    return g_State->now + time;
}

timespec to_timespec(Time time) {
    constexpr Time::rep kSecond = 1000000000;
    return {static_cast<time_t>(time.count() / kSecond), static_cast<long>(time.count() % kSecond)};
}

Time from_timespec(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + Time(time.tv_nsec);
}

}  // namespace

World::World() {
    g_State = new State;
    g_State->threads.push_back(std::make_unique<Thread>());
    t_Self = g_State->threads.back().get();
    t_Self->id = pthread_self();
}

World::~World() {
    if (threads() != 1) {
        fprintf(stderr, "sim: %zu threads are left behind\n", threads() - 1);
        abort();
    }
    t_Self = nullptr;
    delete g_State;
    g_State = nullptr;
}

Time World::now() {
    return g_State->now;
}

void World::step_wall_clock(Time by) {
    g_State->wall_step += by;
}

size_t World::threads() {
    return static_cast<size_t>(std::count_if(g_State->threads.begin(), g_State->threads.end(),
                                             [](const auto& thread) { return !thread->ended; }));
}

void World::choose_by(std::function<size_t(size_t)> choice) {
    g_State->choice = std::move(choice);
}

bool World::wait(const void* object, Time deadline) {
    return wait_until(object, deadline);
}

void World::wake_all(const void* object) {
    while (wake_one(object)) {
    }
}

void pass(Time time) {
    wait_until(nullptr, after(time));
}

void Signal::set() {
    set_ = true;
    World::wake_all(this);
}

bool Signal::wait(Time limit) {
    const Time deadline = after(limit);
    while (!set_ && World::wait(this, deadline)) {
    }
    return std::exchange(set_, false);
}

Task::Task(std::function<void()> work) : work_(std::move(work)) {
    const auto run = [](void* self) -> void* {
        static_cast<Task*>(self)->work_();
        return nullptr;
    };
    if (pthread_create(&id_, nullptr, run, this) != 0) {
        abort();
    }
}

void Task::join() {
    if (!std::exchange(joined_, true)) {
        pthread_join(id_, nullptr);
    }
}

}  // namespace sim

using sim::g_State;
using sim::t_Self;
using sim::Thread;

extern "C" {

int __wrap_pthread_create(pthread_t* id, const pthread_attr_t* attribute, void* (*start)(void*),
                          void* argument) {
    if (t_Self == nullptr) {
        return __real_pthread_create(id, attribute, start, argument);
    }
    auto thread = std::make_unique<Thread>();
    thread->start = start;
    thread->argument = argument;
    const int error = __real_pthread_create(id, attribute, sim::run_thread, thread.get());
    if (error == 0) {
        thread->id = *id;
        g_State->ready.push_back(thread.get());
        g_State->threads.push_back(std::move(thread));
    }
    return error;
}

int __wrap_pthread_join(pthread_t id, void** result) {
    Thread* thread = t_Self == nullptr ? nullptr : sim::find(id);
    if (thread == nullptr) {
        return __real_pthread_join(id, result);
    }
    while (!thread->ended) {
        sim::wait_until(thread, sim::kForever);
    }
    const int error = __real_pthread_join(id, result);
    auto& all = g_State->threads;
    all.erase(std::find_if(all.begin(), all.end(),
                           [&](const auto& each) { return each.get() == thread; }));
    return error;
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (t_Self == nullptr) {
        return __real_pthread_mutex_lock(mutex);
    }
    int error;
    while ((error = __real_pthread_mutex_trylock(mutex)) == EBUSY) {
        sim::wait_until(mutex, sim::kForever);
    }
    return error;
}

int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex) {
    return __real_pthread_mutex_trylock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    const int error = __real_pthread_mutex_unlock(mutex);
    if (t_Self != nullptr && sim::wake_one(mutex)) {
        // Who waited gets it: a loop that locks again at once would keep him out for good.
        g_State->ready.push_back(t_Self);
        sim::give_way();
    }
    return error;
}

/// Of a condition; the mutex is held again afterwards.
static int wait_for_condition(pthread_cond_t* condition, pthread_mutex_t* mutex,
                              sim::Time deadline) {
    __real_pthread_mutex_unlock(mutex);
    sim::wake_one(mutex);
    const bool woken = sim::wait_until(condition, deadline);
    __wrap_pthread_mutex_lock(mutex);
    return woken ? 0 : ETIMEDOUT;
}

int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    return t_Self == nullptr ? __real_pthread_cond_wait(condition, mutex)
                             : wait_for_condition(condition, mutex, sim::kForever);
}

// The deadline counts from the clock that clock_gettime shows here.
int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline) {
    return t_Self == nullptr ? __real_pthread_cond_timedwait(condition, mutex, deadline)
                             : wait_for_condition(condition, mutex, sim::from_timespec(*deadline));
}

int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
    if (t_Self == nullptr) {
        return __real_pthread_cond_signal(condition);
    }
    sim::wake_one(condition);
    return 0;
}

int __wrap_usleep(useconds_t microseconds) {
    if (t_Self == nullptr) {
        return __real_usleep(microseconds);
    }
    sim::pass(std::chrono::microseconds(microseconds));
    return 0;
}

unsigned int __wrap_sleep(unsigned int seconds) {
    if (t_Self == nullptr) {
        return __real_sleep(seconds);
    }
    sim::pass(std::chrono::seconds(seconds));
    return 0;
}

// CLOCK_REALTIME stays real: a fuzzer measures its own time by it, inside a signal's handler.
int __wrap_clock_gettime(clockid_t clock, timespec* now) {
    if (t_Self == nullptr || clock == CLOCK_REALTIME) {
        return __real_clock_gettime(clock, now);
    }
    *now = sim::to_timespec(g_State->now);
    return 0;
}

int __wrap_gettimeofday(timeval* now, void* zone) {
    if (t_Self == nullptr) {
        return __real_gettimeofday(now, zone);
    }
    g_State->now += std::chrono::microseconds(1);  // no two looks show the same, as on a machine
    const timespec time =
        sim::to_timespec(sim::kWallClockAtBegin + g_State->now + g_State->wall_step);
    *now = {time.tv_sec, time.tv_nsec / 1000};
    return 0;
}

// Never the real one: a test may not renice the machine's work.
int __wrap_setpriority(int which, id_t who, int priority) {
    return t_Self == nullptr ? __real_setpriority(which, who, priority) : 0;
}
}

SteadyTime wrap_steady_now() {
    return t_Self == nullptr ? real_steady_now() : SteadyTime(g_State->now);
}
