// pMutex, pMutexLock, pFastMutex, pFastMutexLock, pSyncEvent, CamMutex.
#include <errno.h>
#include <pthread.h>
#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "LibusbWrap.h"
#include "ptasking.h"
#include "tests/support/LockProbe.h"
#include "tests/support/PluginTest.h"

namespace test {
namespace {

using namespace std::chrono_literals;
constexpr auto kLimit = 10s;
/// How long something that must not happen is given to happen.
constexpr auto kNegative = 20ms;

/// Waits that long. Not a sleep: those are shortened.
void GiveItTime() {
    std::promise<void>().get_future().wait_for(kNegative);
}

class Locks : public PluginTest {};
class Events : public PluginTest {};

TEST_F(Locks, MutexIsRecursiveAndReleasedAsOftenAsAcquired) {
    pMutex mutex;
    EXPECT_TRUE(mutex.Acquire());
    EXPECT_TRUE(mutex.Acquire());
    EXPECT_FALSE(IsFree(mutex.Get()));
    mutex.Release();
    EXPECT_FALSE(IsFree(mutex.Get()));
    mutex.Release();
    EXPECT_TRUE(IsFree(mutex.Get()));
}

TEST_F(Locks, ScopedLockHoldsForItsScope) {
    pMutex mutex;
    {
        pMutexLock outer(mutex);
        {
            pMutexLock inner(mutex);
            EXPECT_FALSE(IsFree(mutex.Get()));
        }
        EXPECT_FALSE(IsFree(mutex.Get()));
    }
    EXPECT_TRUE(IsFree(mutex.Get()));
}

TEST_F(Locks, MutexWorksWhenItsAttributeCannotBeMade) {
    system_calls().pthread_mutexattr_init = ENOMEM;
    pMutex mutex;
    CamMutex other;
    system_calls().pthread_mutexattr_init = 0;
    EXPECT_TRUE(mutex.Acquire());
    EXPECT_FALSE(IsFree(mutex.Get()));
    mutex.Release();
    EXPECT_TRUE(IsFree(mutex.Get()));
    other.Lock();
    other.Unlock();
}

TEST_F(Locks, AcquireCallsAFailedLockHeld) {
    pthread_mutexattr_t attribute;
    pthread_mutexattr_init(&attribute);
    pthread_mutexattr_settype(&attribute, PTHREAD_MUTEX_ERRORCHECK);
    pMutex mutex;
    pthread_mutex_destroy(mutex.Get());
    pthread_mutex_init(mutex.Get(), &attribute);
    pthread_mutexattr_destroy(&attribute);
    EXPECT_TRUE(mutex.Acquire());
    EXPECT_TRUE(mutex.Acquire());  // EDEADLK, reported to nobody
    mutex.Release();
}

TEST_F(Locks, ProcessWideLocksAreRecursive) {
    for (pMutex* mutex : {&gCtrlTransferMtx, &m_libusb_ctrl_lock}) {
        pMutexLock outer(*mutex);
        pMutexLock inner(*mutex);
        EXPECT_FALSE(IsFree(mutex->Get()));
    }
    EXPECT_TRUE(IsFree(gCtrlTransferMtx.Get()));
    EXPECT_TRUE(IsFree(m_libusb_ctrl_lock.Get()));
}

TEST_F(Locks, FastMutexExcludesOthers) {
    pFastMutex mutex;
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 500; ++k) {
                pFastMutexLock lock(mutex);
                const int before = counter;
                if (k % 8 == 0) {
                    std::this_thread::yield();  // so that others come and wait
                }
                counter = before + 1;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 2000);
}

/// Each release lets in one of those that wait, and the last one leaves it free.
TEST_F(Locks, FastMutexIsPassedFromOneToTheNext) {
    constexpr int kThreads = 3;
    pFastMutex mutex;
    std::atomic<int> entered{0}, allowed{0};
    std::vector<std::thread> threads;
    mutex.Acquire();
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            pFastMutexLock lock(mutex);
            const int mine = ++entered;
            while (allowed < mine) {
                std::this_thread::yield();
            }
        });
    }
    GiveItTime();
    EXPECT_EQ(entered, 0);
    mutex.Release();
    for (int i = 1; i <= kThreads; ++i) {
        while (entered < i) {
            std::this_thread::yield();
        }
        GiveItTime();
        EXPECT_EQ(entered, i);
        allowed = i;
    }
    for (auto& thread : threads) {
        thread.join();
    }
    mutex.Acquire();
    mutex.Release();
}

