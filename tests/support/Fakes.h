// Fakes of the interfaces between the camera object, its workers and its host.
#pragma once

#include <gmock/gmock.h>

#include "CameraInterface.h"
#include "V4l2Capture.h"

namespace test {

class FakeVideoCapture : public IVideoCapture {
  public:
    MOCK_METHOD(bool, ConfigureDev, (uint32_t, uint32_t, uint32_t, uint32_t), (override));
    MOCK_METHOD(void, UnConfigureDev, (), (override));
    MOCK_METHOD(void, CaptureFrame, (uint8_t*, uint32_t), (override));
    MOCK_METHOD(int, CaptureFrame, (MediaSample&), (override));
    MOCK_METHOD(bool, SetBitrate, (uint32_t), (override));
    MOCK_METHOD(bool, SetFramerate, (uint32_t), (override));
    MOCK_METHOD(bool, RequestKeyFrame, (), (override));
    MOCK_METHOD(bool, SetPTZ, (unsigned, int), (override));
    MOCK_METHOD(bool, GetPTZ, (unsigned, int*), (override));
    MOCK_METHOD(bool, ResetStream, (), (override));
    MOCK_METHOD(bool, SetPU, (unsigned, int), (override));
    MOCK_METHOD(int, GetFrameBuf, (uint8_t**, uint32_t*), (override));
    MOCK_METHOD(void, RetFrameBuf, (), (override));
};

class FakeAudioCapture : public IAudioCapture {
  public:
    MOCK_METHOD(bool, ConfigureDev, (uint8_t, uint32_t, uint32_t), (override));
    MOCK_METHOD(void, UnConfigureDev, (), (override));
    MOCK_METHOD(int, ReadAudioData, (uint8_t*, uint32_t), (override));
    MOCK_METHOD(bool, SetVolume, (int), (override));
    MOCK_METHOD(int, GetBuf, (unsigned char**, unsigned*), (override));
    MOCK_METHOD(void, RetBuf, (), (override));
    MOCK_METHOD(int, SetSamplingRate, (int), (override));
};

class FakeSubject : public ICameraSubject {
  public:
    MOCK_METHOD(void, Init, (InitDoneCallback, int), (override));
    MOCK_METHOD(bool, RegisterObserver, (ICameraObserver*), (override));
    MOCK_METHOD(bool, RemoveObserver, (ICameraObserver*), (override));
    MOCK_METHOD(bool, OnFrameArrival, (const CCameraData*), (override));
    MOCK_METHOD(bool, StartRecording, (), (override));
    MOCK_METHOD(bool, StopRecording, (), (override));
    MOCK_METHOD(bool, SetProperty, (CAM_PROPERTY, CAM_PROP_VALUE*), (override));
    MOCK_METHOD(bool, GetProperty, (CAM_PROPERTY, CAM_PROP_VALUE*), (override));
    MOCK_METHOD(bool, GetCapability, (CAM_CAPABILITY), (override));
    MOCK_METHOD(bool, SetStreamFormat, (CAM_STR_FORMAT), (override));
    MOCK_METHOD(const char*, Execute, (int, const char**), (override));
    MOCK_METHOD(bool, StartTest, (), (override));
    MOCK_METHOD(bool, StopTest, (), (override));
    MOCK_METHOD(bool, PrintStatus, (), (override));
};

}  // namespace test
