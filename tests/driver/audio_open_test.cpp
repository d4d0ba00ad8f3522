// Opening and closing the camera for audio.
#include "tests/driver/AudioEngineTest.h"

namespace test {
namespace {

class UacOpen : public AudioEngineTest {
  protected:
    UacOpen() { Make(); }
};

TEST_F(UacOpen, ConstructionInitialisesAContextAndTheVolume) {
    EXPECT_EQ(CountCalls("libusb_init"), 1u);
    EXPECT_EQ(m_Engine->UAC_GetCurVolume(), -1);
    EXPECT_EQ(m_Engine->UAC_GetMaxVolume(), 0);
    EXPECT_EQ(m_Engine->UAC_GetMinVolume(), 0);
    EXPECT_FALSE(m_Engine->IsStreaming);
    EXPECT_EQ(m_Engine->UAC_GetSupportedSampleFreqCount(), 0);
    EXPECT_EQ(m_Engine->UAC_GetSupportedSampleFreq(3), 0);
    EXPECT_EQ(m_Engine->UAC_GetNumberOfPutputChannel(), 0);
    EXPECT_EQ(m_Engine->UVC_query_ctrl(1, 2, 3, 4, nullptr, 0, 0), 0);
    EXPECT_EQ(m_Engine->UVC_EnableVideoStream(1, 2, 3), 0);
}

TEST_F(UacOpen, ClaimsStreamingSelectsIdleThenClaimsControl) {
    EXPECT_EQ(Init(), 0);
    ExpectUnusualRelease();
    EXPECT_EQ(Calls(), (std::vector<std::string>{
                           "libusb_open_device_with_vid_pid 8294", "libusb_get_configuration",
                           "libusb_kernel_driver_active 3", "libusb_claim_interface 3",
                           "libusb_set_interface_alt_setting 3", "libusb_kernel_driver_active 2",
                           "libusb_claim_interface 2"}));
    EXPECT_EQ(usb().alternate_settings(), (std::vector<std::pair<int, int>>{{3, 0}}));
    EXPECT_EQ(Log(), (Lines{kStreamingOk, kControlOk}));
}

TEST_F(UacOpen, RefusedStreamingInterfaceClosesTheDevice) {
    virtcam::bus::add_fault(FailCallOn("libusb_claim_interface", 3, LIBUSB_ERROR_BUSY));
    EXPECT_EQ(Init(), -1);
    EXPECT_EQ(Log(), (Lines{{4, "libusb_claim_interface (AudioStream) fail!(-6)\n"}}));
    EXPECT_TRUE(usb().alternate_settings().empty());
    EXPECT_EQ(Calls().back(), "libusb_close");
    EXPECT_EQ(m_Engine->m_pDevH, nullptr);
}

TEST_F(UacOpen, RefusedControlInterfaceClosesTheDeviceWithoutReleasingTheOther) {
    virtcam::bus::add_fault(FailCallOn("libusb_claim_interface", 2, LIBUSB_ERROR_BUSY));
    EXPECT_EQ(Init(), -1);
    EXPECT_EQ(Log(),
              (Lines{kStreamingOk, {4, "libusb_claim_interface (AudioControl)  fail!(-6)\n"}}));
    EXPECT_EQ(CountCalls("libusb_release_interface"), 0u);
    EXPECT_EQ(Calls().back(), "libusb_close");
    EXPECT_EQ(m_Engine->m_pDevH, nullptr);
    ExpectComplaint("libusb_close: claimed and not released: interface 3");
}

TEST_F(UacOpen, RefusedIdleSettingIsIgnoredSilently) {
    virtcam::bus::add_fault(FailCall("libusb_set_interface_alt_setting", LIBUSB_ERROR_OTHER));
    EXPECT_EQ(Init(), 0);
    ExpectUnusualRelease();
    EXPECT_EQ(Log(), (Lines{kStreamingOk, kControlOk}));
}

TEST_F(UacOpen, ActiveKernelDriversAreDetached) {
    virtcam::bus::add_fault(FailCall("libusb_kernel_driver_active", 1, 1));
    virtcam::bus::add_fault(FailCall("libusb_kernel_driver_active", 1, 2));
    virtcam::bus::add_fault(FailCallOn("libusb_detach_kernel_driver", 3, LIBUSB_SUCCESS));
    virtcam::bus::add_fault(FailCallOn("libusb_detach_kernel_driver", 2, LIBUSB_ERROR_OTHER));
    EXPECT_EQ(Init(), 0);
    ExpectUnusualRelease();
    EXPECT_EQ(Log(),
              (Lines{kStreamingOk, {4, "libusb_detach_kernel_driver fail!(-99)\n"}, kControlOk}));
    const auto calls = Calls();
    ASSERT_GE(calls.size(), 8u);
    EXPECT_EQ(calls[3], "libusb_detach_kernel_driver 3");
    EXPECT_EQ(calls[7], "libusb_detach_kernel_driver 2");
}

TEST_F(UacOpen, DestructionReleasesInterfaceOneClosesAndExits) {
    Init();
    ExpectUnusualRelease();
    Forget();
    Close();
    EXPECT_EQ(Calls(), (std::vector<std::string>{"libusb_release_interface 1", "libusb_close",
                                                 "libusb_exit"}));
    EXPECT_EQ(Log(), (Lines{{4, "CLibUSB_UacCtrl::~CLibUSB_UacCtrl() +\r\n"},
                            {4, "CLibUSB_UacCtrl::~CLibUSB_UacCtrl() -\r\n"}}));
}

TEST_F(UacOpen, DestructionOfARunningStreamFreesEverything) {
    Init();
    ExpectUnusualRelease();
    ASSERT_EQ(m_Engine->UAC_EnableAudioStream(kRate), 0);
    Forget();
    Close();
    EXPECT_EQ(CountCalls("libusb_cancel_transfer"), 2u);
    EXPECT_EQ(CountCalls("libusb_free_transfer"), 2u);
}

TEST_F(UacOpen, WithoutAContextNothingIsFound) {
    virtcam::bus::add_fault(FailCall("libusb_init", LIBUSB_ERROR_OTHER));
    AudioEngine engine;
    Forget();
    EXPECT_EQ(engine.Init(kVendor, kProduct), -1);
    EXPECT_EQ(Log(), (Lines{{4, "AIT Camera Device not found\n"}}));
    EXPECT_EQ(engine.UAC_EnableAudioStream(kRate), -1);
    EXPECT_EQ(engine.UAC_DisableAudioStream(), -1);
    EXPECT_EQ(engine.UAC_SetSamplingRate(kRate), -1);
    EXPECT_EQ(engine.UAC_SetCurVolume(0), -1);
    engine.handle_libusb_event();
    EXPECT_TRUE(Calls().empty());
}

}  // namespace
}  // namespace test
