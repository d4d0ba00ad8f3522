// The two capture adapters over the streaming engines. They have no lock of their own:
// configuration is serialised by the camera object, and one capture thread each takes frames.
#pragma once

#include <stdint.h>

#include "CAIT_AUDIO_LIB.h"
#include "CAIT_CAM_LIB.h"
#include "CaptureInterfaces.h"
#include "MediaSample.h"

/// Video capture over the UVC engine.
class AitUvcCapture : public IVideoCapture {
  public:
    /// Opens the camera; IsReady tells whether that worked. A lost camera is not opened again.
    AitUvcCapture(uint16_t vid, uint16_t pid);
    ~AitUvcCapture() override;

    /// Stops a running stream and starts one of this size (pixels) and pixel format (FourCC; 0 for
    /// the multiplexed stream). The rate negotiated is always 30 frames/s; `framerate` is only
    /// remembered, the encoder's rate is set with SetFramerate.
    bool ConfigureDev(uint32_t width, uint32_t height, uint32_t pixFmt,
                      uint32_t framerate) override;
    void UnConfigureDev() override;

    bool SetBitrate(uint32_t rate) override;
    bool SetFramerate(uint32_t fps) override;
    bool RequestKeyFrame() override { return AitCamLib.RequestKeyFrame(); }
    bool SetPTZ(unsigned int id, int value) override { return AitCamLib.SetPTZ(id, value); }
    bool GetPTZ(unsigned int id, int* value) override { return AitCamLib.GetPTZ(id, value); }
    bool SetPU(unsigned int selector, int value) override {
        return AitCamLib.SetPU(selector, value);
    }

    /// Lends the oldest frame: its size in bytes, 0 with both outputs zeroed when none came within
    /// 500 ms. RetFrameBuf must follow exactly once after each success.
    int GetFrameBuf(uint8_t** buf, uint32_t* len) override;
    void RetFrameBuf() override { AitCamLib.QueueFrameBuf(); }

    /// Extension-unit transfers: bytes, or a negative code.
    virtual int AitCommandSend(unsigned char selector, unsigned char* data, unsigned char length);
    virtual int AitCommandGet(unsigned char selector, unsigned char* data, unsigned char length);

    bool IsReady() const { return dev_ready; }

    // --- not called by the plug-in

    /// Match bits of device searches, for callers; BusListing.cpp has its own.
    enum { BITMASK_PID = 1, BITMASK_VID = 2, BITMASK_PORT = 4 };

    void CaptureFrame(uint8_t*, uint32_t) override {}
    /// Copies one frame into the sample's buffer. Bytes; 0 when none came within 500 ms or no
    /// stream is configured (the sample is left alone then).
    int CaptureFrame(MediaSample& sample) override;
    /// Configures again with the arguments of the last ConfigureDev.
    bool ResetStream() override;

  private:
    CAIT_CAM_LIB AitCamLib;
    bool inited = false;
    bool dev_ready = false;
    [[maybe_unused]] uint16_t m_Pid;
    [[maybe_unused]] uint16_t m_Vid;
    uint32_t m_cur_width = 0;
    uint32_t m_cur_height = 0;
    uint32_t m_cur_pixFmt = 0;
    uint32_t m_cur_framerate = 0;
};

/// Microphone capture over the UAC engine.
class CAudioCapture : public IAudioCapture {
  public:
    /// Opens the camera; IsReady tells whether that worked.
    CAudioCapture(uint16_t vid, uint16_t pid);
    ~CAudioCapture() override;

    /// Starts streaming at `smp_rate` Hz; a configured stream is stopped first. `channel` and
    /// `format` are ignored: the device streams in its own fixed format.
    bool ConfigureDev(uint8_t channel, uint32_t smp_rate, uint32_t format) override;
    void UnConfigureDev() override;
    /// 0 to 100 % of the device's range. Always true, also when the engine refuses a value outside.
    bool SetVolume(int percent) override;
    int GetBuf(unsigned char** buf, unsigned int* len) override;
    void RetBuf() override { AitAudioLib.QueueFrameBuf(); }

    bool IsReady() const { return dev_ready; }

    // --- not called by the plug-in

    int ReadAudioData(uint8_t* buf, uint32_t size) override;
    int SetSamplingRate(int rate) override;

  private:
    CAIT_AUDIO_LIB AitAudioLib;
    bool inited = false;
    bool dev_ready = false;
    [[maybe_unused]] uint16_t m_Pid;
    [[maybe_unused]] uint16_t m_Vid;
};
