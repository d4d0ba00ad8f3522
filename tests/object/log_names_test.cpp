// The operations that lines of the log name, over a camera's whole life: who searches a field log
// knows these, not the steps into which the sources cut them.
#include <set>

#include "tests/object/CameraTest.h"

namespace test {
namespace {

const std::set<std::string>& Operations() {
    static const std::set<std::string> names = {
        // Camera object.
        "cam_create", "CAitOrixCamera", "Init", "CamInitDoneCallback", "GetState",
        "RegisterObserver", "RemoveObserver", "OnFrameArrival", "StartRecording", "StopRecording",
        "SetProperty", "GetProperty", "GetVideoOption", "SetVideoOption", "TurnOnOffLED",
        "SetDebugLevel", "cam_destroy", "~CAitOrixCamera",
        // Workers.
        "Run", "H264Parser_tmk_mode", "Reset",
        // Device access.
        "OpenAitDevice", "CheckDeviceExist", "FindAitDevice", "IsProcDeviceChanged",
        "t_SearchAITUsbCamera", "UpdateFirmwarePcsyncPath", "UpdateFirmwareUvcPath",
        "UseDefaultVersion", "GetCamVersion", "AitXU_XuCmd", "AitIspCmdGetResult",
        // Engines.
        "AitUvcCapture", "~CAudioCapture", "CAudioCapture", "ConfigureDev", "DisableStream",
        "UVC_EnableVideoStream", "UVC_DisableVideoStream", "FillVideoBuf_Bulk", "callback",
        "UAC_EnableAudioStream", "UAC_DisableAudioStream", "UAC_SetCurVolume", "FillAudioData",
        "AudioTransferStop", "VideoTransferStop", "~CAIT_AUDIO_LIB", "~CAIT_CAM_LIB",
        "~CLibUSB_UvcCtrl", "~CLibUSB_UacCtrl"};
    return names;
}

class LogNames : public CameraTest {
  protected:
    explicit LogNames(const nlohmann::json& configuration = RunningCamera())
        : CameraTest(configuration) {}
    void ExpectOnlyOperations() {
        for (const LogLine& line : log().lines()) {
            EXPECT_EQ(Operations().count(line.function), 1u) << line;
        }
    }
};

TEST_F(LogNames, OfAWholeLife) {
    RecordingObserver main(CAM_STREAM_H264_MAIN), gray(CAM_STREAM_GRAY), sound(CAM_STREAM_PCM);
    Create();
    for (ICameraObserver* observer : {&main, &gray, &sound}) {
        camera_->RegisterObserver(observer);
    }
    ASSERT_TRUE(Init());
    ExpectUnusualRelease();
    EXPECT_TRUE(camera_->StartRecording());
    EXPECT_TRUE(main.WaitFor(3));
    for (int property = 0; property <= 104; ++property) {
        if (property != CAM_PROPERTY_DEBUG_LEVEL) {
            Set(property, 1);
            Get(property);
        }
    }
    EXPECT_TRUE(camera_->StopRecording());
    for (ICameraObserver* observer : {&main, &gray, &sound}) {
        camera_->RemoveObserver(observer);
    }
    Destroy();
    ExpectOnlyOperations();
}

TEST_F(LogNames, WithoutADevice) {
    Create();
    for (int property = 0; property <= 104; ++property) {
        if (property != CAM_PROPERTY_DEBUG_LEVEL) {
            Set(property, 1);
            Get(property);
        }
    }
    camera_->StopRecording();
    Destroy();
    ExpectOnlyOperations();
}

}  // namespace
}  // namespace test
