// The least that a host does: load the plug-in, bring the camera up, record for three seconds and
// print the size of each frame. The plug-in logs to standard output, so the sizes go to standard
// error. The build defines PLUGIN as the plug-in's path (docs/integration.md).
#include <dlfcn.h>

#include <CameraInterface.h>
#include <chrono>
#include <cstdio>
#include <future>
#include <thread>

namespace {

std::promise<bool> g_InitDone;

// On a thread of the plug-in; once more, with false, when the camera is unplugged later.
void OnInitDone(bool usable) {
    static std::atomic<bool> answered{false};
    if (!answered.exchange(true)) {
        g_InitDone.set_value(usable);
    }
}

class SizePrinter : public ICameraObserver {
  public:
    explicit SizePrinter(CAM_STREAM_TYPE type) { SetStreamType(type); }
    bool Update(const CCameraData* frame) override {  // on a capture thread: copy, and return
        std::fprintf(stderr, "stream %d: %lu bytes\n", frame->m_type, frame->m_size);
        return true;
    }
};

bool Record(ICameraSubject& camera) {
    camera.Init(&OnInitDone, 0);  // returns at once; the camera takes seconds for its firmware
    if (!g_InitDone.get_future().get()) {
        return false;
    }
    SizePrinter pictures(CAM_STREAM_H264_MAIN);
    camera.RegisterObserver(&pictures);
    const bool playing = camera.StartRecording() && camera.GetState() == CAM_STATE_PLAYING;
    std::this_thread::sleep_for(std::chrono::seconds(playing ? 3 : 0));
    camera.StopRecording();
    camera.RemoveObserver(&pictures);  // before it is gone
    return playing;
}

}  // namespace

int main(int argc, char** argv) {
    void* plugin = dlopen(argc > 1 ? argv[1] : PLUGIN, RTLD_NOW);
    if (plugin == nullptr) {
        return std::fprintf(stderr, "%s\n", dlerror()), 2;
    }
    auto create = reinterpret_cast<ICameraSubject* (*)()>(dlsym(plugin, "cam_create"));
    auto destroy = reinterpret_cast<void (*)(ICameraSubject*)>(dlsym(plugin, "cam_destroy"));
    ICameraSubject* camera = create();
    const bool good = Record(*camera);
    destroy(camera);  // joins the plug-in's threads; no callback comes any more
    return good ? 0 : 1;
}
