// A camera that does nothing, for tests of what the interface itself is.
#pragma once

#include "Src/CameraInterface.h"

namespace test {

class BareSubject : public ICameraSubject {
  public:
    void Init(InitDoneCallback, int) override {}
    bool RegisterObserver(ICameraObserver*) override { return false; }
    bool RemoveObserver(ICameraObserver*) override { return false; }
    bool OnFrameArrival(const CCameraData*) override { return false; }
    bool StartRecording() override { return false; }
    bool StopRecording() override { return false; }
    bool SetProperty(CAM_PROPERTY, CAM_PROP_VALUE*) override { return false; }
    bool GetProperty(CAM_PROPERTY, CAM_PROP_VALUE*) override { return false; }
    bool GetCapability(CAM_CAPABILITY) override { return false; }
    bool SetStreamFormat(CAM_STR_FORMAT) override { return false; }
    const char* Execute(int, const char**) override { return nullptr; }
    bool StartTest() override { return false; }
    bool StopTest() override { return false; }
    bool PrintStatus() override { return false; }
};

}  // namespace test
