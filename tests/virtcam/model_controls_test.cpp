// Control transfers of the running camera: units, extension unit, negotiation, microphone, face
// detection, and their words.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "model_fixture.h"
#include "virtcam/model/describe.h"
#include "virtcam/model/uvc_controls.h"

namespace virtcam::model::test {
namespace {

constexpr uint8_t kGetRequests[] = {0x81, 0x82, 0x83, 0x84, 0x87};

uint16_t index_of(const ControlField& field) {
    return static_cast<uint16_t>(field.entity << 8);
}

uint16_t value_of(const ControlField& field) {
    return static_cast<uint16_t>(field.selector << 8);
}

int32_t read_field(Host& host, const ControlField& field, uint8_t request) {
    const uint16_t length = control_length(field.entity, field.selector);
    const ControlReply reply = host.in(0xA1, request, value_of(field), index_of(field), length);
    EXPECT_FALSE(reply.stall);
    const uint32_t raw = load_le(reply.data, field.offset, field.width);
    return field.is_signed && field.width == 2 ? static_cast<int16_t>(raw)
                                               : static_cast<int32_t>(raw);
}

bool write_field(Host& host, const ControlField& field, int32_t value) {
    Bytes block(control_length(field.entity, field.selector), 0);
    store_le(block, field.offset, field.width, static_cast<uint32_t>(value));
    return !host.out(0x21, 0x01, value_of(field), index_of(field), block).stall;
}

class UnitControl : public testing::TestWithParam<ControlField> {};

TEST_P(UnitControl, AnswersItsRangeAndKeepsWhatIsSet) {
    Host host(running_camera());
    const ControlField& field = GetParam();
    host.set_control(3, 11, 1, 0);  // a white balance by hand is one that hosts can set
    EXPECT_EQ(read_field(host, field, 0x82), field.min);
    EXPECT_EQ(read_field(host, field, 0x83), field.max);
    EXPECT_EQ(read_field(host, field, 0x84), field.resolution);
    EXPECT_EQ(read_field(host, field, 0x87), field.initial);
    if (field.id != Control::kWhiteBalanceAuto) {
        EXPECT_EQ(read_field(host, field, 0x81), field.initial);
    }
    for (const int32_t value : {field.min, field.max}) {
        ASSERT_TRUE(write_field(host, field, value));
        EXPECT_EQ(read_field(host, field, 0x81), value);
    }
    const uint16_t length = control_length(field.entity, field.selector);
    EXPECT_EQ(host.in(0xA1, 0x85, value_of(field), index_of(field), 2).data,
              (Bytes{static_cast<uint8_t>(length), 0}));
    EXPECT_EQ(host.in(0xA1, 0x86, value_of(field), index_of(field), 1).data, Bytes{3});
}

TEST_P(UnitControl, AnswersWhatItHasHoweverMuchIsAsked) {
    Host host(running_camera());
    const ControlField& field = GetParam();
    const uint16_t length = control_length(field.entity, field.selector);
    for (const uint8_t request : kGetRequests) {
        const Bytes whole = host.in(0xA1, request, value_of(field), index_of(field), length).data;
        EXPECT_EQ(whole.size(), length);
        EXPECT_EQ(host.in(0xA1, request, value_of(field), index_of(field), 64).data, whole);
        EXPECT_EQ(host.in(0xA1, request, value_of(field), index_of(field), 1).data,
                  Bytes(whole.begin(), whole.begin() + 1));
    }
}

TEST_P(UnitControl, StallsWhenSetWithAWrongLength) {
    Host host(running_camera());
    const ControlField& field = GetParam();
    const uint16_t length = control_length(field.entity, field.selector);
    EXPECT_TRUE(
        host.out(0x21, 0x01, value_of(field), index_of(field), Bytes(length + 1U, 0)).stall);
    EXPECT_TRUE(host.out(0x21, 0x01, value_of(field), index_of(field), {}).stall);
    EXPECT_EQ(read_field(host, field, 0x81), field.initial);
}

INSTANTIATE_TEST_SUITE_P(All, UnitControl,
                         testing::ValuesIn(control_fields().begin(), control_fields().end()),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

TEST(UnitControls, NumbersOutOfRangeAreClamped) {
    Host host(running_camera());
    Bytes block;
    append_le(block, 4, 999999);
    append_le(block, 4, static_cast<uint32_t>(-999999));
    ASSERT_FALSE(host.out(0x20, 0x01, 0x0D00, 0x0100, block).stall);
    const Bytes back = host.in(0xA0, 0x81, 0x0D00, 0x0100, 8).data;
    EXPECT_EQ(static_cast<int32_t>(load_u32(back, 0)), 36000);
    EXPECT_EQ(static_cast<int32_t>(load_u32(back, 4)), -36000);
    ASSERT_TRUE(host.set_control(1, 0x0B, 2, 11));
    EXPECT_EQ(host.in(0xA1, 0x81, 0x0B00, 0x0100, 2).data, (Bytes{10, 0}));
}

TEST(UnitControls, WhiteBalanceIsTheCamerasWhileAutomaticIsOn) {
    Host host(running_camera());
    const auto info = [&] { return host.in(0xA1, 0x86, 0x0A00, 0x0300, 1).data; };
    const auto balance = [&] { return host.in(0xA1, 0x81, 0x0A00, 0x0300, 2).data; };
    ASSERT_TRUE(host.set_control(3, 11, 1, 1));
    EXPECT_EQ(info(), Bytes{7}) << "get, set, disabled by automatic mode";
    EXPECT_FALSE(host.set_control(3, 10, 2, 6500));
    EXPECT_EQ(host.in(0xA1, 0x81, 0x0200, 0x0000, 1).data, Bytes{2}) << "wrong state";
    EXPECT_EQ(balance(), (Bytes{0xF8, 0x11})) << "4600 as before";
    ASSERT_TRUE(host.set_control(3, 11, 1, 0));
    EXPECT_EQ(info(), Bytes{3});
    EXPECT_TRUE(host.set_control(3, 10, 2, 6500));
    EXPECT_EQ(balance(), (Bytes{0x64, 0x19}));
    ASSERT_TRUE(host.set_control(3, 11, 1, 1));
    EXPECT_FALSE(host.set_control(3, 10, 2, 3000));
}

TEST(UnitControls, UnknownSelectorEntityAndRequestStall) {
    Host host(running_camera());
    EXPECT_TRUE(host.in(0xA1, 0x81, 0x0200, 0x0100, 1).stall);
    EXPECT_TRUE(host.in(0xA1, 0x81, 0x0C00, 0x0300, 2).stall);
    EXPECT_TRUE(host.in(0xA1, 0x81, 0x0200, 0x0200, 2).stall);
    EXPECT_TRUE(host.in(0xA1, 0x81, 0x0200, 0x0301, 2).stall);
    EXPECT_TRUE(host.in(0xA1, 0x88, 0x0200, 0x0300, 2).stall);
    EXPECT_TRUE(host.out(0x21, 0x02, 0x0200, 0x0300, Bytes(2)).stall);
    EXPECT_TRUE(host.in(0xC1, 0x81, 0x0200, 0x0300, 2).stall);
    EXPECT_TRUE(host.in(0xE1, 0x81, 0x0200, 0x0300, 2).stall);
    EXPECT_TRUE(host.in(0x21, 0x81, 0x0200, 0x0300, 2).stall) << "direction against request";
}

uint8_t error_code(Host& host) {
    const ControlReply reply = host.in(0xA1, 0x81, 0x0200, 0x0000, 1);
    EXPECT_FALSE(reply.stall);
    return reply.data.empty() ? 0xFF : reply.data[0];
}

TEST(ErrorCode, TellsWhyTheLastVideoRequestStalled) {
    Host host(running_camera());
    EXPECT_EQ(error_code(host), 0) << "no error";
    EXPECT_TRUE(host.in(0xA1, 0x81, 0x0200, 0x0900, 2).stall);
    EXPECT_EQ(error_code(host), 5) << "invalid unit";
    EXPECT_EQ(error_code(host), 0) << "reading it was a success";
    EXPECT_TRUE(host.in(0xA1, 0x81, 0x0C00, 0x0300, 2).stall);
    EXPECT_EQ(error_code(host), 6) << "invalid control";
    EXPECT_TRUE(host.in(0xA1, 0x81, 0x0100, 0x0400, 2).stall);
    EXPECT_EQ(error_code(host), 6) << "a terminal without controls";
    EXPECT_TRUE(host.in(0xA1, 0x88, 0x0200, 0x0300, 2).stall);
    EXPECT_EQ(error_code(host), 7) << "invalid request";
    EXPECT_TRUE(host.out(0x21, 0x01, 0x0200, 0x0300, Bytes(1)).stall);
    EXPECT_EQ(error_code(host), 7) << "wrong length";
    EXPECT_FALSE(host.mmp({0x01, 9, 0}));
    EXPECT_EQ(error_code(host), 4) << "out of range";
    EXPECT_TRUE(host.out(0x21, 0x01, 0x0200, 0x0001, Bytes(26)).stall);
    EXPECT_EQ(error_code(host), 2) << "wrong state: a commit before the probe";
    EXPECT_FALSE(host.isp({0x77}));
    EXPECT_TRUE(host.isp({0x04}));
    EXPECT_EQ(error_code(host), 0) << "the last request went well";
    EXPECT_TRUE(host.in(0xA1, 0x81, 0x0300, 0x0503, 2).stall);
    EXPECT_EQ(error_code(host), 0) << "sound is another function";
}

TEST(ErrorCode, OfTheStreamIsReadOnlyAndSaysNone) {
    Host host(running_camera());
    EXPECT_EQ(host.in(0xA1, 0x81, 0x0600, 0x0001, 1).data, Bytes{0});
    EXPECT_EQ(host.in(0xA1, 0x86, 0x0600, 0x0001, 1).data, Bytes{1});
    EXPECT_EQ(host.in(0xA1, 0x86, 0x0200, 0x0000, 1).data, Bytes{1});
    EXPECT_TRUE(host.out(0x21, 0x01, 0x0600, 0x0001, Bytes(1)).stall);
    EXPECT_TRUE(host.out(0x21, 0x01, 0x0200, 0x0000, Bytes(1)).stall);
    EXPECT_TRUE(host.in(0xA1, 0x82, 0x0600, 0x0001, 1).stall);
    Host boot_code{CameraConfig{}};
    EXPECT_TRUE(boot_code.in(0xA1, 0x81, 0x0200, 0x0000, 1).stall);
}

TEST(ExtensionUnit, DescribesItsControls) {
    Host host(running_camera());
    const std::map<int, int> lengths{{1, 8}, {2, 8}, {3, 32}, {4, 8}, {5, 8}, {14, 16}, {15, 16}};
    for (int selector = 0; selector < 20; ++selector) {
        const auto value = static_cast<uint16_t>(selector << 8);
        const auto found = lengths.find(selector);
        const ControlReply reply = host.in(0xA1, 0x85, value, 0x0600, 2);
        ASSERT_EQ(reply.stall, found == lengths.end()) << selector;
        if (found == lengths.end()) {
            continue;
        }
        EXPECT_EQ(load_u16(reply.data, 0), found->second);
        const bool result = selector == 2 || selector == 5 || selector == 15;
        EXPECT_EQ(host.in(0xA1, 0x86, value, 0x0600, 1).data, Bytes{uint8_t(result ? 1 : 2)});
        const auto length = static_cast<uint16_t>(found->second);
        EXPECT_EQ(host.in(0xA1, 0x81, value, 0x0600, length).stall, !result);
        for (const uint8_t request : {0x82, 0x83, 0x84, 0x87}) {
            const ControlReply bound = host.in(0xA1, request, value, 0x0600, length);
            EXPECT_EQ(bound.stall, !result) << selector << " request " << int{request};
            EXPECT_EQ(bound.data.size(), result ? length : 0U);
            EXPECT_EQ(host.in(0xA1, request, value, 0x0600, 64).data, bound.data);
        }
        EXPECT_TRUE(host.out(0x21, 0x01, value, 0x0600, Bytes(length + 1U)).stall);
    }
}

TEST(ExtensionUnit, RepliesOfEachGroupStayUntilTheNextReplyOfThatGroup) {
    Host host(running_camera());
    EXPECT_EQ(host.result(2, 8), Bytes(8, 0));
    EXPECT_EQ(host.result(5, 8), Bytes(8, 0));
    EXPECT_EQ(host.result(15, 16), Bytes(16, 0));

    ASSERT_TRUE(host.isp({0x0A, 0x03, 0x34, 0x12, 0x78, 0x56}));
    ASSERT_TRUE(host.isp({0x0A, 0x02, 0x34, 0x12}));
    EXPECT_EQ(host.result(2, 8), (Bytes{0, 0, 0x78, 0x56, 0, 0, 0, 0}));
    ASSERT_TRUE(host.aux({0xFF, 0x00, 0x14}));
    ASSERT_TRUE(host.aux({0xFF, 0x01, 0x30, 0x21, 0x5A}));
    ASSERT_TRUE(host.aux({0xFF, 0x02, 0x30, 0x21}));
    EXPECT_EQ(host.result(5, 8), (Bytes{0, 0, 0x5A, 0, 0, 0, 0, 0}));
    ASSERT_TRUE(host.mmp({0x02, 0x02, 0x30, 0x00, 0x00, 0x80}));
    ASSERT_TRUE(host.mmp({0x02, 0x01}));
    const Bytes option = host.result(15, 16);
    EXPECT_EQ(load_u32(option, 1), 0x80000030U);
    EXPECT_EQ(host.result(15, 16), option) << "reading does not consume";
    EXPECT_EQ(host.result(2, 8)[2], 0x78);
    ASSERT_TRUE(host.mmp({0x12}));
    EXPECT_EQ(host.result(15, 16)[0], 0);
}

// Every command of a group is taken and shows in the status.

TEST(ExtensionUnit, IspCommandsShowInTheStatus) {
    CameraConfig config = running_camera();
    config.lux = 0x0205;
    Host host(config);
    EXPECT_TRUE(host.isp({0x0D, 0x01}));
    EXPECT_TRUE(host.isp({0x02, 24, 0}));
    EXPECT_TRUE(host.isp({0x08, 0xFF, 0x20, 0x03}));
    EXPECT_TRUE(host.isp({0x0E, 7}));
    EXPECT_TRUE(host.isp({0xFF, 0x0B, 1}));
    EXPECT_TRUE(host.isp({0xFF, 0x0C, 0x12, 0x34}));
    EXPECT_TRUE(host.isp({0xFF, 0x0D, 2}));
    EXPECT_TRUE(host.isp({0x12}));
    EXPECT_EQ(load_u16(host.result(2, 8), 2), 0x0205);

    const auto settings = host.camera.status()["settings"];
    EXPECT_EQ(settings["second_rate"], (nlohmann::json{{"kbps", 800}, {"fps", 24}}));
    EXPECT_EQ(settings["main_rate"], (nlohmann::json{{"kbps", 2000}, {"fps", 30}}));
    EXPECT_EQ(settings["wide_dynamic_range"], 7);
    EXPECT_EQ(settings["image_effect"], 1);
    EXPECT_EQ(settings["three_a"], 0x1234);
    EXPECT_EQ(settings["colour_effect"], 2);
}

TEST(ExtensionUnit, AuxCommandsShowInTheStatus) {
    Host host(running_camera());
    EXPECT_TRUE(host.aux({0x0E, 0, 1}));
    EXPECT_TRUE(host.aux({0x28, 11}));

    const auto status = host.camera.status();
    EXPECT_EQ(status["light"], true);
    EXPECT_EQ(status["settings"]["local_size"], 11);
}

TEST(ExtensionUnit, MmpCommandsShowInTheStatus) {
    CameraConfig config = running_camera();
    config.self_test_result = 3;
    Host host(config);
    EXPECT_TRUE(host.mmp({0x01, 7, 0}));
    EXPECT_TRUE(host.mmp({0x01, 3, 5}));
    EXPECT_TRUE(host.mmp({0x01, 3, 9, 100, 0, 50, 0}));
    EXPECT_TRUE(host.mmp({0x13, 9, 10, 0, 20, 0}));
    EXPECT_TRUE(host.mmp({0x04, 2}));
    EXPECT_TRUE(host.mmp({0x07, 0}));
    EXPECT_TRUE(host.mmp({0x07, 2}));
    EXPECT_TRUE(host.mmp({0x12}));
    EXPECT_EQ(host.result(15, 16)[0], 3);
    EXPECT_TRUE(host.mmp({0x20, 9}));
    EXPECT_TRUE(host.mmp({0x2D, 1}));

    const auto settings = host.camera.status()["settings"];
    EXPECT_EQ(settings["combination"], 7) << "modes 5 and 9 leave it alone";
    EXPECT_EQ(settings["face_tracking"], true);
    EXPECT_EQ(settings["crop"], (nlohmann::json{{"x", 100}, {"y", 50}}));
    EXPECT_EQ(settings["gray_crop"], (nlohmann::json{{"x", 10}, {"y", 20}}));
    EXPECT_EQ(settings["nv12_mode"], 2);
    EXPECT_EQ(settings["nv12_wide"], true);
    EXPECT_EQ(settings["preview_mode"], 9);
    EXPECT_EQ(settings["flash_unlocked"], true);
    EXPECT_EQ(settings["self_tests"], 1);
}

TEST(ExtensionUnit, PowerLossClearsWhatCommandsSet) {
    Host host(running_camera());
    EXPECT_TRUE(host.mmp({0x01, 7, 0}));
    EXPECT_TRUE(host.isp({0x0E, 7}));
    EXPECT_TRUE(host.set_control(3, 5, 1, 2));
    EXPECT_EQ(host.camera.status()["anti_flicker"], 2);
    host.camera.power_cycle();
    const auto fresh = Host(running_camera()).camera.status();
    EXPECT_EQ(host.camera.status()["settings"], fresh["settings"]);
    EXPECT_EQ(host.camera.status()["settings"]["combination"], 8);
    EXPECT_EQ(host.camera.status()["anti_flicker"], fresh["anti_flicker"]);
}

TEST(ExtensionUnit, UnknownCommandsAndValuesStallAndChangeNothing) {
    Host host(running_camera());
    const auto before = host.camera.status()["settings"];
    EXPECT_FALSE(host.isp({0x77}));
    EXPECT_FALSE(host.isp({0x08, 0x00, 1, 1}));
    EXPECT_FALSE(host.isp({0x0A, 0x04}));
    EXPECT_FALSE(host.isp({0x0D, 2}));
    EXPECT_FALSE(host.isp({0xFF, 0x0A}));
    EXPECT_FALSE(host.aux({0x77}));
    EXPECT_FALSE(host.aux({0x28, 4}));
    EXPECT_FALSE(host.aux({0xFF, 0x03}));
    EXPECT_FALSE(host.mmp({0x77}));
    EXPECT_FALSE(host.mmp({0x01, 9, 0}));
    EXPECT_FALSE(host.mmp({0x01, 1, 1}));
    EXPECT_FALSE(host.mmp({0x02, 3}));
    EXPECT_FALSE(host.mmp({0x13, 5}));
    EXPECT_FALSE(host.mmp({0x07, 1}));
    EXPECT_FALSE(host.extension(2, 8, {}));
    EXPECT_FALSE(host.extension(6, 8, {}));
    EXPECT_EQ(host.camera.status()["settings"], before);
}

TEST(ExtensionUnit, BootCodeKnowsNoCameraCommands) {
    Host host{CameraConfig{}};
    EXPECT_TRUE(host.isp({0x0B}));
    EXPECT_FALSE(host.isp({0x04}));
    EXPECT_FALSE(host.mmp({0x02, 0x01}));
    EXPECT_TRUE(host.mmp({0x07, 0x00}));
    EXPECT_FALSE(host.aux({0x0E, 0, 1}));
    EXPECT_TRUE(host.in(0xA1, 0x81, 0x0200, 0x0300, 2).stall);
    EXPECT_TRUE(host.in(0xC0, 1, 0, 0, 81).stall);
}

TEST(Negotiation, ClampsToTheNearestAndCompletesTheBlock) {
    Host host(running_camera());
    const Bytes exact = host.probe(4, 5).data;
    ASSERT_EQ(exact.size(), 26U);
    EXPECT_EQ(exact[2], 4);
    EXPECT_EQ(exact[3], 5);
    EXPECT_EQ(load_u32(exact, 4), 333333U);
    EXPECT_EQ(load_u32(exact, 18), 2U << 20);
    EXPECT_EQ(load_u32(exact, 22), 8192U);
    EXPECT_EQ(host.probe(9, 200).data[2], 4);
    EXPECT_EQ(host.probe(9, 200).data[3], 5);
    EXPECT_EQ(host.probe(0, 0).data[2], 1);
    EXPECT_EQ(load_u32(host.probe(1, 1, 900000).data, 4), 1000000U);
    EXPECT_EQ(load_u32(host.probe(3, 1, 1).data, 4), 333333U);
    EXPECT_EQ(load_u32(host.probe(1, 1).data, 18), 614400U);
}

TEST(Negotiation, CommitNeedsAProbeThatProducedIt) {
    Host host(running_camera());
    Bytes block(26, 0);
    block[2] = 4;
    block[3] = 1;
    store_le(block, 4, 4, 333333);
    const auto commit = [&] { return !host.out(0x21, 0x01, 0x0200, 0x0001, block).stall; };
    EXPECT_FALSE(commit());
    host.probe(4, 1);
    EXPECT_TRUE(commit());
    EXPECT_TRUE(commit());
    block[3] = 2;
    EXPECT_FALSE(commit());
    host.probe(4, 2, 1);
    store_le(block, 4, 4, 1);
    EXPECT_FALSE(commit()) << "the interval was clamped";
    block.push_back(0);
    EXPECT_FALSE(commit());
}

TEST(Negotiation, AnswersTheRequestsOfBothHosts) {
    Host host(running_camera());
    host.probe(4, 3);
    for (const uint8_t request : {0x81, 0x82, 0x83, 0x87}) {
        EXPECT_EQ(host.in(0xA1, request, 0x0100, 0x0001, 26).data.size(), 26U);
    }
    EXPECT_EQ(host.in(0xA1, 0x85, 0x0100, 0x0001, 2).data, (Bytes{34, 0}));
    EXPECT_EQ(host.in(0xA1, 0x86, 0x0100, 0x0001, 1).data, Bytes{3});
    EXPECT_EQ(host.in(0xA1, 0x81, 0x0200, 0x0001, 26).data.size(), 26U);
    EXPECT_TRUE(host.in(0xA1, 0x82, 0x0200, 0x0001, 26).stall);
    EXPECT_TRUE(host.in(0xA1, 0x84, 0x0100, 0x0001, 26).stall);
    EXPECT_EQ(host.in(0xA1, 0x81, 0x0100, 0x0001, 48).data.size(), 34U) << "a short answer";
    EXPECT_TRUE(host.in(0xA1, 0x81, 0x0300, 0x0001, 26).stall);
}

TEST(Negotiation, TakesTheBlocksOfEitherVersion) {
    Host host(running_camera());
    Bytes block(34, 0);
    block[2] = 4;
    block[3] = 1;
    ASSERT_FALSE(host.out(0x21, 0x01, 0x0100, 0x0001, block).stall);
    block = host.in(0xA1, 0x81, 0x0100, 0x0001, 34).data;
    ASSERT_EQ(block.size(), 34U);
    EXPECT_EQ(load_u32(block, 26), 48'000'000U) << "dwClockFrequency";
    EXPECT_EQ(block[30], 3) << "frame ID and end of frame tell frames apart";
    EXPECT_FALSE(host.out(0x21, 0x01, 0x0200, 0x0001, block).stall);
    block.resize(26);
    EXPECT_FALSE(host.out(0x21, 0x01, 0x0200, 0x0001, block).stall);
    block.resize(30);
    EXPECT_TRUE(host.out(0x21, 0x01, 0x0100, 0x0001, block).stall);
    EXPECT_EQ(host.in(0xA1, 0x81, 0x0200, 0x0000, 1).data, Bytes{7}) << "a wrong length";
}

TEST(Halt, LastsUntilTheHostClearsIt) {
    Host host(running_camera());
    const auto status = [&] { return host.in(0x82, 0, 0, 0x81, 2).data; };
    EXPECT_EQ(status(), (Bytes{0, 0}));
    host.camera.halt(0x81);
    EXPECT_EQ(status(), (Bytes{1, 0}));
    EXPECT_EQ(host.camera.status()["halted"], nlohmann::json::array({0x81}));
    EXPECT_FALSE(host.out(0x02, 1, 0, 0x81, {}).stall) << "CLEAR_FEATURE";
    EXPECT_EQ(status(), (Bytes{0, 0}));
    EXPECT_FALSE(host.out(0x02, 3, 0, 0x81, {}).stall) << "SET_FEATURE";
    EXPECT_TRUE(host.camera.halted(0x81));
    EXPECT_FALSE(host.out(0x01, 11, 0, 0, {}).stall);
    EXPECT_TRUE(host.camera.halted(0x81)) << "SET_INTERFACE of another interface";
    EXPECT_TRUE(host.stop()) << "SET_INTERFACE";
    EXPECT_FALSE(host.camera.halted(0x81));
    for (const auto& clear :
         {+[](Host& h) { h.camera.bus_reset(); }, +[](Host& h) { h.out(0x00, 9, 1, 0, {}); }}) {
        host.camera.halt(0x81);
        clear(host);
        EXPECT_EQ(status(), (Bytes{0, 0}));
    }
    EXPECT_TRUE(host.out(0x02, 3, 0, 0x82, {}).stall) << "no handshake to tell it with";
    EXPECT_TRUE(host.out(0x02, 3, 0, 0x85, {}).stall);
    EXPECT_TRUE(host.in(0x82, 0, 0, 0x85, 2).stall);
    EXPECT_EQ(host.in(0x80, 0, 0, 0, 2).data, (Bytes{0, 0}));
    EXPECT_TRUE(host.in(0x81, 0, 0, 9, 2).stall) << "no such interface";
}

/// Largest sample of one second of sound, the click left out.
int tone_peak(Host& host) {
    host.out(0x01, 11, 1, 3, {});
    int peak = 0;
    for (int ms = 0; ms < 1000; ++ms) {
        const Bytes packet = host.camera.iso_in(0x82, 100);
        if (ms < 4) {
            continue;
        }
        for (size_t at = 0; at + 1 < packet.size(); at += 2) {
            peak = std::max(peak, std::abs(static_cast<int16_t>(load_u16(packet, at))));
        }
    }
    return peak;
}

TEST(Microphone, LevelFollowsTheVolume) {
    Host host(running_camera());
    const auto set_volume = [&](int16_t volume) {
        Bytes block;
        append_le(block, 2, static_cast<uint16_t>(volume));
        return !host.out(0x21, 0x01, 0x0200, 0x0503, block).stall;
    };
    EXPECT_EQ(host.in(0xA1, 0x82, 0x0200, 0x0503, 2).data, (Bytes{0x00, 0xF0}));
    EXPECT_EQ(host.in(0xA1, 0x83, 0x0200, 0x0502, 2).data, (Bytes{0x00, 0x00}));
    EXPECT_EQ(host.in(0xA1, 0x81, 0x0200, 0x0503, 16).data, (Bytes{0x00, 0xFC})) << "-4 dB";
    EXPECT_EQ(host.in(0xA1, 0x81, 0x0100, 0x0503, 16).data, Bytes{0});
    EXPECT_EQ(host.in(0xA2, 0x81, 0x0100, 0x0082, 16).data, (Bytes{0x80, 0x3E, 0}));
    ASSERT_TRUE(set_volume(0));
    const int loud = tone_peak(host);
    EXPECT_NEAR(loud, 12000, 100);
    ASSERT_TRUE(set_volume(-1536));  // -6 dB
    EXPECT_NEAR(tone_peak(host), loud / 2.0, loud * 0.01);
    ASSERT_TRUE(set_volume(-30000));
    EXPECT_EQ(host.in(0xA1, 0x81, 0x0200, 0x0503, 2).data, (Bytes{0x00, 0xF0})) << "clamped";
    EXPECT_NEAR(tone_peak(host), loud * std::pow(10.0, -0.8), loud * 0.01);
    EXPECT_FALSE(host.out(0x21, 0x01, 0x0100, 0x0502, Bytes{1}).stall);
    EXPECT_EQ(tone_peak(host), 0) << "muted";
    EXPECT_TRUE(host.out(0x21, 0x04, 0x0200, 0x0503, Bytes(2)).stall) << "SET_RES";
    EXPECT_TRUE(host.in(0xA1, 0x81, 0x0201, 0x0503, 2).stall) << "a channel of its own";
}

TEST(Microphone, PacketsFollowTheRateAndTheAlternateSetting) {
    Host host(running_camera());
    EXPECT_TRUE(host.camera.iso_in(0x82, 100).empty());
    for (const uint32_t rate : {16000U, 24000U}) {
        Bytes block;
        append_le(block, 3, rate);
        ASSERT_FALSE(host.out(0x22, 0x01, 0x0100, 0x0082, block).stall);
        EXPECT_EQ(host.in(0xA2, 0x81, 0x0100, 0x0082, 3).data, block);
        ASSERT_FALSE(host.out(0x01, 11, 1, 3, {}).stall);
        EXPECT_EQ(host.camera.iso_in(0x82, 100).size(), rate / 1000 * 4);
    }
    EXPECT_EQ(host.camera.iso_in(0x82, 10).size(), 8U) << "whole frames only";
    EXPECT_TRUE(host.camera.iso_in(0x81, 100).empty());
    Bytes block;
    append_le(block, 3, 44100);
    EXPECT_TRUE(host.out(0x22, 0x01, 0x0100, 0x0082, block).stall);
    EXPECT_TRUE(host.out(0x22, 0x01, 0x0100, 0x0081, block).stall);
    ASSERT_FALSE(host.out(0x01, 11, 0, 3, {}).stall);
    EXPECT_TRUE(host.camera.iso_in(0x82, 100).empty());
}

Bytes faces(Host& host) {
    const ControlReply reply = host.in(0xC0, 1, 0, 0, 81);
    EXPECT_FALSE(reply.stall);
    return reply.data;
}

TEST(Faces, DetectionReportsOneAndTrackingMovesIt) {
    Host host(running_camera());
    EXPECT_EQ(faces(host), Bytes(81, 0));
    ASSERT_TRUE(host.mmp({0x02, 0x02, 0x08}));
    const Bytes detected = faces(host);
    ASSERT_EQ(detected.size(), 81U);
    EXPECT_EQ(detected[0], 1);
    EXPECT_LT(load_u16(detected, 1), load_u16(detected, 5));
    EXPECT_LT(load_u16(detected, 3), load_u16(detected, 7));
    host.pass(std::chrono::seconds(1));
    EXPECT_EQ(faces(host), detected);
    ASSERT_TRUE(host.mmp({0x01, 1, 5}));
    host.pass(std::chrono::milliseconds(0));
    const Bytes first = faces(host);
    host.pass(std::chrono::seconds(1));
    EXPECT_NE(faces(host), first);
    ASSERT_TRUE(host.mmp({0x01, 1, 6}));
    const Bytes last = faces(host);
    host.pass(std::chrono::seconds(1));
    EXPECT_EQ(faces(host), last);
    ASSERT_TRUE(host.mmp({0x02, 0x02, 0x00}));
    EXPECT_EQ(faces(host)[0], 0);
}

TEST(Faces, ParametersMustBe32Bytes) {
    Host host(running_camera());
    EXPECT_FALSE(host.out(0x40, 2, 0, 0, Bytes(32)).stall);
    EXPECT_TRUE(host.out(0x40, 2, 0, 0, Bytes(31)).stall);
    EXPECT_TRUE(host.in(0xC0, 1, 0, 0, 80).stall);
    EXPECT_TRUE(host.in(0xC0, 3, 0, 0, 81).stall);
}

TEST(Record, KeepsVendorAndClassCommandsWithTheirBytes) {
    Host host(running_camera());
    host.in(0x80, 6, 0x0100, 0, 18);
    host.mmp({0x02, 0x02, 0x30});
    host.isp({0x77});
    const auto commands = host.camera.commands();
    ASSERT_EQ(commands.size(), 2U);
    EXPECT_EQ(commands[0].setup.value, 0x0E00);
    EXPECT_EQ(commands[0].data.size(), 16U);
    EXPECT_FALSE(commands[0].stalled);
    EXPECT_TRUE(commands[1].stalled);
    EXPECT_EQ(host.camera.status()["commands"][0]["text"],
              "MMP 0x02/0x02 set video option 0x00000030");
}

TEST(Describe, PutsCommandsIntoWords) {
    const auto xu = [](uint8_t selector, Bytes block, size_t length) {
        block.resize(length);
        return describe({0x20, 0x01, static_cast<uint16_t>(selector << 8), 0x0600,
                         static_cast<uint16_t>(length)},
                        block);
    };
    EXPECT_EQ(xu(1, {0x08, 0xFF, 0xD0, 0x07}, 8), "ISP 0x08/0xFF bit rate 2000 kbit/s");
    EXPECT_EQ(xu(1, {0xFF, 0x0C, 0x12, 0x34}, 8), "ISP 0xFF/0x0C 3A control 0x1234");
    EXPECT_EQ(xu(14, {0x01, 0x06}, 16), "MMP 0x01/0x06 stream combination 6");
    EXPECT_EQ(xu(14, {0x01, 0x06, 9, 0x2C, 0x01, 5, 0}, 16), "MMP 0x01/0x06 crop origin 300,5");
    EXPECT_EQ(xu(4, {0x0E, 0, 1}, 8), "AUX 0x0E/0x00 light on");
    EXPECT_EQ(xu(4, {1, 1, 3}, 8), "AUX 0x01/0x01 firmware burn");
    Bytes probe(26, 0);
    probe[2] = 4;
    probe[3] = 1;
    store_le(probe, 4, 4, 333333);
    EXPECT_EQ(describe({0x21, 0x01, 0x0100, 0x0001, 26}, probe),
              "UVC PROBE SET_CUR format 4 frame 1 interval 333333");
    EXPECT_EQ(describe({0x40, 8, 0x0401, 0, 0}, {}), "VENDOR 8 burn 1025 bytes");
    EXPECT_EQ(describe({0xA1, 0x81, 0x0200, 0x0000, 1}, Bytes{4}), "UVC VC error code GET_CUR 04");
    EXPECT_EQ(describe({0xA1, 0x81, 0x0600, 0x0001, 1}, Bytes{0}), "UVC VS error code GET_CUR 00");
    EXPECT_EQ(describe({0x21, 0x01, 0x0B00, 0x0100, 2}, Bytes{3, 0}), "UVC CT SET_CUR zoom 3");
    EXPECT_EQ(describe({0x22, 0x01, 0x0100, 0x0082, 3}, Bytes{0x80, 0x3E, 0}),
              "UAC EP SET_CUR rate 16000 Hz");
    EXPECT_EQ(describe({0x21, 0x01, 0x0200, 0x0503, 2}, Bytes{0, 0xF0}),
              "UAC FU SET_CUR volume -4096");
}

TEST(Describe, TakesAnyRequestAndAnyLength) {
    for (int type = 0; type < 256; ++type) {
        for (int request = 0; request < 256; ++request) {
            for (const size_t length : {0, 1, 7, 8, 16, 40}) {
                for (const uint16_t index : {0x0001, 0x0100, 0x0300, 0x0503, 0x0600}) {
                    const virtcam::model::Setup setup{static_cast<uint8_t>(type),
                                                      static_cast<uint8_t>(request), 0x0E00, index,
                                                      0};
                    ASSERT_FALSE(describe(setup, Bytes(length, 0xFF)).empty());
                }
            }
        }
        type += 6;  // a spread of request types is enough
    }
}

TEST(Config, ReadsItsMembersAndNamesWhatIsWrong) {
    using nlohmann::json;
    const auto config = CameraConfig::from_json(json::parse(
        R"({"identity": "run-time", "boot_code": "older", "max_payload": 65536, "paced": false})"));
    EXPECT_EQ(config.identity, CameraConfig::Identity::kRunTime);
    EXPECT_EQ(config.boot_code, CameraConfig::BootCode::kOlder);
    EXPECT_EQ(config.max_payload, 65536U);
    EXPECT_FALSE(config.paced);
    const auto complaint = [](const char* text) -> std::string {
        try {
            CameraConfig::from_json(json::parse(text));
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
        return {};
    };
    for (const auto& [text, member] : std::map<const char*, const char*>{
             {R"({"colour": 1})", "colour"},
             {R"({"max_payload": 511})", "max_payload"},
             {R"({"max_payload": "x"})", "max_payload"},
             {R"({"departure_ms": 101})", "departure_ms"},
             {R"({"departure_ms": 18446744073709551615})", "departure_ms"},
             {R"({"paced": 1})", "paced"},
             {R"({"identity": "camera"})", "identity"},
             {R"({"source": 1})", "source"}}) {
        EXPECT_NE(complaint(text).find(member), std::string::npos) << text;
    }
    EXPECT_FALSE(complaint("[]").empty());
}

}  // namespace
}  // namespace virtcam::model::test
