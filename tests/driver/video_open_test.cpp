// Opening and closing the camera for video.
#include "tests/driver/VideoEngineTest.h"

namespace test {
namespace {

class UvcOpen : public VideoEngineTest {
  protected:
    UvcOpen() { Make(); }
};

TEST_F(UvcOpen, ConstructionInitialisesAContextOfItsOwn) {
    EXPECT_EQ(CountCalls("libusb_init"), 1u);
    EXPECT_NE(m_Engine->m_ctx, nullptr);
    EXPECT_EQ(m_Engine->m_pDevH, nullptr);
    EXPECT_FALSE(m_Engine->IsStreaming);
}

TEST_F(UvcOpen, ClaimsStreamingThenControlAndSelectsTheIdleSetting) {
    EXPECT_EQ(Init(), 0);
    EXPECT_EQ(Calls(), (std::vector<std::string>{
                           "libusb_open_device_with_vid_pid 8294", "libusb_get_configuration",
                           "libusb_kernel_driver_active 1", "libusb_kernel_driver_active 0",
                           "libusb_claim_interface 1", "libusb_claim_interface 0",
                           "libusb_set_interface_alt_setting 1"}));
    EXPECT_EQ(usb().opens(), (std::vector<std::pair<int, int>>{{kVendor, kProduct}}));
    EXPECT_EQ(usb().alternate_settings(), (std::vector<std::pair<int, int>>{{1, 0}}));
    EXPECT_EQ(Log(), (Lines{kStreamingOk, kControlOk}));
    EXPECT_NE(m_Engine->m_pDev, nullptr);
}

TEST_F(UvcOpen, RefusedStreamingInterfaceClosesTheDevice) {
    virtcam::bus::add_fault(FailCallOn("libusb_claim_interface", 1, LIBUSB_ERROR_BUSY));
    EXPECT_EQ(Init(), -1);
    EXPECT_EQ(Log(), (Lines{{4, "libusb_claim_interface (VideoStreaming) fail!(-6)\n"}}));
    EXPECT_EQ(m_Engine->m_pDevH, nullptr);
    EXPECT_EQ(CountCalls("libusb_release_interface"), 0u);
    EXPECT_EQ(Calls().back(), "libusb_close");
}

TEST_F(UvcOpen, RefusedControlInterfaceReleasesTheOtherAndClosesTheDevice) {
    virtcam::bus::add_fault(FailCallOn("libusb_claim_interface", 0, LIBUSB_ERROR_BUSY));
    EXPECT_EQ(Init(), -1);
    EXPECT_EQ(Log(),
              (Lines{kStreamingOk, {4, "libusb_claim_interface (VideoControl) fail!(-6)\n"}}));
    EXPECT_EQ(m_Engine->m_pDevH, nullptr);
    const auto calls = Calls();
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ(calls[calls.size() - 2], "libusb_release_interface 1");
    EXPECT_EQ(calls.back(), "libusb_close");
}

TEST_F(UvcOpen, RefusedIdleSettingIsLoggedAndIgnored) {
    virtcam::bus::add_fault(FailCallOn("libusb_set_interface_alt_setting", 1, LIBUSB_ERROR_OTHER));
    EXPECT_EQ(Init(), 0);
    EXPECT_EQ(Log(), (Lines{kStreamingOk,
                            kControlOk,
                            {4, "libusb_set_interface_alt_setting (VideoStream) fail!(-99)\n"}}));
    EXPECT_NE(m_Engine->m_pDevH, nullptr);
}

TEST_F(UvcOpen, ActiveKernelDriversAreDetached) {
    virtcam::bus::add_fault(FailCall("libusb_kernel_driver_active", 1, 1));
    virtcam::bus::add_fault(FailCall("libusb_kernel_driver_active", 1, 2));
    virtcam::bus::add_fault(FailCallOn("libusb_detach_kernel_driver", 0, LIBUSB_SUCCESS));
    virtcam::bus::add_fault(FailCallOn("libusb_detach_kernel_driver", 1, LIBUSB_ERROR_NOT_FOUND));
    EXPECT_EQ(Init(), 0);
    EXPECT_EQ(Log(),
              (Lines{{4, "libusb_detach_kernel_driver fail!(-5)\n"}, kStreamingOk, kControlOk}));
    const auto calls = Calls();
    ASSERT_GE(calls.size(), 6u);
    EXPECT_EQ(calls[2], "libusb_kernel_driver_active 1");
    EXPECT_EQ(calls[3], "libusb_detach_kernel_driver 1");
    EXPECT_EQ(calls[4], "libusb_kernel_driver_active 0");
    EXPECT_EQ(calls[5], "libusb_detach_kernel_driver 0");
}

TEST_F(UvcOpen, DestructionReleasesBothInterfacesClosesAndExits) {
    Init();
    Forget();
    m_Engine.reset();
    EXPECT_EQ(Calls(),
              (std::vector<std::string>{"libusb_release_interface 1", "libusb_release_interface 0",
                                        "libusb_close", "libusb_exit"}));
    EXPECT_EQ(Log(), (Lines{{4, "LibUSB_UvcCtrl::~CLibUSB_UvcCtrl()\r\n"}}));
}

TEST_F(UvcOpen, DestructionWithoutADeviceOnlyExits) {
    Forget();
    m_Engine.reset();
    EXPECT_EQ(Calls(), (std::vector<std::string>{"libusb_exit"}));
    EXPECT_EQ(Log(), (Lines{{4, "LibUSB_UvcCtrl::~CLibUSB_UvcCtrl()\r\n"}}));
}

TEST_F(UvcOpen, DestructionOfARunningStreamCancelsAndFreesItsTransfers) {
    Init();
    ASSERT_EQ(m_Engine->UVC_EnableVideoStream(4, 1, 30), 0);
    Forget();
    m_Engine.reset();
    EXPECT_EQ(CountCalls("libusb_cancel_transfer"), 3u);
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 3u);
    EXPECT_LOG_COUNT(4, "CLibUSB_UvcCtrl free transfer \r\n", 3);
    EXPECT_EQ(log().texts().front(), "LibUSB_UvcCtrl::~CLibUSB_UvcCtrl()\r\n");
}

TEST_F(UvcOpen, WithoutAContextNothingIsFound) {
    virtcam::bus::add_fault(FailCall("libusb_init", LIBUSB_ERROR_OTHER));
    VideoEngine engine;
    EXPECT_EQ(engine.m_ctx, nullptr);
    Forget();
    EXPECT_EQ(engine.Init(kVendor, kProduct), -1);
    EXPECT_EQ(Log(), (Lines{{4, "AIT Camera Device not found\n"}}));
    EXPECT_EQ(engine.UVC_EnableVideoStream(4, 1, 30), -1);
    engine.handle_libusb_event();
    EXPECT_EQ(engine.UVC_DisableVideoStream(), 0);
    EXPECT_TRUE(Calls().empty());
    EXPECT_TRUE(usb().event_timeouts().empty());
}

}  // namespace
}  // namespace test
