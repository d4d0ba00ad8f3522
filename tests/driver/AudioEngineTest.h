// The audio engine without its thread, on scripted isochronous transfers.
#pragma once

#include "CLibusb_UacCtrl.h"
#include "tests/driver/StreamTest.h"

namespace test {

class AudioEngine : public CLibUSB_UacCtrl {
  public:
    using CLibUSB_UacCtrl::FillAudioData;
    using UsbStreamEngine::IsStreaming;
    using UsbStreamEngine::m_bDeviceGone;
    using UsbStreamEngine::m_ctx;
    using UsbStreamEngine::m_pDevH;
    using UsbStreamEngine::m_ProducerMtx;
    using UsbStreamEngine::m_TransferMtx;
    using UsbStreamEngine::Queue;
};

constexpr int kPackets = 10;
/// Rate that the camera offers.
constexpr int kRate = 16000;

class AudioEngineTest : public StreamTest<AudioEngine, 0x82> {
  protected:
    ~AudioEngineTest() override {
        // A stop that a test made fail leaves its transfers to the destructor.
        clock().on_sleep(nullptr);  // what it refers to is gone
        if (m_Engine != nullptr) {
            Stop();
        }
        Close();
    }

    static constexpr size_t kTransfers = 2;
    static constexpr int kStreamingInterface = 3;
    static constexpr std::chrono::milliseconds kSleepOfTheStop{400};
    /// Of a start: 2 parameter objects (object and storage), 4 buffers (likewise), the queue.
    static constexpr int kAllocations = 2 * 2 + 4 * 2 + 1;
    const Logged kStreamingOk{4, "libusb_claim_interface (AudioStream)  ok!\n"};
    const Logged kControlOk{4, "libusb_claim_interface (AudioControl) ok!\n"};

    void Open() {
        Make();
        ASSERT_EQ(Init(), 0);
        ExpectUnusualRelease();
        Forget();
    }
    int Start(int rate = kRate) { return m_Engine->UAC_EnableAudioStream(rate); }
    static bool Failed(int result) { return result == -1; }
    int Stop() { return m_Engine->UAC_DisableAudioStream(); }
    void Stream() {
        Open();
        ASSERT_EQ(Start(), 0);
        m_PacketSize = usb().submits().at(0).packet_lengths.at(0);
        Forget();
    }
    void Close() { m_Engine.reset(); }

    /// The engine releases an interface that it never claimed and leaves its own two to the close.
    void ExpectUnusualRelease() {
        ExpectComplaint("libusb_release_interface: interface 1 was not claimed");
        ExpectComplaint("libusb_close: claimed and not released: interface 2, 3");
    }

    /// The camera ends one transfer with these packets, and the engine meets it.
    void Deliver(std::vector<virtcam::bus::IsoPacket> packets,
                 virtcam::bus::TransferStatus status = virtcam::bus::TransferStatus::kCompleted) {
        virtcam::bus::push_iso(std::move(packets), status);
        m_Engine->handle_libusb_event();
    }
    void DeliverBytes(const Bytes& bytes) {
        Deliver({{virtcam::bus::TransferStatus::kCompleted, bytes, std::nullopt}});
    }
    /// The camera will end one transfer with a packet of these bytes.
    void Push(const Bytes& bytes) {
        virtcam::bus::push_iso({{virtcam::bus::TransferStatus::kCompleted, bytes, std::nullopt}});
    }
    void DeliverFrame(const Bytes& bytes) { DeliverBytes(bytes); }

    unsigned int m_PacketSize = 0;
};

}  // namespace test
