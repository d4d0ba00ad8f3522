// A plug-in that needs no camera: it delivers known records at the camera's rates, and goes wrong
// in the way that the environment variable FAKE_CAMERA names.
//
//   video-mode      a television that selects by video mode
//   not-usable      Init reports false
//   never-reports   Init reports nothing
//   never-ends      neither does it, and the camera object is never destroyed
//   no-frames       recording starts and delivers nothing
//   start-fails     StartRecording answers false
//   lost            the camera goes away 300 ms after the start of recording
//   lost-later      the camera goes away with the 6th frame of the second recording
//   waits           the first property or capability that is asked for waits for a line on standard
//                   input, and until no interrupt is pending any more
//   call-mode       key frames come as SPS, PPS and IDR
//   odd-size        gray records of a size that no picture has
//   refuses         SetProperty answers false for every property
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "Src/CameraInterface.h"
#include "tests/host/fake_content.h"

namespace {

using std::chrono::milliseconds;

bool behaves(const char* how) {
    const char* chosen = std::getenv("FAKE_CAMERA");
    return chosen != nullptr && std::string(chosen) == how;
}

class FakeCamera : public ICameraSubject {
  public:
    FakeCamera() { SetState(CAM_STATE_CONNECTING); }
    ~FakeCamera() override {
        while (behaves("never-ends")) {
            pause();
        }
        end_threads();
        if (reporter_.joinable()) {
            reporter_.join();
        }
    }

    void Init(InitDoneCallback callback, int) override {
        std::printf("\x1b[31mInit\x1b[0m\n");
        callback_ = callback;
        if (behaves("never-reports") || behaves("never-ends")) {
            return;
        }
        reporter_ = std::thread([this] {
            const bool usable = !behaves("not-usable");
            SetState(usable ? CAM_STATE_READY : CAM_STATE_DISCONNECTED);
            callback_(usable);
        });
    }

    bool RegisterObserver(ICameraObserver* observer) override {
        const std::lock_guard lock(observers_mutex_);
        observers_[observer->m_StreamType] = observer;
        return true;
    }
    bool RemoveObserver(ICameraObserver* observer) override {
        const std::lock_guard lock(observers_mutex_);
        return observers_.erase(observer->m_StreamType) == 1;
    }
    bool OnFrameArrival(const CCameraData* data) override {
        const std::lock_guard lock(observers_mutex_);
        const auto found = observers_.find(data->m_type);
        return found != observers_.end() && found->second->Update(data);
    }

    bool StartRecording() override {
        if (behaves("start-fails") || GetState() != CAM_STATE_READY) {
            return !behaves("start-fails");
        }
        stop_ = false;
        SetState(CAM_STATE_PLAYING);
        video_ = std::thread([this] { deliver(); });
        return true;
    }
    bool StopRecording() override {
        const bool playing = GetState() == CAM_STATE_PLAYING;
        end_threads();
        send(CAM_STREAM_NV12, nullptr, 0, 0);
        send(CAM_STREAM_GRAY, nullptr, 0, 0);
        if (playing) {
            SetState(CAM_STATE_READY);
        }
        return playing;
    }

    bool SetProperty(CAM_PROPERTY property, CAM_PROP_VALUE* value) override {
        wait_if_asked();
        if (behaves("refuses")) {
            return false;
        }
        const bool restarts = property == CAM_PROPERTY_DIMENSION ||
                              property == CAM_PROPERTY_SIGNAL_TYPE ||
                              property == CAM_PROPERTY_VIDEO_MODE;
        if (property == CAM_PROPERTY_TRIGGER_JPEG) {
            jpeg_triggered_ = true;
        }
        if (!keep(property, *value)) {
            return false;
        }
        if (restarts || property == CAM_PROPERTY_SAMPLERATE) {
            if (GetState() != CAM_STATE_PLAYING) {
                return property == CAM_PROPERTY_SAMPLERATE;
            }
            StopRecording();
            StartRecording();
        }
        return true;
    }
    bool GetProperty(CAM_PROPERTY property, CAM_PROP_VALUE* value) override {
        wait_if_asked();
        if (property == CAM_PROPERTY_MIRROR) {
            return false;
        }
        const std::lock_guard lock(values_mutex_);
        *value = values_[property];
        return true;
    }
    bool GetCapability(CAM_CAPABILITY capability) override {
        if (capability == CAM_CAPABILITY_SIGNAL_TYPE) {  // the host asks before it is ready
            return !behaves("video-mode");
        }
        wait_if_asked();
        return true;
    }
    bool SetStreamFormat(CAM_STR_FORMAT) override { return true; }
    const char* Execute(int, const char**) override { return nullptr; }
    bool StartTest() override { return true; }
    bool StopTest() override { return true; }
    bool PrintStatus() override { return true; }

  private:
    void wait_if_asked() {
        if (waited_ || !behaves("waits")) {
            return;
        }
        waited_ = true;
        char line = 0;
        [[maybe_unused]] const ssize_t got = read(STDIN_FILENO, &line, 1);
        sigset_t pending;
        while (sigpending(&pending) == 0 && sigismember(&pending, SIGINT) == 1) {
            std::this_thread::yield();
        }
    }

