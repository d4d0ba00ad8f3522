// What a property call answers while the camera is being unplugged: the requests fail already, and
// the loader's thread has not noticed yet. docs/architecture.md has these answers as a table.
#include "tests/object/CameraTest.h"

namespace test {
namespace {

struct Setting {
    CAM_PROPERTY property;
    bool answer;
};

struct Question {
    CAM_PROPERTY property;
    bool answer;
    int value;  ///< afterwards, where it was kUntouched before
};

constexpr int kUntouched = -12345;

class UnplugAnswers : public CameraTest {
  protected:
    /// From now on the engines' requests find no device. Those of the loader (0xA0) go on, so that
    /// the object still counts as playing.
    static void LoseTheDevice() {
        for (const int type : {0x21, 0xA1, 0x22, 0xA2}) {
            FailControl({{"type", type}}, {{"return", "LIBUSB_ERROR_NO_DEVICE"}});
        }
    }
    void ExpectSettings(const std::vector<Setting>& settings) {
        for (const Setting& setting : settings) {
            EXPECT_EQ(Set(setting.property, 1), setting.answer) << setting.property;
        }
    }
};

TEST_F(UnplugAnswers, WhatIsTransferredAsABlockCountsAsSent) {
    Playing();
    LoseTheDevice();
    ExpectSettings({{CAM_PROPERTY_I2C_WRITE_AUDIO, true},
                    {CAM_PROPERTY_CROP_VGA, true},
                    {CAM_PROPERTY_TRIGGER_JPEG, true},
                    {CAM_PROPERTY_NV12_MODE_CONTROL, true},
                    {CAM_PROPERTY_IMAGE_EFFECT, true},
                    {CAM_PROPERTY_3A_CONTROL, true},
                    {CAM_PROPERTY_WDR_CONTROL, true},
                    {CAM_PROPERTY_COLOR_EFFECT, true},
                    {CAM_PROPERTY_CROP_GRAY, true},
                    {CAM_PROPERTY_FACE_TRACKING, true},
                    {CAM_PROPERTY_PREVIEW_MODE, true},
                    {CAM_PROPERTY_LOCAL_RESOLUTION, true},
                    {CAM_PROPERTY_CHANGE_NV12_RESOLUTION, true}});
}

TEST_F(UnplugAnswers, RatesAxesAndPictureControlsTellTheFailure) {
    Playing();
    LoseTheDevice();
    ExpectSettings({{CAM_PROPERTY_BITRATE, false},
                    {CAM_PROPERTY_FRAMERATE, false},
                    {CAM_PROPERTY_NEWGOP, false},
                    {CAM_PROPERTY_ZOOM, false},
                    {CAM_PROPERTY_PAN, false},
                    {CAM_PROPERTY_TILT, false},
                    {CAM_PROPERTY_AUTO_HZ, false},
                    {CAM_PROPERTY_BRIGHTNESS, false},
                    {CAM_PROPERTY_CONTRAST, false},
                    {CAM_PROPERTY_SATURATION, false},
                    {CAM_PROPERTY_SHARPNESS, false},
                    {CAM_PROPERTY_HUE, false},
                    {CAM_PROPERTY_GAMMA, false},
                    {CAM_PROPERTY_BACKLIGHT_CONTROL, false},
                    {CAM_PROPERTY_AWB_TEMPERATURE, false},
                    {CAM_PROPERTY_MANUAL_AWB_CONTROL, false}});
}

TEST_F(UnplugAnswers, AnOptionFailsWithItsReadAndNotWithItsWrite) {
    Playing();
    FailControl({{"type", 0x21}, {"data", "0202"}}, {{"return", "LIBUSB_ERROR_NO_DEVICE"}});
    ExpectSettings({{CAM_PROPERTY_MIRROR, true}});
    LoseTheDevice();
    ExpectSettings({{CAM_PROPERTY_MIRROR, false},
                    {CAM_PROPERTY_FLIP, false},
                    {CAM_PROPERTY_FD_CONTROL, false},
                    {CAM_PROPERTY_LOCAL_MIRROR, false},
                    {CAM_PROPERTY_MIRROR_GRAY, false}});
}

TEST_F(UnplugAnswers, TheVolumeAndARestartAreTrueAllTheSame) {
    Playing();
    LoseTheDevice();
    ExpectSettings({{CAM_PROPERTY_MICVOLUME, true}, {CAM_PROPERTY_SIGNAL_TYPE, true}});
    EXPECT_EQ(camera_->GetState(), CAM_STATE_READY);  // stopped, and not started again
}

TEST_F(UnplugAnswers, WhatIsReadFromTheCameraIsZero) {
    Playing();
    ASSERT_TRUE(Set(CAM_PROPERTY_ZOOM, 3));
    ASSERT_TRUE(Set(CAM_PROPERTY_PAN, 2));
    LoseTheDevice();
    for (const Question& question : {Question{CAM_PROPERTY_ZOOM, true, 0},
                                     {CAM_PROPERTY_PAN, true, 0},
                                     {CAM_PROPERTY_TILT, true, 0},
                                     {CAM_PROPERTY_LUX, true, 0},
                                     {CAM_PROPERTY_VIDEO_TEST, false, kUntouched}}) {
        EXPECT_EQ(Get(question.property, kUntouched), question.answer) << question.property;
        EXPECT_EQ(last_.value, question.value) << question.property;
    }
}

}  // namespace
}  // namespace test
