// Finding and opening the camera through libusb.
#include "AitDevice.h"

#include "CameraIdentity.h"
#include "tests/access/UsbCalls.h"
#include "tests/support/BusTest.h"

namespace test {
namespace {

constexpr uint16_t kVendor = kCameraVendorId;
constexpr uint16_t kProduct = kRunTimeProductId;

nlohmann::json FailCall(const std::string& name, const nlohmann::json& action) {
    return {{"on", {{"call", name}}}, {"do", action}};
}

class AitDeviceTest : public BusTest {
  protected:
    using BusTest::BusTest;
    static ssize_t ListedDevices() {
        libusb_context* context = nullptr;
        libusb_init(&context);
        libusb_device** list = nullptr;
        const ssize_t count = libusb_get_device_list(context, &list);
        libusb_free_device_list(list, 1);
        libusb_exit(context);
        return count;
    }
    static size_t Calls(const std::string& name) {
        const auto counts = virtcam::bus::call_counts();
        const auto found = counts.find(name);
        return found == counts.end() ? 0 : found->second;
    }
};

TEST_F(AitDeviceTest, IdentitiesOfTheCamera) {
    EXPECT_EQ(kCameraVendorId, 0x114D);
    EXPECT_EQ(kBootCodeProductId, 0x2065);
    EXPECT_EQ(kRunTimeProductId, 0x2066);
    EXPECT_EQ(kFallbackVendorId, 0x114D);
    EXPECT_EQ(kFallbackProductId, 0x8C00);
}

TEST_F(AitDeviceTest, OpensWithoutClaiming) {
    AitDevHandle* device = OpenAitDevice(kVendor, kProduct, kNoInterface);
    ASSERT_NE(device, nullptr);
    EXPECT_NE(device->handle, nullptr);
    EXPECT_NE(device->cntx, nullptr);
    EXPECT_EQ(device->interface_num, 255);
    EXPECT_EQ(Log(), (Lines{{4, "libusb initialized. \r\n"},
                            {4, "get device list.\r\n"},
                            {4, "found a usb device.\r\n"},
                            {4, "OpenAitDevice claim interface. interface=255 hr=0\r\n"}}));
    EXPECT_EQ(Calls("libusb_claim_interface"), 0u);
    EXPECT_EQ(Calls("libusb_detach_kernel_driver"), 0u);
    CloseAitDevice(device);
    EXPECT_EQ(Calls("libusb_release_interface"), 0u);
}

TEST_F(AitDeviceTest, ClaimsTheInterfaceAndReleasesIt) {
    AitDevHandle* device = OpenAitDevice(kVendor, kProduct, 0);
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(device->interface_num, 0);
    EXPECT_LOG(4, "OpenAitDevice claim interface. interface=0 hr=0\r\n");
    EXPECT_EQ(Calls("libusb_detach_kernel_driver"), 1u);
    EXPECT_EQ(Calls("libusb_claim_interface"), 1u);
    CloseAitDevice(device);
    EXPECT_EQ(Calls("libusb_release_interface"), 1u);
    EXPECT_EQ(Calls("libusb_close"), 1u);
    EXPECT_EQ(Calls("libusb_exit"), 1u);
}

TEST_F(AitDeviceTest, EachOpenDeviceHasItsOwnContext) {
    AitDevHandle* first = OpenAitDevice(kVendor, kProduct, kNoInterface);
    AitDevHandle* second = OpenAitDevice(kVendor, kProduct, kNoInterface);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first->cntx, second->cntx);
    CloseAitDevice(first);
    CloseAitDevice(second);
}

TEST_F(AitDeviceTest, CloseOfNothing) {
    CloseAitDevice(nullptr);
    EXPECT_TRUE(virtcam::bus::call_counts().empty());
}

TEST_F(AitDeviceTest, NoSuchDevice) {
    EXPECT_EQ(OpenAitDevice(kVendor, kBootCodeProductId, 2), nullptr);
    EXPECT_EQ(OpenAitDevice(kVendor + 1, kProduct, 2), nullptr);
    EXPECT_LOG_COUNT(1, "No AIT device has been detected.\r\n", 2);
    EXPECT_NO_LOG(4, "found a usb device.\r\n");
}

TEST_F(AitDeviceTest, NoContext) {
    virtcam::bus::add_fault(FailCall("libusb_init", {{"return", "LIBUSB_ERROR_NO_MEM"}}));
    EXPECT_EQ(OpenAitDevice(kVendor, kProduct, 0), nullptr);
    EXPECT_EQ(Log(), (Lines{{4, "libusb initialized. \r\n"},
                            {1, "libusb_init return error 0xFFFFFFF5,\r\n"}}));
    log().reset();
    EXPECT_FALSE(CheckDeviceExist(kVendor, kProduct));
    EXPECT_EQ(Log(), (Lines{{4, "lubusb initialized. \r\n"},
                            {1, "libusb_init return error 0xFFFFFFF5,\r\n"}}));
}

TEST_F(AitDeviceTest, AContextThatComesWithAnErrorIsReleased) {
    fail_init_with_context(true);
    EXPECT_EQ(OpenAitDevice(kVendor, kProduct, 0), nullptr);
    EXPECT_FALSE(CheckDeviceExist(kVendor, kProduct));
    fail_init_with_context(false);
    EXPECT_LOG_COUNT(1, "libusb_init return error 0xFFFFFF9D,\r\n", 2);
    EXPECT_EQ(Calls("libusb_exit"), 2u);
}

TEST_F(AitDeviceTest, NoList) {
    virtcam::bus::add_fault(FailCall("libusb_get_device_list", {{"return", "LIBUSB_ERROR_IO"}}));
    EXPECT_EQ(OpenAitDevice(kVendor, kProduct, 0), nullptr);
    EXPECT_EQ(Log(), (Lines{{4, "libusb initialized. \r\n"},
                            {1, "libusb_get_device_list error 0xffffffff \r\n"}}));
    log().reset();
    EXPECT_FALSE(CheckDeviceExist(kVendor, kProduct));
    EXPECT_EQ(Log(), (Lines{{4, "lubusb initialized. \r\n"},
                            {4, "libusb_get_device_list\r\n"},
                            {4, "device count=-1.\r\n"},
                            {1, "libusb_get_device_list error 0xffffffff \r\n"}}));
}

TEST_F(AitDeviceTest, NullList) {
    virtcam::bus::add_fault(FailCall("libusb_get_device_list", "null"));
    EXPECT_EQ(OpenAitDevice(kVendor, kProduct, 0), nullptr);
    EXPECT_EQ(Log(), (Lines{{4, "libusb initialized. \r\n"}}));
    EXPECT_FALSE(CheckDeviceExist(kVendor, kProduct));
}

TEST_F(AitDeviceTest, AnUnreadableDescriptorEndsTheSearch) {
    virtcam::bus::add_fault(
        FailCall("libusb_get_device_descriptor", {{"return", "LIBUSB_ERROR_IO"}}));
    EXPECT_FALSE(CheckDeviceExist(kVendor, kProduct));
    EXPECT_LOG_COUNT(1, "failed to get device descriptor", 1);
    EXPECT_EQ(Calls("libusb_get_device_descriptor"), 1u);
}

TEST_F(AitDeviceTest, AFailedOpenLeavesItsContext) {
    virtcam::bus::add_fault(FailCall("libusb_open", {{"return", "LIBUSB_ERROR_ACCESS"}}));
    EXPECT_EQ(OpenAitDevice(kVendor, kProduct, 0), nullptr);
    EXPECT_LOG(4, "found a usb device.\r\n");
    EXPECT_EQ(Calls("libusb_exit"), 0u);
    const auto leaks = virtcam::bus::leaks();
    ASSERT_EQ(leaks.size(), 1u);
    EXPECT_EQ(leaks[0].code, "leaked_context");
    ExpectComplaint(leaks[0].text);
}

TEST_F(AitDeviceTest, AFailedClaimLeavesHandleListAndContext) {
    virtcam::bus::add_fault(FailCall("libusb_claim_interface", {{"return", "LIBUSB_ERROR_BUSY"}}));
    EXPECT_EQ(OpenAitDevice(kVendor, kProduct, 1), nullptr);
    EXPECT_LOG(4, "OpenAitDevice claim interface. interface=1 hr=-6\r\n");
    std::vector<std::string> codes;
    for (const auto& leak : virtcam::bus::leaks()) {
        codes.push_back(leak.code);
        ExpectComplaint(leak.text);
    }
    EXPECT_THAT(codes,
                ::testing::UnorderedElementsAre("leaked_context", "leaked_handle", "leaked_list"));
}

TEST_F(AitDeviceTest, PresenceTestOpensNothing) {
    EXPECT_TRUE(CheckDeviceExist(kVendor, kProduct));
    EXPECT_EQ(Log(), (Lines{{4, "lubusb initialized. \r\n"},
                            {4, "libusb_get_device_list\r\n"},
                            {4, "device count=" + std::to_string(ListedDevices()) + ".\r\n"},
                            {4, "free device list\r\n"},
                            {4, "libusb_exit\r\n"}}));
    EXPECT_EQ(Calls("libusb_open"), 0u);
    log().reset();
    EXPECT_FALSE(CheckDeviceExist(kVendor, kBootCodeProductId));
    const Lines lines = Log();
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[3], (Lines::value_type{1, "No AIT device has been detected.\r\n"}));
    EXPECT_EQ(lines[4], (Lines::value_type{1, "free device list\r\n"}));
    EXPECT_EQ(lines[5], (Lines::value_type{1, "libusb_exit\r\n"}));
}

