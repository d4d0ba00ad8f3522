// A camera's video that can do nothing but lend frames, for what is tested behind it.
#pragma once

#include <cstdint>

#include "CaptureInterfaces.h"

namespace test {

/// Grants whatever is asked for and does none of it; a derived class lends the frames.
class FramesOnly : public IVideoCapture {
  public:
    bool ConfigureDev(uint32_t, uint32_t, uint32_t, uint32_t) override { return true; }
    void UnConfigureDev() override {}
    void CaptureFrame(uint8_t*, uint32_t) override {}
    int CaptureFrame(MediaSample&) override { return 0; }
    bool SetBitrate(uint32_t) override { return true; }
    bool SetFramerate(uint32_t) override { return true; }
    bool RequestKeyFrame() override { return true; }
    bool SetPTZ(unsigned, int) override { return true; }
    bool GetPTZ(unsigned, int*) override { return true; }
    bool ResetStream() override { return true; }
    bool SetPU(unsigned, int) override { return true; }
};

}  // namespace test
