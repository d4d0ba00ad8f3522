// A host that leads the plug-in through two whole lives: load, create, bring up, record, stop,
// destroy, unload. The first may fail where something was refused to it (scarce.so), but only as the
// interface says; the second must succeed and leave nothing.
//
// Usage: whole_life PLUGIN
// Exit status 0 when that is so. The last line on standard error says how far the first life came.
#include <dlfcn.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <new>

#include "Src/CameraInterface.h"

namespace {

using namespace std::chrono_literals;

constexpr int kFrames = 30;
constexpr auto kPatience = 20s;

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "whole_life: %s\n", what);
    std::fflush(nullptr);
    std::_Exit(1);
}

/// Calls that come from threads of the plug-in.
class Heard {
  public:
    void Report(bool usable) {
        std::lock_guard lock(mutex_);
        reported_ = true;
        usable_ = usable;
        changed_.notify_all();
    }
    void Frame() {
        std::lock_guard lock(mutex_);
        ++frames_;
        changed_.notify_all();
    }
    /// False when the camera is not usable.
    bool WaitForReport() {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, kPatience, [&] { return reported_; })) {
            Fail("Init never reported");
        }
        return usable_;
    }
    bool WaitForFrames() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return frames_ >= kFrames; });
    }
    void Begin() {
        std::lock_guard lock(mutex_);
        reported_ = usable_ = false;
        frames_ = 0;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool reported_ = false;
    bool usable_ = false;
    int frames_ = 0;
};

Heard g_heard;

class Observer : public ICameraObserver {
  public:
    explicit Observer(CAM_STREAM_TYPE type) { m_StreamType = type; }
    bool Update(const CCameraData* data) override {
        if (data->m_type == CAM_STREAM_H264_MAIN) {
            g_heard.Frame();
        }
        return true;
    }
};

/// How far a life came.
enum class Stage { kNotLoaded, kNotCreated, kNotUsable, kNotStarted, kNoFrames, kDone };

const char* Name(Stage stage) {
    constexpr const char* kNames[] = {"not loaded",  "not created", "not usable",
                                      "not started", "no frames",   "done"};
    return kNames[static_cast<int>(stage)];
}

size_t Entries(const char* folder) {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

Stage Record(ICameraSubject* camera) {
    Observer main(CAM_STREAM_H264_MAIN), sound(CAM_STREAM_PCM);
    if (!camera->RegisterObserver(&main) || !camera->RegisterObserver(&sound)) {
        camera->RemoveObserver(&main);
        return Stage::kNotStarted;
    }
    Stage stage = Stage::kNotStarted;
    if (camera->StartRecording() && camera->GetState() == CAM_STATE_PLAYING) {
        stage = g_heard.WaitForFrames() ? Stage::kDone : Stage::kNoFrames;
    }
    camera->StopRecording();
    camera->RemoveObserver(&main);
    camera->RemoveObserver(&sound);
    return stage;
}

Stage Live(ICameraSubject* camera) {
    g_heard.Begin();
    camera->Init([](bool usable) { g_heard.Report(usable); }, 0);
    return g_heard.WaitForReport() ? Record(camera) : Stage::kNotUsable;
}

Stage Load(const char* path) {
    void* plugin = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) {
        return Stage::kNotLoaded;
    }
    auto* create = reinterpret_cast<ICameraSubject* (*)()>(dlsym(plugin, "cam_create"));
    auto* destroy = reinterpret_cast<void (*)(ICameraSubject*)>(dlsym(plugin, "cam_destroy"));
    Stage stage = Stage::kNotCreated;
    ICameraSubject* camera = nullptr;
    try {
        camera = create();
    } catch (const std::bad_alloc&) {  // the interface allows it here, and nowhere else
    }
    if (camera != nullptr) {
        stage = Live(camera);
        destroy(camera);
    }
    if (dlclose(plugin) != 0) {
        Fail(dlerror());
    }
    return stage;
}

/// Also starts the bus, whose threads and descriptors are then not taken for the plug-in's.
void PowerCycle() {
    void* bus = dlopen("libusb-1.0.so.0", RTLD_NOW);
    auto* cycle = bus == nullptr
                      ? nullptr
                      : reinterpret_cast<void (*)()>(dlsym(bus, "_ZN7virtcam3bus11power_cycleEv"));
    if (cycle == nullptr) {
        Fail("no virtual bus");
    }
    cycle();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: whole_life PLUGIN\n");
        return 2;
    }
    PowerCycle();
    const size_t threads = Entries("/proc/self/task"), files = Entries("/proc/self/fd");
    const Stage first = Load(argv[1]);
    PowerCycle();
    const Stage second = Load(argv[1]);
    std::fprintf(stderr, "first life: %s\n", Name(first));
    if (first == Stage::kNoFrames) {
        Fail("it says that it plays, and nothing comes");
    }
    if (second != Stage::kDone) {
        std::fprintf(stderr, "second life: %s\n", Name(second));
        Fail("what was missing once is missing for good");
    }
    if (Entries("/proc/self/task") != threads || Entries("/proc/self/fd") != files) {
        Fail("threads or descriptors are left behind");
    }
    return 0;
}
