// The kernel's own drivers and the tools of others look at the camera.
#include <sys/types.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <sndfile.hh>
#include <sstream>
#include <string>
#include <vector>

#include "tests/recording_check/tone.h"
#include "tests/system/luma.h"
#include "tests/system/plugin_camera.h"
#include "tests/system/program.h"
#include "tests/system/system_test.h"
#include "tests/system/usb_tree.h"

namespace system_test {
namespace {

using std::chrono::seconds;

class Witness : public SystemTest {
  protected:
    /// Output of a program that must succeed; kept with the results as NAME.txt.
    static std::string output_of(const std::string& command, const std::string& name) {
        const ProgramResult run = run_program(command, 90);
        std::ofstream(results_folder() + "/" + name + ".txt") << run.output;
        EXPECT_EQ(run.exit_code, 0) << run.output;
        return run.output;
    }

    /// Reports the speed of a stream from the lines that `v4l2-ctl --verbose` prints for each
    /// picture: "cap dqbuf: ... bytesused: 614400 ts: 12.345678 ...".
    static void report_rate(const std::string& format, const std::string& text) {
        const std::regex picture(R"(bytesused: (\d+) ts: (\d+\.\d+))");
        const std::sregex_iterator first(text.begin(), text.end(), picture);
        ASSERT_NE(first, std::sregex_iterator()) << text;
        const double begin = std::stod((*first)[2]);
        double end = begin;
        size_t pictures = 0;
        double bytes = 0;
        for (auto it = std::next(first); it != std::sregex_iterator(); ++it, ++pictures) {
            bytes += std::stod((*it)[1]);
            end = std::stod((*it)[2]);
        }
        ASSERT_GT(end, begin) << text;
        std::ostringstream line;
        line.precision(3);
        line << "uvcvideo and v4l2-ctl, " << format
             << " 640x480: " << static_cast<double>(pictures) / (end - begin) << " pictures/s, "
             << bytes / (end - begin) / 1e6 << " MB/s";
        report(line.str());
    }
};

/// Names before the first '|' of each line that is no comment, of a list beside this source.
std::set<std::string> expected_from(const std::string& name) {
    std::ifstream file(results_folder() + "/" + name);
    EXPECT_TRUE(file) << "the list " << name << " is missing";
    std::set<std::string> names;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line[0] != '#') {
            names.insert(std::regex_replace(line, std::regex(R"(\s*\|.*)"), ""));
        }
    }
    return names;
}

TEST_F(Witness, LsusbComplainsOnlyWhereExpected) {
    // What lsusb prints where a descriptor is not what it thinks it should be.
    const std::regex complaint(
        R"(\n\s*([^\n]*(UNRECOGNIZED|Warning|INVALID|junk|truncated)[^\n]*))", std::regex::icase);
    std::set<std::string> complaints;
    for (const bool running : {false, true}) {
        running ? power_on_running() : power_on({{"boot_code", "newer"}});
        const std::string text =
            output_of(running ? "lsusb -v -d 114d:2066" : "lsusb -v -d 114d:2065",
                      running ? "lsusb-running" : "lsusb-boot-code");
        EXPECT_NE(text.find("Device Descriptor:"), std::string::npos);
        EXPECT_NE(text.find("bInterfaceNumber"), std::string::npos);
        for (std::sregex_iterator it(text.begin(), text.end(), complaint), end; it != end; ++it) {
            complaints.insert((*it)[1]);
        }
    }
    EXPECT_EQ(complaints, expected_from("lsusb.expected"));
}

TEST_F(Witness, V4l2ComplianceFailsOnlyWhereExpected) {
    power_on_running();
    // Failures make its exit status 1, so the list decides.
    const ProgramResult run = run_program("v4l2-compliance -d " + video_node(), 90);
    std::ofstream(results_folder() + "/v4l2-compliance.txt") << run.output;
    std::set<std::string> failed;
    const std::regex line(R"(\n\s*test ([^\n]*): FAIL)");
    for (std::sregex_iterator it(run.output.begin(), run.output.end(), line), end; it != end;
         ++it) {
        failed.insert((*it)[1]);
    }
    EXPECT_NE(run.output.find("Total for uvcvideo device"), std::string::npos) << run.output;
    EXPECT_EQ(failed, expected_from("v4l2-compliance.expected"));
}

