#include "tests/driver/Allocations.h"

#include <stddef.h>

#include <atomic>
#include <mutex>
#include <new>
#include <utility>

#include "tests/support/OperatorNew.h"

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

void* RealNew(size_t size, const std::nothrow_t& tag) asm("__real_" AITCAM_NEW_NOTHROW);
void* RealNewArray(size_t size, const std::nothrow_t& tag) asm("__real_" AITCAM_NEW_ARRAY_NOTHROW);
void* WrapNew(size_t size, const std::nothrow_t& tag) asm("__wrap_" AITCAM_NEW_NOTHROW);
void* WrapNewArray(size_t size, const std::nothrow_t& tag) asm("__wrap_" AITCAM_NEW_ARRAY_NOTHROW);

void* WrapNew(size_t size, const std::nothrow_t& tag) {
    return test::ShallFail() ? nullptr : RealNew(size, tag);
}

void* WrapNewArray(size_t size, const std::nothrow_t& tag) {
    test::RecordSize(size);
    return test::ShallFail() ? nullptr : RealNewArray(size, tag);
}
