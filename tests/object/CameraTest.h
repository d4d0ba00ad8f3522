// A whole camera object over the virtual bus, driven as a host drives it.
#pragma once

#include <condition_variable>
#include <mutex>

#include "AitOrixCamera.h"
#include "tests/support/BusTest.h"
#include "tests/support/ControlSequence.h"
#include "tests/support/TvFiles.h"

extern "C" {
ICameraSubject* cam_create();
void cam_destroy(ICameraSubject* camera);
int cam_version();
}

namespace test {

using namespace std::chrono_literals;

constexpr auto kLimit = 30s;

/// Characters 2 to 6 of the info file, by chassis.
constexpr char kBream[] = "T-XXX12";
constexpr char kTenchP[] = "T-XXPXX";
constexpr char kTenchS[] = "T-XXSXX";
constexpr char kPerch[] = "T-XXX14";
constexpr char kRuffPlus[] = "T-XXX10";

/// Collects the answers to Init, whose callback has no user data.
class InitAnswers {
  public:
    static InitAnswers& instance() {
        static InitAnswers answers;
        return answers;
    }
    static void Callback(bool usable) {
        InitAnswers& self = instance();
        std::lock_guard lock(self.mutex_);
        self.answers_.push_back(usable);
        self.changed_.notify_all();
    }
    void Clear() {
        std::lock_guard lock(mutex_);
        answers_.clear();
    }
    std::vector<bool> All() {
        std::lock_guard lock(mutex_);
        return answers_;
    }
    bool Wait(size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kLimit, [&] { return answers_.size() >= count; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<bool> answers_;
};

/// Keeps what it is given.
class RecordingObserver : public ICameraObserver {
  public:
    explicit RecordingObserver(int type, bool answer = true) : answer_(answer) {
        SetStreamType(static_cast<CAM_STREAM_TYPE>(type));
    }
    bool Update(const CCameraData* data) override {
        std::lock_guard lock(mutex_);
        ++count_;
        type_ = data->m_type;
        size_ = data->m_size;
        cts_ = data->m_cts;
        data_ = data->m_pData;
        if (data->m_type == CAM_STREAM_GRAY || data->m_type == CAM_STREAM_NV12) {
            const auto* record = static_cast<const CCameraExtData*>(data);
            extension_ = record->m_pExtData != nullptr;
            if (extension_) {
                zoom_ = *static_cast<const CCamZoomParameters*>(record->m_pExtData);
            }
        }
        changed_.notify_all();
        return answer_;
    }
    size_t Count() {
        std::lock_guard lock(mutex_);
        return count_;
    }
    bool WaitFor(size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kLimit, [&] { return count_ >= count; });
    }

    CAM_STREAM_TYPE type_ = MAX_CAM_STREAM_TYPE;
    unsigned long size_ = 0;
    unsigned long cts_ = 0;
    void* data_ = nullptr;
    bool extension_ = false;
    CCamZoomParameters zoom_ = {};

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    size_t count_ = 0;
    bool answer_;
};

class CameraTest : public BusTest {
  protected:
    explicit CameraTest(const nlohmann::json& configuration = RunningCamera())
        : BusTest(configuration) {
        RemoveTvFiles();
        SetPlatform(kBream);
        WriteFile("/mtd_rwarea/camera_l5", "");
        WriteFile("/dtv/cm_frequency", "1\n");
        InitAnswers::instance().Clear();
        clock().shorten(5ms);
    }
    ~CameraTest() override { Destroy(); }

    static void SetPlatform(const char* info) { WriteFile("/mtd_exe/.info", info); }

    void Create() {
        camera_ = cam_create();
        object_ = static_cast<CAitOrixCamera*>(camera_);
    }
    void Destroy() {
        if (camera_ != nullptr) {
            cam_destroy(camera_);
            camera_ = nullptr;
        }
    }
    /// Answer of Init.
    bool Init() {
        const size_t before = InitAnswers::instance().All().size();
        camera_->Init(InitAnswers::Callback, 7);
        EXPECT_TRUE(InitAnswers::instance().Wait(before + 1)) << log_listing();
        const auto answers = InitAnswers::instance().All();
        return answers.size() > before && answers[before];
    }
    /// A camera that is ready. `stays`: it is still there when the object goes; the bus sees no
    /// release otherwise.
    void Ready(bool stays = true) {
        Create();
        ASSERT_TRUE(Init()) << log_listing();
        if (stays) {
            ExpectUnusualRelease();
        }
        Forget();
    }
    void Playing(bool stays = true) {
        Ready(stays);
        ASSERT_TRUE(camera_->StartRecording()) << log_listing();
        ASSERT_EQ(camera_->GetState(), CAM_STATE_PLAYING);
        Forget();
    }
    void Forget() {
        virtcam::bus::clear_logs();
        log().reset();
    }
    /// What the audio adapter leaves to the close, once in each object's life.
    void ExpectUnusualRelease() {
        ExpectComplaint("libusb_release_interface: interface 1 was not claimed");
        ExpectComplaint("libusb_close: claimed and not released: interface 2, 3");
    }

    /// Requests since Forget, without the monitor's question.
    static Sequence Sent() {
        Sequence some;
        for (const Request& request : Requests()) {
            if (request.type != 0xA0) {
                some.push_back(request);
            }
        }
        return some;
    }
    // The commands of the camera object, as the adapter sends them.
    static Request Isp(std::vector<uint8_t> head) {
        return Write(0x21, 0x01, 0x0100, 0x0600, Block(8, std::move(head)), 5000);
    }
    static Request Aux(std::vector<uint8_t> head) {
        return Write(0x21, 0x01, 0x0400, 0x0600, Block(8, std::move(head)), 5000);
    }
    static Request Mmp(std::vector<uint8_t> head) {
        return Write(0x21, 0x01, 0x0E00, 0x0600, Block(16, std::move(head)), 5000);
    }
    static Request MmpResult() { return Read(0xA1, 0x81, 0x0F00, 0x0600, 16, 5000); }
    static Request Light(uint8_t on) { return Aux({0x0E, 0x00, on}); }
    static void FailControl(const nlohmann::json& selector, const nlohmann::json& action) {
        virtcam::bus::add_fault({{"on", {{"control", selector}}}, {"do", action}});
    }
    static void FailCall(const std::string& name, const nlohmann::json& action) {
        virtcam::bus::add_fault({{"on", {{"call", name}}}, {"do", action}});
    }

    bool Set(int property, int value) {
        CAM_PROP_VALUE param;
        param.value = value;
        const bool result = camera_->SetProperty(static_cast<CAM_PROPERTY>(property), &param);
        last_ = param;
        return result;
    }
    bool SetPair(int property, int first, int second) {
        CAM_PROP_VALUE param;
        param.res[0] = static_cast<short>(first);
        param.res[1] = static_cast<short>(second);
        return Set(property, param.value);
    }
    bool Get(int property, int initial = -12345) {
        last_.value = initial;
        return camera_->GetProperty(static_cast<CAM_PROPERTY>(property), &last_);
    }
    /// Texts of a level since Forget, without the monitor's chatter.
    std::vector<std::string> Texts(unsigned level) {
        std::vector<std::string> some;
        for (const LogLine& line : log().lines()) {
            if (line.level == level && line.thread == std::this_thread::get_id()) {
                some.push_back(line.text);
            }
        }
        return some;
    }

    ICameraSubject* camera_ = nullptr;
    CAitOrixCamera* object_ = nullptr;
    CAM_PROP_VALUE last_ = {};
};

}  // namespace test
