// A host that knows only the framework's interface: loads the plug-in, brings the camera up,
// records, stops and unloads, as often as it is told, and says what it got. Exit status 0 when
// every round delivered frames.
//
// Usage: plugin_host PLUGIN LOADS CREATES STARTS RECORDS
//   each of LOADS loads creates CREATES cameras, each of which records STARTS times until RECORDS
//   records of the main stream and of sound have come. The camera is power-cycled between
//   creations.
#include <dlfcn.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "Src/CameraInterface.h"

namespace {

using namespace std::chrono_literals;

constexpr auto kLimit = 30s;

class Event {
  public:
    void Set(bool value) {
        std::lock_guard lock(mutex_);
        value_ = value;
        set_ = true;
        changed_.notify_all();
    }
    bool Wait() {
        std::unique_lock lock(mutex_);
        const bool came = changed_.wait_for(lock, kLimit, [&] { return set_; });
        set_ = false;
        return came && value_;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool set_ = false;
    bool value_ = false;
};

Event g_initDone;

class Counter : public ICameraObserver {
  public:
    explicit Counter(CAM_STREAM_TYPE type) { m_StreamType = type; }
    bool Update(const CCameraData*) override {
        std::lock_guard lock(mutex_);
        ++count_;
        changed_.notify_all();
        return true;
    }
    bool WaitFor(int count) {
        std::unique_lock lock(mutex_);
        const bool came = changed_.wait_for(lock, kLimit, [&] { return count_ >= count; });
        count_ = 0;
        return came;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
};

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "plugin_host: %s\n", what);
    std::fflush(nullptr);  // what the plug-in has logged
    std::_Exit(1);
}

/// The control of the virtual bus is in its dynamic symbols; it stays loaded once it has been.
void PowerCycle() {
    void* bus = dlopen("libusb-1.0.so.0", RTLD_NOW | RTLD_NOLOAD);
    auto* cycle = bus == nullptr
                      ? nullptr
                      : reinterpret_cast<void (*)()>(dlsym(bus, "_ZN7virtcam3bus11power_cycleEv"));
    if (cycle == nullptr) {
        Fail("no virtual bus");
    }
    cycle();
    dlclose(bus);
}

void Record(ICameraSubject* camera, int records) {
    Counter main(CAM_STREAM_H264_MAIN), sound(CAM_STREAM_PCM);
    camera->RegisterObserver(&main);
    camera->RegisterObserver(&sound);
    if (!camera->StartRecording() || camera->GetState() != CAM_STATE_PLAYING) {
        Fail("recording did not start");
    }
    if (!main.WaitFor(records) || !sound.WaitFor(records)) {
        Fail("no records came");
    }
    if (!camera->StopRecording()) {
        Fail("recording did not stop");
    }
    camera->RemoveObserver(&main);
    camera->RemoveObserver(&sound);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fprintf(stderr, "usage: plugin_host PLUGIN LOADS CREATES STARTS RECORDS\n");
        return 2;
    }
    const int loads = std::atoi(argv[2]), creates = std::atoi(argv[3]), starts = std::atoi(argv[4]),
              records = std::atoi(argv[5]);
    bool first = true;
    for (int load = 0; load < loads; ++load) {
        void* plugin = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (plugin == nullptr) {
            Fail(dlerror());
        }
        auto* create = reinterpret_cast<ICameraSubject* (*)()>(dlsym(plugin, "cam_create"));
        auto* destroy = reinterpret_cast<void (*)(ICameraSubject*)>(dlsym(plugin, "cam_destroy"));
        for (int i = 0; i < creates; ++i) {
            if (!first) {
                PowerCycle();
            }
            first = false;
            ICameraSubject* camera = create();
            camera->Init([](bool usable) { g_initDone.Set(usable); }, 0);
            if (!g_initDone.Wait()) {
                Fail("Init did not answer true");
            }
            for (int start = 0; start < starts; ++start) {
                Record(camera, records);
            }
            destroy(camera);
        }
        if (dlclose(plugin) != 0) {
            Fail(dlerror());
        }
    }
    std::fprintf(stderr, "plugin_host: done\n");
    return 0;
}
