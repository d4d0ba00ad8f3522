// Many starts and stops, and what a frame costs.
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "tests/system/plugin_camera.h"
#include "tests/system/program.h"
#include "tests/system/system_test.h"
#include "tests/system/usb_tree.h"

namespace systemtest {
namespace {

using std::chrono::seconds;

class Endurance : public SystemTest {};

long resident_kib() {
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
    power_on_running();
    PluginCamera camera;
    ASSERT_TRUE(camera.init());
    long settled = 0;
    for (int cycle = 1; cycle <= kCycles; ++cycle) {
        SCOPED_TRACE(cycle);
        ASSERT_TRUE(camera.start());
        EXPECT_TRUE(camera.wait_for_records(CAM_STREAM_H264_MAIN, 5));
        EXPECT_TRUE(camera.stop());
        settled = cycle == kSettled ? resident_kib() : settled;
    }
    const long last = resident_kib();
    report("resident memory after cycle 10: " + std::to_string(settled) +
           " KiB, after cycle 30: " + std::to_string(last) + " KiB");
    EXPECT_LE(last - settled, kMostGrowthKib);
}

double process_cpu_seconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto value = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return value(usage.ru_utime) + value(usage.ru_stime);
}

/// Busy time of the guest's processor, kernel threads and interrupts included.
double guest_cpu_seconds() {
    std::ifstream file("/proc/stat");
    std::string label;
    long user = 0, nice = 0, system = 0, idle = 0, iowait = 0, irq = 0, softirq = 0;
    file >> label >> user >> nice >> system >> idle >> iowait >> irq >> softirq;
    return static_cast<double>(user + nice + system + irq + softirq) /
           static_cast<double>(::sysconf(_SC_CLK_TCK));
}

std::string cost(const std::string& who, double process, double guest, size_t frames) {
    const auto milliseconds = [frames](double total) {
        return total * 1e3 / static_cast<double>(frames);
    };
    std::ostringstream text;
    text.precision(3);
    text << who << ": " << frames << " frames, " << milliseconds(process)
         << " ms of its own CPU time per frame, " << milliseconds(guest)
         << " ms of the whole guest's";
    return text.str();
}

TEST_F(Endurance, CostOfAFrameBesideTheKernelsDriver) {
    constexpr size_t kFrames = 120;
    power_on_running();
    const std::string command = "v4l2-ctl -d " + video_node() +
                                " --set-fmt-video=width=640,height=480,pixelformat=MJPG"
                                " --stream-mmap --stream-count=" +
                                std::to_string(kFrames);
    double guest = guest_cpu_seconds();
    const ProgramResult kernel = run_program(command, 60);
    ASSERT_EQ(kernel.exit_code, 0) << kernel.output;
    report(cost("uvcvideo and v4l2-ctl, MJPEG", kernel.cpu_seconds, guest_cpu_seconds() - guest,
                kFrames));

    PluginCamera camera;
    ASSERT_TRUE(camera.init());
    ASSERT_TRUE(camera.start());
    ASSERT_TRUE(camera.streams());
    const CountingObserver& pictures = camera.records(CAM_STREAM_H264_MAIN);
    const size_t before = pictures.count();
    double process = process_cpu_seconds();
    guest = guest_cpu_seconds();
    ASSERT_TRUE(camera.wait_for_records(CAM_STREAM_H264_MAIN, kFrames, seconds(60)));
    process = process_cpu_seconds() - process;
    guest = guest_cpu_seconds() - guest;
    report(cost("plug-in, H.264 and JPEG and sound", process, guest, pictures.count() - before));
    EXPECT_TRUE(camera.stop());
}

}  // namespace
}  // namespace systemtest
