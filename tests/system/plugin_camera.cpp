#include "tests/system/plugin_camera.h"

#include <cstdlib>
#include <stdexcept>

#include "host/session/init_report.h"
#include "tests/system/usb_tree.h"

namespace system_test {

using std::chrono::milliseconds;

bool CountingObserver::Update(const CCameraData* data) {
    const auto* bytes = static_cast<const uint8_t*>(data->m_pData);
    const std::lock_guard lock(mutex_);
    newest_.assign(bytes, bytes + data->m_size);
    ++count_;
    return true;
}

std::vector<uint8_t> CountingObserver::newest() const {
    const std::lock_guard lock(mutex_);
    return newest_;
}

const camhost::Plugin& plugin() {
    static const camhost::Plugin loaded([] {
        const char* path = std::getenv("CAMERA_PLUGIN");
        return path == nullptr ? "libaitorixcamera.so" : path;
    }());
    return loaded;
}

PluginCamera::PluginCamera() {
    camhost::InitReport::instance().listen(&wake_);
    camera_ = plugin().create();
    for (const CAM_STREAM_TYPE type :
         {CAM_STREAM_PCM, CAM_STREAM_H264_MAIN, CAM_STREAM_YUYV, CAM_STREAM_GRAY}) {
        observers_.push_back(std::make_unique<CountingObserver>(type));
        camera_->RegisterObserver(observers_.back().get());
    }
}

PluginCamera::~PluginCamera() {
    plugin().destroy(camera_);
    camhost::InitReport::instance().listen(nullptr);
}

void PluginCamera::begin_init() {
    camera_->Init(&camhost::InitReport::on_init_done, 0);
}

bool PluginCamera::wait_for_report(milliseconds limit) {
    return wait_until([this] { return reports() > 0; }, limit);
}

bool PluginCamera::init() {
    begin_init();
    return wait_for_report() && usable();
}

unsigned PluginCamera::reports() const {
    return camhost::InitReport::instance().answer().calls;
}

bool PluginCamera::usable() const {
    return camhost::InitReport::instance().answer().usable;
}

bool PluginCamera::set(CAM_PROPERTY property, int value) {
    CAM_PROP_VALUE record{};
    record.value = value;
    return camera_->SetProperty(property, &record);
}

bool PluginCamera::set_size(short width, short height) {
    CAM_PROP_VALUE record{};
    record.res[0] = width;
    record.res[1] = height;
    return camera_->SetProperty(CAM_PROPERTY_DIMENSION, &record);
}

const CountingObserver& PluginCamera::records(CAM_STREAM_TYPE type) const {
    for (const auto& observer : observers_) {
        if (observer->m_StreamType == type) {
            return *observer;
        }
    }
    throw std::invalid_argument("this stream is not observed");
}

bool PluginCamera::wait_for_records(CAM_STREAM_TYPE type, size_t count, milliseconds limit) {
    const CountingObserver& observer = records(type);
    const size_t target = observer.count() + count;
    return wait_until([&] { return observer.count() >= target; }, limit);
}

bool PluginCamera::streams() {
    return wait_for_records(CAM_STREAM_H264_MAIN, 10) && wait_for_records(CAM_STREAM_PCM, 5);
}

}  // namespace system_test
