#include "V4l2Capture.h"

#include "aitdbg.h"

namespace {

constexpr uint32_t kFourCcNv12 = 0x3231564E;
constexpr int kNegotiatedRate = 30;

/// Descriptor indices of one stream.
struct StreamIndices {
    int format;
    int frame;
};

/// Multiplexed stream: the size alone selects the frame of format 4.
struct MultiplexedSize {
    uint32_t width;
    uint32_t height;
    int frame;
};

constexpr int kMultiplexedFormat = 4;
constexpr StreamIndices kNv12Stream = {2, 1};
constexpr StreamIndices kFallbackStream = {3, 1};
constexpr MultiplexedSize kMultiplexedSizes[] = {
    {1280, 720, 4}, {640, 480, 1}, {320, 240, 3}, {160, 120, 2}, {1920, 1080, 5},
};

StreamIndices ChooseStream(uint32_t width, uint32_t height, uint32_t pixFmt) {
    if (pixFmt == kFourCcNv12 && width == 864 && height == 486) {
        return kNv12Stream;
    }
    if (pixFmt == 0) {
        for (const MultiplexedSize& size : kMultiplexedSizes) {
            if (size.width == width && size.height == height) {
                return {kMultiplexedFormat, size.frame};
            }
        }
    }
    return kFallbackStream;
}

}  // namespace

AitUvcCapture::AitUvcCapture(uint16_t vid, uint16_t pid) : m_Pid(pid), m_Vid(vid) {
    dev_ready = AitCamLib.Init(vid, pid) == 0;
    if (!dev_ready) {
        AIT_LOG(1, "AitUvcCapture:: Device not exist.\r\n");
    }
}

AitUvcCapture::~AitUvcCapture() {
    AitCamLib.DisableStream();
    inited = false;
}

bool AitUvcCapture::ConfigureDev(uint32_t width, uint32_t height, uint32_t pixFmt,
                                 uint32_t framerate) {
    UnConfigureDev();
    m_cur_width = width;
    m_cur_height = height;
    m_cur_pixFmt = pixFmt;
    m_cur_framerate = framerate;
    const StreamIndices stream = ChooseStream(width, height, pixFmt);
    if (AitCamLib.EnableStream(stream.format, stream.frame, kNegotiatedRate) < 0) {
        AIT_LOG(4, "Failed to start streaming.\r\n");
        return false;
    }
    inited = true;
    return true;
}

void AitUvcCapture::UnConfigureDev() {
    AitCamLib.DisableStream();
    inited = false;
}

bool AitUvcCapture::SetBitrate(uint32_t rate) {
    return AitCamLib.SetBitrate(static_cast<uint16_t>(rate));
}

bool AitUvcCapture::SetFramerate(uint32_t fps) {
    return AitCamLib.SetFramerate(static_cast<uint16_t>(fps));
}

int AitUvcCapture::GetFrameBuf(uint8_t** buf, uint32_t* len) {
    return static_cast<int>(AitCamLib.DequeFrameBuf(buf, len));
}

int AitUvcCapture::AitCommandSend(unsigned char selector, unsigned char* data,
                                  unsigned char length) {
    return AitCamLib.AitCommandSend(selector, data, length);
}

int AitUvcCapture::AitCommandGet(unsigned char selector, unsigned char* data,
                                 unsigned char length) {
    return AitCamLib.AitCommandGet(selector, data, length);
}

CAudioCapture::CAudioCapture(uint16_t vid, uint16_t pid) : m_Pid(pid), m_Vid(vid) {
    dev_ready = AitAudioLib.Init(vid, pid) == 0;
    if (!dev_ready) {
        AIT_LOG(1, "CAudioCapture:: Device not exist.\r\n");
    }
}

CAudioCapture::~CAudioCapture() {
    AIT_LOG(4, "CAudioCapture::~CAudioCapture+\r\n");
    AitAudioLib.DisableStream();
    inited = false;
    AIT_LOG(4, "CAudioCapture::~CAudioCapture-\r\n");
}

bool CAudioCapture::ConfigureDev(uint8_t, uint32_t smp_rate, uint32_t) {
    if (inited) {
        UnConfigureDev();
    }
    if (AitAudioLib.EnableStream(static_cast<int>(smp_rate)) < 0) {
        AIT_LOG(4, "Failed to start streaming.\r\n");
        return false;
    }
    inited = true;
    return true;
}

void CAudioCapture::UnConfigureDev() {
    AitAudioLib.DisableStream();
    inited = false;
}

bool CAudioCapture::SetVolume(int percent) {
    // 32-bit arithmetic that may wrap; a value that leaves the range is refused by the engine.
    const unsigned int range = AitAudioLib.GetMaxVolume() - AitAudioLib.GetMinVolume();
    const int offset = static_cast<int>(static_cast<unsigned int>(percent) * range) / 100;
    AitAudioLib.SetCurVolume(static_cast<unsigned int>(offset));
    return true;
}

int CAudioCapture::GetBuf(unsigned char** buf, unsigned int* len) {
    return static_cast<int>(AitAudioLib.DequeFrameBuf(buf, len));
}

// --- not called by the plug-in

int AitUvcCapture::CaptureFrame(MediaSample& sample) {
    if (!inited) {
        return 0;
    }
    const unsigned int count = AitCamLib.ReadFrame(sample.GetBuffer(), sample.GetBufferSize());
    sample.SetSampleSize(count);
    return static_cast<int>(count);
}

bool AitUvcCapture::ResetStream() {
    UnConfigureDev();
    return ConfigureDev(m_cur_width, m_cur_height, m_cur_pixFmt, m_cur_framerate);
}

int CAudioCapture::ReadAudioData(uint8_t* buf, uint32_t size) {
    return static_cast<int>(AitAudioLib.ReadFrame(buf, size));
}

int CAudioCapture::SetSamplingRate(int rate) {
    return AitAudioLib.SetSamplingRate(static_cast<unsigned int>(rate));
}
