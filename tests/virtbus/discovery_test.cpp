// Contexts, device lists, descriptors and the bus listing.
#include <sys/stat.h>

#include <fstream>
#include <set>
#include <span>
#include <sstream>

#include "tests/virtbus/bus_fixture.h"

#if LIBUSB_API_VERSION < 0x0100010A
// As the header of libusb 1.0.27 has it.
struct libusb_init_option {
    enum libusb_option option;
    union {
        int ival;
        libusb_log_cb log_cbval;
    } value;
};
extern "C" int LIBUSB_CALL libusb_init_context(libusb_context**, const libusb_init_option[], int);
#endif

namespace virtcam::bus::test {
namespace {

using Discovery = BusFixture;

std::string read_text(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

size_t count_of(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

std::vector<uint16_t> products(libusb_context* context) {
    libusb_device** list = nullptr;
    const ssize_t count = libusb_get_device_list(context, &list);
    std::vector<uint16_t> result;
    for (ssize_t i = 0; i < count; ++i) {
        libusb_device_descriptor descriptor{};
        EXPECT_EQ(libusb_get_device_descriptor(list[i], &descriptor), 0);
        result.push_back(descriptor.idProduct);
    }
    EXPECT_EQ(list[count], nullptr);
    libusb_free_device_list(list, 1);
    return result;
}

TEST_F(Discovery, ListsHubOthersAndCamera) {
    restart({{"bus", {{"other_devices", {{{"vendor", "0x046d"}, {"product", "0xc31c"}}}}}}});
    libusb_context* context = make_context();
    EXPECT_EQ(products(context), (std::vector<uint16_t>{0x0002, 0xC31C, kRunProduct}));
    libusb_exit(context);
}

TEST_F(Discovery, ContextsWithOptionsAreMadeAsNewerProgramsMakeThem) {
    libusb_context* context = nullptr;
    ASSERT_EQ(libusb_init_context(&context, nullptr, 0), LIBUSB_SUCCESS);
    EXPECT_EQ(products(context).size(), 2U);
    libusb_exit(context);
    const libusb_init_option log{LIBUSB_OPTION_LOG_LEVEL, {LIBUSB_LOG_LEVEL_DEBUG}};
    ASSERT_EQ(libusb_init_context(nullptr, &log, 1), LIBUSB_SUCCESS);
    EXPECT_EQ(products(nullptr).size(), 2U);
    libusb_exit(nullptr);
    const libusb_init_option devices{LIBUSB_OPTION_NO_DEVICE_DISCOVERY, {0}};
    EXPECT_EQ(libusb_init_context(&context, &devices, 1), LIBUSB_ERROR_NOT_SUPPORTED);
}

TEST_F(Discovery, OtherDevicesCannotBeOpened) {
    libusb_context* context = make_context();
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(context, &list), 2);
    libusb_device_handle* handle = nullptr;
    EXPECT_EQ(libusb_open(list[0], &handle), LIBUSB_ERROR_ACCESS);
    libusb_free_device_list(list, 1);
    libusb_exit(context);
}

TEST_F(Discovery, DeviceSurvivesItsListWhileReferenced) {
    libusb_context* context = make_context();
    libusb_device** list = nullptr;
    ASSERT_EQ(libusb_get_device_list(context, &list), 2);
    libusb_device* camera = libusb_ref_device(list[1]);
    libusb_free_device_list(list, 1);
    virtcam::bus::unplug();
    libusb_device_descriptor descriptor{};
    EXPECT_EQ(libusb_get_device_descriptor(camera, &descriptor), 0);
    EXPECT_EQ(descriptor.idVendor, kVendor);
    libusb_device_handle* handle = nullptr;
    EXPECT_EQ(libusb_open(camera, &handle), LIBUSB_ERROR_NO_DEVICE);
    libusb_unref_device(camera);
    libusb_exit(context);
}

TEST_F(Discovery, OldContextSeesArrivals) {
    restart({{"bus", {{"present", false}}}});
    libusb_context* context = make_context();
    EXPECT_EQ(products(context), (std::vector<uint16_t>{0x0002}));
    virtcam::bus::plug();
    EXPECT_EQ(products(context), (std::vector<uint16_t>{0x0002, kRunProduct}));
    libusb_exit(context);
}

TEST_F(Discovery, DefaultContextIsCounted) {
    ASSERT_EQ(libusb_init(nullptr), 0);
    ASSERT_EQ(libusb_init(nullptr), 0);
    libusb_exit(nullptr);
    EXPECT_EQ(products(nullptr).size(), 2U);
    libusb_exit(nullptr);
    EXPECT_TRUE(virtcam::bus::leaks().empty());
    libusb_exit(nullptr);  // one too many is allowed
}

TEST_F(Discovery, TopologyOfTheCamera) {
    libusb_context* context = make_context();
    libusb_device_handle* handle = open_camera(context);
    libusb_device* device = libusb_get_device(handle);
    EXPECT_EQ(libusb_get_bus_number(device), 1);
    EXPECT_EQ(libusb_get_device_address(device), 2);
    EXPECT_EQ(libusb_get_port_number(device), 1);
    EXPECT_EQ(libusb_get_device_speed(device), LIBUSB_SPEED_HIGH);
    std::array<uint8_t, 7> ports{};
    EXPECT_EQ(libusb_get_port_numbers(device, ports.data(), ports.size()), 1);
    EXPECT_EQ(libusb_get_device_address(libusb_get_parent(device)), 1);
    int value = 0;
    EXPECT_EQ(libusb_get_configuration(handle, &value), 0);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(libusb_get_max_packet_size(device, kVideo), 512);
    EXPECT_GE(libusb_get_max_iso_packet_size(device, kAudio), 100);
    EXPECT_EQ(libusb_get_max_packet_size(device, 0x87), LIBUSB_ERROR_NOT_FOUND);
    libusb_close(handle);
    libusb_exit(context);
}

TEST_F(Discovery, ConfigurationDescriptorIsWhole) {
    libusb_context* context = make_context();
    libusb_device_handle* handle = open_camera(context);
    libusb_config_descriptor* config = nullptr;
    ASSERT_EQ(libusb_get_config_descriptor(libusb_get_device(handle), 0, &config), 0);
    ASSERT_EQ(config->bNumInterfaces, 4);
    EXPECT_EQ(config->interface[3].num_altsetting, 2);
    EXPECT_EQ(config->interface[1].altsetting[0].endpoint[0].bEndpointAddress, kVideo);
    EXPECT_GT(config->interface[0].altsetting[0].extra_length, 13);
    EXPECT_EQ(config->interface[3].altsetting[1].endpoint[0].extra_length, 7);
    libusb_free_config_descriptor(config);
    EXPECT_EQ(libusb_get_config_descriptor(libusb_get_device(handle), 1, &config),
              LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_get_config_descriptor_by_value(libusb_get_device(handle), 9, &config),
              LIBUSB_ERROR_NOT_FOUND);
    libusb_close(handle);
    libusb_exit(context);
}

TEST_F(Discovery, StringDescriptorInAscii) {
    libusb_context* context = make_context();
    libusb_device_handle* handle = open_camera(context);
    std::array<unsigned char, 64> text{};
    const int length = libusb_get_string_descriptor_ascii(handle, 2, text.data(), text.size());
    ASSERT_GT(length, 0);
    EXPECT_EQ(reinterpret_cast<const char*>(text.data()), virtcam::bus::camera().string(2));
    EXPECT_EQ(libusb_get_string_descriptor_ascii(handle, 2, text.data(), 4), 3);
    EXPECT_EQ(libusb_get_string_descriptor_ascii(handle, 0, text.data(), 64),
              LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_get_string_descriptor_ascii(handle, 9, text.data(), 64), LIBUSB_ERROR_PIPE);
    libusb_close(handle);
    libusb_exit(context);
}

TEST_F(Discovery, ListingFollowsTheKernelsFormat) {
    restart({{"bus", {{"kernel_drivers", "standard"}}}});
    const std::string text = read_text(listing_path());
    EXPECT_EQ(text.front(), '\n');
    EXPECT_EQ(count_of(text, "\nT:  Bus=01"), 2U);
    EXPECT_EQ(count_of(text, "\n\nT:  Bus=01 Lev=01 Prnt=01 Port=00 Cnt=01 Dev#=  2 Spd=480"), 1U);
    EXPECT_EQ(count_of(text, "P:  Vendor=114d ProdID=2066 Rev= "), 1U);
    EXPECT_EQ(count_of(text,
                       "I:* If#= 1 Alt= 0 #EPs= 1 Cls=0e(video) Sub=02 Prot=00 "
                       "Driver=uvcvideo\nE:  Ad=81(I) Atr=02(Bulk) MxPS= 512 Ivl=0ms\n"),
              1U);
    EXPECT_EQ(count_of(text,
                       "I:  If#= 3 Alt= 1 #EPs= 1 Cls=01(audio) Sub=02 Prot=00 "
                       "Driver=snd-usb-audio\nE:  Ad=82(I) Atr=05(Isoc)"),
              1U);
}

TEST_F(Discovery, ListingNeverKeepsItsSize) {
    std::set<uintmax_t> sizes{std::filesystem::file_size(listing_path())};
    for (int change = 0; change < 30; ++change) {
        change % 3 == 0   ? virtcam::bus::unplug()
        : change % 3 == 1 ? virtcam::bus::plug()
                          : virtcam::bus::power_cycle();
        EXPECT_TRUE(sizes.insert(std::filesystem::file_size(listing_path())).second)
            << "change " << change;
    }
}

TEST_F(Discovery, ListingStaysWhenInterfacesAreClaimed) {
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(stat(listing_path().c_str(), &before), 0);
    libusb_context* context = make_context();
    libusb_device_handle* handle = open_camera(context);
    EXPECT_EQ(libusb_claim_interface(handle, 0), 0);
    EXPECT_EQ(libusb_release_interface(handle, 0), 0);
    libusb_close(handle);
    libusb_exit(context);
    ASSERT_EQ(stat(listing_path().c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_ctim.tv_nsec, after.st_ctim.tv_nsec);
}

TEST_F(Discovery, MissingFolderSwitchesTheListingOff) {
    restart({{"bus", {{"listing", "/nonexistent/devices"}}}});
    EXPECT_EQ(virtcam::bus::status_json()["bus"]["listing"]["state"], "off");
}

TEST_F(Discovery, ListingThatCannotBeWrittenIsSaidOnceAndInTheStatus) {
    const std::string folder = listing_path() + ".folder";  // no file can take its place
    std::filesystem::create_directory(folder);
    testing::internal::CaptureStderr();
    restart({{"bus", {{"listing", folder}}}});
    virtcam::bus::unplug();
    virtcam::bus::plug();
    const std::string reason = "cannot be written: Is a directory";
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "virtbus: the listing \"" + folder + "\" " + reason + "\n");
    EXPECT_EQ(virtcam::bus::status_json()["bus"]["listing"]["state"], reason);
    std::filesystem::remove(folder);
    std::filesystem::remove(folder + ".new");
}

TEST_F(Discovery, MalformedConfigurationChangesNothing) {
    virtcam::bus::unplug();
    EXPECT_THROW(virtcam::bus::reset({{"bus", {{"lusting", ""}}}}), std::invalid_argument);
    EXPECT_THROW(virtcam::bus::reset({{"camera", {{"identity", 3}}}}), std::invalid_argument);
    EXPECT_THROW(virtcam::bus::reset({{"faults", {{{"on", 1}}}}}), std::invalid_argument);
    EXPECT_FALSE(virtcam::bus::camera().attached());
}

TEST_F(Discovery, VersionIsThatOfTheLibraryItStandsFor) {
    EXPECT_EQ(libusb_get_version()->micro, 26);
    EXPECT_STREQ(libusb_error_name(LIBUSB_ERROR_NO_DEVICE), "LIBUSB_ERROR_NO_DEVICE");
    EXPECT_STREQ(libusb_strerror(static_cast<libusb_error>(LIBUSB_ERROR_BUSY)), "Resource busy");
    EXPECT_EQ(libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG), 0);
}

}  // namespace
}  // namespace virtcam::bus::test
