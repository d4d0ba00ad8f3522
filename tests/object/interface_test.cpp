// What a host was compiled against: every number, and how the base class behaves. Offsets, sizes and
// slots: tests/abi.
#include <gtest/gtest.h>

#include "CameraFwLoader.h"
#include "CameraInterface.h"
#include "Platform.h"
#include "tests/support/BareSubject.h"

namespace test {
namespace {

/// The named numbers follow one another, beginning with `first`.
void ExpectConsecutive(int first, std::initializer_list<int> numbers) {
    int expected = first;
    for (const int number : numbers) {
        EXPECT_EQ(number, expected) << "in the place of " << expected;
        ++expected;
    }
}

// --- numbers -------------------------------------------------------------------------------------

TEST(InterfaceNumbers, StreamTypes) {
    ExpectConsecutive(0, {CAM_STREAM_PCM,
                          CAM_STREAM_H264_MAIN,
                          CAM_STREAM_H264_SUB,
                          CAM_STREAM_MJPEG,
                          CAM_STREAM_TS,
                          CAM_STREAM_NV12,
                          CAM_STREAM_FD,
                          CAM_STREAM_GRAY,
                          CAM_STREAM_YUYV,
                          CAM_STREAM_JPEG,
                          CAM_STREAM_TS_ONLY_VIDEO,
                          CAM_STREAM_EVENT,
                          CAM_STREAM_NV21,
                          CAM_STREAM_CROPY_1,
                          CAM_STREAM_CROPY_2,
                          CAM_STREAM_CROPY_3,
                          CAM_STREAM_RESERVED_0,
                          CAM_STREAM_RESERVED_1,
                          CAM_STREAM_RESERVED_2,
                          CAM_STREAM_RESERVED_3,
                          CAM_STREAM_RESERVED_4,
                          MAX_CAM_STREAM_TYPE});
}

TEST(InterfaceNumbers, States) {
    ExpectConsecutive(
        0,
        {CAM_STATE_DISCONNECTED, CAM_STATE_CONNECTING, CAM_STATE_READY, CAM_STATE_PLAYING,
         CAM_STATE_SLEEP, CAM_STATE_WAKEUP, CAM_STATE_RESERVED_0, CAM_STATE_RESERVED_1,
         CAM_STATE_RESERVED_2, CAM_STATE_RESERVED_3, CAM_STATE_RESERVED_4, CAM_STATE_RESERVED_5,
         CAM_STATE_RESERVED_6, CAM_STATE_RESERVED_7, CAM_STATE_RESERVED_8, CAM_STATE_RESERVED_9});
}

// One enumerator a line, however many there are.
// NOLINTNEXTLINE(readability-function-size)
TEST(InterfaceNumbers, Properties) {
    ExpectConsecutive(0, {CAM_PROPERTY_BITRATE,
                          CAM_PROPERTY_FRAMERATE,
                          CAM_PROPERTY_NEWGOP,
                          CAM_PROPERTY_DIMENSION,
                          CAM_PROPERTY_MICVOLUME,
                          CAM_PROPERTY_SAMPLERATE,
                          CAM_PROPERTY_SAMPLEBITS,
                          CAM_PROPERTY_ZOOM,
                          CAM_PROPERTY_PAN,
                          CAM_PROPERTY_TILT,
                          CAM_PROPERTY_AUTO_HZ,
                          CAM_PROPERTY_AUTO_FOCUS,
                          CAM_PROPERTY_MIRROR,
                          CAM_PROPERTY_FLIP,
                          CAM_PROPERTY_FD_CONTROL,
                          CAM_PROPERTY_SIGNAL_TYPE,
                          CAM_PROPERTY_I2C_READ_VIDEO,
                          CAM_PROPERTY_I2C_WRITE_VIDEO,
                          CAM_PROPERTY_I2C_READ_AUDIO,
                          CAM_PROPERTY_I2C_WRITE_AUDIO,
                          CAM_PROPERTY_CROP_VGA,
                          CAM_PROPERTY_TRIGGER_JPEG,
                          CAM_PROPERTY_AUDIO_MODE,
                          CAM_PROPERTY_WOV,
                          CAM_PROPERTY_VIDEO_MODE,
                          CAM_PROPERTY_NV12_MODE_CONTROL,
                          CAM_PROPERTY_BRIGHTNESS,
                          CAM_PROPERTY_CONTRAST,
                          CAM_PROPERTY_SATURATION,
                          CAM_PROPERTY_SHARPNESS,
                          CAM_PROPERTY_HUE,
                          CAM_PROPERTY_GAMMA,
                          CAM_PROPERTY_BACKLIGHT_CONTROL,
                          CAM_PROPERTY_POWER_LINE_FREQUENCY,
                          CAM_PROPERTY_AWB_TEMPERATURE,
                          CAM_PROPERTY_MANUAL_AWB_CONTROL,
                          CAM_PROPERTY_IMAGE_EFFECT,
                          CAM_PROPERTY_3A_CONTROL,
                          CAM_PROPERTY_WDR_CONTROL,
                          CAM_PROPERTY_COLOR_EFFECT,
                          CAM_PROPERTY_MANUAL_GAIN_CONTROL,
                          CAM_PROPERTY_DIGITAL_GAIN_CONTROL,
                          CAM_PROPERTY_ANALOG_GAIN_CONTROL,
                          CAM_PROPERTY_LOCAL_MIRROR,
                          CAM_PROPERTY_M2TS_CONTROL,
                          CAM_PROPERTY_MIRROR_SUB,
                          CAM_PROPERTY_IFRAME_INTERVAL,
                          CAM_PROPERTY_TS_DURATION,
                          CAM_PROPERTY_VERSION,
                          CAM_PROPERTY_WOV_UPDATE,
                          CAM_PROPERTY_WOV_INDEX,
                          CAM_PROPERTY_WOV_VERIFICATION,
                          CAM_PROPERTY_LUX,
                          CAM_PROPERTY_MODEL,
                          CAM_PROPERTY_DIMENSION_EX,
                          CAM_PROPERTY_NUM_MIC,
                          CAM_PROPERTY_DISTANCE_MIC,
                          CAM_PROPERTY_PRESET,
                          CAM_PROPERTY_HAWLING_LEVEL,
                          CAM_PROPERTY_SENSOR_FPS,
                          CAM_PROPERTY_CAM_UPDATE,
                          CAM_PROPERTY_CAM_PROGRESS,
                          CAM_PROPERTY_SLIDE_UPDOWN,
                          CAM_PROPERTY_DEBUG_LEVEL,
                          CAM_PROPERTY_MIRROR_GRAY,
                          CAM_PROPERTY_MIRROR_JPEG,
                          CAM_PROPERTY_CROP_GRAY,
                          CAM_PROPERTY_H264_PROFILE,
                          CAM_PROPERTY_FACE_TRACKING,
                          CAM_PROPERTY_PREVIEW_MODE,
                          CAM_PROPERTY_VIDEO_TEST,
                          CAM_PROPERTY_AUDIO_TEST,
                          CAM_PROPERTY_CONNECTION_TEST,
                          CAM_PROPERTY_MIC_LEVEL,
                          CAM_PROPERTY_MIC_HOWLING,
                          CAM_PROPERTY_MIC_SELF_TEST,
                          CAM_PROPERTY_I2S_TEST,
                          CAM_PROPERTY_SSP_SET,
                          CAM_PROPERTY_SLIDE_SET,
                          CAM_PROPERTY_AE_TEST_SET,
                          CAM_PROPERTY_SHOP_MODE,
                          CAM_PROPERTY_HANDLE_LOG_TASK,
                          CAM_PROPERTY_FLASH_DUMP,
                          CAM_PROPERTY_DRAM_DUMP,
                          CAM_PROPERTY_WOV_AUDIO_DUMP,
                          CAM_PROPERTY_CROP_Y1,
                          CAM_PROPERTY_CROP_Y2,
                          CAM_PROPERTY_CROP_Y3,
                          CAM_PROPERTY_PROPROC_PARAM1,
                          CAM_PROPERTY_PROPROC_PARAM2,
                          CAM_PROPERTY_PROPROC_PARAM3,
                          CAM_PROPERTY_PROPROC_PARAM4,
                          CAM_PROPERTY_PROPROC_PARAM5,
                          CAM_PROPERTY_TOK_RES_PARAMTER,
                          CAM_PROPERTY_TOK_DRC_PARAMTER,
                          CAM_PROPERTY_TRG_RES_PARAMTER,
                          CAM_PROPERTY_MCAST_STREAM_ID,
                          CAM_PROPERTY_MCAST_TOGGLE,
                          CAM_PROPERTY_UNKNOWN_H_DUMP,
                          CAM_PROPERTY_H264_MAIN_DUMP,
                          CAM_PROPERTY_GET_BGUPDATE_RESULT,
                          CAM_PROPERTY_MIC_MUTE,
                          CAM_PROPERTY_LOCAL_RESOLUTION,
                          CAM_PROPERTY_SUB_NEWGOP,
                          CAM_PROPERTY_CHANGE_NV12_RESOLUTION,
                          CAM_PROPERTY_RESERVED_0,
                          CAM_PROPERTY_RESERVED_1,
                          CAM_PROPERTY_RESERVED_2,
                          CAM_PROPERTY_RESERVED_3,
                          CAM_PROPERTY_RESERVED_4,
                          CAM_PROPERTY_RESERVED_5,
                          CAM_PROPERTY_RESERVED_6,
                          CAM_PROPERTY_RESERVED_7,
                          CAM_PROPERTY_RESERVED_8,
                          CAM_PROPERTY_RESERVED_9});
}

TEST(InterfaceNumbers, Capabilities) {
    ExpectConsecutive(
        0, {CAM_CAPABILITY_ZOOM,         CAM_CAPABILITY_DUAL_ENCODING, CAM_CAPABILITY_SIGNAL_TYPE,
            CAM_CAPABILITY_TRIGGER_JPEG, CAM_CAPABILITY_WOV,           CAM_CAPABILITY_BEAMFORMER,
            CAM_CAPABILITY_AUTO_HZ,      CAM_CAPABILITY_FACE_TRACKING, CAM_CAPABILITY_FHD,
            CAM_CAPABILITY_Y800600,      CAM_CAPABILITY_RECOG_VOICE,   CAM_CAPABILITY_RECOG_GESTURE,
            CAM_CAPABILITY_NADEX,        CAM_CAPABILITY_VESPIN_PLUS,   CAM_CAPABILITY_RESERVED_0,
            CAM_CAPABILITY_RESERVED_1,   CAM_CAPABILITY_RESERVED_2,    CAM_CAPABILITY_RESERVED_3,
            CAM_CAPABILITY_RESERVED_4,   CAM_CAPABILITY_RESERVED_5,    CAM_CAPABILITY_RESERVED_6,
            CAM_CAPABILITY_RESERVED_7,   CAM_CAPABILITY_RESERVED_8,    CAM_CAPABILITY_RESERVED_9});
}

TEST(InterfaceNumbers, StreamFormats) {
    ExpectConsecutive(
        0, {CAM_STR_FORMAT_ES, CAM_STR_FORMAT_TS, CAM_STR_FORMAT_RESERVED_0,
            CAM_STR_FORMAT_RESERVED_1, CAM_STR_FORMAT_RESERVED_2, CAM_STR_FORMAT_RESERVED_3,
            CAM_STR_FORMAT_RESERVED_4, CAM_STR_FORMAT_RESERVED_5, CAM_STR_FORMAT_RESERVED_6,
            CAM_STR_FORMAT_RESERVED_7, CAM_STR_FORMAT_RESERVED_8, CAM_STR_FORMAT_RESERVED_9});
}

TEST(InterfaceNumbers, SignalTypes) {
    ExpectConsecutive(
        0, {CAM_SIGNAL_H264_YUYV, CAM_SIGNAL_H264_GRAY, CAM_SIGNAL_GRAY, CAM_SIGNAL_H264_H264_GRAY,
            CAM_SIGNAL_H264_NV21, CAM_SIGNAL_H264_GRAY_JPEG, CAM_SIGNAL_H264_GRAY_SI,
            CAM_SIGNAL_H264_H264, CAM_SIGNAL_H264_MJPEG});
    ExpectConsecutive(13, {CAM_SIGNAL_MULTI_CAST, CAM_SIGNAL_RESERVED_0, CAM_SIGNAL_RESERVED_1,
                           CAM_SIGNAL_RESERVED_2, CAM_SIGNAL_RESERVED_3, CAM_SIGNAL_RESERVED_4});
}

TEST(InterfaceNumbers, VideoModes) {
    ExpectConsecutive(0, {CAM_VIDEO_H264_H264, CAM_VIDEO_H264_MJPEG, CAM_VIDEO_H264_JPEG,
                          CAM_VIDEO_H264_YUV, CAM_VIDEO_H264_GRAY, CAM_VIDEO_GRAY,
                          CAM_VIDEO_H264_GRAY_JPEG, CAM_VIDEO_RESERVED_0, CAM_VIDEO_RESERVED_1,
                          CAM_VIDEO_RESERVED_2, CAM_VIDEO_RESERVED_3, CAM_VIDEO_RESERVED_4});
}

TEST(InterfaceNumbers, SelectionModes) {
    ExpectConsecutive(0, {USE_CAM_VIDEO_MODE, USE_CAM_SIGNAL_TYPE});
}

TEST(InterfaceNumbers, Platforms) {
    ExpectConsecutive(
        0, {UNKNOWN_PF, TENCH_S, TENCH_P, DACE_P, RUFFPLUS, BREAM, PERCH, ROACH, SHADS, SHADP});
}

TEST(InterfaceNumbers, StatusCodes) {
    ExpectConsecutive(0, {CAMERA_STATUS_OK, CAMERA_CANT_FOUND_DEVICE, CAMERA_LOAD_FW_FAILED,
                          CAMERA_STATUS_ERROR});
}

TEST(InterfaceNumbers, AreWordsOf32Bits) {
    EXPECT_EQ(sizeof(CAM_STREAM_TYPE), 4u);
    EXPECT_EQ(sizeof(CAM_STATE), 4u);
    EXPECT_EQ(sizeof(CAM_PROPERTY), 4u);
    EXPECT_EQ(sizeof(CAM_CAPABILITY), 4u);
    EXPECT_EQ(sizeof(CAM_STR_FORMAT), 4u);
    EXPECT_EQ(sizeof(CAM_SIGNAL_TYPE), 4u);
    EXPECT_EQ(sizeof(CAM_VIDEO_MODE), 4u);
    EXPECT_EQ(sizeof(TV_MODE), 4u);
    EXPECT_EQ(sizeof(PLATFORM), 4u);
}

// --- records -------------------------------------------------------------------------------------

TEST(InterfaceRecords, HalvesOfAValue) {
    CAM_PROP_VALUE param;
    param.value = static_cast<int>(0x80017FFE);
    EXPECT_EQ(param.res[0], 0x7FFE);
    EXPECT_EQ(param.res[1], -0x7FFF);
    EXPECT_EQ(sizeof param, 4u);
}

TEST(InterfaceRecords, BaseBehaviourOfASubject) {
    BareSubject subject;
    ICameraSubject& base = subject;
    for (const auto& list : base.m_pObserverList) {
        EXPECT_TRUE(list.empty());
    }
    base.SetState(CAM_STATE_SLEEP);
    EXPECT_EQ(base.GetState(), CAM_STATE_SLEEP);
    base.m_VendorName = "vendor";
    base.m_ModelName = "model";
    base.m_FileNPath = "path";
    base.m_DataType = "type";
    EXPECT_EQ(base.GetVendorName(), "vendor");
    EXPECT_EQ(base.GetModelName(), "model");
    EXPECT_EQ(base.GetCamDownloadedRootPath(), "path");
    EXPECT_EQ(base.GetCamDataType(), "type");
    EXPECT_FALSE(base.OnSleep());
    EXPECT_FALSE(base.OnWakeUp());
    EXPECT_FALSE(base.CameraUpdate(1, nullptr));
    EXPECT_EQ(base.GetCamInstalledVersion(), 65535u);
    EXPECT_FALSE(base.MustBeSecured());
    EXPECT_FALSE(base.StopCamUpgrade());
    EXPECT_EQ(base.CompareCamVersion(2, 1), 0);
}

}  // namespace
}  // namespace test
