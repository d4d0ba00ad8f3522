// Multiplexed frames through the capture thread and the camera object to observers that read every
// byte of every record. The thread's body runs on the fuzzer's thread.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "CFrameBuf.h"
#include "CameraInterface.h"
#include "VideoCaptureThread.h"
#include "aitdbg.h"
#include "fuzz/fake_usb.h"
#include "tests/support/FramesOnly.h"

extern "C" ICameraSubject* cam_create();

namespace {

class Reader : public ICameraObserver {
  public:
    explicit Reader(int type) { SetStreamType(static_cast<CAM_STREAM_TYPE>(type)); }
    bool Update(const CCameraData* record) override {
        fuzz::touch(static_cast<const unsigned char*>(record->m_pData), record->m_size);
        return true;
    }
};

class Thread : public CVideoCaptureThread {
  public:
    using CVideoCaptureThread::CVideoCaptureThread;
    using pThread::Shutdown;
};

/// Lends the frames of the input: two bytes of length, and that much, each in a buffer of its own
/// with the spare bytes that every frame buffer has.
class Source : public test::FramesOnly {
  public:
    Source(const uint8_t* data, size_t size) : m_Data(data), m_Size(size) {}
    void EndOf(Thread& thread) { m_Thread = &thread; }

    int GetFrameBuf(uint8_t** buffer, uint32_t* length) override {
        *buffer = nullptr;
        *length = 0;
        if (m_At + 2 >= m_Size) {
            m_Thread->Shutdown = true;
            return 0;
        }
        const size_t wanted = m_Data[m_At] | (m_Data[m_At + 1] << 8);
        m_At += 2;
        const size_t size = std::min(wanted, m_Size - m_At);
        m_Frame = std::make_unique<uint8_t[]>(size + CFrameBuf::kSpareBytes);
        std::copy_n(m_Data + m_At, size, m_Frame.get());
        m_At += size;
        *buffer = m_Frame.get();
        *length = static_cast<uint32_t>(size);
        return static_cast<int>(size);
    }
    void RetFrameBuf() override { m_Frame.reset(); }

  private:
    const uint8_t* const m_Data;
    const size_t m_Size;
    size_t m_At = 0;
    Thread* m_Thread = nullptr;
    std::unique_ptr<uint8_t[]> m_Frame;
};

/// A camera with one observer for each type of stream.
ICameraSubject* WatchedCamera() {
    static std::vector<std::unique_ptr<Reader>> readers;
    ICameraSubject* camera = cam_create();
    g_embedded_cam_dbg_level = 0;
    for (int type = 0; type < MAX_CAM_STREAM_TYPE; ++type) {
        readers.push_back(std::make_unique<Reader>(type));
        camera->RegisterObserver(readers.back().get());
    }
    return camera;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ICameraSubject* camera = WatchedCamera();
    if (size == 0) {
        return 0;
    }
    Source source(data + 1, size - 1);
    Thread thread(&source, camera);
    source.EndOf(thread);
    thread.SetSkypeCallMode((data[0] & 1) != 0);
    thread.Run();
    return 0;
}