/// The library's calls in order, with their interface where they have one.
std::vector<std::pair<std::string, int>> CallOrder() {
    std::vector<std::pair<std::string, int>> order;
    for (const auto& call : virtcam::bus::call_log()) {
        order.emplace_back(call.name, call.argument.value_or(-1));
    }
    return order;
}

TEST_F(AitDeviceTest, OpensAndClosesInOrder) {
    virtcam::bus::clear_logs();
    CloseAitDevice(OpenAitDevice(kVendor, kProduct, 1));
    auto order = CallOrder();
    std::erase_if(order, [](const auto& call) {
        return call.first == "libusb_get_device_descriptor" ||
               call.first == "libusb_free_device_list";
    });
    EXPECT_EQ(order, (std::vector<std::pair<std::string, int>>{{"libusb_init", -1},
                                                               {"libusb_get_device_list", -1},
                                                               {"libusb_open", -1},
                                                               {"libusb_detach_kernel_driver", 1},
                                                               {"libusb_claim_interface", 1},
                                                               {"libusb_release_interface", 1},
                                                               {"libusb_close", -1},
                                                               {"libusb_exit", -1}}));
}

TEST_F(AitDeviceTest, TheResultOfTheDetachIsIgnored) {
    virtcam::bus::add_fault(
        FailCall("libusb_detach_kernel_driver", {{"return", "LIBUSB_ERROR_NOT_SUPPORTED"}}));
    AitDevHandle* device = OpenAitDevice(kVendor, kProduct, 1);
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(device->interface_num, 1);
    CloseAitDevice(device);
}

