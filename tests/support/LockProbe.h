// Is a lock of the plug-in free?
#pragma once

#include <pthread.h>

#include <future>

#include "ptasking.h"

namespace test {

/// Whether another thread could take the lock at this moment. Asked on a thread of its own: the
/// locks are recursive, so the caller's would say nothing.
inline bool IsFree(pthread_mutex_t* mutex) {
    return std::async(std::launch::async,
                      [mutex] {
                          if (pthread_mutex_trylock(mutex) != 0) {
                              return false;
                          }
                          pthread_mutex_unlock(mutex);
                          return true;
                      })
        .get();
}
inline bool IsFree(pMutex& mutex) {
    return IsFree(mutex.Get());
}

}  // namespace test
