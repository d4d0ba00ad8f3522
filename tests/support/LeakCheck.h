// Allocations that a test makes the code under test leave behind on purpose.
#pragma once

extern "C" {
void __lsan_disable() __attribute__((weak));
void __lsan_enable() __attribute__((weak));
}

namespace test {

/// While it lives, what this thread allocates is no leak to LeakSanitizer (if there is one).
class MayLeak {
  public:
    MayLeak() {
        if (__lsan_disable != nullptr) {
            __lsan_disable();
        }
    }
    ~MayLeak() {
        if (__lsan_enable != nullptr) {
            __lsan_enable();
        }
    }
    MayLeak(const MayLeak&) = delete;
    MayLeak& operator=(const MayLeak&) = delete;
};

}  // namespace test