TEST_F(AitDeviceTest, EnumeratesAndOpensUnderItsLock) {
    watch_usb_calls();
    AitDevHandle* device = OpenAitDevice(kVendor, kProduct, 0);
    for (const UsbCall& call : take_usb_calls()) {
        EXPECT_TRUE(call.enumeration_lock_held) << call.name;
        EXPECT_FALSE(call.control_lock_held) << call.name;
    }
    watch_usb_calls();
    EXPECT_TRUE(CheckDeviceExist(kVendor, kProduct));
    const auto calls = take_usb_calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].name, "get_device_list");
    EXPECT_TRUE(calls[0].enumeration_lock_held);
    EXPECT_EQ(calls[1].name, "exit");
    EXPECT_TRUE(calls[1].enumeration_lock_held);  // to the return
    // The lock is free again afterwards.
    watch_usb_calls();
    CloseAitDevice(device);
    for (const UsbCall& call : take_usb_calls()) {
        EXPECT_FALSE(call.enumeration_lock_held) << call.name;
    }
}

TEST_F(AitDeviceTest, ADescriptorThatFailsBeforeTheCameraEndsTheSearch) {
    // The camera is not the first of the list.
    virtcam::bus::reset({{"camera", {{"identity", "run-time"}}},
                         {"bus",
                          {{"listing", ""},
                           {"other_devices",
                            nlohmann::json::array({{{"vendor", 0x1234}, {"product", 0x5678}}})}}}});
    virtcam::bus::add_fault({{"on", {{"call", "libusb_get_device_descriptor"}}},
                             {"nth", 2},
                             {"do", {{"return", "LIBUSB_ERROR_IO"}}}});
    EXPECT_EQ(OpenAitDevice(kVendor, kProduct, kNoInterface), nullptr);
    EXPECT_EQ(Log(), (Lines{{4, "libusb initialized. \r\n"},
                            {4, "get device list.\r\n"},
                            {1, "failed to get device descriptor"},
                            {1, "No AIT device has been detected.\r\n"}}));
    EXPECT_EQ(Calls("libusb_get_device_descriptor"), 2u);
    log().reset();
    AitDevHandle* device = OpenAitDevice(kVendor, kProduct, kNoInterface);
    EXPECT_NE(device, nullptr);
    CloseAitDevice(device);
}

TEST_F(AitDeviceTest, FindWalksTheListInOrder) {
    libusb_context* context = nullptr;
    ASSERT_EQ(libusb_init(&context), 0);
    libusb_device** list = nullptr;
    ASSERT_GE(libusb_get_device_list(context, &list), 1);
    libusb_device* found = FindAitDevice(list, kVendor, kProduct);
    ASSERT_NE(found, nullptr);
    EXPECT_NE(std::find(list, list + 8, found), list + 8);
    EXPECT_EQ(FindAitDevice(list, kVendor, kProduct + 1), nullptr);
    libusb_device* none[] = {nullptr};
    EXPECT_EQ(FindAitDevice(none, kVendor, kProduct), nullptr);
    libusb_free_device_list(list, 1);
    libusb_exit(context);
}

}  // namespace
}  // namespace test
