// The parameter sets have the camera's shape whatever version of the encoder is installed.
#include <gtest/gtest.h>
#include <wels/codec_api.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tests/support/broken_encoder.h"
#include "tests/virtcam/model_fixture.h"
#include "tests/virtcam/picture_decoder.h"
#include "virtcam/model/h264_encoder.h"
#include "virtcam/model/h264_parameter_sets.h"

namespace virtcam::model::test {
namespace {

constexpr uint8_t kPpsHeader = 0x68;

Bytes from_hex(std::string_view text) {
    Bytes bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        bytes.push_back(
            static_cast<uint8_t>(std::stoul(std::string(text.substr(i, 2)), nullptr, 16)));
    }
    return bytes;
}

std::string to_hex(ByteView bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += {kDigits[byte >> 4], kDigits[byte & 0xF]};
    }
    return text;
}

std::string avoiding(std::string_view sps, uint8_t unwanted = kPpsHeader) {
    return to_hex(sps_without_byte(from_hex(sps), unwanted));
}

// Four pictures of 64 x 48, as OpenH264 2.6.0 coded them: a bright bar moves to the right. Its SPS
// has picture order type 2 and one reference frame, which together are the byte 0x68.
constexpr std::string_view kStream26[] = {
    "000000016742c00a8c6847201e1108d40000000168ce3c800000000165b8000413931400041ba4c5000111f9393aeb"
    "ae"
    "baebaebc",
    "0000000161e0007e413f898a000205f1400040be28000817c5000102f8a000205f1400040be28000817c5000102fe0"
    "41"
    "fff9ef3f9fcfe7933f9fcfe0",
    "0000000161e000be43f8107ffff3f9fcfe7f3c99fcfe7f",
    "0000000161e000fe41fa8107ffd1fcfe7e8f267f3f80"};

TEST(ParameterSets, StreamOfANewerEncoderDecodesAsItDidBefore) {
    H264Decoder before, after;
    for (const std::string_view unit : kStream26) {
        const Bytes coded = from_hex(unit);
        const Bytes normalised = normalise_access_unit(coded);
        const auto expected = before.decode(coded), picture = after.decode(normalised);
        ASSERT_TRUE(expected.has_value() && picture.has_value());
        EXPECT_EQ(picture->y, expected->y);
        EXPECT_EQ(picture->u, expected->u);
        if (is_key_frame(normalised)) {
            const auto pps = std::find(normalised.begin(), normalised.end(), kPpsHeader);
            EXPECT_EQ(to_hex({normalised.begin(), pps}),
                      "000000016742c00a8c6c47201e1108dc00000001");
            EXPECT_EQ(to_hex({pps, pps + 8}), "68ce3c8000000001") << "8-byte PPS";
        }
    }
}

TEST(ParameterSets, EachSizeOfTheCameraHasAnSpsWithoutTheByte) {
    // Of OpenH264 2.6.0; expected: two reference frames, in the SPS and at the end of its VUI.
    EXPECT_EQ(avoiding("6742c01e8c680a03da01e1108d40"), "6742c01e8c6c0a03da01e1108dc0");
    EXPECT_EQ(avoiding("6742c0168c680a03d201e1108d40"), "6742c0168c6c0a03d201e1108dc0");
    EXPECT_EQ(avoiding("6742c0208c682847e58078442350"), "6742c0208c6c2847e58078442370");
    EXPECT_EQ(avoiding("6742c0148c68141f201e1108d4"), "6742c0148c6c141f201e1108dc");
    EXPECT_EQ(avoiding("6742c01f8c6805005ba01e1108d4"), "6742c01f8c6c05005ba01e1108dc");
    EXPECT_EQ(avoiding("6742c0288c680780227e5807844235"), "6742c0288c6c0780227e5807844237");
    EXPECT_EQ(avoiding("6742c0208c680a02ff9601e1108d40"), "6742c0208c6c0a02ff9601e1108dc0");
}

