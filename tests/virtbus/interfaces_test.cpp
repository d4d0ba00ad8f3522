// Claims, alternate settings and kernel drivers.
#include "tests/virtbus/bus_fixture.h"

namespace virtcam::bus::test {
namespace {

class Interfaces : public BusFixture {
  protected:
    Interfaces() { open_with("none"); }
    ~Interfaces() override { shut_down(); }

    void open_with(const char* drivers) {
        shut_down();
        restart({{"bus", {{"kernel_drivers", drivers}}}});
        context_ = make_context();
        handle_ = open_camera(context_);
    }

    void shut_down() {
        if (context_ != nullptr) {
            libusb_close(handle_);
            libusb_exit(std::exchange(context_, nullptr));
        }
    }

    libusb_context* context_ = nullptr;
    libusb_device_handle* handle_ = nullptr;
};

TEST_F(Interfaces, ClaimIsExclusiveAndRepeatable) {
    libusb_device_handle* other = open_camera(context_);
    EXPECT_EQ(libusb_claim_interface(handle_, 1), 0);
    EXPECT_EQ(libusb_claim_interface(handle_, 1), 0);
    EXPECT_EQ(libusb_claim_interface(other, 1), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_release_interface(handle_, 1), 0);
    EXPECT_EQ(libusb_claim_interface(other, 1), 0);
    EXPECT_EQ(libusb_release_interface(other, 1), 0);
    EXPECT_EQ(libusb_claim_interface(handle_, 9), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_claim_interface(handle_, 32), LIBUSB_ERROR_INVALID_PARAM);
    libusb_close(other);
}

TEST_F(Interfaces, AlternateSettingNeedsClaimAndExistence) {
    ASSERT_EQ(libusb_claim_interface(handle_, 3), 0);
    EXPECT_EQ(libusb_set_interface_alt_setting(handle_, 3, 1), 0);
    EXPECT_EQ(libusb_set_interface_alt_setting(handle_, 3, 2), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_release_interface(handle_, 3), 0);
}

constexpr const char* kIdleSound =
    "transfer on endpoint 0x82, which alternate setting 0 of interface 3 does not have";

TEST_F(Interfaces, IsoEndpointExistsInItsSettingOnly) {
    ASSERT_EQ(libusb_claim_interface(handle_, 3), 0);
    Transfer transfer = Transfer::iso(handle_);
    EXPECT_EQ(transfer.submit(), LIBUSB_ERROR_IO);
    expect_complaint(kIdleSound);
    EXPECT_EQ(libusb_set_interface_alt_setting(handle_, 3, 1), 0);
    EXPECT_EQ(transfer.submit(), 0);
    EXPECT_TRUE(handle_events_until(context_, [&] { return transfer.completions() == 1; }));
    EXPECT_EQ(libusb_release_interface(handle_, 3), 0);
    EXPECT_EQ(libusb_claim_interface(handle_, 3), 0);
    EXPECT_EQ(transfer.submit(), LIBUSB_ERROR_IO) << "released interfaces return to setting 0";
    expect_complaint(kIdleSound);
    EXPECT_EQ(libusb_release_interface(handle_, 3), 0);
}

TEST_F(Interfaces, WrongTypeOrEndpointIsRefused) {
    ASSERT_EQ(libusb_claim_interface(handle_, 1), 0);
    Transfer transfer = Transfer::bulk(handle_);
    transfer->endpoint = 0x85;
    EXPECT_EQ(transfer.submit(), LIBUSB_ERROR_IO);
    expect_complaint("transfer on endpoint 0x85, which does not exist");
    transfer->endpoint = kVideo;
    transfer->type = LIBUSB_TRANSFER_TYPE_INTERRUPT;
    EXPECT_EQ(transfer.submit(), LIBUSB_ERROR_IO);
    expect_complaint("interrupt transfer on endpoint 0x81, which is bulk");
    EXPECT_EQ(libusb_release_interface(handle_, 1), 0);
}

TEST_F(Interfaces, BoundDriverBlocksTheClaim) {
    open_with("standard");
    EXPECT_EQ(libusb_kernel_driver_active(handle_, 0), 1);
    EXPECT_EQ(libusb_kernel_driver_active(handle_, 9), 0);
    EXPECT_EQ(libusb_claim_interface(handle_, 0), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_detach_kernel_driver(handle_, 0), 0);
    EXPECT_EQ(libusb_claim_interface(handle_, 0), 0);
    EXPECT_EQ(libusb_kernel_driver_active(handle_, 0), 0);
    EXPECT_EQ(libusb_release_interface(handle_, 0), 0);
}

TEST_F(Interfaces, ControlInterfaceTakesItsStreamsAlong) {
    open_with("standard");
    EXPECT_EQ(libusb_detach_kernel_driver(handle_, 0), 0);
    EXPECT_EQ(libusb_kernel_driver_active(handle_, 1), 0);
    EXPECT_EQ(libusb_detach_kernel_driver(handle_, 1), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_attach_kernel_driver(handle_, 0), 0);
    EXPECT_EQ(libusb_kernel_driver_active(handle_, 1), 1);
    EXPECT_EQ(libusb_attach_kernel_driver(handle_, 1), LIBUSB_ERROR_BUSY);
}

TEST_F(Interfaces, StreamingInterfaceIsDetachedAlone) {
    open_with("standard");
    EXPECT_EQ(libusb_detach_kernel_driver(handle_, 3), 0);
    EXPECT_EQ(libusb_kernel_driver_active(handle_, 2), 1);
    EXPECT_EQ(libusb_attach_kernel_driver(handle_, 3), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_detach_kernel_driver(handle_, 2), 0);
}

TEST_F(Interfaces, AutoDetachClaimsThroughADriver) {
    open_with("standard");
    EXPECT_EQ(libusb_set_auto_detach_kernel_driver(handle_, 1), 0);
    EXPECT_EQ(libusb_claim_interface(handle_, 0), 0);
    EXPECT_EQ(libusb_release_interface(handle_, 0), 0);
    EXPECT_EQ(libusb_kernel_driver_active(handle_, 0), 1);
}

TEST_F(Interfaces, ConfigurationIsBusyWhileClaimed) {
    EXPECT_EQ(libusb_set_configuration(handle_, 1), 0);
    ASSERT_EQ(libusb_claim_interface(handle_, 1), 0);
    EXPECT_EQ(libusb_set_configuration(handle_, 1), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_release_interface(handle_, 1), 0);
}

TEST_F(Interfaces, HaltIsClearedOnClaimedEndpoints) {
    ASSERT_EQ(libusb_claim_interface(handle_, 1), 0);
    EXPECT_EQ(libusb_clear_halt(handle_, kVideo), 0);
    EXPECT_EQ(libusb_clear_halt(handle_, 0x85), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_release_interface(handle_, 1), 0);
}

TEST_F(Interfaces, ResetReturnsSettingsToZero) {
    ASSERT_EQ(libusb_claim_interface(handle_, 3), 0);
    ASSERT_EQ(libusb_set_interface_alt_setting(handle_, 3, 1), 0);
    EXPECT_EQ(libusb_reset_device(handle_), 0);
    Transfer transfer = Transfer::iso(handle_);
    EXPECT_EQ(transfer.submit(), LIBUSB_ERROR_IO);
    expect_complaint(kIdleSound);
    EXPECT_EQ(libusb_release_interface(handle_, 3), 0);
}

TEST_F(Interfaces, EverythingAnswersNoDeviceAfterUnplug) {
    ASSERT_EQ(libusb_claim_interface(handle_, 1), 0);
    virtcam::bus::unplug();
    int value = 0;
    EXPECT_EQ(libusb_get_configuration(handle_, &value), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_claim_interface(handle_, 0), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_release_interface(handle_, 1), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_kernel_driver_active(handle_, 1), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_detach_kernel_driver(handle_, 1), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_clear_halt(handle_, kVideo), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(libusb_reset_device(handle_), LIBUSB_ERROR_NO_DEVICE);
    std::array<uint8_t, 8> reply{};
    EXPECT_EQ(read_version(handle_, reply), LIBUSB_ERROR_NO_DEVICE);
    virtcam::bus::plug();
    EXPECT_EQ(read_version(handle_, reply), LIBUSB_ERROR_NO_DEVICE) << "the old handle is dead";
}

}  // namespace
}  // namespace virtcam::bus::test
