// Device list and import, as Debian's usbip tool asks for them.
#include "virtcam/usbip/handshake.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "virtcam/usbip/pdu_reader.h"

namespace virtcam::usbip::test {
namespace {

using namespace virtcam::usbip;

Bytes import_of(const std::string& bus_id) {
    Bytes wire(8 + 32);
    std::copy_n(Bytes{1, 0x11, 0x80, 3}.begin(), 4, wire.begin());
    std::copy(bus_id.begin(), bus_id.end(), wire.begin() + 8);
    return wire;
}

virtcam::model::CameraConfig running() {
    virtcam::model::CameraConfig config;
    config.identity = virtcam::model::CameraConfig::Identity::kRunTime;
    return config;
}

TEST(Handshake, ListRequestByteByByte) {
    const Bytes wire{1, 0x11, 0x80, 5, 0, 0, 0, 0};
    Bytes received;
    for (size_t i = 0; i + 1 < wire.size(); ++i) {
        received.push_back(wire[i]);
        ASSERT_FALSE(take_request(received));
    }
    received.push_back(wire.back());
    EXPECT_EQ(take_request(received)->kind, OpRequest::Kind::kDeviceList);
    EXPECT_TRUE(received.empty());
}

TEST(Handshake, ImportNamesTheCameraExactly) {
    for (const auto& [name, ours] :
         {std::pair{"1-1", true}, {"1-10", false}, {"1-", false}, {"", false}, {"2-1", false}}) {
        Bytes received = import_of(name);
        const auto request = take_request(received);
        ASSERT_TRUE(request);
        EXPECT_EQ(request->kind, OpRequest::Kind::kImport);
        EXPECT_EQ(request->our_camera, ours) << name;
    }
}

TEST(Handshake, LeavesWhatFollowsTheImport) {
    Bytes received = import_of("1-1");
    received.push_back(0x42);
    ASSERT_TRUE(take_request(received));
    EXPECT_EQ(received, Bytes{0x42});
}

TEST(Handshake, OwnImportRequestIsUnderstood) {
    Bytes wire = import_request();
    EXPECT_EQ(wire, import_of("1-1"));
}

TEST(Handshake, RefusesOtherVersionsAndCodes) {
    for (Bytes wire : {Bytes{1, 0x10, 0x80, 5, 0, 0, 0, 0}, Bytes{1, 0x11, 0x80, 4, 0, 0, 0, 0},
                       Bytes{'G', 'E', 'T', ' ', '/', ' ', 'H', 'T'}}) {
        EXPECT_THROW(take_request(wire), ProtocolError);
    }
}

TEST(Handshake, DeviceRecordDescribesTheCamera) {
    const virtcam::model::Camera camera(running());
    const Bytes wire = import_reply(camera, ImportStatus::kOk);
    ASSERT_EQ(wire.size(), kOpHeaderBytes + kDeviceRecordBytes);
    EXPECT_EQ(import_reply_status(wire), 0u);
    const ByteView record = ByteView(wire).subspan(kOpHeaderBytes);
    EXPECT_STREQ(reinterpret_cast<const char*>(record.data()) + 256, "1-1");
    EXPECT_EQ(load_be32(record, 288), kBusNumber);
    EXPECT_EQ(load_be32(record, 292), kDeviceNumber);
    EXPECT_EQ(load_be32(record, 296), kHighSpeed);
    EXPECT_EQ(load_be(record, 300, 2), uint32_t{AITCAM_VENDOR_ID});
    EXPECT_EQ(load_be(record, 302, 2), 0x2066u);
    EXPECT_EQ(record[306], 0xEF);  // class: interface association
    EXPECT_EQ(record[311], 4);     // interfaces
}

TEST(Handshake, ListHoldsTheInterfaces) {
    const virtcam::model::Camera camera(running());
    const Bytes wire = device_list_reply(camera);
    ASSERT_EQ(wire.size(), kOpHeaderBytes + 4 + kDeviceRecordBytes + 4 * 4);
    EXPECT_EQ(load_be32(wire, 8), 1u);
    const Bytes interfaces(wire.end() - 16, wire.end());
    EXPECT_EQ(interfaces, (Bytes{0x0E, 1, 0, 0, 0x0E, 2, 0, 0, 1, 1, 0, 0, 1, 2, 0, 0}));
}

TEST(Handshake, CameraOffTheBusIsNotListed) {
    virtcam::model::Camera camera(running());
    camera.unplug();
    const Bytes wire = device_list_reply(camera);
    EXPECT_EQ(wire, (Bytes{1, 0x11, 0, 5, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(Handshake, RefusalHasNoRecord) {
    const virtcam::model::Camera camera(running());
    const Bytes wire = import_reply(camera, ImportStatus::kBusy);
    EXPECT_EQ(wire, (Bytes{1, 0x11, 0, 3, 0, 0, 0, 2}));
    EXPECT_EQ(import_reply_status(wire), 2u);
    EXPECT_THROW(import_reply_status(Bytes{1, 0x11, 0, 5, 0, 0, 0, 0}), ProtocolError);
    EXPECT_THROW(import_reply_status(Bytes{1, 0x11}), ProtocolError);
}

}  // namespace
}  // namespace virtcam::usbip::test
