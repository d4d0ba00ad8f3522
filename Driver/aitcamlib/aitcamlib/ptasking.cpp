#include "ptasking.h"

#include <cxxabi.h>
#include <errno.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include "aitdbg.h"

namespace {

constexpr int kPriority = -19;
constexpr long kNanosecondsPerSecond = 1000000000L;

/// Text of an errno value in a buffer of its own, since strerror's is shared between threads.
class ErrorText {
  public:
    explicit ErrorText(int error) : m_Text(strerror_r(error, m_Buffer, sizeof m_Buffer)) {}
    const char* c_str() const { return m_Text; }

  private:
    char m_Buffer[128] = {};
    const char* m_Text;
};

/// `type`: PTHREAD_MUTEX_RECURSIVE or PTHREAD_MUTEX_NORMAL; without memory for the attribute, the
/// default type.
void InitMutex(pthread_mutex_t* mutex, int type) {
    pthread_mutexattr_t attribute;
    if (pthread_mutexattr_init(&attribute) != 0) {
        __FATAL("pthread_mutexattr_init() failed\n");
        pthread_mutex_init(mutex, nullptr);
        return;
    }
    pthread_mutexattr_settype(&attribute, type);
    pthread_mutex_init(mutex, &attribute);
    pthread_mutexattr_destroy(&attribute);
}

timespec After(timespec begin, int ms) {
    begin.tv_sec += ms / 1000;
    begin.tv_nsec += (ms % 1000) * 1000000L;
    if (begin.tv_nsec > kNanosecondsPerSecond - 1) {
        begin.tv_sec += 1;
        begin.tv_nsec -= kNanosecondsPerSecond;
    }
    return begin;
}

}  // namespace

void __FATAL(const char*, ...) {}  // NOLINT(cert-dcl50-cpp): printf's own form

bool RaiseThreadPriority() {
    return setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), kPriority) == 0;
}

pMutex::pMutex() noexcept {
    InitMutex(&Mtx, PTHREAD_MUTEX_RECURSIVE);
}

pMutex::~pMutex() {
    pthread_mutex_destroy(&Mtx);
}

bool pMutex::Acquire() {
    const int error = pthread_mutex_lock(&Mtx);
    if (error != 0) {
        __FATAL("pthread_mutex_lock() failed (%s)\n", ErrorText(error).c_str());
    }
    return true;
}

void pMutex::Release() {
    pthread_mutex_unlock(&Mtx);
}

pSyncEvent::pSyncEvent() {
    pthread_condattr_t attribute;
    pthread_condattr_init(&attribute);
    if (pthread_condattr_setclock(&attribute, m_Clock) != 0) {
        m_Clock = CLOCK_REALTIME;
    }
    const int error = pthread_cond_init(&cond, &attribute);
    pthread_condattr_destroy(&attribute);
    if (error != 0) {
        __FATAL("pthread_cond_init() failed (%s)\n", ErrorText(error).c_str());
    }
}

pSyncEvent::~pSyncEvent() {
    pthread_cond_destroy(&cond);
}

timespec pSyncEvent::makeTimespec(int ms) {
    timeval now;
    gettimeofday(&now, nullptr);
    return After({now.tv_sec, now.tv_usec * 1000L}, ms);
}

bool pSyncEvent::Wait(pMutex& mutex, int ms) {
    int error;
    if (ms < 0) {
        error = pthread_cond_wait(&cond, mutex.Get());
    } else {
        do {  // an interrupted wait starts a full new period
            timespec now;
            clock_gettime(m_Clock, &now);
            const timespec deadline = After(now, ms);
            error = pthread_cond_timedwait(&cond, mutex.Get(), &deadline);
        } while (error == EINTR);
    }
    if (error == ETIMEDOUT) {
        return false;
    }
    if (error != 0) {
        __FATAL("pthread_cond_wait()/pthread_cond_timedwait() failed (%s)\n",
                ErrorText(error).c_str());
    }
    return true;
}

bool pSyncEvent::Wait(int ms) {
    pMutexLock lock(internal_mutex);
    return Wait(internal_mutex, ms);
}

void pSyncEvent::Trigger(pMutex& mutex) {
    pMutexLock lock(mutex);
    Signal();
}

void pSyncEvent::Trigger() {
    Trigger(internal_mutex);
}

void pFastMutex::AwaitTurn() {
    pMutexLock lock(m_TurnMutex);
    while (m_nTurns == 0) {
        m_TurnEvent.Wait(m_TurnMutex, -1);
    }
    --m_nTurns;
}

