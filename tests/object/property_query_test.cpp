// GetProperty, capabilities, stream format, option word and light.
#include <cstdio>

#include "LibusbWrap.h"
#include "tests/object/CameraTest.h"

namespace test {
namespace {

class PropertyQuery : public CameraTest {
  protected:
};

TEST_F(PropertyQuery, PositionsInDegreesTowardsZero) {
    Ready();
    const std::pair<const char*, int> cases[] = {{"E1E3FFFFE1E3FFFF", -1},
                                                 {"1F1C00001F1C0000", 1},
                                                 {"0F0E00000F0E0000", 0},
                                                 {"100E0000100E0000", 1}};
    for (const auto& [reply, degrees] : cases) {
        virtcam::bus::clear_faults();
        FailControl({{"type", 0xA1}, {"value", 0x0D00}}, {{"reply", reply}});
        Forget();
        EXPECT_TRUE(Get(CAM_PROPERTY_PAN));
        EXPECT_EQ(last_.value, degrees);
        EXPECT_LOG(4, "Get PAN Step (" + std::to_string(degrees) + ")");
        EXPECT_TRUE(Get(CAM_PROPERTY_TILT));
        EXPECT_EQ(last_.value, degrees);
        EXPECT_LOG(4, "Get TILT Step (" + std::to_string(degrees) + ")");
    }
    virtcam::bus::clear_faults();
    FailControl({{"type", 0xA1}, {"value", 0x0D00}}, {{"return", "LIBUSB_ERROR_IO"}});
    EXPECT_TRUE(Get(CAM_PROPERTY_PAN));
    EXPECT_EQ(last_.value, 0);
}

TEST_F(PropertyQuery, ZoomAsItComes) {
    Ready();
    Set(CAM_PROPERTY_ZOOM, 7);
    EXPECT_TRUE(Get(CAM_PROPERTY_ZOOM));
    EXPECT_EQ(last_.value, 7);
    EXPECT_LOG(4, "Get ZOOM Step (7)");
}

TEST_F(PropertyQuery, WithoutACapturerPositionsAreZero) {
    Create();
    for (const int property : {CAM_PROPERTY_ZOOM, CAM_PROPERTY_PAN, CAM_PROPERTY_TILT}) {
        EXPECT_TRUE(Get(property));
        EXPECT_EQ(last_.value, 0);
    }
    EXPECT_FALSE(Get(CAM_PROPERTY_LUX));
    EXPECT_EQ(last_.value, 0);
    EXPECT_TRUE(Requests().empty());
}

TEST_F(PropertyQuery, SignalTypeSaysWhichOne) {
    Create();
    EXPECT_TRUE(Get(CAM_PROPERTY_SIGNAL_TYPE));
    EXPECT_LOG(4, "Get current Signal Type.(6)");
}

TEST_F(PropertyQuery, AmbientLight) {
    Ready();
    FailControl({{"type", 0xA1}, {"value", 0x0200}}, {{"reply", "FFFF3412FFFFFFFF"}});
    EXPECT_TRUE(Get(CAM_PROPERTY_LUX));
    EXPECT_EQ(last_.value, 0x1234);
    EXPECT_EQ(Sent(), (Sequence{Isp({0x12}), Read(0xA1, 0x81, 0x0200, 0x0600, 8, 5000)}));
    virtcam::bus::clear_faults();
    FailControl({{"type", 0x21}}, {{"return", "LIBUSB_ERROR_IO"}});
    FailControl({{"type", 0xA1}}, {{"return", "LIBUSB_ERROR_IO"}});
    EXPECT_TRUE(Get(CAM_PROPERTY_LUX));  // the transfers' results are not looked at
    EXPECT_EQ(last_.value, 0);
}

TEST_F(PropertyQuery, VideoSelfTest) {
    Ready();
    EXPECT_TRUE(Get(CAM_PROPERTY_VIDEO_TEST, 77));
    EXPECT_EQ(last_.value, 1);
    EXPECT_LOG(4, "Video Auto Test.(Result: 77)");
    EXPECT_EQ(Sent(), (Sequence{Mmp({0x12}), MmpResult()}));
    EXPECT_EQ(clock().count(2s), 1u);
}

TEST_F(PropertyQuery, VideoSelfTestThatFails) {
    const std::string failed = "Video Auto Test failed. Device no response.\r\n";
    Ready();
    FailControl({{"type", 0xA1}, {"value", 0x0F00}},
                {{"reply", "03000000000000000000000000000000"}});
    EXPECT_TRUE(Get(CAM_PROPERTY_VIDEO_TEST, 77));
    EXPECT_EQ(last_.value, 0);
    EXPECT_LOG_COUNT(4, failed, 1);
    virtcam::bus::clear_faults();
    for (const char* code : {"LIBUSB_ERROR_IO", "0"}) {
        virtcam::bus::clear_faults();
        Forget();
        nlohmann::json result = code;
        if (std::string(code) == "0") {
            result = 0;
        }
        FailControl({{"type", 0x21}}, {{"return", result}});
        EXPECT_FALSE(Get(CAM_PROPERTY_VIDEO_TEST, 77));
        EXPECT_EQ(last_.value, 77);
        EXPECT_LOG_COUNT(4, failed, 1);
    }
    virtcam::bus::clear_faults();
    camera_->SetState(CAM_STATE_DISCONNECTED);
    Forget();
    EXPECT_FALSE(Get(CAM_PROPERTY_VIDEO_TEST, 77));
    EXPECT_EQ(last_.value, 0);
    EXPECT_LOG_COUNT(4, failed, 1);
    camera_->SetState(CAM_STATE_READY);
}

TEST_F(PropertyQuery, SelfTestsThatAnswerWhetherThereIsAVersion) {
    Ready();
    EXPECT_TRUE(Get(CAM_PROPERTY_AUDIO_TEST));
    EXPECT_EQ(last_.value, 1);
    EXPECT_LOG(4, "Audio Auto Test(Result: 1)");
    EXPECT_TRUE(Get(CAM_PROPERTY_CONNECTION_TEST));
    EXPECT_EQ(last_.value, 1);
    EXPECT_LOG(4, "Camera Connection Check.(Result: 1)");
    Destroy();
    Create();  // no loader
    EXPECT_TRUE(Get(CAM_PROPERTY_AUDIO_TEST));
    EXPECT_EQ(last_.value, 0);
    EXPECT_LOG(4, "Audio Auto Test(Result: 0)");
    EXPECT_TRUE(Get(CAM_PROPERTY_CONNECTION_TEST));
    EXPECT_LOG(4, "Camera Connection Check.(Result: 0)");
}

// --- capabilities --------------------------------------------------------------------------------

TEST_F(PropertyQuery, EveryCapability) {
    Create();
    std::printf("capability   expected  outcome\n");
    for (int capability = -1; capability <= 24; ++capability) {
        const bool expected = capability == 0 || capability == 1 || capability == 2 ||
                              capability == 3 || capability == 7 || capability == 8 ||
                              capability == 11 || capability == 13;
        const bool silent = expected || capability == 9;
        log().reset();
        const bool outcome = camera_->GetCapability(static_cast<CAM_CAPABILITY>(capability));
        std::printf("%10d   %8s %8s\n", capability, expected ? "true" : "false",
                    outcome ? "true" : "false");
        EXPECT_EQ(outcome, expected) << capability;
        EXPECT_LOG(5, "CAitOrixCamera::GetCapability " + std::to_string(capability) + "\r\n");
        EXPECT_EQ(
            log().has(1, "Not supported camera capability " + std::to_string(capability) + "\n"),
            !silent)
            << capability;
        EXPECT_EQ(log().has(4, "Enable CAM_SIGNAL_TYPE mode \r\n"), capability == 2);
    }
}

TEST_F(PropertyQuery, TheSignalTypeQuestionSwitchesTheMode) {
    // A platform that knows signal types, and one that does not: only the first sends triggers.
    Ready();
    EXPECT_TRUE(camera_->GetCapability(CAM_CAPABILITY_SIGNAL_TYPE));
    Set(CAM_PROPERTY_TRIGGER_JPEG, 1);
    EXPECT_EQ(Sent().size(), 1u);
    Destroy();
    InitAnswers::instance().Clear();
    virtcam::bus::power_cycle();
    SetPlatform(kTenchS);
    Ready();
    EXPECT_FALSE(camera_->GetCapability(CAM_CAPABILITY_SIGNAL_TYPE));
    EXPECT_NO_LOG(4, "Enable CAM_SIGNAL_TYPE mode \r\n");
    EXPECT_EQ(log().count_containing("Not supported camera capability"), 0u);
    Set(CAM_PROPERTY_TRIGGER_JPEG, 1);
    EXPECT_TRUE(Sent().empty());
}

// --- stream format -------------------------------------------------------------------------------

TEST_F(PropertyQuery, StreamFormats) {
    Create();
    log().reset();
    EXPECT_TRUE(camera_->SetStreamFormat(CAM_STR_FORMAT_TS));
    EXPECT_EQ(log().texts(4),
              (std::vector<std::string>{"CAitOrixCamera::SetStreamFormat format=0x1\r\n",
                                        "CAitOrixCamera not support TS format.\r\n"}));
    log().reset();
    EXPECT_TRUE(camera_->SetStreamFormat(static_cast<CAM_STR_FORMAT>(0x1F)));
    EXPECT_EQ(log().texts(4),
              (std::vector<std::string>{"CAitOrixCamera::SetStreamFormat format=0x1F\r\n",
                                        "CAitOrixCamera Video Format= H264\r\n"}));
}

// --- option word and light -----------------------------------------------------------------------

TEST_F(PropertyQuery, OptionWordIsPlainLittleEndian) {
    Ready();
    FailControl({{"type", 0xA1}, {"value", 0x0F00}},
                {{"reply", "FF785634120000000000000000000000"}});
    unsigned options = 0;
    EXPECT_EQ(object_->GetVideoOption(&options), 0);
    EXPECT_EQ(options, 0x12345678u);
    EXPECT_LOG(4, "GetVideoOption = 0x12345678");
    EXPECT_EQ(object_->SetVideoOption(0x9ABCDEF0), 16);
    EXPECT_LOG(4, "SetVideoOption = 0x9ABCDEF0");
    EXPECT_EQ(Sent(), (Sequence{Mmp({0x02, 0x01}), MmpResult(),
                                Mmp({0x02, 0x02, 0xF0, 0xDE, 0xBC, 0x9A})}));
}

TEST_F(PropertyQuery, OptionWordThatCannotBeRead) {
    Ready();
    unsigned options = 5;
    FailControl({{"value", 0x0E00}}, {{"return", "LIBUSB_ERROR_IO"}});
    EXPECT_EQ(object_->GetVideoOption(&options), AIT_ERR_DEVICE);
    EXPECT_LOG_COUNT(4, "GetVideoOption Failed !! return (-2147483645)", 1);
    EXPECT_EQ(Sent().size(), 1u);
    EXPECT_EQ(options, 5u);
}

TEST_F(PropertyQuery, OptionWordAndLightWithoutACapturer) {
    const std::string line = "video_capturer is NULL or m_State is CAM_STATE_DISCONNECTED !!! \r\n";
    Create();
    log().reset();
    unsigned options = 5;
    EXPECT_EQ(object_->GetVideoOption(&options), AIT_ERR_DEVICE);
    EXPECT_EQ(options, 0u);
    EXPECT_LOG(4, "GetVideoOption Failed !! return (0)");
    EXPECT_EQ(object_->SetVideoOption(1), -1);
    EXPECT_FALSE(object_->TurnOnOffLED(1));
    EXPECT_LOG_COUNT(1, line, 3);
}

TEST_F(PropertyQuery, Light) {
    Ready();
    EXPECT_TRUE(object_->TurnOnOffLED(1));
    EXPECT_TRUE(object_->TurnOnOffLED(0));
    EXPECT_EQ(Sent(), (Sequence{Light(1), Light(0)}));
    FailControl({{"value", 0x0400}}, {{"return", 0}});
    EXPECT_TRUE(object_->TurnOnOffLED(1));
    virtcam::bus::clear_faults();
    FailControl({{"value", 0x0400}}, {{"return", "LIBUSB_ERROR_IO"}});
    EXPECT_FALSE(object_->TurnOnOffLED(1));
}

}  // namespace
}  // namespace test
