#include "tests/driver/Allocations.h"

#include <stddef.h>

#include <atomic>
#include <mutex>
#include <new>
#include <utility>

namespace test {
namespace {
std::atomic<int> g_Countdown{0};
std::mutex g_SizesMutex;
std::vector<size_t> g_Sizes;

void RecordSize(size_t size) {
    std::lock_guard lock(g_SizesMutex);
    g_Sizes.push_back(size);
}

bool ShallFail() {
    return g_Countdown > 0 && --g_Countdown == 0;
}
}  // namespace

void fail_allocation(int n) {
    g_Countdown = n;
}

bool allocation_failure_pending() {
    return g_Countdown > 0;
}

std::vector<size_t> take_array_sizes() {
    std::lock_guard lock(g_SizesMutex);
    return std::exchange(g_Sizes, {});
}

}  // namespace test

// operator new and operator new[] with std::nothrow, as the compiler mangles them.
extern "C" {
void* __real__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& tag);
void* __real__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& tag);

void* __wrap__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& tag) {
    return test::ShallFail() ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
}

void* __wrap__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& tag) {
    test::RecordSize(size);
    return test::ShallFail() ? nullptr : __real__ZnamRKSt9nothrow_t(size, tag);
}
}
