// The descriptors: a bounds-checked walk as a host makes it, and the identities' shapes.
#include <gtest/gtest.h>

#include "model_fixture.h"
#include "virtcam/model/video_formats.h"

namespace virtcam::model::test {
namespace {

struct Descriptor {
    uint8_t type;
    Bytes bytes;
};

/// Splits a configuration by bLength; fails when a descriptor is short or reaches too far.
std::vector<Descriptor> walk(ByteView configuration) {
    std::vector<Descriptor> list;
    size_t at = 0;
    while (at < configuration.size()) {
        const size_t length = configuration[at];
        if (length < 2 || length > configuration.size() - at) {
            ADD_FAILURE() << "bLength " << length << " at " << at;
            break;
        }
        const auto bytes = configuration.subspan(at, length);
        list.push_back({bytes[1], Bytes(bytes.begin(), bytes.end())});
        at += length;
    }
    return list;
}

CameraConfig boot(CameraConfig::BootCode kind) {
    CameraConfig config;
    config.boot_code = kind;
    return config;
}

/// Length of all descriptors from `first` on that belong to the same class-specific header.
size_t class_block(const std::vector<Descriptor>& list, size_t first) {
    size_t length = 0;
    for (size_t i = first; i < list.size() && list[i].type == 0x24; ++i) {
        length += list[i].bytes.size();
    }
    return length;
}

std::vector<size_t> class_headers(const std::vector<Descriptor>& list) {
    std::vector<size_t> at;
    for (size_t i = 1; i < list.size(); ++i) {
        if (list[i].type == 0x24 && list[i].bytes[2] == 1 && list[i - 1].type == 4) {
            at.push_back(i);
        }
    }
    return at;
}

TEST(Descriptors, TotalLengthsAreConsistentInEveryIdentity) {
    for (const CameraConfig& config : {running_camera(), boot(CameraConfig::BootCode::kNewer),
                                       boot(CameraConfig::BootCode::kOlder)}) {
        Camera camera(config);
        const Bytes bytes = camera.configuration_descriptor();
        ASSERT_GE(bytes.size(), 9U);
        EXPECT_EQ(load_u16(bytes, 2), bytes.size());
        size_t interfaces = 0;
        size_t endpoints_promised = 0;
        size_t endpoints = 0;
        for (const Descriptor& descriptor : walk(bytes)) {
            interfaces += descriptor.type == 4 && descriptor.bytes[3] == 0 ? 1 : 0;
            endpoints_promised += descriptor.type == 4 ? descriptor.bytes[4] : 0;
            endpoints += descriptor.type == 5 ? 1 : 0;
        }
        EXPECT_EQ(interfaces, bytes[4]);
        EXPECT_EQ(endpoints, endpoints_promised);
    }
}

TEST(Descriptors, ClassHeadersStateTheLengthOfTheirBlock) {
    Camera camera(running_camera());
    const auto list = walk(camera.configuration_descriptor());
    const auto headers = class_headers(list);
    ASSERT_EQ(headers.size(), 4U);  // VC, VS, AC, AS general
    EXPECT_EQ(load_u16(list[headers[0]].bytes, 5), class_block(list, headers[0]));
    EXPECT_EQ(load_u16(list[headers[1]].bytes, 4), class_block(list, headers[1]));
    EXPECT_EQ(load_u16(list[headers[2]].bytes, 5), class_block(list, headers[2]));
}

TEST(Descriptors, RunTimeIdentityHasTheCamerasUnitsFormatsAndEndpoints) {
    Camera camera(running_camera());
    const Bytes device = camera.device_descriptor();
    ASSERT_EQ(device.size(), 18U);
    EXPECT_EQ(load_u16(device, 8), 0x114D);
    EXPECT_EQ(load_u16(device, 10), 0x2066);

    std::vector<std::pair<int, int>> frames;
    int format = 0;
    bool extension_unit = false;
    std::map<int, uint16_t> endpoints;
    for (const Descriptor& d : walk(camera.configuration_descriptor())) {
        if (d.type == 5) {
            endpoints[d.bytes[2]] = load_u16(d.bytes, 4);
        }
        if (d.type != 0x24) {
            continue;
        }
        const uint8_t subtype = d.bytes[2];
        if (subtype == 6 && d.bytes.size() > 20) {
            extension_unit = true;
            EXPECT_EQ(d.bytes[3], 6);
            EXPECT_EQ(d.bytes.size(), 24U + d.bytes[21] + d.bytes[22 + d.bytes[21]]);
            EXPECT_EQ(load_le(d.bytes, 22 + d.bytes[21] + 1, 3), 0x601FU);
        }
        if ((subtype == 4 && d.bytes.size() == 27) || subtype == 0x10 ||
            (subtype == 6 && d.bytes.size() == 11)) {
            format = d.bytes[3];
        }
        if ((subtype == 5 || subtype == 7 || subtype == 0x11) && d.bytes.size() >= 30) {
            frames.emplace_back(format, load_u16(d.bytes, 5));
        }
    }
    EXPECT_TRUE(extension_unit);
    const std::vector<std::pair<int, int>> expected{{1, 640}, {2, 864}, {3, 640},  {4, 640},
                                                    {4, 160}, {4, 320}, {4, 1280}, {4, 1920}};
    EXPECT_EQ(frames, expected);
    EXPECT_EQ(endpoints, (std::map<int, uint16_t>{{0x81, 512}, {0x82, 100}}));
}

struct RateBounds {
    uint8_t subtype;
    uint16_t width;
    uint32_t least, most;  // bit/s
};

std::vector<RateBounds> frame_rates(Camera& camera) {
    std::vector<RateBounds> frames;
    for (const Descriptor& d : walk(camera.configuration_descriptor())) {
        const bool frame = d.type == 0x24 && d.bytes.size() >= 30 &&
                           (d.bytes[2] == 5 || d.bytes[2] == 7 || d.bytes[2] == 0x11);
        if (frame) {
            frames.push_back(
                {d.bytes[2], load_u16(d.bytes, 5), load_u32(d.bytes, 9), load_u32(d.bytes, 13)});
        }
    }
    return frames;
}

TEST(Descriptors, BitRatesFitTheBusAndTheFrame) {
    Camera camera(running_camera());
    std::map<uint16_t, uint32_t> multiplexed;
    for (const RateBounds& frame : frame_rates(camera)) {
        EXPECT_GT(frame.least, 0U);
        EXPECT_LE(frame.least, frame.most);
        EXPECT_LT(frame.most, 480000000U) << frame.width;
        if (frame.subtype == 0x11) {
            EXPECT_LT(frame.least, frame.most) << frame.width;
            multiplexed[frame.width] = frame.most;
        }
    }
    EXPECT_LT(multiplexed[160], multiplexed[1920]);
}

TEST(Descriptors, TheHeaviestCombinationKeepsToItsBitRate) {
    Host host(running_camera());
    uint32_t most = 0;
    for (const RateBounds& frame : frame_rates(host.camera)) {
        most = frame.subtype == 0x11 && frame.width == 640 ? frame.most : most;
    }
    ASSERT_TRUE(host.select(0) && host.mmp({0x04, 1}) && host.mmp({0x2D, 1}));
    ASSERT_TRUE(host.aux({0x28, 11}) && host.start());
    size_t bits = 0;
    for (int i = 0; i < 30; ++i) {
        const auto frame = host.next_frame();
        ASSERT_TRUE(frame.has_value());
        bits += frame->data.size() * 8;
    }
    EXPECT_LE(bits, most) << "of one second";
    EXPECT_GT(bits * 3, most) << "a bound, not a number out of the air";
}

TEST(Descriptors, CompressedPicturesAreNotOfOneSize) {
    Camera camera(running_camera());
    for (const Descriptor& d : walk(camera.configuration_descriptor())) {
        if (d.type == 0x24 && d.bytes[2] == 6 && d.bytes.size() == 11) {
            EXPECT_EQ(d.bytes[5], 0) << "bmFlags of MJPEG";
        }
    }
}

TEST(Descriptors, ProcessingUnitEndsWithTheVideoStandardsThatToolsLookFor) {
    Camera camera(running_camera());
    size_t units = 0;
    for (const Descriptor& d : walk(camera.configuration_descriptor())) {
        if (d.type == 0x24 && d.bytes[2] == 5 && d.bytes[3] == 3 && d.bytes.size() < 26) {
            ++units;
            EXPECT_EQ(d.bytes.size(), 10U + d.bytes[7]);
            EXPECT_EQ(load_u16(d.bytes, 8), 0x177F);
            EXPECT_EQ(d.bytes.back(), 0) << "an analogue video standard";
        }
    }
    EXPECT_EQ(units, 1U);
}

TEST(Descriptors, VersionHasTheFrameBasedFormats) {
    Camera camera(running_camera());
    for (const Descriptor& d : walk(camera.configuration_descriptor())) {
        if (d.type == 0x24 && d.bytes[2] == 1 && d.bytes.size() == 13 && d.bytes[12] == 1 &&
            load_u32(d.bytes, 7) == 48'000'000) {
            EXPECT_EQ(load_u16(d.bytes, 3), 0x0110) << "bcdUVC";
            return;
        }
    }
    FAIL() << "no header of the video control interface";
}

TEST(Descriptors, BootCodeHasNoneThatNeedAClass) {
    for (const auto kind : {CameraConfig::BootCode::kNewer, CameraConfig::BootCode::kOlder}) {
        Camera camera(boot(kind));
        for (const Descriptor& d : walk(camera.configuration_descriptor())) {
            EXPECT_NE(d.type, 0x24);
            EXPECT_NE(d.type, 0x25);
        }
    }
}

TEST(Descriptors, BootCodeKindsDifferInTheDownloadInterface) {
    Camera newer(boot(CameraConfig::BootCode::kNewer));
    Camera older(boot(CameraConfig::BootCode::kOlder));
    EXPECT_EQ(load_u16(newer.device_descriptor(), 10), 0x2065);
    EXPECT_EQ(load_u16(older.device_descriptor(), 10), 0x2065);
    EXPECT_EQ(newer.configuration_descriptor()[4], 3);
    EXPECT_EQ(older.configuration_descriptor()[4], 1);
    const auto list = walk(newer.configuration_descriptor());
    EXPECT_EQ(list.back().bytes, (Bytes{7, 5, 0x01, 2, 0x00, 0x02, 0}));
    EXPECT_EQ(list[list.size() - 2].bytes[2], 2);
}

TEST(Descriptors, GetDescriptorAnswersWhatTheAccessorsSay) {
    Host host(running_camera());
    EXPECT_EQ(host.in(0x80, 6, 0x0100, 0, 64).data, host.camera.device_descriptor());
    EXPECT_EQ(host.in(0x80, 6, 0x0200, 0, 4096).data, host.camera.configuration_descriptor());
    EXPECT_EQ(host.in(0x80, 6, 0x0200, 0, 9).data.size(), 9U);
    EXPECT_EQ(host.in(0x80, 6, 0x0300, 0, 255).data, (Bytes{4, 3, 0x09, 0x04}));
    const Bytes product = host.in(0x80, 6, 0x0302, 0x0409, 255).data;
    ASSERT_EQ(product.size(), 2 + 2 * host.camera.string(2).size());
    EXPECT_EQ(product[2], static_cast<uint8_t>(host.camera.string(2)[0]));
    EXPECT_TRUE(host.in(0x80, 6, 0x0309, 0x0409, 255).stall);
    EXPECT_TRUE(host.in(0x80, 6, 0x0700, 0, 9).stall);
    EXPECT_EQ(host.in(0x80, 6, 0x0600, 0, 10).data.size(), 10U);
}

TEST(Descriptors, StandardRequestsKeepConfigurationAndAlternate) {
    Host host(running_camera());
    EXPECT_EQ(host.in(0x80, 8, 0, 0, 1).data, Bytes{0});
    EXPECT_FALSE(host.out(0x00, 9, 1, 0, {}).stall);
    EXPECT_EQ(host.in(0x80, 8, 0, 0, 1).data, Bytes{1});
    EXPECT_TRUE(host.out(0x00, 9, 2, 0, {}).stall);
    EXPECT_FALSE(host.out(0x01, 11, 1, 3, {}).stall);
    EXPECT_EQ(host.in(0x81, 10, 0, 3, 1).data, Bytes{1});
    EXPECT_TRUE(host.out(0x01, 11, 2, 3, {}).stall);
    EXPECT_TRUE(host.out(0x01, 11, 1, 1, {}).stall);
    EXPECT_TRUE(host.out(0x01, 11, 0, 4, {}).stall);
    EXPECT_TRUE(host.in(0x81, 10, 0, 9, 1).stall);
    EXPECT_FALSE(host.out(0x00, 9, 1, 0, {}).stall);
    EXPECT_EQ(host.in(0x81, 10, 0, 3, 1).data, Bytes{0}) << "SET_CONFIGURATION resets it";
    EXPECT_EQ(host.in(0x80, 0, 0, 0, 2).data, (Bytes{0, 0}));
    EXPECT_FALSE(host.out(0x02, 1, 0, 0x82, {}).stall);
    EXPECT_TRUE(host.out(0x02, 1, 0, 0x83, {}).stall);
    EXPECT_TRUE(host.out(0x00, 77, 0, 0, {}).stall);
}

}  // namespace
}  // namespace virtcam::model::test