TEST(ParameterSets, MoreReferenceFramesMayNeedAHigherLevel) {
    EXPECT_EQ(avoiding("6742c00ae35068b880"), "6742c00be3481a2e20");
}

TEST(ParameterSets, SpsWithoutTheByteStaysAsItIs) {
    for (const std::string_view sps : {"6742c01e8c8d40501ed00f08846a", "670102"}) {
        EXPECT_EQ(avoiding(sps), sps);
    }
}

TEST(ParameterSets, EscapesAreReadAndWritten) {
    // One macroblock and a crop whose number begins with many zeros.
    EXPECT_EQ(avoiding("6742c00a8c69f000000301000003001d", 0x69),
              "6742c00a8c6df000000301000003001d");
}

TEST(ParameterSets, WithoutVuiWhereNothingElseHelps) {
    // No decoder keeps two frames of this size; the unwanted byte is at the VUI's end.
    EXPECT_EQ(avoiding("6742c0338c68009600321a01e1108d40", 0xE1), "6742c0338c680096003219");
    EXPECT_THROW(avoiding("6742c0338c68009600321a01e1108d40", 0x8C), std::runtime_error);
}

TEST(ParameterSets, BrokenOnesAreRefused) {
    const Bytes whole = from_hex("6742c01e8c680a03da01e1108d40");
    EXPECT_THROW(sps_without_byte({}, kPpsHeader), std::runtime_error);
    for (size_t length = 3; length < 10; ++length) {
        EXPECT_THROW(sps_without_byte(ByteView(whole).first(length), 0xC0), std::runtime_error)
            << length;
    }
    EXPECT_THROW(avoiding("6764001e8c680a03da01e1108d40"), std::runtime_error) << "High profile";
    EXPECT_THROW(avoiding("6742c01e0000000068000000000000"), std::runtime_error) << "no number";
}

std::string encoder_name() {
    const OpenH264Version version = WelsGetCodecVersion();
    return "H.264 encoder (OpenH264 " + std::to_string(version.uMajor) + "." +
           std::to_string(version.uMinor) + "." + std::to_string(version.uRevision) + ")";
}

TEST(Encoder, ThatCannotBeUsedIsToldOnceByName) {
    Host host(running_camera());
    std::vector<std::string> told;
    host.camera.set_failure_listener([&](const std::string& why) { told.push_back(why); });
    ::test::encoder_is_broken = true;
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(host.select(7) && host.start());
        EXPECT_FALSE(host.next_frame().has_value());
        ASSERT_TRUE(host.stop());
    }
    ::test::encoder_is_broken = false;
    EXPECT_EQ(told, std::vector<std::string>{encoder_name() + ": cannot be created"});
    EXPECT_EQ(host.camera.status()["failure"], told.front());
    ASSERT_TRUE(host.start());
    EXPECT_TRUE(host.next_frame().has_value()) << "usable again";
}

/// What is told of a picture is told before advance() returns from making it.
TEST(Encoder, ThatIsSlowHoldsNoDepartureUp) {
    Host host(running_camera());
    bool gone = false;
    host.camera.set_failure_listener([&](const std::string&) {
        ASSERT_TRUE(host.aux({1, 0, 3}) && host.aux({1, 1, 3})) << "burns nothing, and restarts";
        const TimePoint departs = host.camera.advance_presence(host.now);
        ASSERT_EQ(departs, host.now + std::chrono::milliseconds(CameraConfig{}.departure_ms));
        host.camera.advance_presence(departs);
        gone = !host.camera.attached();
    });
    ::test::encoder_is_broken = true;
    ASSERT_TRUE(host.select(7) && host.start());
    EXPECT_FALSE(host.next_frame().has_value());
    ::test::encoder_is_broken = false;
    EXPECT_TRUE(gone);
}

TEST(ParameterSets, ErrorNamesTheEncoder) {
    try {
        normalise_access_unit(from_hex("000000016764001e6800000168ce3c8000000165b8"));
        ADD_FAILURE() << "accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), encoder_name() + ": SPS: not of the Baseline profile");
    }
}

}  // namespace
}  // namespace virtcam::model::test
