#include <dlfcn.h>
#include <sys/stat.h>
#include <time.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <stdexcept>

#include "Src/CameraInterface.h"
#include "bench/compare/sides.h"

namespace {

/// While set, whole seconds of sleep last nothing: the bring-up waits for a device to settle.
std::atomic<bool> g_no_sleep{false};

std::mutex g_mutex;
std::condition_variable g_changed;
int g_answer = -1;  // of Init

void init_done(bool usable) {
    std::lock_guard lock(g_mutex);
    g_answer = usable ? 1 : 0;
    g_changed.notify_all();
}

}  // namespace

/// Stands before the C library's for the whole process.
extern "C" unsigned sleep(unsigned seconds) {
    const timespec pause = {g_no_sleep ? 0 : static_cast<time_t>(seconds), 1000000};
    nanosleep(&pause, nullptr);
    return 0;
}

namespace bench {
namespace {

class PluginSide : public StreamSide, private ICameraObserver {
  public:
    explicit PluginSide(const std::string& library) : StreamSide(Side::kPlugin) {
        write_listing();
        library_ = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (library_ == nullptr) {
            throw std::runtime_error(dlerror());
        }
        create_ = reinterpret_cast<ICameraSubject* (*)()>(dlsym(library_, "cam_create"));
        if (create_ == nullptr) {
            throw std::runtime_error("no cam_create in " + library);
        }
        g_no_sleep = true;
        camera_ = create_();
        camera_->Init(init_done, 0);
        std::unique_lock lock(g_mutex);
        g_changed.wait_for(lock, std::chrono::seconds(30), [] { return g_answer >= 0; });
        g_no_sleep = false;
        if (g_answer != 1) {
            throw std::runtime_error("the plug-in finds no camera");
        }
        m_StreamType = CAM_STREAM_YUYV;
        camera_->RegisterObserver(this);
    }
    ~PluginSide() override {
        camera_->StopRecording();
        camera_->RemoveObserver(this);
        reinterpret_cast<void (*)(ICameraSubject*)>(dlsym(library_, "cam_destroy"))(camera_);
        dlclose(library_);
    }

    void start() override {
        if (!camera_->StartRecording() || camera_->GetState() != CAM_STATE_PLAYING) {
            throw std::runtime_error("the plug-in does not start");
        }
    }
    void stop() override { camera_->StopRecording(); }

  private:
    bool Update(const CCameraData* data) override {
        consumer_.take(static_cast<const uint8_t*>(data->m_pData), data->m_size);
        return true;
    }

    /// What the loader looks for the camera in.
    static void write_listing() {
        std::FILE* file = std::fopen("/proc/bus/usb/devices", "w");
        if (file == nullptr) {
            throw std::runtime_error("no /proc/bus/usb: to be run by scripts/sandbox");
        }
        std::fputs(
            "T:  Bus=01 Lev=01 Prnt=01 Port=00 Cnt=01 Dev#=  2 Spd=480 MxCh= 0\n"
            "D:  Ver= 2.00 Cls=ef(misc ) Sub=02 Prot=01 MxPS=64 #Cfgs=  1\n"
            "P:  Vendor=114d ProdID=2066 Rev= 1.00\n\n",
            file);
        std::fclose(file);
    }

    void* library_ = nullptr;
    ICameraSubject* (*create_)() = nullptr;
    ICameraSubject* camera_ = nullptr;
};

}  // namespace

std::unique_ptr<StreamSide> make_plugin_side(const std::string& library) {
    return std::make_unique<PluginSide>(library);
}

}  // namespace bench
