// An observer that takes longer for a frame than the camera: frames are lost for want of buffers, and
// each loss asks for a key frame.
#include <algorithm>
#include <utility>

#include "tests/meetings/life.h"

namespace sim {
namespace {

constexpr Time kCamerasFrame = 33ms;
constexpr Time kPerFrame = 40ms;

/// Makes its frames by the clock: what nobody fetches in time is lost. A key frame when asked for one.
class HurriedCamera : public Camera {
  public:
    Answer control(const Setup& setup, unsigned char* data) override {
        constexpr uint8_t kAskForKeyFrame = 0x04;
        if (setup.type == 0x21 && setup.index == 0x0600 && setup.value == 0x0100 &&
            data[0] == kAskForKeyFrame) {
            ++requests_;
            is_asked_ = true;
        }
        return Camera::control(setup, data);
    }
    int key_frame_requests() const { return requests_; }

  protected:
    std::vector<uint8_t> next_frame() override {
        constexpr uint8_t kPFrame[] = {0, 0, 0, 1, 0x41, 1, 2, 3};
        sequence_ = std::max(sequence_, static_cast<uint32_t>(World::now() / kCamerasFrame));
        if (std::exchange(is_asked_, false)) {
            return Camera::next_frame();
        }
        std::vector<uint8_t> frame;
        append(frame, 0x2B, ++sequence_, kPFrame, sizeof kPFrame);
        return frame;
    }

  private:
    int requests_ = 0;
    bool is_asked_ = true;
};

class SlowReader : public Reader {
  public:
    SlowReader() : Reader(CAM_STREAM_H264_MAIN) {}
    Time longest_gap() const { return longest_gap_; }

  protected:
    void see(const CCameraData&) override {
        if (records() > 1) {
            longest_gap_ = std::max(longest_gap_, World::now() - last_);
        }
        last_ = World::now();
        pass(kPerFrame);
    }

  private:
    Time last_{};
    Time longest_gap_{};
};

/// A request that is sent while the frame's buffer is held waits half a second for the thread that
/// waits for that buffer; what is lost meanwhile causes the next one.
TEST(SlowObserver, IsNotHeldUpByTheKeyFramesThatItsLossesAskFor) {
    write_tv_files();
    const World world;
    HurriedCamera camera;
    const Bus bus(&camera);
    Bus::publish_listing();
    Host host;
    ASSERT_TRUE(host.init());
    SlowReader pictures;
    host->RegisterObserver(&pictures);
    ASSERT_TRUE(host->StartRecording());
    pass(20s);
    EXPECT_TRUE(host->StopRecording());
    host->RemoveObserver(&pictures);
    EXPECT_GT(camera.key_frame_requests(), 10);
    EXPECT_GT(pictures.records(), 20s / kPerFrame * 8 / 10);
    EXPECT_LE(pictures.longest_gap(), 3 * kPerFrame);
}

}  // namespace
}  // namespace sim
