#include "tests/support/LoadedPlugin.h"

#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

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

bool Settles(const char* folder, size_t count) {
    constexpr std::chrono::milliseconds kPause{5};
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (Entries(folder) != count) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

long Kibibytes(const char* name) {
    std::ifstream status("/proc/self/status");
    const std::string wanted = std::string(name) + ":";
    std::string word;
    long size = 0;
    while (status >> word) {
        if (word == wanted && status >> size) {
            return size;
        }
    }
    Fail("no such size");
}

bool IsMapped(const char* path) {
    std::ifstream maps("/proc/self/maps");
    const std::string name = std::filesystem::canonical(path);
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find(name) != std::string::npos) {
            return true;
        }
    }
    return false;
}

/// The control of the virtual bus is in its dynamic symbols; the bus stays loaded.
static void CallBus(const char* symbol) {
    static void* const bus = dlopen("libusb-1.0.so.0", RTLD_NOW);
    auto* call = bus == nullptr ? nullptr : reinterpret_cast<void (*)()>(dlsym(bus, symbol));
    if (call == nullptr) {
        Fail("no virtual bus");
    }
    call();
}

void PowerCycle() {
    CallBus("_ZN7virtcam3bus11power_cycleEv");
}

void ForgetCalls() {
    CallBus("_ZN7virtcam3bus10clear_logsEv");
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
