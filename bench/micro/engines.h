// The plug-in's two engines without their threads: the benchmark handles the events and takes the
// frames itself.
#pragma once

#include <atomic>

#include "CLibusb_UacCtrl.h"
#include "CLibusb_UvcCtrl.h"
#include "bench/bus/traffic.h"

namespace bench {

class VideoEngine : public CLibUSB_UvcCtrl {
  public:
    /// Streams `payload` bytes a payload. Throws std::runtime_error.
    explicit VideoEngine(uint32_t payload);
    ~VideoEngine() override;

    using CLibUSB_UvcCtrl::UVC_DisableVideoStream;
    using CLibUSB_UvcCtrl::UVC_EnableVideoStream;

    /// Handles events until the next frame has come, takes it and gives it back. Its length.
    unsigned next_frame();
    /// Handles one round of events: as many payloads as there are transfers.
    void round() { handle_libusb_event(); }
    static constexpr int kPayloadsOfRound = 3;
};

class AudioEngine : public CLibUSB_UacCtrl {
  public:
    AudioEngine();
    ~AudioEngine() override;

    /// Handles events until the next transfer has come, takes it and gives it back. Its length.
    unsigned next_transfer();
};

}  // namespace bench