TEST_F(Locks, CamMutexExcludesOthers) {
    CamMutex mutex;
    EXPECT_TRUE(mutex.Create());
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 20000; ++k) {
                mutex.Lock();
                counter = counter + 1;
                mutex.Unlock();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 80000);
    mutex.Destroy();
    mutex.Lock();  // Destroy did nothing
    mutex.Unlock();
}

#ifndef __SANITIZE_THREAD__  // which forbids the unlock from outside
TEST_F(Locks, CamMutexIsNotRecursive) {
    CamMutex mutex;
    std::atomic<int> held{0};
    std::thread thread([&] {
        mutex.Lock();
        held = 1;
        mutex.Lock();
        held = 2;
        mutex.Unlock();
    });
    while (held == 0) {
        std::this_thread::yield();
    }
    GiveItTime();
    EXPECT_EQ(held, 1);
    mutex.Unlock();
    thread.join();
    EXPECT_EQ(held, 2);
}
#endif

// --- events --------------------------------------------------------------------------------------

struct DeadlineCase {
    timeval now;
    int ms;
    timespec deadline;
};

TEST_F(Events, DeadlineIsTheWallClockPlusTheTimeOut) {
    const DeadlineCase cases[] = {
        {{100, 0}, 0, {100, 0}},
        {{100, 250000}, 500, {100, 750000000}},
        {{100, 999999}, 0, {100, 999999000}},
        {{100, 499999}, 500, {100, 999999000}},
        {{100, 500000}, 500, {101, 0}},
        {{100, 500001}, 500, {101, 1000}},
        {{100, 999999}, 999, {101, 998999000}},
        {{100, 1}, 1000, {101, 1000}},
        {{100, 600000}, 12900, {113, 500000000}},
    };
    pSyncEvent event;
    for (const auto& test : cases) {
        clock().set_wall_clock({test.now});
        const timespec deadline = event.makeTimespec(test.ms);
        EXPECT_EQ(deadline.tv_sec, test.deadline.tv_sec) << test.now.tv_usec << "+" << test.ms;
        EXPECT_EQ(deadline.tv_nsec, test.deadline.tv_nsec) << test.now.tv_usec << "+" << test.ms;
    }
}

TEST_F(Events, WaitOfZeroTimesOutAtOnce) {
    pSyncEvent event;
    EXPECT_FALSE(event.Wait(0));
    EXPECT_EQ(system_calls().timed_wait_calls, 1);
}

TEST_F(Events, WaitUsesTheDeadlineOfItsTimeOut) {
    system_calls().pthread_cond_timedwait = ETIMEDOUT;
    pSyncEvent event;
    pMutex mutex;
    pMutexLock lock(mutex);
    for (const int ms : {0, 1, 999, 1000, 1500}) {
        EXPECT_FALSE(event.Wait(mutex, ms));
        EXPECT_EQ(timed_wait_lengths().back(), std::chrono::milliseconds(ms));
    }
}

TEST_F(Events, AClockThatWasSetBackDoesNotProlongAWait) {
    timeval ahead{};
    gettimeofday(&ahead, nullptr);
    ahead.tv_sec += 5;  // what it showed when the wait began
    clock().set_wall_clock({ahead});
    pSyncEvent event;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(event.Wait(1));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 4s);
}

TEST_F(Events, AnInterruptedWaitStartsAFullNewPeriod) {
    system_calls().interrupted_timed_waits = 2;
    system_calls().pthread_cond_timedwait = ETIMEDOUT;
    pSyncEvent event;
    EXPECT_FALSE(event.Wait(500));
    // Each from a look at the clock of its own.
    EXPECT_EQ(timed_wait_lengths(), (std::vector<std::chrono::nanoseconds>(3, 500ms)));
}

TEST_F(Events, AnotherErrorOfTheWaitCountsAsWoken) {
    system_calls().pthread_cond_timedwait = EINVAL;
    pSyncEvent event;
    EXPECT_TRUE(event.Wait(500));
    EXPECT_EQ(system_calls().timed_wait_calls, 1);
}