TEST_F(Witness, V4l2CtlStreams) {
    power_on_running();
    for (const char* format : {"YUYV", "MJPG"}) {
        const std::string text =
            output_of("v4l2-ctl -d " + video_node() +
                          " --set-fmt-video=width=640,height=480,pixelformat=" + format +
                          " --stream-mmap --stream-count=60 --verbose",
                      std::string("v4l2-ctl-") + format);
        EXPECT_EQ(text.find("error"), std::string::npos) << text;
        report_rate(format, text);
    }
}

TEST_F(Witness, ArecordHearsTheTone) {
    power_on_running({{"tone_hz", 1000}});
    const std::string path = results_folder() + "/tone.wav";
    output_of("arecord -q -D hw:0,0 -f S16_LE -r 16000 -c 2 -d 3 " + path, "arecord");
    SndfileHandle file(path);
    ASSERT_EQ(file.channels(), 2);
    std::vector<float> samples(static_cast<size_t>(file.frames()) * 2);
    ASSERT_EQ(file.readf(samples.data(), file.frames()), file.frames());
    std::vector<float> left;
    for (size_t i = 0; i < samples.size(); i += 2) {
        left.push_back(samples[i]);
    }
    const auto tone = recording_check::measure_tone(left, 16000, 1000);
    EXPECT_NEAR(tone.seconds, 3, 0.01);
    EXPECT_GT(tone.share, 0.9);
    EXPECT_LT(recording_check::measure_tone(left, 16000, 1300).share, 0.1);
}

/// Holds the guest's own attaching program still, so that another one gets the camera.
class AttachingPaused {
  public:
    AttachingPaused() : process_(std::stoi(std::getenv("ATTACH_PROCESS"))) {
        ::kill(process_, SIGSTOP);
    }
    ~AttachingPaused() { ::kill(process_, SIGCONT); }
    AttachingPaused(const AttachingPaused&) = delete;
    AttachingPaused& operator=(const AttachingPaused&) = delete;

  private:
    pid_t process_;
};

TEST_F(Witness, UsbipToolListsAndAttaches) {
    const AttachingPaused paused;
    const std::string usbip = "usbip --tcp-port $CAMERA_PORT ";
    remote_.reset({{"camera", {{"identity", "run-time"}}}});
    const std::string list = output_of(usbip + "list -r 10.0.2.2", "usbip-list");
    EXPECT_NE(list.find("114d:2066"), std::string::npos) << list;
    output_of(usbip + "attach -r 10.0.2.2 -b 1-1", "usbip-attach");
    EXPECT_TRUE(wait_until(kernel_uses_camera, seconds(15)));
    output_of("usbip detach -p 0", "usbip-detach");
    EXPECT_TRUE(wait_until([] { return product_id() == -1; }, seconds(10)));
    remote_.command("unplug");
}

TEST_F(Witness, ServeVhciAttachesByItself) {
    const AttachingPaused paused;  // the camera outside stays unplugged, and the port free
    BackgroundProgram server({"virtcam", "serve", "--vhci", "--runtime"});
    EXPECT_TRUE(wait_until(kernel_uses_camera, seconds(30)));
    EXPECT_EQ(product_id(), kProductRunTime);
    EXPECT_EQ(server.terminate(seconds(10)), 0);
    EXPECT_TRUE(wait_until([] { return product_id() == -1; }, seconds(10)));
}

/// A control under its three names, and the value that the plug-in is given.
struct ControlCase {
    const char* status_name;
    const char* v4l2_name;
    CAM_PROPERTY property;
    int value;
};

constexpr ControlCase kControls[] = {
    {"zoom", "zoom_absolute", CAM_PROPERTY_ZOOM, 5},
    {"pan", "pan_absolute", CAM_PROPERTY_PAN, 5},
    {"tilt", "tilt_absolute", CAM_PROPERTY_TILT, -5},
    {"brightness", "brightness", CAM_PROPERTY_BRIGHTNESS, 60},
    {"contrast", "contrast", CAM_PROPERTY_CONTRAST, 40},
};

struct Setting {
    int raw = 0;  ///< in the device's units
    double luma = 0;
};

/// Name of the film below: the server outside runs in the folder that the guest calls
/// results_folder().
constexpr char kStill[] = "still.y4m";

