#include "tests/support/broken_encoder.h"

#include <dlfcn.h>
#include <wels/codec_api.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

namespace test {
namespace {

std::mutex mutex;
std::condition_variable changed;
bool held = false;
int waiting = 0;

void wait_while_held() {
    std::unique_lock lock(mutex);
    ++waiting;
    changed.notify_all();
    changed.wait(lock, [] { return !held; });
    --waiting;
}

}  // namespace

std::atomic<bool> encoder_is_broken{std::getenv("BROKEN_ENCODER") != nullptr};

HeldEncoder::HeldEncoder() {
    const std::lock_guard lock(mutex);
    held = true;
}

HeldEncoder::~HeldEncoder() {
    const std::lock_guard lock(mutex);
    held = false;
    changed.notify_all();
}

bool HeldEncoder::is_reached() {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(20), [] { return waiting > 0; });
}

}  // namespace test

extern "C" int WelsCreateSVCEncoder(ISVCEncoder** encoder) {
    constexpr int kFailed = 1;
    static auto* const real =
        reinterpret_cast<int (*)(ISVCEncoder**)>(dlsym(RTLD_NEXT, "WelsCreateSVCEncoder"));
    test::wait_while_held();
    return test::encoder_is_broken ? kFailed : real(encoder);
}
