// The video engine without its thread, on scripted payloads.
#pragma once

#include <errno.h>

#include <memory>

#include "CLibusb_UvcCtrl.h"
#include "tests/driver/EngineTest.h"

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

class VideoEngineTest : public EngineTest {
  protected:
    ~VideoEngineTest() override {
        clock().on_sleep(nullptr);  // what it refers to is gone
        if (m_Engine != nullptr) {
            m_Engine->UVC_DisableVideoStream();
        }
    }

    void Open() {
        m_Engine = std::make_unique<VideoEngine>();
        ASSERT_EQ(m_Engine->Init(kVendor, kProduct), 0);
        Forget();
    }
    void Stream(int format = 4, int frame = 4) {
        Open();
        ASSERT_EQ(m_Engine->UVC_EnableVideoStream(format, frame, 30), 0);
        Forget();
    }

    /// The camera ends one transfer with this, and the engine meets it.
    void Deliver(const Bytes& bytes,
                 virtbus::TransferStatus status = virtbus::TransferStatus::kCompleted,
                 std::optional<int> actualLength = std::nullopt) {
        virtbus::push_bulk(status, bytes, actualLength);
        m_Engine->handle_libusb_event();
    }
    /// Ends the frame of frame ID `fid` as the camera does, with a header alone.
    void DeliverEnd(uint8_t fid) { Deliver(Payload(static_cast<uint8_t>(fid | kEof))); }

    /// Frames that wait for the consumer.
    uint32_t Queued() { return m_Engine->Queue()->GetCnt(); }
    /// Takes the oldest frame; the queue must not be empty.
    Bytes Take() {
        unsigned char* data = nullptr;
        unsigned int length = 0;
        if (Queued() == 0 || m_Engine->DequeFrameBuf(&data, &length) == 0) {
            return {};
        }
        Bytes frame(data, data + length);
        m_Engine->QueueFrameBuf();
        return frame;
    }
    static size_t InFlight() { return virtbus::pending(0x81); }

    /// Waits of the queue time out at once.
    static void ExpireWaits() { system_calls().pthread_cond_timedwait = ETIMEDOUT; }

    std::unique_ptr<VideoEngine> m_Engine;
};

}  // namespace test