void pFastMutex::PassTurn() {
    pMutexLock lock(m_TurnMutex);
    ++m_nTurns;
    m_TurnEvent.Signal();
}

CamMutex::CamMutex() {
    InitMutex(&m_mutex, PTHREAD_MUTEX_NORMAL);
}

CamMutex::~CamMutex() {
    pthread_mutex_destroy(&m_mutex);
}

void CamMutex::Lock() {
    pthread_mutex_lock(&m_mutex);
}

void CamMutex::Unlock() {
    pthread_mutex_unlock(&m_mutex);
}

namespace {
/// The object whose Run this thread executes; null when there is none any more.
thread_local const pThread* g_pRunning = nullptr;

}  // namespace

pThread::pThread(bool detached, int stackSize) : Detached(detached), StackSize(stackSize) {}

pThread::~pThread() {
    if (Running) {
        pThread::Stop();
    }
    if (!IsOwnThread()) {
        JoinOnce();
        return;
    }
    // Destroyed inside its own Run, which nobody can wait for any more.
    if (!Detached && m_bCreated.exchange(false)) {
        pthread_detach(thread_id);
    }
    g_pRunning = nullptr;
}

bool pThread::Start(const char* name) {
    if (m_bCreated && !m_bRunEnded) {
        return true;
    }
    JoinOnce();

    Shutdown = false;
    Running = true;
    m_bRunEnded = false;
    m_pThreadName = name;
    m_bCreated = true;

    pthread_attr_t attribute;
    pthread_attr_init(&attribute);
    if (StackSize > 0) {
        pthread_attr_setstacksize(&attribute, static_cast<size_t>(StackSize));
    }
    if (Detached) {
        pthread_attr_setdetachstate(&attribute, PTHREAD_CREATE_DETACHED);
    }
    if (!RaiseThreadPriority()) {
        __FATAL("setpriority() failed (%s)\n", ErrorText(errno).c_str());
    }
    // The C library stores the id before the thread runs, so nothing is written to an object that
    // the new thread may already have deleted.
    const int error = pthread_create(&thread_id, &attribute, thread_func, this);
    if (error != 0) {
        m_bCreated = false;
        thread_id = 0;  // the C library stores the id before it knows that it cannot start one
        __FATAL("pthread_create() failed (%s)\n", ErrorText(error).c_str());
    }
    pthread_attr_destroy(&attribute);
    return error == 0;
}

// A forced unwind comes without an object behind the reference, which UBSan need not mind.
__attribute__((no_sanitize("null"))) void* pThread::thread_func(void* self) {
    auto* thread = static_cast<pThread*>(self);
    g_pRunning = thread;
    if (thread->m_pThreadName != nullptr) {
        char name[16] = {};
        strncpy(name, thread->m_pThreadName, sizeof name - 1);
        pthread_setname_np(pthread_self(), name);
    }
    if (thread->Detached) {
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        // A bench's detached thread is cancelled wherever it is; the plug-in has none.
        // NOLINTNEXTLINE(cert-pos47-c,concurrency-thread-canceltype-asynchronous)
        pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
    }
    thread->Running = true;
    try {
        thread->Run();
    } catch (const abi::__forced_unwind&) {
        throw;  // a cancellation, which must go on
    } catch (...) {
        AIT_LOG(1, "A thread ended with an exception.\r\n");
    }
    if (g_pRunning != nullptr) {
        thread->m_bRunEnded = true;
        g_pRunning = nullptr;
    }
    return self;
}

void pThread::Stop() {
    Shutdown = true;
    const bool other = !IsOwnThread();  // a thread neither waits for itself nor cancels itself
    if (other && !Detached) {
        JoinOnce();
    } else if (other && Running && m_bCreated.exchange(false) && !m_bRunEnded) {
        pthread_cancel(thread_id);
    }
    Running = false;
}

bool pThread::IsOwnThread() const {
    return g_pRunning == this;
}

void pThread::JoinOnce() {
    if (Detached) {
        return;
    }
    pMutexLock lock(m_JoinMutex);  // whoever comes second waits here
    if (m_bCreated.exchange(false)) {
        pthread_join(thread_id, nullptr);
        thread_id = 0;
    }
}

void pThread::Sleep(unsigned int ms) {
    timespec duration;
    duration.tv_sec = ms / 1000;
    duration.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    nanosleep(&duration, nullptr);
}
