// Hours of recording in virtual time, with losses, restarts, properties and replugs: memory does not
// grow, each frame that does not arrive has a reason, and the time stamps are right across the
// wraps of the 32-bit clock (71.6 minutes) and of the 90 kHz time (13.3 hours).
//
// AITCAM_SOAK_FRAMES: how many frames, half of them in one recording (default 12000; scripts/soak).
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "tests/simulation/host.h"
#include "tests/soak/soak_camera.h"
#include "tests/support/TvFiles.h"

namespace soak {
namespace {

using namespace std::chrono_literals;
using sim::Time;
using sim::World;

constexpr int64_t kTicksPerSecond = 90000;
/// Wraps of the 90 kHz time lie that far apart.
constexpr Time kCtsWrap = std::chrono::seconds((int64_t{1} << 32) / kTicksPerSecond + 1);

uint32_t frames_wanted() {
    const char* text = getenv("AITCAM_SOAK_FRAMES");
    return text == nullptr ? 12000 : static_cast<uint32_t>(atol(text));
}

/// KiB that the process holds; of an emulated one those of its heap, since an emulator's own memory
/// cannot be told from the program's.
long memory_held() {
    malloc_trim(0);
    if (getenv("AITCAM_EMULATOR") != nullptr) {
        const struct mallinfo2 heap = mallinfo2();
        return static_cast<long>((heap.uordblks + heap.hblkhd) / 1024);
    }
    std::ifstream file("/proc/self/statm");
    long size = 0, resident = 0;
    file >> size >> resident;
    return resident * 4;
}

/// What the wall clock has been stepped by so far.
Time g_Stepped{};

void step_wall_clock(Time by) {
    g_Stepped += by;
    World::step_wall_clock(by);
}

/// Notes the frames that arrive, holds their time stamps against virtual time, and is slow on demand.
class Viewer : public sim::Reader {
  public:
    explicit Viewer(Account& account) : Reader(CAM_STREAM_H264_MAIN), account_(account) {}

    void begin() { expects_ = false; }
    void be_slow_once(Time time) { slow_ = time; }
    size_t wrong_time_stamps() const { return wrong_; }
    /// Time stamps that were smaller than the one before: wraps.
    size_t wraps() const { return wraps_; }

  protected:
    void see(const CCameraData& record) override {
        account_.delivered(
            SoakCamera::id_in(static_cast<const unsigned char*>(record.m_pData), record.m_size));
        check(static_cast<uint32_t>(record.m_cts));
        if (slow_ != Time(0)) {
            const Time time = std::exchange(slow_, Time(0));
            account_.observer_is_slow_until(World::now() + time);
            sim::pass(time);
        }
    }

  private:
    /// Against the first frame of the recording, by an arithmetic of its own: whole numbers.
    void check(uint32_t cts) {
        const Time now = World::now() + g_Stepped;
        if (!expects_) {
            expects_ = true;
            first_at_ = now;
            first_cts_ = last_cts_ = cts;
            return;
        }
        const int64_t ticks = (now - first_at_) / 1us * 9 / 100;
        const auto error = static_cast<int32_t>(cts - (first_cts_ + static_cast<uint32_t>(ticks)));
        // The clock of the wraps loses a microsecond at each, and each look takes one.
        constexpr int32_t kAllowed = 9;
        wrong_ += error < -kAllowed || error > kAllowed ? 1 : 0;
        wraps_ += cts < last_cts_ ? 1 : 0;
        last_cts_ = cts;
    }

    Account& account_;
    Time slow_{};
    bool expects_ = false;
    Time first_at_{};
    uint32_t first_cts_ = 0, last_cts_ = 0;
    size_t wrong_ = 0, wraps_ = 0;
};

class Soak : public ::testing::Test {
  protected:
    Soak() {
        test::RemoveTvFiles();
        test::WriteFile("/mtd_exe/.info", "T-XXX12");
    }

    void bring_up() {
        sim::Bus::publish_listing();
        sim::Bus::plug(&camera_);
        host_ = std::make_unique<sim::Host>();
        ASSERT_TRUE(host_->init());
        start();
    }
    void start() {
        camera().RegisterObserver(&viewer_);
        camera().RegisterObserver(&sound_);
        viewer_.begin();
        ASSERT_TRUE(camera().StartRecording());
        ASSERT_EQ(camera().GetState(), CAM_STATE_PLAYING);
        began_ = World::now();
        sound_before_ = sound_.records();
    }
    void stop() {
        check_sound();
        EXPECT_TRUE(camera().StopRecording());
        account_.close(camera_.frames());
    }
    void tear_down() {
        host_.reset();
        EXPECT_EQ(World::threads(), 1u);
        EXPECT_EQ(sim::Bus::leavings().transfers, 0u);
        note_memory();
    }
    void replug() {
        check_sound();
        sim::Bus::unplug();
        EXPECT_TRUE(sim::Host::await_answer(1min));
        EXPECT_EQ(camera().GetState(), CAM_STATE_DISCONNECTED);
        account_.close(camera_.frames());
        tear_down();
        bring_up();
    }

    /// A property that restarts recording: frames are under way meanwhile.
    void set_restarting(CAM_PROPERTY property, int value) {
        check_sound();
        camera().StopRecording();
        account_.close(camera_.frames());
        CAM_PROP_VALUE param;
        param.value = value;
        camera().SetProperty(property, &param);
        start();
    }
    void set(CAM_PROPERTY property, int value) {
        CAM_PROP_VALUE param;
        param.value = value;
        EXPECT_TRUE(camera().SetProperty(property, &param)) << property;
    }

