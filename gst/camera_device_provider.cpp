#include "gst/camera_device_provider.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "gst/bus_watch.h"
#include "gst/stream_table.h"

struct _AitcamDevice {
    GstDevice parent;
};

G_DEFINE_FINAL_TYPE(AitcamDevice, aitcam_device, GST_TYPE_DEVICE)

namespace {

using gstcam::BusWatch;

constexpr std::chrono::seconds kLookInterval{1};

/// Looks at the bus on a thread of its own and tells the provider of arrivals and departures. A
/// camera without firmware is there, too: the element loads it.
class Watcher {
  public:
    /// A camera that is there already has been told when this returns.
    explicit Watcher(GstDeviceProvider* provider) : provider_(provider) {
        look();
        thread_ = std::thread([this] { run(); });
    }
    ~Watcher() {
        {
            const std::lock_guard lock(mutex_);
            quit_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

  private:
    void run();
    void look();

    GstDeviceProvider* const provider_;
    BusWatch bus_;
    GstDevice* device_ = nullptr;  ///< the one that was told, owned by the provider
    std::mutex mutex_;
    std::condition_variable changed_;
    bool quit_ = false;
    std::thread thread_;
};

GstDevice* new_device() {
    GstCaps* caps = gst_caps_new_empty();
    for (const gstcam::StreamRow& row : gstcam::kStreamTable) {
        caps = gst_caps_merge(caps, gst_caps_from_string(row.caps));
    }
    auto* device = static_cast<GstDevice*>(
        g_object_new(AITCAM_TYPE_DEVICE, "display-name", "Television camera", "device-class",
                     "Source/Audio/Video", "caps", caps, nullptr));
    gst_caps_unref(caps);
    return device;
}

void Watcher::look() {
    const bool present = bus_.look() != BusWatch::Sight::kNothing;
    if (present == (device_ != nullptr)) {
        return;
    }
    if (present) {
        device_ = new_device();
        gst_device_provider_device_add(provider_, device_);
    } else {
        gst_device_provider_device_remove(provider_, device_);
        device_ = nullptr;
    }
}

void Watcher::run() {
    std::unique_lock lock(mutex_);
    while (!quit_) {
        changed_.wait_for(lock, kLookInterval, [this] { return quit_; });
        lock.unlock();
        look();
        lock.lock();
    }
}

GstElement* create_element(GstDevice*, const gchar* name) {
    return gst_element_factory_make("aitcamsrc", name);
}

}  // namespace

static void aitcam_device_class_init(AitcamDeviceClass* klass) {
    GST_DEVICE_CLASS(klass)->create_element = create_element;
}

static void aitcam_device_init(AitcamDevice*) {}

struct _AitcamDeviceProvider {
    GstDeviceProvider parent;
    Watcher* watcher;
};

G_DEFINE_FINAL_TYPE(AitcamDeviceProvider, aitcam_device_provider, GST_TYPE_DEVICE_PROVIDER)
GST_DEVICE_PROVIDER_REGISTER_DEFINE(aitcamdeviceprovider, "aitcamdeviceprovider",
                                    GST_RANK_SECONDARY, AITCAM_TYPE_DEVICE_PROVIDER)

namespace {

GList* probe(GstDeviceProvider*) {
    return BusWatch().look() == BusWatch::Sight::kNothing ? nullptr
                                                          : g_list_prepend(nullptr, new_device());
}

gboolean start(GstDeviceProvider* provider) {
    AITCAM_DEVICE_PROVIDER(provider)->watcher = new Watcher(provider);
    return TRUE;
}

void stop(GstDeviceProvider* provider) {
    delete AITCAM_DEVICE_PROVIDER(provider)->watcher;
    AITCAM_DEVICE_PROVIDER(provider)->watcher = nullptr;
}

}  // namespace

static void aitcam_device_provider_class_init(AitcamDeviceProviderClass* klass) {
    auto* provider_class = GST_DEVICE_PROVIDER_CLASS(klass);
    provider_class->probe = probe;
    provider_class->start = start;
    provider_class->stop = stop;
    gst_device_provider_class_set_static_metadata(
        provider_class, "Television camera provider", "Source/Audio/Video",
        "Lists a television's camera while it is on the bus", "the camera plug-in's developers");
}

static void aitcam_device_provider_init(AitcamDeviceProvider*) {}