/// A thread that waits on an event under a mutex of the test.
class Waiter {
  public:
    Waiter(pSyncEvent& event, pMutex& mutex, int ms)
        : m_Mutex(mutex), m_Thread([this, &event, ms] {
              pMutexLock lock(m_Mutex);
              m_Waiting = true;
              m_Result = event.Wait(m_Mutex, ms);
              m_Ended = true;
          }) {}
    /// Returns once the wait has begun: it announces itself under the mutex that it then gives up.
    void AwaitWaiting() {
        for (;;) {
            pMutexLock lock(m_Mutex);
            if (m_Waiting) {
                return;
            }
        }
    }
    bool Ended() {
        pMutexLock lock(m_Mutex);
        return m_Ended;
    }
    bool Join() {
        m_Thread.join();
        return m_Result;
    }

  private:
    pMutex& m_Mutex;
    bool m_Waiting = false;
    bool m_Ended = false;
    bool m_Result = false;
    std::thread m_Thread;
};

TEST_F(Events, TriggerEndsAnUnlimitedWait) {
    pSyncEvent event;
    pMutex mutex;
    Waiter waiter(event, mutex, -1);
    waiter.AwaitWaiting();
    event.Trigger(mutex);
    EXPECT_TRUE(waiter.Join());
    EXPECT_EQ(system_calls().timed_wait_calls, 0);
}

TEST_F(Events, TriggerEndsATimedWaitWithTrue) {
    pSyncEvent event;
    pMutex mutex;
    Waiter waiter(event, mutex, 60000);
    waiter.AwaitWaiting();
    event.Trigger(mutex);
    EXPECT_TRUE(waiter.Join());
}

TEST_F(Events, TriggerWithoutAWaiterIsLost) {
    pSyncEvent event;
    event.Trigger();
    EXPECT_FALSE(event.Wait(1));
    pMutex mutex;
    event.Trigger(mutex);
    Waiter waiter(event, mutex, -1);
    waiter.AwaitWaiting();
    GiveItTime();
    EXPECT_FALSE(waiter.Ended());
    event.Trigger(mutex);
    EXPECT_TRUE(waiter.Join());
}

TEST_F(Events, TriggerWakesOneWaiterOnly) {
    pSyncEvent event;
    pMutex mutex;
    Waiter first(event, mutex, -1);
    Waiter second(event, mutex, -1);
    first.AwaitWaiting();
    second.AwaitWaiting();
    event.Trigger(mutex);
    GiveItTime();
    EXPECT_NE(first.Ended(), second.Ended());
    event.Trigger(mutex);
    EXPECT_TRUE(first.Join());
    EXPECT_TRUE(second.Join());
}

TEST_F(Events, TriggerTakesTheMutexAroundTheSignal) {
    pSyncEvent event;
    pMutex mutex;
    std::atomic<bool> triggered{false};
    std::thread thread;
    {
        pMutexLock lock(mutex);
        thread = std::thread([&] {
            event.Trigger(mutex);
            triggered = true;
        });
        GiveItTime();
        EXPECT_FALSE(triggered);
    }
    thread.join();
    EXPECT_TRUE(IsFree(mutex.Get()));
}

TEST_F(Events, InternalMutexServesWaitAndTriggerWithoutArgument) {
    pSyncEvent event;
    auto waiter = std::async(std::launch::async, [&] { return event.Wait(-1); });
    // The wait's beginning cannot be seen from outside, so the trigger is repeated.
    const auto end = std::chrono::steady_clock::now() + kLimit;
    while (waiter.wait_for(1ms) != std::future_status::ready &&
           std::chrono::steady_clock::now() < end) {
        event.Trigger();
    }
    EXPECT_TRUE(waiter.get());
}

TEST_F(Events, WaitGivesTheMutexUpAndTakesItAgain) {
    pSyncEvent event;
    pMutex mutex;
    Waiter waiter(event, mutex, -1);
    waiter.AwaitWaiting();  // takes the mutex, so the waiter has given it up
    event.Trigger(mutex);
    EXPECT_TRUE(waiter.Join());
    EXPECT_TRUE(IsFree(mutex.Get()));
}

}  // namespace
}  // namespace test
