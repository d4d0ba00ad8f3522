// Configuration descriptors that lie about themselves.
#include "virtcam/bus/descriptors.h"

#include <gtest/gtest.h>

#include <random>

namespace virtcam::bus::test {
namespace {

using Bytes = std::vector<uint8_t>;

/// Header with the right total length, then `rest`.
Bytes config(uint8_t interfaces, const Bytes& rest) {
    const auto total = static_cast<uint16_t>(9 + rest.size());
    Bytes bytes{9,
                LIBUSB_DT_CONFIG,
                static_cast<uint8_t>(total),
                static_cast<uint8_t>(total >> 8),
                interfaces,
                1,
                0,
                0x80,
                50};
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

Bytes join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

const Bytes kInterface{9, LIBUSB_DT_INTERFACE, 0, 0, 1, 14, 2, 0, 0};
const Bytes kEndpoint{7, LIBUSB_DT_ENDPOINT, 0x81, 2, 0, 2, 0};

TEST(Descriptors, WellFormed) {
    const auto parsed = ConfigDescriptor::parse(
        config(1, join({{3, 0x0B, 9}, kInterface, {4, 0x24, 1, 2}, kEndpoint, {3, 0x25, 7}})));
    ASSERT_NE(parsed, nullptr);
    EXPECT_EQ((*parsed)->extra_length, 3);
    const auto& setting = (*parsed)->interface[0].altsetting[0];
    EXPECT_EQ(setting.extra_length, 4);
    ASSERT_EQ(setting.bNumEndpoints, 1);
    EXPECT_EQ(setting.endpoint[0].wMaxPacketSize, 512);
    EXPECT_EQ(setting.endpoint[0].extra_length, 3);
    EXPECT_EQ(setting.endpoint[0].extra[2], 7);
}

TEST(Descriptors, HeaderThatIsNone) {
    EXPECT_EQ(ConfigDescriptor::parse({}), nullptr);
    EXPECT_EQ(ConfigDescriptor::parse(Bytes{9, LIBUSB_DT_CONFIG, 9, 0, 0, 1, 0, 0}), nullptr);
    EXPECT_EQ(ConfigDescriptor::parse(Bytes{9, LIBUSB_DT_DEVICE, 9, 0, 0, 1, 0, 0, 0}), nullptr);
    EXPECT_EQ(ConfigDescriptor::parse(config(33, kInterface)), nullptr);
}

TEST(Descriptors, LengthBelowTwoIsRefused) {
    EXPECT_EQ(ConfigDescriptor::parse(config(1, join({kInterface, {0, 0x24}}))), nullptr);
    EXPECT_EQ(ConfigDescriptor::parse(config(1, join({kInterface, {1, 0x24}}))), nullptr);
}

TEST(Descriptors, CutOffDescriptorEndsTheList) {
    const auto parsed = ConfigDescriptor::parse(config(1, join({kInterface, {7, 5, 0x81}})));
    ASSERT_NE(parsed, nullptr);
    EXPECT_EQ((*parsed)->interface[0].altsetting[0].bNumEndpoints, 0);
}

TEST(Descriptors, EndpointCountsThatDisagree) {
    Bytes none = kInterface;
    none[4] = 0;
    const auto fewer = ConfigDescriptor::parse(config(1, join({none, kEndpoint})));
    EXPECT_EQ((*fewer)->interface[0].altsetting[0].bNumEndpoints, 0);
    Bytes many = kInterface;
    many[4] = 200;
    const auto more = ConfigDescriptor::parse(config(1, join({many, kEndpoint})));
    EXPECT_EQ((*more)->interface[0].altsetting[0].bNumEndpoints, 1);
}

TEST(Descriptors, MoreAndFewerInterfacesThanAnnounced) {
    Bytes second = kInterface;
    second[2] = 1;
    const auto more = ConfigDescriptor::parse(config(1, join({kInterface, second, kEndpoint})));
    EXPECT_EQ((*more)->bNumInterfaces, 1);
    EXPECT_EQ(find_endpoint(**more, 0x81), nullptr);
    const auto fewer = ConfigDescriptor::parse(config(5, kInterface));
    EXPECT_EQ((*fewer)->bNumInterfaces, 1);
}

TEST(Descriptors, EndpointBeforeAnyInterface) {
    const auto parsed = ConfigDescriptor::parse(config(1, join({kEndpoint, kInterface})));
    ASSERT_NE(parsed, nullptr);
    EXPECT_EQ(find_endpoint(**parsed, 0x81), nullptr);
}

TEST(Descriptors, AnyBytesAreSafe) {
    std::mt19937 random(7);
    const Bytes seed =
        config(1, join({{3, 0x0B, 9}, kInterface, {4, 0x24, 1, 2}, kEndpoint, {3, 0x25, 7}}));
    for (int round = 0; round < 20'000; ++round) {
        Bytes bytes = seed;
        for (int change = 0; change < 3; ++change) {
            bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
        }
        bytes.resize(random() % (bytes.size() + 1));
        const auto parsed = ConfigDescriptor::parse(bytes);
        if (parsed != nullptr) {
            find_endpoint(**parsed, 0x99);
            EXPECT_LE((*parsed)->bNumInterfaces, 32);
        }
    }
}

TEST(Descriptors, AdditionalTransactionsCount) {
    libusb_endpoint_descriptor endpoint{};
    endpoint.bmAttributes = LIBUSB_TRANSFER_TYPE_ISOCHRONOUS;
    endpoint.wMaxPacketSize = 0x0800 | 100;
    EXPECT_EQ(bytes_per_interval(endpoint), 200);
    endpoint.bmAttributes = LIBUSB_TRANSFER_TYPE_BULK;
    EXPECT_EQ(bytes_per_interval(endpoint), 100);
}

TEST(Descriptors, DeviceDescriptorLengthIsChecked) {
    libusb_device_descriptor descriptor{};
    EXPECT_FALSE(parse_device_descriptor(Bytes(17, LIBUSB_DT_DEVICE), descriptor));
    EXPECT_TRUE(parse_device_descriptor(Bytes(18, LIBUSB_DT_DEVICE), descriptor));
}

}  // namespace
}  // namespace virtcam::bus::test
