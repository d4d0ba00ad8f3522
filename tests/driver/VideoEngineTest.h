// The video engine without its thread, on scripted payloads.
#pragma once

#include "CLibusb_UvcCtrl.h"
#include "tests/driver/StreamTest.h"

namespace test {

class VideoEngine : public CLibUSB_UvcCtrl {
  public:
    using CLibUSB_UvcCtrl::FillVideoBuf_Bulk;
    using UsbStreamEngine::IsStreaming;
    using UsbStreamEngine::m_bDeviceGone;
    using UsbStreamEngine::m_ctx;
    using UsbStreamEngine::m_pDev;
    using UsbStreamEngine::m_pDevH;
    using UsbStreamEngine::m_ProducerMtx;
    using UsbStreamEngine::m_TransferMtx;
    using UsbStreamEngine::Queue;
};

class VideoEngineTest : public StreamTest<VideoEngine, 0x81> {
  protected:
    ~VideoEngineTest() override {
        clock().on_sleep(nullptr);  // what it refers to is gone
        if (m_Engine != nullptr) {
            Stop();
        }
    }

    static constexpr size_t kTransfers = 3;
    static constexpr int kStreamingInterface = 1;
    static constexpr std::chrono::milliseconds kSleepOfTheStop{200};
    /// Of a start: 5 buffers (object and storage), queue, holder, 3 parameter objects (likewise).
    static constexpr int kAllocations = 5 * 2 + 1 + 1 + 3 * 2;
    const Logged kStreamingOk{4, "libusb_claim_interface (VideoStreaming) ok!\n"};
    const Logged kControlOk{4, "libusb_claim_interface (VideoControl) ok!\n"};

    void Open() {
        Make();
        ASSERT_EQ(Init(), 0);
        Forget();
    }
    /// This engine gives back what it took.
    void ExpectUnusualRelease() {}
    int Start(int format = 4, int frame = 4, int fps = 30) {
        return m_Engine->UVC_EnableVideoStream(format, frame, fps);
    }
    static bool Failed(int result) { return result < 0; }
    int Stop() { return m_Engine->UVC_DisableVideoStream(); }
    void Stream(int format = 4, int frame = 4) {
        Open();
        ASSERT_EQ(Start(format, frame), 0);
        Forget();
    }
    void ExpectIdle() {
        StreamTest::ExpectIdle();
        EXPECT_EQ(CountCalls("libusb_alloc_transfer"), CountCalls("libusb_free_transfer"));
    }

    /// The camera ends one transfer with this, and the engine meets it.
    void Deliver(const Bytes& bytes,
                 virtcam::bus::TransferStatus status = virtcam::bus::TransferStatus::kCompleted,
                 std::optional<int> actualLength = std::nullopt) {
        virtcam::bus::push_bulk(status, bytes, actualLength);
        m_Engine->handle_libusb_event();
    }
    /// The camera will end one transfer with a payload of these bytes.
    void Push(const Bytes& bytes) {
        virtcam::bus::push_bulk(virtcam::bus::TransferStatus::kCompleted, Payload(0, bytes));
    }
    void DeliverFrame(const Bytes& bytes) {
        Deliver(Payload(0, bytes));
        DeliverEnd(0);
    }
    /// Ends the frame of frame ID `fid` as the camera does, with a header alone.
    void DeliverEnd(uint8_t fid) { Deliver(Payload(static_cast<uint8_t>(fid | kEof))); }
};

}  // namespace test