/// Writes a film of one picture. Its luma grows with the square of each coordinate, so that zoom,
/// pan and tilt each give another mean; it leaves room for more brightness.
void write_still() {
    constexpr int kWidth = 1280;
    constexpr int kHeight = 720;
    constexpr double kDarkest = 16;
    constexpr double kGrowth = 80;  // in each direction
    std::string luma;
    for (int y = 0; y < kHeight; ++y) {
        const double v = static_cast<double>(y) / kHeight;
        for (int x = 0; x < kWidth; ++x) {
            const double u = static_cast<double>(x) / kWidth;
            luma += static_cast<char>(static_cast<uint8_t>(kDarkest + kGrowth * (u * u + v * v)));
        }
    }
    const std::string grey(size_t{kWidth / 2} * (kHeight / 2) * 2, static_cast<char>(128));
    std::ofstream file(results_folder() + "/" + kStill, std::ios::binary);
    file << "YUV4MPEG2 W" << kWidth << " H" << kHeight << " F30:1 C420\nFRAME\n" << luma << grey;
    ASSERT_TRUE(file.flush());
}

class Controls : public Witness {
  protected:
    int raw_value(const ControlCase& control) {
        return remote_.status().at("controls").at(control.status_name).get<int>();
    }

    /// Sets the controls one after the other through the plug-in; each stays for the next.
    void set_through_plugin(std::vector<Setting>& settings) {
        PluginCamera camera;
        ASSERT_TRUE(camera.init());
        // Asking for it makes the plug-in select by signal type.
        ASSERT_TRUE(camera->GetCapability(CAM_CAPABILITY_SIGNAL_TYPE));
        camera.set(CAM_PROPERTY_SIGNAL_TYPE, CAM_SIGNAL_H264_YUYV);
        ASSERT_TRUE(camera.start());
        for (const ControlCase& control : kControls) {
            SCOPED_TRACE(control.status_name);
            camera.set(control.property, control.value);
            // The first ones may have been under way before.
            ASSERT_TRUE(camera.wait_for_records(CAM_STREAM_YUYV, 4));
            const auto picture = camera.records(CAM_STREAM_YUYV).newest();
            ASSERT_EQ(picture.size(), kYuyvBytes);
            settings.push_back({raw_value(control), mean_luma(picture)});
        }
        EXPECT_TRUE(camera.stop());
    }

    static double luma_through_v4l2() {
        const std::string path = "/tmp/picture.yuyv";
        std::filesystem::remove(path);
        const ProgramResult run =
            run_program("v4l2-ctl -d " + video_node() +
                            " --set-fmt-video=width=640,height=480,pixelformat=YUYV --stream-mmap"
                            " --stream-skip=3 --stream-count=1 --stream-to=" +
                            path,
                        30);
        EXPECT_EQ(run.exit_code, 0) << run.output;
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        EXPECT_EQ(bytes.size(), kYuyvBytes);
        return mean_luma({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
    }
};

TEST_F(Controls, GiveTheSamePictureThroughV4l2AsThroughThePlugin) {
    constexpr double kMostDifference = 2;  // between the two roads
    constexpr double kLeastEffect = 3;     // of each control
    write_still();
    power_on_running({{"source", kStill}});
    double before = luma_through_v4l2();
    std::vector<Setting> through_plugin;
    set_through_plugin(through_plugin);
    ASSERT_EQ(through_plugin.size(), std::size(kControls));

    power_on_running({{"source", kStill}});  // all controls are back at their defaults
    for (size_t i = 0; i < std::size(kControls); ++i) {
        const ControlCase& control = kControls[i];
        SCOPED_TRACE(control.status_name);
        const ProgramResult set =
            run_program("v4l2-ctl -d " + video_node() + " --set-ctrl=" + control.v4l2_name + "=" +
                            std::to_string(through_plugin[i].raw),
                        10);
        EXPECT_EQ(set.exit_code, 0) << set.output;
        EXPECT_EQ(raw_value(control), through_plugin[i].raw);
        const double luma = luma_through_v4l2();
        report(std::string("mean luma before ") + control.status_name + " " +
               std::to_string(through_plugin[i].raw) + ": " + std::to_string(before) +
               ", with it through the plug-in " + std::to_string(through_plugin[i].luma) +
               ", through V4L2 " + std::to_string(luma));
        EXPECT_NEAR(luma, through_plugin[i].luma, kMostDifference);
        EXPECT_GT(std::abs(luma - before), kLeastEffect) << "it changes nothing";
        before = luma;
    }
}

}  // namespace
}  // namespace system_test