    // False when there is nothing to change.
    bool keep(CAM_PROPERTY property, const CAM_PROP_VALUE& value) {
        const std::lock_guard lock(values_mutex_);
        const bool same =
            property == CAM_PROPERTY_DIMENSION && values_[property].value == value.value;
        if (same || property == CAM_PROPERTY_SHARPNESS) {
            return false;
        }
        values_[property] = value;
        return true;
    }

    void end_threads() {
        {
            const std::lock_guard lock(stop_mutex_);
            stop_ = true;
        }
        stopped_.notify_all();
        if (video_.joinable()) {
            video_.join();
        }
    }

    void send(CAM_STREAM_TYPE type, const void* data, size_t size, unsigned long cts) {
        CCameraExtData record{};
        record.m_pData = const_cast<void*>(data);
        record.m_size = size;
        record.m_cts = cts;
        record.m_type = type;
        OnFrameArrival(&record);
    }

    void send(CAM_STREAM_TYPE type, const std::vector<uint8_t>& bytes, unsigned long cts) {
        send(type, bytes.data(), bytes.size(), cts);
    }

    void deliver() {
        std::unique_lock lock(stop_mutex_);
        const auto begin = std::chrono::steady_clock::now();
        ++recordings_;
        for (int frame = 0; !stop_; ++frame) {
            lock.unlock();
            if (!behaves("no-frames")) {
                deliver_frame(frame);
            }
            if ((behaves("lost") && frame == 9) ||
                (behaves("lost-later") && recordings_ == 2 && frame == 5)) {
                SetState(CAM_STATE_DISCONNECTED);
                callback_(false);
                return;
            }
            lock.lock();
            stopped_.wait_until(lock, begin + milliseconds(1000) * (frame + 1) / 30,
                                [this] { return stop_; });
        }
    }

    void deliver_frame(int frame) {
        const auto& units = fake::h264_units();
        const unsigned long cts = 3000UL * static_cast<unsigned long>(frame + 1);
        const auto unit = static_cast<size_t>(frame) % units.size();
        if (unit == 0 && behaves("call-mode")) {
            for (const auto& part : fake::split_key_frame()) {
                send(CAM_STREAM_H264_MAIN, part, cts);
            }
        } else {
            send(CAM_STREAM_H264_MAIN, units[unit], cts);
        }
        send(CAM_STREAM_H264_SUB, units[unit], cts);
        if (jpeg_triggered_.exchange(false) || behaves("video-mode")) {
            send(CAM_STREAM_JPEG, fake::jpeg(), 0);
        }
        if (frame % 3 == 0) {
            deliver_raw(static_cast<uint8_t>(frame));
        }
        const std::vector<uint8_t> silence(960, 0);
        send(CAM_STREAM_PCM, silence, cts);
        send(CAM_STREAM_PCM, silence, cts);
    }

    void deliver_raw(uint8_t shade) {
        constexpr size_t kGray = size_t{320} * 240;
        constexpr size_t kOdd = 12345;
        constexpr size_t kYuy2 = size_t{640} * 360 * 2;
        constexpr size_t kNv12 = size_t{864} * 486 * 3 / 2;
        constexpr size_t kNv21 = size_t{800} * 450 * 3 / 2;
        send(CAM_STREAM_GRAY, std::vector<uint8_t>(behaves("odd-size") ? kOdd : kGray, shade), 0);
        send(CAM_STREAM_YUYV, std::vector<uint8_t>(kYuy2, shade), 0);
        send(CAM_STREAM_NV12, std::vector<uint8_t>(kNv12, shade), 0);
        send(CAM_STREAM_NV21, std::vector<uint8_t>(kNv21, shade), 0);
    }

    InitDoneCallback callback_ = nullptr;
    std::thread reporter_;
    std::thread video_;
    std::mutex observers_mutex_;
    std::map<CAM_STREAM_TYPE, ICameraObserver*> observers_;
    std::mutex values_mutex_;
    std::map<CAM_PROPERTY, CAM_PROP_VALUE> values_{{CAM_PROPERTY_SAMPLERATE, {16000}},
                                                   {CAM_PROPERTY_DIMENSION, {640 | 480 << 16}}};
    std::mutex stop_mutex_;
    std::condition_variable stopped_;
    bool stop_ = false;
    bool waited_ = false;
    std::atomic<int> recordings_{0};
    std::atomic<bool> jpeg_triggered_{false};
};

}  // namespace

extern "C" {

__attribute__((visibility("default"))) ICameraSubject* cam_create() {
    std::printf("\x1b[31mcam_create\x1b[0m\n");
    return new FakeCamera;
}
__attribute__((visibility("default"))) void cam_destroy(ICameraSubject* camera) {
    delete camera;
}
__attribute__((visibility("default"))) int cam_version() {
    return 42;
}
}
