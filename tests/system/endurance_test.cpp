// Many starts and stops, and what a frame costs.
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "tests/system/plugin_camera.h"
#include "tests/system/program.h"
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

/// Processor time in seconds.
struct CpuTime {
    double own = 0;    ///< of one program, all its threads
    double guest = 0;  ///< of the whole guest, kernel threads and interrupts included
};

CpuTime operator-(const CpuTime& a, const CpuTime& b) {
    return {a.own - b.own, a.guest - b.guest};
}

double own_cpu_seconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto value = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return value(usage.ru_utime) + value(usage.ru_stime);
}

double guest_cpu_seconds() {
    std::ifstream file("/proc/stat");
    std::string label;
    long user = 0, nice = 0, system = 0, idle = 0, iowait = 0, irq = 0, softirq = 0;
    file >> label >> user >> nice >> system >> idle >> iowait >> irq >> softirq;
    return static_cast<double>(user + nice + system + irq + softirq) /
           static_cast<double>(::sysconf(_SC_CLK_TCK));
}

/// Of a program from its start to its end.
CpuTime cost_of(const std::string& command) {
    const double before = guest_cpu_seconds();
    const ProgramResult run = run_program(command, 60);
    EXPECT_EQ(run.exit_code, 0) << run.output;
    return {run.cpu_seconds, guest_cpu_seconds() - before};
}

std::string per_frame(const std::string& who, const CpuTime& total, size_t frames) {
    // A program that hardly does anything itself has less than the kernel's clock resolves.
    const auto milliseconds = [frames](double time) {
        return std::max(0.0, time) * 1e3 / static_cast<double>(frames);
    };
    std::ostringstream text;
    text.precision(2);
    text << std::fixed << who << ": " << milliseconds(total.own)
         << " ms of its own CPU time per frame, " << milliseconds(total.guest)
         << " ms of the whole guest's, over " << frames << " frames";
    return text.str();
}

/// Of `frames` multiplexed frames while the plug-in streams, starting and stopping not included.
CpuTime cost_through_plugin(size_t frames) {
    PluginCamera camera;
    EXPECT_TRUE(camera.init());
    EXPECT_TRUE(camera.start());
    EXPECT_TRUE(camera.streams());
    const CpuTime before{own_cpu_seconds(), guest_cpu_seconds()};
    EXPECT_TRUE(camera.wait_for_records(CAM_STREAM_H264_MAIN, frames, seconds(60)));
    const CpuTime after{own_cpu_seconds(), guest_cpu_seconds()};
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
