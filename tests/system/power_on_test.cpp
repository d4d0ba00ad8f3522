// From the boot code's identity to recorded files.
#include <fstream>

#include "tests/system/program.h"
#include "tests/system/system_test.h"
#include "tests/system/usb_tree.h"

namespace system_test {
namespace {

constexpr int kRecordSeconds = 120;  // most of it is the firmware's way down

class PowerOn : public SystemTest {
  protected:
    /// camhost brings the camera up and records; its files stay for check-recording.
    void record(const std::string& name) {
        const std::string folder = results_folder() + "/recordings/" + name;
        const ProgramResult run =
            run_program("camhost record --plugin $CAMERA_PLUGIN --duration 4s --output " + folder +
                            " --log " + folder + ".plugin.log",
                        kRecordSeconds);
        EXPECT_EQ(run.exit_code, 0) << run.output;
        std::ofstream(folder + ".status.json") << remote_.status().dump(1);
        EXPECT_EQ(product_id(), kProductRunTime);
        std::ifstream h264(folder + "/main.h264", std::ios::ate);
        EXPECT_GT(h264.tellg(), 10'000) << "no pictures";
        std::ifstream wave(folder + "/audio.wav", std::ios::ate);
        EXPECT_GT(wave.tellg(), 50'000) << "no sound";
    }
};

constexpr uint8_t kAnnounce = 130;  // the bulk path begins with it

TEST_F(PowerOn, NewerBootCodeLoadsByTheBulkPathAndRecords) {
    power_on({{"boot_code", "newer"}});
    record("newer");
    const auto status = remote_.status();
    EXPECT_EQ(status.at("attachment"), 2);
    EXPECT_EQ(status.at("flash").at("written"), true);
    EXPECT_EQ(status.at("flash").at("size"), 300'000);
    EXPECT_EQ(remote_.count_vendor_requests(kAnnounce), 1u);
}

TEST_F(PowerOn, OlderBootCodeLoadsThroughTheExtensionUnitAndRecords) {
    power_on({{"boot_code", "older"}});
    record("older");
    const auto status = remote_.status();
    EXPECT_EQ(status.at("attachment"), 2);
    EXPECT_EQ(status.at("flash").at("written"), true);
    EXPECT_EQ(status.at("flash").at("size"), 300'000);  // a multiple of the 32-byte pieces
    EXPECT_EQ(remote_.count_vendor_requests(kAnnounce), 0u);
}

}  // namespace
}  // namespace system_test
