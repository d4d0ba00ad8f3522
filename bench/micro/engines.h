// The plug-in's two engines without their threads: the benchmark handles the events and takes the
// frames itself.
#pragma once

#include <atomic>

#include "CLibusb_UacCtrl.h"
#include "CLibusb_UvcCtrl.h"
#include "bench/bus/traffic.h"

namespace bench {

/// An engine whose events are handled where its data is taken.
template <typename Engine>
class Unthreaded : public Engine {
  protected:
    /// Handles events until the next element of the queue has come, takes it and gives it back. Its
    /// length.
    unsigned next() {
        while (this->Queue()->GetCnt() == 0) {
            this->handle_libusb_event();
        }
        unsigned char* data = nullptr;
        unsigned length = 0;
        this->DequeFrameBuf(&data, &length);
        this->QueueFrameBuf();
        return length;
    }
};

class VideoEngine : public Unthreaded<CLibUSB_UvcCtrl> {
  public:
    /// Streams `payload` bytes a payload. Throws std::runtime_error.
    explicit VideoEngine(uint32_t payload);
    ~VideoEngine() override;

    using CLibUSB_UvcCtrl::UVC_DisableVideoStream;
    using CLibUSB_UvcCtrl::UVC_EnableVideoStream;

    unsigned next_frame() { return next(); }
    /// Handles one round of events: as many payloads as there are transfers.
    void round() { handle_libusb_event(); }
    static constexpr int kPayloadsOfRound = 3;
};

class AudioEngine : public Unthreaded<CLibUSB_UacCtrl> {
  public:
    AudioEngine();
    ~AudioEngine() override;

    unsigned next_transfer() { return next(); }
};

}  // namespace bench
