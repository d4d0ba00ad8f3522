// The kernel's drivers hold the camera first.
#include "tests/system/plugin_camera.h"
#include "tests/system/program.h"
#include "tests/system/system_test.h"
#include "tests/system/usb_tree.h"

namespace system_test {
namespace {

using std::chrono::seconds;

class KernelDrivers : public SystemTest {};

TEST_F(KernelDrivers, AreDetachedAndCanBeBoundAgain) {
    power_on_running();
    {
        PluginCamera camera;
        ASSERT_TRUE(camera.init());
        ASSERT_TRUE(camera.start());
        EXPECT_TRUE(camera.streams());
        for (const int interface : {0, 1}) {
            EXPECT_NE(driver_of(interface), kVideoDriver) << "interface " << interface;
        }
        for (const int interface : {2, 3}) {
            EXPECT_NE(driver_of(interface), kAudioDriver) << "interface " << interface;
        }
        EXPECT_TRUE(camera.stop());
    }
    // Each driver claims the second interface of its function by itself.
    EXPECT_TRUE(bind_driver(kVideoDriver, 0));
    EXPECT_TRUE(bind_driver(kAudioDriver, 2));
    ASSERT_TRUE(wait_until(kernel_uses_camera, seconds(15)));
    const ProgramResult stream = run_program(
        "v4l2-ctl -d " + video_node() +
            " --set-fmt-video=width=640,height=480,pixelformat=YUYV --stream-mmap --stream-count=5",
        30);
    EXPECT_EQ(stream.exit_code, 0) << stream.output;
}

}  // namespace
}  // namespace system_test
