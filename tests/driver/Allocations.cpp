#include "tests/driver/Allocations.h"

#include <stddef.h>

#include <atomic>
#include <new>

namespace test {
namespace {
std::atomic<int> g_Countdown{0};

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

}  // namespace test

// operator new and operator new[] with std::nothrow, as the compiler mangles them.
extern "C" {
void* __real__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& tag);
void* __real__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& tag);

void* __wrap__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& tag) {
    return test::ShallFail() ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
}

void* __wrap__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& tag) {
    return test::ShallFail() ? nullptr : __real__ZnamRKSt9nothrow_t(size, tag);
}
}
