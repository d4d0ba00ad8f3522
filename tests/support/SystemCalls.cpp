#include "tests/support/SystemCalls.h"

#include <errno.h>
#include <pthread.h>
#include <stddef.h>
#include <sys/resource.h>

extern "C" {
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attribute, void* (*start)(void*),
                          void* argument);
int __real_pthread_mutexattr_init(pthread_mutexattr_t* attribute);
int __real_pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                  const timespec* deadline);
void* __real_calloc(size_t count, size_t size);
}

namespace test {

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
    failures.setpriority_calls = 0;
    failures.last_priority = 0;
    failures.timed_wait_calls = 0;
}

}  // namespace test

extern "C" {

// Never the real one: a test may not renice the machine's work, and may not depend on the right to.
int __wrap_setpriority(int, id_t, int priority) {
    test::SystemCallFailures& failures = test::system_calls();
    ++failures.setpriority_calls;
    failures.last_priority = priority;
    if (failures.setpriority != 0) {
        errno = failures.setpriority;
        return -1;
    }
    return 0;
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attribute, void* (*start)(void*),
                          void* argument) {
    const int error = test::system_calls().pthread_create;
    return error != 0 ? error : __real_pthread_create(thread, attribute, start, argument);
}

int __wrap_pthread_mutexattr_init(pthread_mutexattr_t* attribute) {
    const int error = test::system_calls().pthread_mutexattr_init;
    return error != 0 ? error : __real_pthread_mutexattr_init(attribute);
}

int __wrap_pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                  const timespec* deadline) {
    test::SystemCallFailures& failures = test::system_calls();
    ++failures.timed_wait_calls;
    if (failures.interrupted_timed_waits > 0) {
        --failures.interrupted_timed_waits;
        return EINTR;
    }
    return __real_pthread_cond_timedwait(cond, mutex, deadline);
}

void* __wrap_calloc(size_t count, size_t size) {
    return test::system_calls().calloc != 0 ? nullptr : __real_calloc(count, size);
}
}
