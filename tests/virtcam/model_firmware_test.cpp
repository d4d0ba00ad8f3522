// Firmware download over both paths, and the camera's way from boot code to camera and back.
#include <gtest/gtest.h>

#include <numeric>

#include "model_fixture.h"
#include "virtcam/model/firmware.h"

namespace virtcam::model::test {
namespace {

using std::chrono::milliseconds;

constexpr uint8_t kAnnounce = 130;

Bytes make_image(size_t size) {
    Bytes image(size);
    uint32_t state = 12345;
    for (uint8_t& byte : image) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return image;
}

Bytes with_version(size_t size, const FirmwareVersion& version) {
    Bytes image = make_image(size);
    const std::string_view marker = kVersionMarker;
    std::copy(marker.begin(), marker.end(), image.begin() + kVersionMarkerOffset);
    std::copy(version.begin(), version.end(),
              image.begin() + kVersionMarkerOffset + static_cast<std::ptrdiff_t>(marker.size()));
    return image;
}

bool sized_request(Host& host, uint8_t request, size_t size) {
    return !host.out(0x40, request, static_cast<uint16_t>(size & 0xFFFF),
                     static_cast<uint16_t>(size >> 16), {})
                .stall;
}

bool check_sum(Host& host, uint64_t sum, size_t size) {
    Bytes block;
    append_le(block, 4, static_cast<uint32_t>(sum));
    append_le(block, 4, static_cast<uint32_t>(sum >> 32));
    append_le(block, 4, static_cast<uint32_t>(size));
    return !host.out(0x40, 7, 0, 0, block).stall;
}

void send_bulk(Host& host, const Bytes& image, size_t piece) {
    for (size_t at = 0; at < image.size(); at += piece) {
        const size_t length = std::min(piece, image.size() - at);
        ASSERT_TRUE(host.camera.bulk_out(1, ByteView(image).subspan(at, length)));
    }
}

void send_pieces(Host& host, const Bytes& image) {
    for (size_t at = 0; at < image.size(); at += 32) {
        Bytes piece(32, 0);
        std::copy_n(image.begin() + static_cast<std::ptrdiff_t>(at),
                    std::min<size_t>(32, image.size() - at), piece.begin());
        ASSERT_FALSE(host.out(0x20, 0x01, 0x0300, 0x0600, piece).stall);
    }
}

uint64_t sum_of(const Bytes& image) {
    return std::accumulate(image.begin(), image.end(), uint64_t{0});
}

Bytes version_reply(Host& host) {
    EXPECT_TRUE(host.isp({0x0B}));
    return host.result(2, 8);
}

/// Lets the camera leave and come back.
void restart(Host& host) {
    host.pass(milliseconds(0));
    host.pass(milliseconds(100));
    EXPECT_FALSE(host.camera.attached());
    host.pass(milliseconds(2000));
    EXPECT_TRUE(host.camera.attached());
}

class DownloadSize : public testing::TestWithParam<size_t> {};

TEST_P(DownloadSize, BulkPathInPiecesOf512FillsFlashExactly) {
    Host host{CameraConfig{}};
    const Bytes image = make_image(GetParam());
    ASSERT_TRUE(sized_request(host, kAnnounce, image.size()));
    send_bulk(host, image, 512);
    ASSERT_TRUE(sized_request(host, 8, image.size()));
    EXPECT_EQ(host.camera.flash(), image);
    restart(host);
}

TEST_P(DownloadSize, BulkPathWithChecksumFillsFlashExactly) {
    Host host{CameraConfig{}};
    const Bytes image = make_image(GetParam());
    ASSERT_TRUE(sized_request(host, kAnnounce, image.size()));
    send_bulk(host, image, 32768);
    ASSERT_TRUE(check_sum(host, sum_of(image), image.size()));
    ASSERT_TRUE(sized_request(host, 3, image.size()));
    EXPECT_EQ(host.camera.flash(), image);
    restart(host);
}

TEST_P(DownloadSize, ExtensionUnitPathPadsTo32) {
    CameraConfig config;
    config.boot_code = CameraConfig::BootCode::kOlder;
    Host host(config);
    Bytes image = make_image(GetParam());
    ASSERT_TRUE(host.aux({1, 0, 3}));
    send_pieces(host, image);
    ASSERT_TRUE(host.aux({1, 1, 3}));
    image.resize((image.size() + 31) / 32 * 32);
    EXPECT_EQ(host.camera.flash(), image);
    EXPECT_TRUE(host.camera.status()["flash"]["written"]);
    restart(host);
}

INSTANTIATE_TEST_SUITE_P(Sizes, DownloadSize,
                         testing::Values(0, 1, 31, 32, 33, 511, 512, 513, 1025, 32767, 32768, 32769,
                                         1 << 20));

TEST(Download, EveryBurnRequestIsAccepted) {
    for (const uint8_t request : {3, 5, 6, 8}) {
        Host host{CameraConfig{}};
        const Bytes image = make_image(100);
        ASSERT_TRUE(sized_request(host, kAnnounce, image.size()));
        send_bulk(host, image, 64);
        EXPECT_TRUE(sized_request(host, request, image.size())) << int{request};
        EXPECT_EQ(host.camera.flash(), image);
    }
}

TEST(Download, WrongByteCountStallsTheBurnAndLeavesFlash) {
    const Bytes image = make_image(1000);
    for (const size_t announced : {size_t{999}, size_t{1001}}) {
        Host host{CameraConfig{}};
        ASSERT_TRUE(sized_request(host, kAnnounce, announced));
        send_bulk(host, image, 512);
        EXPECT_FALSE(sized_request(host, 8, announced));
        EXPECT_FALSE(host.camera.status()["flash"]["written"]);
        host.pass(milliseconds(200));
        EXPECT_TRUE(host.camera.attached());
    }
    Host host{CameraConfig{}};
    ASSERT_TRUE(sized_request(host, kAnnounce, image.size()));
    send_bulk(host, image, 512);
    EXPECT_FALSE(sized_request(host, 8, image.size() + 1)) << "size in the burn differs";
}

TEST(Download, WrongChecksumStallsAndEndsTheDownload) {
    Host host{CameraConfig{}};
    const Bytes image = make_image(1000);
    ASSERT_TRUE(sized_request(host, kAnnounce, image.size()));
    send_bulk(host, image, 512);
    EXPECT_FALSE(check_sum(host, sum_of(image) + 1, image.size()));
    EXPECT_FALSE(sized_request(host, 3, image.size()));
    EXPECT_TRUE(host.camera.flash().empty());
}

TEST(Download, DataAndBurnWithoutABeginningStall) {
    Host host{CameraConfig{}};
    EXPECT_FALSE(host.camera.bulk_out(1, make_image(4)));
    EXPECT_FALSE(sized_request(host, 8, 0));
    EXPECT_FALSE(host.extension(3, 32, {1, 2, 3}));
    EXPECT_FALSE(host.aux({1, 1, 3}));
    EXPECT_FALSE(sized_request(host, kAnnounce, kFlashCapacity + 1));
    EXPECT_FALSE(host.camera.bulk_out(2, make_image(4)));
}

TEST(Download, OlderBootCodeHasNoBulkPath) {
    CameraConfig config;
    config.boot_code = CameraConfig::BootCode::kOlder;
    Host host(config);
    EXPECT_FALSE(sized_request(host, kAnnounce, 10));
    EXPECT_FALSE(host.camera.bulk_out(1, make_image(10)));
    EXPECT_FALSE(sized_request(host, 8, 10));
}

TEST(Download, RunningCameraTakesTheExtensionUnitPath) {
    Host host(running_camera());
    ASSERT_TRUE(host.aux({1, 0, 3}));
    send_pieces(host, make_image(64));
    ASSERT_TRUE(host.aux({1, 1, 3}));
    EXPECT_EQ(host.camera.flash(), make_image(64));
    EXPECT_FALSE(sized_request(host, kAnnounce, 10));
}

TEST(Restart, FollowsTheTimelineToTheMillisecond) {
    CameraConfig config;
    config.departure_ms = 70;
    config.reenumerate_ms = 400;
    Host host(config);
    int calls = 0;
    host.camera.set_listener([&] { ++calls; });
    EXPECT_EQ(host.pass(milliseconds(0)), TimePoint::max());
    ASSERT_TRUE(host.aux({1, 0, 3}));
    EXPECT_EQ(calls, 0);
    ASSERT_TRUE(host.aux({1, 1, 3}));
    EXPECT_EQ(calls, 1) << "a burn wakes the front end";

    const TimePoint burned = host.now;
    EXPECT_EQ(host.camera.advance(host.now), burned + milliseconds(70));
    host.pass(milliseconds(69));
    EXPECT_TRUE(host.camera.attached());
    EXPECT_EQ(host.camera.attachment(), 1U);
    EXPECT_EQ(host.pass(milliseconds(1)), burned + milliseconds(470));
    EXPECT_FALSE(host.camera.attached());
    EXPECT_EQ(calls, 2);
    EXPECT_TRUE(host.in(0x80, 6, 0x0100, 0, 18).stall);
    host.pass(milliseconds(399));
    EXPECT_FALSE(host.camera.attached());
    EXPECT_EQ(host.pass(milliseconds(1)), TimePoint::max());
    EXPECT_TRUE(host.camera.attached());
    EXPECT_EQ(host.camera.attachment(), 2U);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(load_u16(host.camera.device_descriptor(), 10), 0x2066);
}

TEST(Restart, CameraThatNeverComesBackStaysAway) {
    CameraConfig config;
    config.returns = false;
    Host host(config);
    ASSERT_TRUE(host.aux({1, 0, 3}) && host.aux({1, 1, 3}));
    host.pass(milliseconds(0));
    EXPECT_EQ(host.pass(milliseconds(100)), TimePoint::max());
    host.pass(std::chrono::hours(1));
    EXPECT_FALSE(host.camera.attached());
    host.camera.power_cycle();
    EXPECT_TRUE(host.camera.attached());
    EXPECT_EQ(load_u16(host.camera.device_descriptor(), 10), 0x2065);
}

TEST(Restart, PowerCycleAndReplugReturnToTheStartIdentityAndKeepFlash) {
    Host host{CameraConfig{}};
    ASSERT_TRUE(host.aux({1, 0, 3}));
    send_pieces(host, make_image(32));
    ASSERT_TRUE(host.aux({1, 1, 3}));
    restart(host);
    host.camera.power_cycle();
    EXPECT_EQ(host.camera.attachment(), 3U);
    EXPECT_EQ(load_u16(host.camera.device_descriptor(), 10), 0x2065);
    EXPECT_EQ(host.camera.flash(), make_image(32));
    host.camera.unplug();
    EXPECT_FALSE(host.camera.attached());
    EXPECT_FALSE(host.camera.bulk_in(0x81, 8192, host.now).has_value());
    host.camera.unplug();
    host.camera.plug();
    EXPECT_TRUE(host.camera.attached());
    EXPECT_EQ(host.camera.attachment(), 4U);
    host.camera.plug();
    EXPECT_EQ(host.camera.attachment(), 4U);
}

TEST(Version, BootCodeDefaultAndImageVersionsAreReported) {
    Host host{CameraConfig{}};
    EXPECT_EQ(version_reply(host), (Bytes{0, 0, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00}));

    Host plain(running_camera());
    EXPECT_EQ(version_reply(plain), (Bytes{0, 0, 0x00, 0x01, 0x00, 0x45, 0x02, 0x03}));

    ASSERT_TRUE(host.aux({1, 0, 3}));
    send_pieces(host, with_version(128, {9, 8, 7, 6, 5, 4}));
    ASSERT_TRUE(host.aux({1, 1, 3}));
    restart(host);
    EXPECT_EQ(version_reply(host), (Bytes{0, 0, 9, 8, 7, 6, 5, 4}));
}

TEST(Version, MarkerMustBeWholeAndInPlace) {
    const FirmwareVersion standard{0x00, 0x01, 0x00, 0x45, 0x02, 0x03};
    EXPECT_EQ(image_version({}), standard);
    EXPECT_EQ(image_version(make_image(200)), standard);
    Bytes image = with_version(78, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(image_version(image), (FirmwareVersion{1, 2, 3, 4, 5, 6}));
    image.pop_back();
    EXPECT_EQ(image_version(image), standard);
}

}  // namespace
}  // namespace virtcam::model::test
