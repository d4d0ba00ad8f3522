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
                 virtcam::bus::TransferStatus status = virtcam::bus::TransferStatus::kCompleted,
                 std::optional<int> actualLength = std::nullopt) {
        virtcam::bus::push_bulk(status, bytes, actualLength);
        m_Engine->handle_libusb_event();
    }
    /// Ends the frame of frame ID `fid` as the camera does, with a header alone.
    void DeliverEnd(uint8_t fid) { Deliver(Payload(static_cast<uint8_t>(fid | kEof))); }
};

}  // namespace test
