// The control lock as property calls take it: also from inside Update, where a stop of another thread
// waits for the caller.
#include <unistd.h>

#include "AitOrixCamera.h"
#include "aitdbg.h"

namespace {

constexpr useconds_t kAgainUs = 1000;

std::atomic<int> g_nStopping{0};

bool TryLock(pMutex& mutex) {
    return pthread_mutex_trylock(mutex.Get()) == 0;
}

/// Waits for the control lock unless its holder may be waiting for this thread.
bool LockInsideUpdate() {
    while (!TryLock(m_video_ctrl_lock)) {
        if (g_nStopping != 0) {
            return false;
        }
        usleep(kAgainUs);
    }
    return true;
}

}  // namespace

ControlLock::ControlLock(LogAs AitLogName) {
    if (CAitOrixCamera::IsInsideUpdate()) {
        m_bHeld = LockInsideUpdate();
        if (!m_bHeld) {
            AIT_LOG(1, "Not possible inside Update while recording stops.\r\n");
        }
        return;
    }
    m_bHeld = m_video_ctrl_lock.Acquire();
}

ControlLock::~ControlLock() {
    if (m_bHeld) {
        m_video_ctrl_lock.Release();
    }
}

StoppingMark::StoppingMark() {
    ++g_nStopping;
}

StoppingMark::~StoppingMark() {
    --g_nStopping;
}
