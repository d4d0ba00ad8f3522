// The producer's hold on the frame buffer that is being filled.
#pragma once

#include "CFrameBuf.h"
#include "StaticSyncQueue.h"

class CFrameBufferLocker {
  public:
    /// `queue` is borrowed and must outlive the locker.
    explicit CFrameBufferLocker(StaticSyncQueue<CFrameBuf*>* queue) : m_FrameQueue(queue) {}
    /// Publishes a buffer that is still held, however little of it is filled.
    virtual ~CFrameBufferLocker() { ReleaseFrameBuffer(); }
    CFrameBufferLocker(const CFrameBufferLocker&) = delete;
    CFrameBufferLocker& operator=(const CFrameBufferLocker&) = delete;

    /// Publishes the current buffer, if any, and takes the next, waiting without limit for room.
    CFrameBuf* GetNewFrameBuffer() { return GetNewFrameBuffer(-1); }

    /// The same with a wait of at most `timeoutMs` milliseconds; null when there is still no room.
    CFrameBuf* GetNewFrameBuffer(int timeoutMs) {
        mCurFrame = mCurFrame != nullptr ? m_FrameQueue->WriteDoneGetNext(timeoutMs)
                                         : m_FrameQueue->GetWritePtr(timeoutMs);
        return mCurFrame;
    }

    /// Publishes the current buffer, if any, and holds none.
    void ReleaseFrameBuffer() {
        if (mCurFrame != nullptr) {
            mCurFrame = nullptr;
            m_FrameQueue->WriteDone();
        }
    }

    CFrameBuf* GetCurFrameBuffer() { return mCurFrame; }

  private:
    StaticSyncQueue<CFrameBuf*>* m_FrameQueue;
    CFrameBuf* mCurFrame = nullptr;
};
