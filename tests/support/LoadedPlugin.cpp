#include "tests/support/LoadedPlugin.h"

#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace test {

namespace {

constexpr std::chrono::seconds kLimit{30};

Calls g_Reports;
std::atomic<bool> g_Usable{false};

}  // namespace

void Fail(const char* why) {
    std::fprintf(stderr, "failed: %s\n", why);
    std::fflush(nullptr);
    std::_Exit(1);
}

size_t Entries(const char* folder) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

/// The control of the virtual bus is in its dynamic symbols; the bus stays loaded.
void PowerCycle() {
    static void* const bus = dlopen("libusb-1.0.so.0", RTLD_NOW);
    auto* cycle = bus == nullptr
                      ? nullptr
                      : reinterpret_cast<void (*)()>(dlsym(bus, "_ZN7virtcam3bus11power_cycleEv"));
    if (cycle == nullptr) {
        Fail("no virtual bus");
    }
    cycle();
}

LoadedPlugin::LoadedPlugin(const char* path) : handle_(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ != nullptr) {
        create_ = reinterpret_cast<ICameraSubject* (*)()>(dlsym(handle_, "cam_create"));
        destroy_ = reinterpret_cast<void (*)(ICameraSubject*)>(dlsym(handle_, "cam_destroy"));
    }
}

LoadedPlugin::~LoadedPlugin() {
    if (handle_ != nullptr && dlclose(handle_) != 0) {
        Fail(dlerror());
    }
}

void Calls::Add() {
    const std::lock_guard lock(mutex_);
    ++count_;
    changed_.notify_all();
}

void Calls::Clear() {
    const std::lock_guard lock(mutex_);
    count_ = 0;
}

bool Calls::WaitFor(int count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kLimit, [&] { return count_ >= count; });
}

bool BringUp(ICameraSubject& camera) {
    g_Reports.Clear();
    camera.Init(
        [](bool usable) {
            g_Usable = usable;
            g_Reports.Add();
        },
        0);
    if (!g_Reports.WaitFor(1)) {
        Fail("Init never reported");
    }
    return g_Usable;
}

}  // namespace test
