#include "tests/counters/counted_calls.h"

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <new>
#include <utility>

#include "tests/support/OperatorNew.h"

namespace {

thread_local bool g_counting = false;
std::atomic<uint64_t> g_copied{0}, g_cleared{0}, g_allocations{0}, g_locks{0}, g_signals{0};

void add(std::atomic<uint64_t>& sum, uint64_t number) {
    if (g_counting) {
        sum += number;
    }
}

}  // namespace

namespace test {

Counted counted() {
    return {g_copied, g_cleared, g_allocations, g_locks, g_signals};
}

Counted operator-(const Counted& later, const Counted& earlier) {
    return {later.copied_bytes - earlier.copied_bytes, later.cleared_bytes - earlier.cleared_bytes,
            later.allocations - earlier.allocations, later.locks - earlier.locks,
            later.signals - earlier.signals};
}

bool count_on_this_thread(bool on) {
    return std::exchange(g_counting, on);
}

}  // namespace test

extern "C" {
void* __real_memcpy(void* to, const void* from, size_t size);
void* __real_memmove(void* to, const void* from, size_t size);
void* __real_memset(void* to, int value, size_t size);
// The same where the compiler knows how much room there is.
void* __real___memcpy_chk(void* to, const void* from, size_t size, size_t room);
void* __real___memmove_chk(void* to, const void* from, size_t size, size_t room);
void* __real___memset_chk(void* to, int value, size_t size, size_t room);
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_cond_signal(pthread_cond_t* condition);
int __real_pthread_cond_broadcast(pthread_cond_t* condition);

void* __wrap_memcpy(void* to, const void* from, size_t size) {
    add(g_copied, size);
    return __real_memcpy(to, from, size);
}
void* __wrap_memmove(void* to, const void* from, size_t size) {
    add(g_copied, size);
    return __real_memmove(to, from, size);
}
void* __wrap_memset(void* to, int value, size_t size) {
    add(g_cleared, size);
    return __real_memset(to, value, size);
}
void* __wrap___memcpy_chk(void* to, const void* from, size_t size, size_t room) {
    add(g_copied, size);
    return __real___memcpy_chk(to, from, size, room);
}
void* __wrap___memmove_chk(void* to, const void* from, size_t size, size_t room) {
    add(g_copied, size);
    return __real___memmove_chk(to, from, size, room);
}
void* __wrap___memset_chk(void* to, int value, size_t size, size_t room) {
    add(g_cleared, size);
    return __real___memset_chk(to, value, size, room);
}
void* __wrap_malloc(size_t size) {
    add(g_allocations, 1);
    return __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
    add(g_allocations, 1);
    return __real_calloc(count, size);
}
void* __wrap_realloc(void* memory, size_t size) {
    add(g_allocations, 1);
    return __real_realloc(memory, size);
}
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    add(g_locks, 1);
    return __real_pthread_mutex_lock(mutex);
}
int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
    add(g_signals, 1);
    return __real_pthread_cond_signal(condition);
}
int __wrap_pthread_cond_broadcast(pthread_cond_t* condition) {
    add(g_signals, 1);
    return __real_pthread_cond_broadcast(condition);
}
}

void* real_new(size_t size) asm("__real_" AITCAM_NEW);
void* real_new(size_t size, const std::nothrow_t& tag) asm("__real_" AITCAM_NEW_NOTHROW);
void* real_new_array(size_t size) asm("__real_" AITCAM_NEW_ARRAY);
void* real_new_array(size_t size,
                     const std::nothrow_t& tag) asm("__real_" AITCAM_NEW_ARRAY_NOTHROW);
void* wrap_new(size_t size) asm("__wrap_" AITCAM_NEW);
void* wrap_new(size_t size, const std::nothrow_t& tag) asm("__wrap_" AITCAM_NEW_NOTHROW);
void* wrap_new_array(size_t size) asm("__wrap_" AITCAM_NEW_ARRAY);
void* wrap_new_array(size_t size,
                     const std::nothrow_t& tag) asm("__wrap_" AITCAM_NEW_ARRAY_NOTHROW);

void* wrap_new(size_t size) {
    add(g_allocations, 1);
    return real_new(size);
}
void* wrap_new(size_t size, const std::nothrow_t& tag) {
    add(g_allocations, 1);
    return real_new(size, tag);
}
void* wrap_new_array(size_t size) {
    add(g_allocations, 1);
    return real_new_array(size);
}
void* wrap_new_array(size_t size, const std::nothrow_t& tag) {
    add(g_allocations, 1);
    return real_new_array(size, tag);
}
