// Virtual time: the threads of a program, the plug-in's included, run one at a time, and time passes
// only while all of them wait, by a jump to the next moment for which one does. Hours last seconds,
// every run of one program is the same, and a deadlock is noticed at once.
//
// Linked into an executable, it takes the place of sleeps, clocks, threads, mutexes and conditions
// of everything that is linked statically (link wraps, see CMakeLists.txt). Threads that are no part
// of a World (a fuzzer's, a sanitizer's) keep the real ones. std::thread and std::condition_variable
// act inside libstdc++, out of reach: use Task and Signal. A look at the wall clock (gettimeofday)
// takes a microsecond.
#pragma once

#include <pthread.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>

namespace sim {

using Time = std::chrono::nanoseconds;
constexpr Time kForever = Time(std::numeric_limits<Time::rep>::max());

/// One at a time. The thread that makes it is its first one and destroys it, when the others have
/// ended; it aborts with a list of the threads when all of them wait for good.
class World {
  public:
    World();
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// Virtual time since the beginning.
    static Time now();
    /// What the wall clock shows besides: it steps by this much. Any sign.
    static void step_wall_clock(Time by);
    /// Threads that have not ended, the calling one included.
    static size_t threads();
    /// Chooses which of `count` (2 or more) threads goes on; null: the one that is ready longest.
    static void choose_by(std::function<size_t(size_t count)> choice);

    // For what simulates a device that threads wait for. Calling thread: one of the World's.

    /// Waits until somebody wakes the waiters of `object`, or until `deadline`: false then.
    static bool wait(const void* object, Time deadline);
    static void wake_all(const void* object);
};

/// Lets virtual time pass for the calling thread.
void pass(Time time);

/// A thread of the World.
class Task {
  public:
    explicit Task(std::function<void()> work);
    ~Task() { join(); }
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    void join();

  private:
    std::function<void()> work_;
    pthread_t id_ = 0;
    bool joined_ = false;
};

/// Something that happened, for one waiter at a time.
class Signal {
  public:
    void set();
    /// False: not within `limit`. Takes the signal down.
    bool wait(Time limit);

  private:
    bool set_ = false;
};

}  // namespace sim
