// Threads, mutexes and events: a thin layer over POSIX threads. Failures of the layer itself go to
// __FATAL and are otherwise ignored: every caller carries on.
#pragma once

#include <pthread.h>
#include <time.h>

#include <atomic>

#include "ThreadSafety.h"

/// Hook for unrecoverable POSIX failures; takes a printf format and deliberately does nothing.
void __FATAL(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Gives the calling thread nice value -19. False (errno set) when the process may not.
bool RaiseThreadPriority();

/// Recursive mutex.
class CAPABILITY("mutex") pMutex {
  public:
    pMutex() noexcept;
    ~pMutex();
    pMutex(const pMutex&) = delete;
    pMutex& operator=(const pMutex&) = delete;

    pthread_mutex_t* Get() { return &Mtx; }
    /// Always true: a failed lock is reported to __FATAL and treated as held.
    bool Acquire() ACQUIRE() NO_THREAD_SAFETY_ANALYSIS;
    void Release() RELEASE() NO_THREAD_SAFETY_ANALYSIS;

  private:
    pthread_mutex_t Mtx;
};

/// Holds a pMutex for a scope.
class SCOPED_CAPABILITY pMutexLock {
  public:
    explicit pMutexLock(pMutex& mutex) ACQUIRE(mutex) : m_Mutex(mutex) {
        pthread_mutex_lock(m_Mutex.Get());
    }
    ~pMutexLock() RELEASE() { pthread_mutex_unlock(m_Mutex.Get()); }
    pMutexLock(const pMutexLock&) = delete;
    pMutexLock& operator=(const pMutexLock&) = delete;

  private:
    pMutex& m_Mutex;
};

/// Condition without memory: a Trigger that nobody waits for is lost, so callers wait on a
/// predicate of their own, tested under the mutex that they pass.
class pSyncEvent {
  public:
    pSyncEvent();
    ~pSyncEvent();
    pSyncEvent(const pSyncEvent&) = delete;
    pSyncEvent& operator=(const pSyncEvent&) = delete;

    /// Wall-clock instant `ms` milliseconds from now.
    timespec makeTimespec(int ms);
    /// Waits at most `ms` milliseconds (negative: without limit), whatever the wall clock does
    /// meanwhile. False: timed out.
    bool Wait(pMutex& mutex, int ms) REQUIRES(mutex);
    /// Wakes at most one waiter.
    void Trigger(pMutex& mutex);
    /// The same for a caller that has changed the predicate under the mutex and released it.
    void Signal() { pthread_cond_signal(&cond); }

    // --- not called by the plug-in ---------------------------------------------------------------

    // The same with a mutex of the event's own.
    bool Wait(int ms);
    void Trigger();

  private:
    pMutex internal_mutex;
    pthread_cond_t cond;
    clockid_t m_Clock = CLOCK_MONOTONIC;  // that of the condition's deadlines
};

/// Mutex for a lock that is taken at each payload and hardly ever contended: while nobody else wants
/// it, it costs one atomic operation to take and one to give back. Not recursive.
///
/// It counts who holds it and who waits. One who finds others there waits for its turn, one who
/// leaves others behind passes the turn to one of them, so it is never free in between.
class CAPABILITY("mutex") pFastMutex {
  public:
    pFastMutex() = default;
    pFastMutex(const pFastMutex&) = delete;
    pFastMutex& operator=(const pFastMutex&) = delete;

    void Acquire() ACQUIRE() NO_THREAD_SAFETY_ANALYSIS {
        if (m_nThreads.fetch_add(1, std::memory_order_acquire) != 0) {
            AwaitTurn();
        }
    }
    void Release() RELEASE() NO_THREAD_SAFETY_ANALYSIS {
        if (m_nThreads.fetch_sub(1, std::memory_order_release) != 1) {
            PassTurn();
        }
    }

  private:
    void AwaitTurn();
    void PassTurn();

    std::atomic<int> m_nThreads{0};  // the holder and those that wait
    pMutex m_TurnMutex;
    pSyncEvent m_TurnEvent;
    int m_nTurns GUARDED_BY(m_TurnMutex) = 0;  // passed and not yet taken: 0 or 1
};

/// Holds a pFastMutex for a scope.
class SCOPED_CAPABILITY pFastMutexLock {
  public:
    explicit pFastMutexLock(pFastMutex& mutex) ACQUIRE(mutex) : m_Mutex(mutex) {
        m_Mutex.Acquire();
    }
    ~pFastMutexLock() RELEASE() { m_Mutex.Release(); }
    pFastMutexLock(const pFastMutexLock&) = delete;
    pFastMutexLock& operator=(const pFastMutexLock&) = delete;

  private:
    pFastMutex& m_Mutex;
};

/// Base of every worker: subclasses implement Run, whose loop polls Shutdown.
///
/// Stop asks and, for a joinable thread, waits until Run has returned. A final class stops its
/// thread in its own destructor, before its members go; the base destructor is only the last
/// resort.
class pThread {
  public:
    /// `stackSize` in bytes; 0 or less takes the default. No thread of the plug-in is detached: a
    /// detached one is not waited for, and Stop cancels it wherever it is.
    pThread(bool detached, int stackSize);

    virtual void Run() = 0;
    virtual ~pThread();
    /// Safe when called twice (a second caller waits, too), on a thread that was never created, and
    /// from inside Run: that only asks, and the wait is left to the owner's own Stop. An object that
    /// is destroyed inside its Run is not waited for.
    virtual void Stop();

    /// Raises the caller's priority, as the new thread inherits it, and creates the thread. `name`
    /// (static storage, null for none) is shown by debuggers, cut to 15 characters. A thread that
    /// still runs is left alone. Once the thread exists the object is not touched: Run may delete
    /// it. False: there is no thread. An exception that leaves Run ends the thread with a log line.
    bool Start(const char* name);

    /// Not called by the plug-in. Sleeps `ms` milliseconds; an interrupted sleep is not resumed.
    void Sleep(unsigned int ms);

  protected:
    static void* thread_func(void* self);

    pthread_t thread_id = 0;
    std::atomic<bool> Shutdown{false};
    std::atomic<bool> Running{false};
    const bool Detached;
    const int StackSize;

  private:
    bool IsOwnThread() const;
    void JoinOnce();

    std::atomic<bool> m_bCreated{false};   // a thread exists that nobody has joined
    std::atomic<bool> m_bRunEnded{false};  // its Run has returned
    const char* m_pThreadName = nullptr;
    pMutex m_JoinMutex;  // held while the thread is waited for
};

static_assert(sizeof(std::atomic<bool>) == sizeof(bool), "flags stay plain bytes");

// --- not called by the plug-in -------------------------------------------------------------------

/// Non-recursive mutex of the camera module's toolkit.
class CAPABILITY("mutex") CamMutex {
  public:
    CamMutex();
    virtual ~CamMutex();
    CamMutex(const CamMutex&) = delete;
    CamMutex& operator=(const CamMutex&) = delete;

    bool Create() { return true; }
    void Destroy() {}
    void Lock() ACQUIRE() NO_THREAD_SAFETY_ANALYSIS;
    void Unlock() RELEASE() NO_THREAD_SAFETY_ANALYSIS;

  private:
    pthread_mutex_t m_mutex;
};
