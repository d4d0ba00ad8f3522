// Preloaded: sleeps of 10 ms and more last a tenth, for programs whose waiting is not what is
// tested.
//
// A pause of a second is somebody's patience with the camera. While that restarts on the virtual bus,
// such a pause lasts until it is back, at most as long as was asked for: how long the bus's threads
// take on a busy machine is no matter of the plug-in's time.
#include <dlfcn.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr long long kLong = 10000, kPatience = 1000000;  // microseconds
constexpr char kRestarting[] = "_ZN7virtcam3bus10restartingEv";

void Pass(long long microseconds) {
    const timespec duration = {static_cast<time_t>(microseconds / 1000000),
                               static_cast<long>(microseconds % 1000000) * 1000};
    clock_nanosleep(CLOCK_MONOTONIC, 0, &duration, nullptr);
}

/// The virtual bus's own word; null without it.
bool (*FindRestarting())() {
    void* bus = dlopen("libusb-1.0.so.0", RTLD_NOW | RTLD_NOLOAD);
    if (bus == nullptr) {
        return nullptr;
    }
    auto* restarting = reinterpret_cast<bool (*)()>(dlsym(bus, kRestarting));
    dlclose(bus);
    return restarting;
}

void SleepFor(long long microseconds) {
    if (microseconds < kLong) {
        return Pass(microseconds);
    }
    Pass(microseconds / 10);
    bool (*restarting)() = microseconds < kPatience ? nullptr : FindRestarting();
    constexpr long long kRound = 1000;
    for (long long rest = microseconds - microseconds / 10;
         restarting != nullptr && rest > 0 && restarting(); rest -= kRound) {
        Pass(kRound);
    }
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
