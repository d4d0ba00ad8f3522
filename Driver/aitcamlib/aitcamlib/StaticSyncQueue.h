// Fixed ring of elements between one producer and one consumer.
//
// The queue moves no data and owns no element: the producer fills the element at the write index
// before it publishes it, the consumer reads the one at the read index before it releases it. An
// unread element is never overwritten: when all are published the producer gets none and the newest
// data is lost, while what is queued is delivered in order.
#pragma once

#include <stdint.h>

#include "ptasking.h"

template <typename T>
class StaticSyncQueue {
  public:
    /// `elems` (owned by the caller, filled before use) has `len` slots.
    StaticSyncQueue(T* elems, int len) : m_pElemArray(elems), m_QueueLen(len) {}
    StaticSyncQueue(const StaticSyncQueue&) = delete;
    StaticSyncQueue& operator=(const StaticSyncQueue&) = delete;

    /// Element to fill next, not yet published. A full queue is waited for once, at most
    /// `timeoutMs` milliseconds (negative: without limit); null when it is still full then.
    T GetWritePtr(int timeoutMs) {
        pMutexLock lock(m_QueueMutex);
        if (m_ItemCnt == m_QueueLen) {
            WaitOnce(timeoutMs);
            if (m_ItemCnt == m_QueueLen) {
                return nullptr;
            }
        }
        return m_pElemArray[m_WrIndex];
    }

    /// Publishes the element that GetWritePtr gave; ignored when the queue is full.
    void WriteDone() {
        bool awaited;
        {
            pMutexLock lock(m_QueueMutex);
            awaited = Publish();
        }
        WakeIf(awaited);
    }

    /// WriteDone and GetWritePtr in one.
    T WriteDoneGetNext(int timeoutMs) {
        bool awaited;
        T next;
        {
            pMutexLock lock(m_QueueMutex);
            awaited = Publish();
            next = m_ItemCnt == m_QueueLen ? nullptr : m_pElemArray[m_WrIndex];
        }
        WakeIf(awaited);
        return next != nullptr ? next : GetWritePtr(timeoutMs);
    }

    /// Oldest published element; null when none came within 500 ms (or within one wake-up).
    T GetReadPtr() {
        pMutexLock lock(m_QueueMutex);
        if (m_ItemCnt == 0) {
            WaitOnce(kReadTimeoutMs);
            if (m_ItemCnt == 0) {
                return nullptr;
            }
        }
        return m_pElemArray[m_RdIndex];
    }

    /// Releases the element that GetReadPtr gave; ignored when the queue is empty.
    void ReadDone() {
        bool awaited = false;
        {
            pMutexLock lock(m_QueueMutex);
            if (m_ItemCnt != 0) {
                IncIndex(m_RdIndex);
                awaited = m_ItemCnt == m_QueueLen && m_NumWaiters != 0;
                --m_ItemCnt;
            }
        }
        WakeIf(awaited);
    }

    /// Makes a blocked producer or consumer look again.
    void WakeWait() { m_QueueEvent.Trigger(m_QueueMutex); }

    uint32_t GetCnt() {
        pMutexLock lock(m_QueueMutex);
        return static_cast<uint32_t>(m_ItemCnt);
    }
    void IncIndex(int& index) { index = index < m_QueueLen - 1 ? index + 1 : 0; }

    // --- not called by the plug-in ---------------------------------------------------------------

    uint32_t GetEmptyCnt() {
        pMutexLock lock(m_QueueMutex);
        return static_cast<uint32_t>(m_QueueLen - m_ItemCnt);
    }
    /// Threads that are blocked in a wait on this queue.
    int GetNumWaiters() {
        pMutexLock lock(m_QueueMutex);
        return m_NumWaiters;
    }

  private:
    static constexpr int kReadTimeoutMs = 500;

    /// True: the queue was empty and a consumer waits for what has been published.
    bool Publish() REQUIRES(m_QueueMutex) {
        if (m_ItemCnt == m_QueueLen) {
            return false;
        }
        IncIndex(m_WrIndex);
        return m_ItemCnt++ == 0 && m_NumWaiters != 0;
    }

    /// Wakes the other side when it waits, after the mutex is released: a thread that is woken while
    /// the mutex is held sleeps again at once to wait for it. Only when it waits: a signal that
    /// comes after its next wait has begun would end that one with nothing.
    void WakeIf(bool awaited) {
        if (awaited) {
            m_QueueEvent.Signal();
        }
    }

    void WaitOnce(int timeoutMs) REQUIRES(m_QueueMutex) {
        ++m_NumWaiters;
        m_QueueEvent.Wait(m_QueueMutex, timeoutMs);
        --m_NumWaiters;
    }

    T* const m_pElemArray;
    const int m_QueueLen;
    int m_WrIndex GUARDED_BY(m_QueueMutex) = 0;
    int m_RdIndex GUARDED_BY(m_QueueMutex) = 0;
    int m_ItemCnt GUARDED_BY(m_QueueMutex) = 0;  // published and not yet released
    int m_NumWaiters GUARDED_BY(m_QueueMutex) = 0;
    pMutex m_QueueMutex;
    pSyncEvent m_QueueEvent;

    // Kept though nothing reads them: a name for diagnostics, and the size of an element.
    [[maybe_unused]] const char* m_pName = nullptr;
    [[maybe_unused]] int m_ItemSize = 0;
};