    void play_one_recording(uint32_t frames);
    void play_eventful(uint32_t frames);
    void disturb(uint32_t round);
    void report() const;

    ICameraSubject& camera() { return host_->camera(); }

    /// 64 bytes come in each millisecond; what does not fill a block or a transfer is not there yet.
    void check_sound() {
        const double expected =
            std::chrono::duration<double, std::milli>(World::now() - began_).count() * 64 / 960;
        EXPECT_NEAR(static_cast<double>(sound_.records() - sound_before_), expected, 4);
    }
    void note_memory() {
        const long held = memory_held();
        // The first half of the lives warms up what the C library keeps.
        least_ = least_ == 0 ? held : std::min(least_, held);
        last_ = held;
    }

    Account account_;
    SoakCamera camera_{account_, Plan{}};
    const World world_;
    const sim::Bus bus_{nullptr};
    Viewer viewer_{account_};
    sim::Reader sound_{CAM_STREAM_PCM};
    std::unique_ptr<sim::Host> host_;
    Time began_{};
    size_t sound_before_ = 0;
    long least_ = 0, last_ = 0;
    size_t restarts_ = 0, replugs_ = 0, properties_ = 0;
};

/// The wall clock goes ahead by half an hour now and then, so that the 90 kHz time wraps, too: to the
/// plug-in that is the same as half an hour without a frame.
void Soak::play_one_recording(uint32_t frames) {
    constexpr Time kStep = 30min;
    const auto steps = static_cast<uint32_t>(kCtsWrap / kStep + 1);
    const uint32_t begin = camera_.frames();
    bring_up();
    for (uint32_t step = 1; step <= steps; ++step) {
        const uint32_t until = begin + static_cast<uint32_t>(uint64_t{frames} * step / steps);
        while (camera_.frames() < until && !HasFatalFailure()) {
            sim::pass(100ms);
        }
        step_wall_clock(kStep);
    }
    sim::pass(1s);
    EXPECT_GE(viewer_.wraps(), 1u);
    stop();
    tear_down();
}

void Soak::disturb(uint32_t round) {
    constexpr CAM_PROPERTY kQuiet[] = {
        CAM_PROPERTY_BITRATE, CAM_PROPERTY_FRAMERATE, CAM_PROPERTY_BRIGHTNESS, CAM_PROPERTY_MIRROR,
        CAM_PROPERTY_PAN,     CAM_PROPERTY_MICVOLUME, CAM_PROPERTY_NEWGOP};
    set(kQuiet[round % std::size(kQuiet)], static_cast<int>(round % 100));
    ++properties_;
    if (round % 50 == 49) {
        replug();
        ++replugs_;
    } else if (round % 10 == 9) {
        stop();
        start();
        ++restarts_;
    } else if (round % 10 == 4) {
        set_restarting(round % 20 == 4 ? CAM_PROPERTY_SAMPLERATE : CAM_PROPERTY_SIGNAL_TYPE,
                       round % 20 == 4 ? 16000 : static_cast<int>(round % 9));
        ++restarts_;
    } else if (round % 10 == 7) {
        viewer_.be_slow_once(1200ms);
    }
}

void Soak::play_eventful(uint32_t frames) {
    const uint32_t end = camera_.frames() + frames;
    camera_.follow({37, 211});
    bring_up();
    for (uint32_t round = 0; camera_.frames() < end && !HasFatalFailure(); ++round) {
        sim::pass(std::chrono::seconds(2 + round % 3));
        disturb(round);
    }
    stop();
    tear_down();
}

void Soak::report() const {
    std::fprintf(
        stderr,
        "%u frames in %.1f h, wall clock %.1f h; %zu restarts, %zu replugs, %zu property changes\n",
        camera_.frames(), std::chrono::duration<double>(World::now()).count() / 3600,
        std::chrono::duration<double>(World::now() + g_Stepped).count() / 3600, restarts_, replugs_,
        properties_);
    for (const auto& [fate, count] : account_.totals()) {
        std::fprintf(stderr, "  %-40s %llu\n", fate.c_str(),
                     static_cast<unsigned long long>(count));
    }
    std::fprintf(stderr, "  wraps of the 90 kHz time %zu, wrong time stamps %zu\n", viewer_.wraps(),
                 viewer_.wrong_time_stamps());
    std::fprintf(stderr, "  memory at the ends of lives: least %ld KiB, last %ld KiB\n", least_,
                 last_);
}

TEST_F(Soak, HoursOfRecordingLoseNothingWithoutAReason) {
    const uint32_t half = frames_wanted() / 2;
    play_one_recording(half);
    play_eventful(half);
    report();
    uint64_t all = 0;
    for (const auto& [fate, count] : account_.totals()) {
        EXPECT_NE(fate.rfind("UNEXPLAINED", 0), 0u) << fate << " " << count;
        all += count;
    }
    EXPECT_EQ(all, camera_.frames());
    EXPECT_EQ(viewer_.wrong_time_stamps(), 0u);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they keep memory themselves
    EXPECT_LE(last_ - least_, 1024);
#endif
}

}  // namespace
}  // namespace soak
