// What is written into sysfs; a folder of files stands in for the controller.
#include "virtcam/usbip/vhci_port.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <system_error>

namespace virtcam::usbip::test {
namespace {

namespace fs = std::filesystem;

class VhciPortTest : public ::testing::Test {
  protected:
    VhciPortTest() {
        std::string name = fs::temp_directory_path() / "vhci-XXXXXX";
        folder_ = ::mkdtemp(name.data());
    }
    ~VhciPortTest() override { fs::remove_all(folder_); }

    std::string content(const char* name) const {
        std::ifstream file(folder_ / name);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    fs::path folder_;
};

TEST_F(VhciPortTest, AttachNamesPortSocketDeviceAndSpeed) {
    std::ofstream(folder_ / "attach");
    EXPECT_TRUE(virtcam::usbip::VhciPort(2, folder_).attach(17, 0x10002));
    EXPECT_EQ(content("attach"), "2 17 65538 3");
}

TEST_F(VhciPortTest, DetachNamesThePort) {
    std::ofstream(folder_ / "detach");
    virtcam::usbip::VhciPort(2, folder_).detach();
    EXPECT_EQ(content("detach"), "2");
}

TEST_F(VhciPortTest, WithoutTheModuleItSaysSo) {
    EXPECT_THROW(virtcam::usbip::VhciPort(0, folder_ / "absent").attach(1, 1), std::system_error);
}

}  // namespace
}  // namespace virtcam::usbip::test
