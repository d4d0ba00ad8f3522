// The process-wide lock around control transfers.
#include <future>

#include "LibusbWrap.h"
#include "tests/driver/EngineTest.h"

namespace test {
namespace {

using namespace std::chrono_literals;
constexpr auto kLimit = 10s;

/// A context and a handle of the camera, with the control interface claimed.
class Device {
  public:
    Device() {
        libusb_init(&m_Context);
        m_Handle = libusb_open_device_with_vid_pid(m_Context, kVendor, kProduct);
        libusb_claim_interface(m_Handle, 0);
    }
    ~Device() {
        libusb_release_interface(m_Handle, 0);
        libusb_close(m_Handle);
        libusb_exit(m_Context);
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    libusb_device_handle* Handle() { return m_Handle; }

  private:
    libusb_context* m_Context = nullptr;
    libusb_device_handle* m_Handle = nullptr;
};

class ControlTransfer : public EngineTest {
  protected:
    /// Reads the focus, 2 bytes.
    int ReadFocus(unsigned char* data, unsigned int timeout = 5000) {
        return libusb_control_transfer_(m_Device.Handle(), 0xA1, 0x81, 0x0600, 0x0100, data, 2,
                                        timeout);
    }
    Device m_Device;
};

TEST_F(ControlTransfer, PassesItsArgumentsAndResultThrough) {
    virtcam::bus::clear_logs();
    unsigned char data[] = {0x34, 0x12};
    EXPECT_EQ(
        libusb_control_transfer_(m_Device.Handle(), 0x21, 0x01, 0x0600, 0x0100, data, 2, 1234), 2);
    EXPECT_EQ(Requests(), (Sequence{Write(0x21, 0x01, 0x0600, 0x0100, {0x34, 0x12}, 1234)}));
    unsigned char read[2] = {};
    virtcam::bus::add_fault(
        {{"on", {{"control", {{"request", 0x81}}}}}, {"do", {{"reply", "7856"}}}});
    EXPECT_EQ(ReadFocus(read, 77), 2);
    EXPECT_EQ(read[0], 0x78);
    EXPECT_EQ(read[1], 0x56);
    EXPECT_EQ(Requests().back().timeout_ms, 77u);
}

TEST_F(ControlTransfer, FailureGivesTheNegativeCodeAndFreesTheLock) {
    for (const int error : {LIBUSB_ERROR_PIPE, LIBUSB_ERROR_TIMEOUT, LIBUSB_ERROR_NO_DEVICE}) {
        virtcam::bus::clear_faults();
        virtcam::bus::add_fault(FailCall("libusb_control_transfer", error));
        unsigned char data[2];
        EXPECT_EQ(ReadFocus(data), error);
        EXPECT_TRUE(IsFree(gCtrlTransferMtx));
    }
}

TEST_F(ControlTransfer, ALockHolderMayMakeOne) {
    pMutexLock lock(gCtrlTransferMtx);
    unsigned char data[2];
    EXPECT_EQ(ReadFocus(data), 2);
}

TEST_F(ControlTransfer, TwoThreadsAreServedOneAfterTheOtherEachWithItsOwnResult) {
    virtcam::bus::add_fault(
        {{"on", {{"control", {{"request", 0x81}}}}}, {"nth", 1}, {"do", {{"reply", "11"}}}});
    virtcam::bus::hold_completions(0);
    virtcam::bus::clear_logs();
    unsigned char first[2] = {};
    auto one = std::async(std::launch::async, [&] { return ReadFocus(first); });
    // Answered by the camera, and the answer held back: the first is inside its transfer.
    ASSERT_TRUE(
        virtcam::bus::wait_until([] { return virtcam::bus::control_log().size() == 1; }, kLimit));
    EXPECT_FALSE(IsFree(gCtrlTransferMtx));
    unsigned char second[2] = {};
    auto two = std::async(std::launch::async, [&] {
        return libusb_control_transfer_(m_Device.Handle(), 0xA1, 0x82, 0x0600, 0x0100, second, 2,
                                        5000);
    });
    EXPECT_FALSE(
        virtcam::bus::wait_until([] { return virtcam::bus::control_log().size() > 1; }, 30ms));
    virtcam::bus::release_completions(0);
    EXPECT_EQ(one.get(), 1);
    EXPECT_EQ(two.get(), 2);
    EXPECT_EQ(first[0], 0x11);
    EXPECT_TRUE(IsFree(gCtrlTransferMtx));
}

}  // namespace
}  // namespace test
