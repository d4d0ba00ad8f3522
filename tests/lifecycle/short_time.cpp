// Preloaded: sleeps of 10 ms and more last a tenth, for programs whose waiting is not what is
// tested.
#include <dlfcn.h>
#include <time.h>
#include <unistd.h>

namespace {

void SleepFor(long long microseconds) {
    constexpr long long kLong = 10000;
    if (microseconds >= kLong) {
        microseconds /= 10;
    }
    const timespec duration = {static_cast<time_t>(microseconds / 1000000),
                               static_cast<long>(microseconds % 1000000) * 1000};
    clock_nanosleep(CLOCK_MONOTONIC, 0, &duration, nullptr);
}

}  // namespace

extern "C" {

unsigned int sleep(unsigned int seconds) {
    SleepFor(seconds * 1000000LL);
    return 0;
}

int usleep(useconds_t microseconds) {
    SleepFor(microseconds);
    return 0;
}
}
