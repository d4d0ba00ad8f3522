// The element beside GStreamer's own for the kernel's driver.
#include <cstdlib>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/system/cpu_time.h"
#include "tests/system/program.h"
#include "tests/system/system_test.h"
#include "tests/system/usb_tree.h"

namespace system_test {
namespace {

using std::chrono::seconds;

constexpr size_t kFrames = 150;
constexpr size_t kFewFrames = 30;
constexpr int kPatience = 120;  // s, for each run

/// Of a pipeline that ends when its sink has had so many buffers: that alone is a good end of it.
std::string launch(const std::string& source, size_t frames, const std::string& words = "") {
    return "gst-launch-1.0 -v " + source + " ! fakesink num-buffers=" + std::to_string(frames) +
           " " + words;
}

/// A buffer as a sink that is not silent tells of it.
struct Arrival {
    double bytes = 0;
    double pts = 0;  ///< s
};

/// "chain   ******* (fakesink0:sink) (5120 bytes, dts: none, pts: 0:00:01.033333333, ...".
std::vector<Arrival> arrivals_in(const std::string& text) {
    const std::regex buffer(R"(\((\d+) bytes, dts: [^,]*, pts: (\d+):(\d+):(\d+\.\d+),)");
    std::vector<Arrival> arrivals;
    for (std::sregex_iterator it(text.begin(), text.end(), buffer), end; it != end; ++it) {
        arrivals.push_back(
            {std::stod((*it)[1]),
             3600 * std::stod((*it)[2]) + 60 * std::stod((*it)[3]) + std::stod((*it)[4])});
    }
    return arrivals;
}

class GStreamer : public SystemTest {
  protected:
    void SetUp() override {
        SystemTest::SetUp();
        ::setenv("GST_REGISTRY", "/tmp/gstreamer.registry", 1);
        ::setenv("GST_REGISTRY_FORK", "no", 1);  // the guest has no helper that looks at plug-ins
        ::setenv("AITCAM_PLUGIN", std::getenv("CAMERA_PLUGIN"), 1);
    }

    /// Sees that each buffer comes and has something in it. Besides, the runs that are measured
    /// afterwards find registry and files where this one has put them.
    static void expect_frames(const std::string& source) {
        const ProgramResult run =
            run_program(launch(source, kFewFrames, "silent=false"), kPatience);
        ASSERT_EQ(run.exit_code, 0) << run.output;
        const std::vector<Arrival> arrivals = arrivals_in(run.output);
        ASSERT_EQ(arrivals.size(), kFewFrames) << run.output;
        double bytes = 0;
        for (const Arrival& arrival : arrivals) {
            EXPECT_GT(arrival.bytes, 0) << run.output;
            bytes += arrival.bytes;
        }
        const double duration = arrivals.back().pts - arrivals.front().pts;
        ASSERT_GT(duration, 0) << run.output;
        std::ostringstream line;
        line.precision(3);
        line << source << ": " << (kFewFrames - 1) / duration << " buffers/s of "
             << bytes / kFewFrames / 1e3 << " kB on average";
        report(line.str());
    }

    /// Two runs that differ in nothing but their length: the start of program and stream cancels.
    static CpuTime cost_of_frames(const std::string& source) {
        expect_frames(source);
        const CpuTime few = cost_of(launch(source, kFewFrames), kPatience);
        const CpuTime many = cost_of(launch(source, kFewFrames + kFrames), kPatience);
        report(per_frame(source + " ! fakesink", many - few, kFrames));
        return many - few;
    }
};

/// Both get the same frames: the plug-in goes first, and what it has told the camera (which
/// sub-streams, at which rates) stays when the kernel's driver takes it over. No ratio is wanted:
/// what an emulated processor makes of either road says little about a real one.
TEST_F(GStreamer, CostOfAFrameBesideV4l2src) {
    power_on_running();
    const CpuTime ours = cost_of_frames("aitcamsrc size=640x480");
    ASSERT_TRUE(bind_driver(kVideoDriver, 0));
    ASSERT_TRUE(wait_until([] { return !video_node().empty(); }, seconds(15)));
    const CpuTime kernels = cost_of_frames("v4l2src device=" + video_node() +
                                           " ! video/x-h264,width=640,height=480,framerate=30/1");
    EXPECT_GT(ours.own, 0);
    EXPECT_GT(ours.guest, 0);
    EXPECT_GT(kernels.guest, 0);
}

}  // namespace
}  // namespace system_test
