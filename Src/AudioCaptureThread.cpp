#include "AudioCaptureThread.h"

#include <string.h>

#include "CaptureClock.h"
#include "aitdbg.h"

namespace {

constexpr int kBufferSize = 4096;
constexpr int kBlockSize = 960;

/// Samples that do not fill a block yet.
class BlockBuffer {
  public:
    /// Number of the `count` bytes that still fit; says so when some do not and are lost.
    int Cut(int count) const {
        if (count > kBufferSize - m_nFill) {
            AIT_LOG(3, "Audio buffer : %d overflow !!!! \r\n", kBufferSize);
            return kBufferSize - m_nFill;
        }
        return count;
    }

    void Append(const unsigned char* data, int count) {
        memcpy(m_Buffer + m_nFill, data, static_cast<size_t>(count));
        m_nFill += count;
    }

    bool HasBlock() const { return m_nFill >= kBlockSize; }
    unsigned char* Block() { return m_Buffer; }

    void RemoveBlock() {
        m_nFill -= kBlockSize;
        memmove(m_Buffer, m_Buffer + kBlockSize, static_cast<size_t>(m_nFill));
    }

  private:
    unsigned char m_Buffer[kBufferSize];
    int m_nFill = 0;
};

}  // namespace

CAudioCaptureThread::CAudioCaptureThread(IAudioCapture* capture, ICameraSubject* subject)
    : pThread(false, -1), audio_capture(capture), camera_subject(subject) {}

void CAudioCaptureThread::Run() {
    if (!RaiseThreadPriority()) {
        AIT_LOG(1, "setpriority error!");
    }
    CaptureClock clock;
    BlockBuffer buffer;
    while (!Shutdown) {
        unsigned char* samples = nullptr;
        unsigned int length = 0;
        int count = audio_capture->GetBuf(&samples, &length);
        clock.Advance();
        count = buffer.Cut(count);
        if (count <= 0 || samples == nullptr) {
            continue;
        }
        buffer.Append(samples, count);
        while (buffer.HasBlock()) {
            CCameraExtData data = {};
            data.m_pData = buffer.Block();
            data.m_size = kBlockSize;
            data.m_cts = clock.Cts();
            data.m_type = CAM_STREAM_PCM;
            camera_subject->OnFrameArrival(&data);
            buffer.RemoveBlock();
        }
        audio_capture->RetBuf();
    }
    AIT_LOG(4, "Exit Audio capture thread.\r\n");
}
