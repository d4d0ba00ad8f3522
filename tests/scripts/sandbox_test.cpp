// The television's folders as a test process sees them inside scripts/sandbox.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

class TvFolder : public testing::TestWithParam<const char*> {};

TEST_P(TvFolder, IsWritable) {
    const fs::path file = fs::path(GetParam()) / "written-by-sandbox-test";
    ASSERT_TRUE(std::ofstream(file) << "text") << file;
    EXPECT_EQ(fs::file_size(file), 4u);
    EXPECT_TRUE(fs::remove(file));
}

INSTANTIATE_TEST_SUITE_P(All, TvFolder,
                         testing::Values("/mtd_exe", "/mtd_exe/lumo", "/mtd_rwarea",
                                         "/mtd_rwcommon/lumo/bin", "/dtv", "/proc/bus/usb"));

class TvFile : public testing::TestWithParam<const char*> {};

TEST_P(TvFile, ComesFromTheTemplate) {
    EXPECT_GT(fs::file_size(GetParam()), 0u);
}

INSTANTIATE_TEST_SUITE_P(All, TvFile,
                         testing::Values("/mtd_exe/.info", "/dtv/cm_frequency",
                                         "/mtd_exe/lumo/opxCamera.xml",
                                         "/mtd_exe/lumo/Tarlo_Ext_FW.bin",
                                         "/mtd_exe/lumo/VespinPlus_BC.bin",
                                         "/mtd_rwcommon/lumo/bin/opxCamera.xml",
                                         "/mtd_rwcommon/lumo/bin/Tarlo_Ext_FW.bin"));

TEST(Sandbox, BusListingCanBeReplacedAndCopied) {
    std::ofstream("/proc/bus/usb/devices.new") << "T:  Bus=01\n";
    fs::rename("/proc/bus/usb/devices.new", "/proc/bus/usb/devices");
    ASSERT_EQ(std::system("cp /proc/bus/usb/devices /dtv/ait_usb_devices"), 0);
    std::string line;
    std::getline(std::ifstream("/dtv/ait_usb_devices"), line);
    EXPECT_EQ(line, "T:  Bus=01");
    EXPECT_EQ(std::system("rm -rf /dtv/ait_usb_devices"), 0);
    fs::remove("/proc/bus/usb/devices");
}

TEST(Sandbox, SyncIsTheHarmlessOne) {
    EXPECT_EQ(std::system("case $(command -v sync) in */aitcam-sandbox-*) ;; *) exit 1 ;; esac"),
              0);
    EXPECT_EQ(std::system("sync"), 0);
}

}  // namespace
