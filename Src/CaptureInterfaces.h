// What the capture threads see of video and audio capture; the contracts stand with the two that
// implement it, AitUvcCapture and CAudioCapture.
#pragma once

#include <stdint.h>

class MediaSample;

class IVideoCapture {
  public:
    virtual ~IVideoCapture() = default;
    virtual bool ConfigureDev(uint32_t width, uint32_t height, uint32_t pixFmt,
                              uint32_t framerate) = 0;
    virtual void UnConfigureDev() = 0;
    virtual void CaptureFrame(uint8_t* buf, uint32_t size) = 0;
    virtual int CaptureFrame(MediaSample& sample) = 0;
    virtual bool SetBitrate(uint32_t rate) = 0;
    virtual bool SetFramerate(uint32_t fps) = 0;
    virtual bool RequestKeyFrame() = 0;
    virtual bool SetPTZ(unsigned int id, int value) = 0;
    virtual bool GetPTZ(unsigned int id, int* value) = 0;
    virtual bool ResetStream() = 0;
    virtual bool SetPU(unsigned int selector, int value) = 0;
    virtual int GetFrameBuf(uint8_t** buf, uint32_t* len) = 0;
    virtual void RetFrameBuf() = 0;
};

class IAudioCapture {
  public:
    virtual ~IAudioCapture() = default;
    virtual bool ConfigureDev(uint8_t channel, uint32_t smp_rate, uint32_t format) = 0;
    virtual void UnConfigureDev() = 0;
    virtual int ReadAudioData(uint8_t* buf, uint32_t size) = 0;
    virtual bool SetVolume(int percent) = 0;
    virtual int GetBuf(unsigned char** buf, unsigned int* len) = 0;
    virtual void RetBuf() = 0;
    virtual int SetSamplingRate(int rate) = 0;
};
