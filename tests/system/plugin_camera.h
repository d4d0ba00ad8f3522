// One camera object of the plug-in, driven as a television does it, with its records counted.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "host/base/wake_event.h"
#include "host/session/plugin.h"

namespace system_test {

/// Counts the records of one stream and keeps the newest. Thread-safe.
class CountingObserver : public ICameraObserver {
  public:
    explicit CountingObserver(CAM_STREAM_TYPE type) { SetStreamType(type); }
    bool Update(const CCameraData* data) override;

    size_t count() const { return count_; }
    std::vector<uint8_t> newest() const;

  private:
    std::atomic<size_t> count_{0};
    mutable std::mutex mutex_;
    std::vector<uint8_t> newest_;
};

/// The plug-in of this process, loaded once.
const camhost::Plugin& plugin();

class PluginCamera {
  public:
    PluginCamera();
    /// Destroys the camera object; it stops what runs.
    ~PluginCamera();
    PluginCamera(const PluginCamera&) = delete;
    PluginCamera& operator=(const PluginCamera&) = delete;

    /// Starts bringing the camera up.
    void begin_init();
    /// Waits for the report of that. False when there is none within the limit.
    bool wait_for_report(std::chrono::milliseconds limit = std::chrono::seconds(60));
    /// Both, and the report is good.
    bool init();
    /// Reports so far, and what the last one said.
    unsigned reports() const;
    bool usable() const;

    bool start() { return camera_->StartRecording(); }
    bool stop() { return camera_->StopRecording(); }
    bool set(CAM_PROPERTY property, int value);
    bool set_size(short width, short height);
    ICameraSubject& operator*() { return *camera_; }
    ICameraSubject* operator->() { return camera_; }

    const CountingObserver& records(CAM_STREAM_TYPE type) const;
    /// Waits until `count` more records of a stream have come.
    bool wait_for_records(CAM_STREAM_TYPE type, size_t count,
                          std::chrono::milliseconds limit = std::chrono::seconds(20));
    /// Pictures and sound arrive.
    bool streams();

  private:
    camhost::WakeEvent wake_;
    ICameraSubject* camera_;
    std::vector<std::unique_ptr<CountingObserver>> observers_;
};

}  // namespace system_test
