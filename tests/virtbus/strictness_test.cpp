// Each misuse of the library earns its line.
#include "tests/virtbus/bus_fixture.h"
#include "virtcam/bus/complaint_log.h"

namespace virtcam::bus::test {
namespace {

TEST(ComplaintLog, CountsWhatIsEqual) {
    virtcam::bus::ComplaintLog log;
    log.expect({"known"});
    testing::internal::CaptureStderr();
    for (int i = 0; i < 16; ++i) {
        log.raise("code", "one");
        log.raise("code", "known");
    }
    log.raise("code", "other");
    log.tell_counts();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "virtbus: complaint: one\n"
              "virtbus: complaint: one (10 times)\n"
              "virtbus: complaint: other\n"
              "virtbus: complaint: one (16 times)\n");
    const std::vector<virtcam::bus::Complaint> all = log.all();
    ASSERT_EQ(all.size(), 33U) << "each is recorded";
    EXPECT_FALSE(all[0].expected);
    EXPECT_EQ(all[1].text, "known");
    EXPECT_TRUE(all[1].expected);
    EXPECT_EQ(log.take(), all);
    EXPECT_TRUE(log.all().empty());
}

class Strictness : public OpenFixture {
  protected:
    Strictness() { virtcam::bus::script_stream(true); }
};

TEST_F(Strictness, TransferOnAnUnclaimedInterface) {
    libusb_release_interface(handle_, 1);
    Transfer transfer = Transfer::bulk(handle_);
    EXPECT_EQ(transfer.submit(), LIBUSB_ERROR_IO);
    expect_complaint("transfer on endpoint 0x81, whose interface 1 is not claimed");
    libusb_claim_interface(handle_, 1);
}

TEST_F(Strictness, ControlToAnUnclaimedInterface) {
    std::array<uint8_t, 26> probe{};
    libusb_release_interface(handle_, 1);
    EXPECT_EQ(libusb_control_transfer(handle_, 0xA1, 0x81, 0x0100, 1, probe.data(), 26, 100), 26);
    expect_complaint("control transfer to interface 1, which is not claimed");
    check_complaints();
    libusb_context* other = make_context();
    libusb_device_handle* second = open_camera(other);
    EXPECT_EQ(libusb_control_transfer(second, 0xA1, 0x81, 0x0200, 0x0503, probe.data(), 2, 100),
              LIBUSB_ERROR_IO)
        << "another handle has interface 3";
    expect_complaint("control transfer to interface 3, which is not claimed");
    libusb_close(second);
    libusb_exit(other);
    libusb_claim_interface(handle_, 1);
}

TEST_F(Strictness, ControlToADisplacedEndpointNeedsItsInterface) {
    std::array<uint8_t, 3> rate{};
    libusb_release_interface(handle_, 3);
    EXPECT_EQ(libusb_control_transfer(handle_, 0xA2, 0x81, 0x0100, kAudio, rate.data(), 3, 100), 3);
    expect_complaint("control transfer to interface 3, which is not claimed");
    EXPECT_EQ(libusb_control_transfer(handle_, 0xA2, 0x81, 0x0100, 0x8F, rate.data(), 3, 100),
              LIBUSB_ERROR_IO);
    expect_complaint("control transfer to endpoint 0x8f, which does not exist");
    libusb_claim_interface(handle_, 3);
}

TEST_F(Strictness, VendorAndDeviceRequestsNeedNoClaim) {
    libusb_context* other = make_context();
    libusb_device_handle* second = open_camera(other);
    std::array<uint8_t, 8> reply{};
    EXPECT_EQ(read_version(second, reply), 8);
    libusb_close(second);
    libusb_exit(other);
}

TEST_F(Strictness, DoubleSubmit) {
    Transfer transfer = Transfer::bulk(handle_);
    ASSERT_EQ(transfer.submit(), 0);
    EXPECT_EQ(transfer.submit(), LIBUSB_ERROR_BUSY);
    expect_complaint("libusb_submit_transfer: transfer on endpoint 0x81 is already in flight");
    transfer.cancel();
    handle_events(context_);
}

TEST_F(Strictness, FreeInFlight) {
    Transfer transfer = Transfer::bulk(handle_);
    ASSERT_EQ(transfer.submit(), 0);
    libusb_free_transfer(transfer.get());
    expect_complaint("libusb_free_transfer: transfer on endpoint 0x81 is in flight");
    transfer.cancel();
    handle_events(context_);
    EXPECT_EQ(transfer.completions(), 1) << "it was not freed";
}

TEST_F(Strictness, FreeTwice) {
    Transfer transfer = Transfer::bulk(handle_);
    libusb_transfer* raw = transfer.release();
    libusb_free_transfer(raw);
    libusb_free_transfer(raw);
    expect_complaint("libusb_free_transfer: not a transfer, or freed already");
    libusb_free_transfer(nullptr);  // allowed
}

TEST_F(Strictness, SubmitAndCancelOfWhatIsNoTransfer) {
    Transfer transfer = Transfer::bulk(handle_);
    libusb_transfer* const freed = transfer.release();
    libusb_free_transfer(freed);
    // An address that nobody can read: it must be recognised before it is looked at.
    auto* const foreign = reinterpret_cast<libusb_transfer*>(uintptr_t{64});
    virtcam::bus::clear_logs();
    for (libusb_transfer* const wrong : {freed, foreign}) {
        EXPECT_EQ(libusb_submit_transfer(wrong), LIBUSB_ERROR_INVALID_PARAM);
        EXPECT_EQ(libusb_cancel_transfer(wrong), LIBUSB_ERROR_NOT_FOUND);
    }
    expect_complaint("libusb_submit_transfer: not a transfer", 2);
    expect_complaint("libusb_cancel_transfer: not a transfer", 2);
    for (const auto& call : virtcam::bus::call_log()) {
        EXPECT_FALSE(call.argument) << call.name << " was told of an endpoint";
    }
}

TEST_F(Strictness, CloseWithTransfersInFlight) {
    Transfer first = Transfer::bulk(handle_);
    Transfer second = Transfer::bulk(handle_);
    ASSERT_EQ(first.submit(), 0);
    ASSERT_EQ(second.submit(), 0);
    shut_down();
    // The releases end what is on their interfaces; those ends were never taken.
    expect_complaint("libusb_close: transfers still in flight: 2");
    EXPECT_EQ(first.completions(), 0);
}

TEST_F(Strictness, CloseWithClaims) {
    libusb_close(std::exchange(handle_, nullptr));
    expect_complaint("libusb_close: claimed and not released: interface 0, 1, 2, 3");
}

TEST_F(Strictness, ReleaseOfWhatWasNotClaimed) {
    libusb_release_interface(handle_, 1);
    EXPECT_EQ(libusb_release_interface(handle_, 1), LIBUSB_ERROR_NOT_FOUND);
    expect_complaint("libusb_release_interface: interface 1 was not claimed");
    libusb_claim_interface(handle_, 1);
}

TEST_F(Strictness, SettingAndHaltOfWhatIsNotClaimed) {
    libusb_release_interface(handle_, 1);
    EXPECT_EQ(libusb_set_interface_alt_setting(handle_, 1, 0), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_clear_halt(handle_, kVideo), 0) << "usbfs takes what is free by itself";
    expect_complaint("libusb_set_interface_alt_setting: interface 1 is not claimed");
    expect_complaint("libusb_clear_halt: interface 1 is not claimed");
    check_complaints();
    libusb_context* other = make_context();
    libusb_device_handle* second = open_camera(other);
    EXPECT_EQ(libusb_clear_halt(second, kAudio), LIBUSB_ERROR_OTHER)
        << "another handle has interface 3";
    expect_complaint("libusb_clear_halt: interface 3 is not claimed");
    libusb_close(second);
    libusb_exit(other);
    libusb_claim_interface(handle_, 1);
}

TEST_F(Strictness, ExitWithOpenHandle) {
    libusb_context* other = make_context();
    libusb_device_handle* left = open_camera(other);
    libusb_exit(other);
    expect_complaint("libusb_exit: 1 device handle still open");
    libusb_close(left);
}

TEST_F(Strictness, ExitWithReferencedDevice) {
    libusb_context* other = make_context();
    libusb_device** list = nullptr;
    ASSERT_GT(libusb_get_device_list(other, &list), 0);
    libusb_device* device = list[0];
    libusb_free_device_list(list, 0);
    libusb_exit(other);
    expect_complaint("libusb_exit: 2 devices still referenced");
    EXPECT_EQ(virtcam::bus::leaks().size(), 4U) << "two references, and what the fixture holds";
    libusb_unref_device(device);
    shut_down();
    EXPECT_EQ(virtcam::bus::leaks().at(0).text, "references to 114d:2066 never dropped: 1");
    check_complaints();
    restart();  // forgets it
}

TEST_F(Strictness, NullBuffers) {
    EXPECT_EQ(libusb_control_transfer(handle_, 0xA0, 0x81, 0x0200, 0x0600, nullptr, 8, 100),
              LIBUSB_ERROR_INVALID_PARAM);
    expect_complaint("libusb_control_transfer: 8 bytes without a buffer");
    EXPECT_EQ(libusb_control_transfer(handle_, 0x40, 0x05, 0, 0, nullptr, 0, 100),
              LIBUSB_ERROR_PIPE)
        << "no data, no buffer: the camera's to refuse";
    Transfer transfer = Transfer::bulk(handle_);
    transfer->buffer = nullptr;
    EXPECT_EQ(transfer.submit(), LIBUSB_ERROR_INVALID_PARAM);
    expect_complaint("libusb_submit_transfer: transfer of 512 bytes without a buffer");
}

TEST_F(Strictness, LengthsThatCannotBe) {
    Transfer control = Transfer::control(handle_, 0x80, 0x06, 0x0100, 0, 18);
    control->length = 7;
    EXPECT_EQ(control.submit(), LIBUSB_ERROR_INVALID_PARAM);
    expect_complaint("libusb_submit_transfer: control transfer of 7 bytes");
    control->length = 20;
    EXPECT_EQ(control.submit(), LIBUSB_ERROR_INVALID_PARAM);
    expect_complaint("libusb_submit_transfer: wLength goes beyond the control transfer");
    Transfer bulk = Transfer::bulk(handle_);
    bulk->length = -1;
    EXPECT_EQ(bulk.submit(), LIBUSB_ERROR_INVALID_PARAM);
    expect_complaint("libusb_submit_transfer: negative length");
    Transfer iso = Transfer::iso(handle_, 2);
    iso->num_iso_packets = 3;
    EXPECT_EQ(iso.submit(), LIBUSB_ERROR_INVALID_PARAM);
    expect_complaint("libusb_submit_transfer: 3 packets in a transfer allocated for 2");
    iso->num_iso_packets = 2;
    iso->iso_packet_desc[1].length = 1000;
    EXPECT_EQ(iso.submit(), LIBUSB_ERROR_INVALID_PARAM);
    expect_complaint("libusb_submit_transfer: packets of 1100 bytes in a transfer of 200");
}

TEST_F(Strictness, SynchronousCallInACallback) {
    Transfer transfer = Transfer::control(handle_, 0x80, 0x06, 0x0100, 0, 18);
    transfer.on_completion([&](libusb_transfer*) {
        std::array<uint8_t, 8> reply{};
        EXPECT_EQ(read_version(handle_, reply), LIBUSB_ERROR_BUSY);
        EXPECT_EQ(libusb_handle_events(context_), LIBUSB_ERROR_BUSY);
    });
    ASSERT_EQ(transfer.submit(), 0);
    handle_events(context_);
    expect_complaint("event handling or a synchronous call inside a completion callback", 2);
}

TEST_F(Strictness, PointersThatMeanNothing) {
    libusb_context* other = make_context();
    libusb_device_handle* closed = open_camera(other);
    libusb_close(closed);
    libusb_exit(other);
    EXPECT_EQ(libusb_claim_interface(closed, 0), LIBUSB_ERROR_INVALID_PARAM);
    expect_complaint("libusb_claim_interface: not an open device handle");
    timeval none{0, 0};
    EXPECT_EQ(libusb_handle_events_timeout(other, &none), LIBUSB_ERROR_INVALID_PARAM);
    expect_complaint("libusb_handle_events_timeout: not an open context");
    libusb_close(closed);
    expect_complaint("libusb_close: not an open device handle");
    libusb_close(nullptr);  // allowed
}

TEST_F(Strictness, DefaultContextThatWasNeverMade) {
    libusb_device** list = nullptr;
    EXPECT_EQ(libusb_get_device_list(nullptr, &list), 2);
    libusb_free_device_list(list, 1);
    expect_complaint("libusb_get_device_list: no default context was made by libusb_init");
}

TEST_F(Strictness, AlternateSettingAfterUnplugPoisonsTheHandle) {
    virtcam::bus::unplug();
    EXPECT_EQ(libusb_set_interface_alt_setting(handle_, 3, 0), LIBUSB_ERROR_NO_DEVICE);
    check_complaints();
    libusb_close(std::exchange(handle_, nullptr));
    expect_complaint(
        "libusb_close: libusb 1.0.26 aborts here, because an alternate setting was selected after "
        "the device had gone");
}

TEST_F(Strictness, LeaksAreToldOnDemand) {
    Transfer leaked = Transfer::bulk(handle_);
    libusb_transfer* raw = leaked.release();
    libusb_config_descriptor* config = nullptr;
    ASSERT_EQ(libusb_get_active_config_descriptor(libusb_get_device(handle_), &config), 0);
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(context_, &list), 2);
    std::vector<std::string> codes;
    for (const auto& leak : virtcam::bus::leaks()) {
        codes.push_back(leak.code);
    }
    EXPECT_EQ(codes, (std::vector<std::string>{"leaked_context", "leaked_handle", "leaked_list",
                                               "leaked_descriptor", "leaked_transfer"}));
    EXPECT_EQ(virtcam::bus::leaks().at(1).text,
              "a handle of 114d:2066 was never closed, interface 0 is claimed, interface 1 is "
              "claimed, interface 2 is claimed, interface 3 is claimed");
    libusb_free_transfer(raw);
    libusb_free_config_descriptor(config);
    libusb_free_device_list(list, 1);
}

TEST_F(Strictness, ResetWithUnreportedContext) {
    libusb_context* left = make_context();
    restart();
    expect_complaint("reset: contexts still open: 2");
    check_complaints();
    EXPECT_TRUE(virtcam::bus::leaks().empty()) << "they belong to the bus before";
    libusb_exit(left);
}

}  // namespace
}  // namespace virtcam::bus::test
