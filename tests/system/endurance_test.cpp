// Many starts and stops, and what a frame costs.
#include <malloc.h>
#include <unistd.h>

#include <fstream>

#include "tests/system/cpu_time.h"
#include "tests/system/plugin_camera.h"
#include "tests/system/system_test.h"
#include "tests/system/usb_tree.h"

namespace system_test {
namespace {

using std::chrono::seconds;

class Endurance : public SystemTest {};

/// Without what has been freed and the C library keeps: up to twice the size of the largest block,
/// depending on which thread was first.
long resident_kib() {
    ::malloc_trim(0);
    std::ifstream file("/proc/self/statm");
    long size = 0;
    long resident = 0;
    file >> size >> resident;
    return resident * ::sysconf(_SC_PAGESIZE) / 1024;
}

TEST_F(Endurance, ThirtyCyclesKeepTheirMemory) {
    constexpr int kCycles = 30;
    constexpr int kSettled = 10;
    constexpr long kMostGrowthKib = 512;
    power_on_for_plugin();
    PluginCamera camera;
    ASSERT_TRUE(camera.init()) << remote_.last_commands();
    long settled = 0;
    for (int cycle = 1; cycle <= kCycles; ++cycle) {
        SCOPED_TRACE(cycle);
        ASSERT_TRUE(camera.start());
        EXPECT_TRUE(camera.wait_for_records(CAM_STREAM_H264_MAIN, 1));
        EXPECT_TRUE(camera.wait_for_records(CAM_STREAM_PCM, 1));
        EXPECT_TRUE(camera.stop());
        settled = cycle == kSettled ? resident_kib() : settled;
    }
    const long last = resident_kib();
    report("resident memory after cycle 10: " + std::to_string(settled) +
           " KiB, after cycle 30: " + std::to_string(last) + " KiB");
    EXPECT_LE(last - settled, kMostGrowthKib);
}

/// Of `frames` multiplexed frames while the plug-in streams, starting and stopping not included.
CpuTime cost_through_plugin(size_t frames) {
    PluginCamera camera;
    EXPECT_TRUE(camera.init());
    EXPECT_TRUE(camera.start());
    EXPECT_TRUE(camera.streams());
    const CpuTime before = cpu_time();
    EXPECT_TRUE(camera.wait_for_records(CAM_STREAM_H264_MAIN, frames, seconds(60)));
    const CpuTime after = cpu_time();
    EXPECT_TRUE(camera.stop());
    return after - before;
}

/// Both get the same frames: the plug-in goes first, and what it has told the camera (which
/// sub-streams, at which rates) stays when the kernel's driver takes it over.
TEST_F(Endurance, CostOfAFrameBesideTheKernelsDriver) {
    constexpr size_t kFrames = 120;
    constexpr size_t kFewFrames = 30;
    power_on_running();
    const CpuTime plugin = cost_through_plugin(kFrames);
    ASSERT_TRUE(bind_driver(kVideoDriver, 0));
    ASSERT_TRUE(wait_until([] { return !video_node().empty(); }, seconds(15)));
    const std::string stream = "v4l2-ctl -d " + video_node() +
                               " --set-fmt-video=width=640,height=480,pixelformat=H264"
                               " --stream-mmap --stream-count=";
    // Two runs that differ in nothing but their length: the start of program and stream cancels.
    const CpuTime few = cost_of(stream + std::to_string(kFewFrames));
    const CpuTime many = cost_of(stream + std::to_string(kFewFrames + kFrames));
    report(per_frame("plug-in, multiplexed 640x480, taken apart, and the sound besides", plugin,
                     kFrames));
    report(
        per_frame("uvcvideo and v4l2-ctl, the same multiplexed stream, not taken apart, no sound"
                  " (a run of 150 frames less one of 30)",
                  many - few, kFrames));
    EXPECT_GT((many - few).guest, 0);
    EXPECT_GT(plugin.own, 0);
}

}  // namespace
}  // namespace system_test
