// The microphone: a tone with a click each second, behind the feature unit's volume and mute.
#pragma once

#include <cstdint>
#include <optional>

#include "virtcam/model/bytes.h"

namespace virtcam::model {

class Microphone {
  public:
    static constexpr int16_t kMinVolume = -4096;  ///< 1/256 dB (UAC 1.0, 5.2.2.4.3.2)
    static constexpr int16_t kMaxVolume = 0;
    static constexpr int16_t kDefaultVolume = -1024;
    static constexpr uint32_t kClickMs = 4;

    explicit Microphone(uint32_t tone_hz) : tone_hz_(tone_hz) {}

    uint32_t rate() const { return rate_; }
    int16_t volume() const { return volume_; }
    bool muted() const { return muted_; }

    /// Requests of the feature unit (`selector` 1 mute, 2 volume; `channel` 0). An empty `block`
    /// stands for an IN request. Nothing means stall; SET_CUR answers an empty block.
    std::optional<Bytes> feature(uint8_t request, uint8_t selector, uint8_t channel,
                                 ByteView block);
    /// Sampling frequency control of the endpoint: only 16,000 and 24,000 Hz are accepted.
    std::optional<Bytes> frequency(uint8_t request, ByteView block);

    /// A stream begins: the tone starts at phase 0, the first sample is a click.
    void restart() { frames_ = 0; }
    /// Seconds from the nearest click to the end of what was handed out; negative: before it.
    double after_click() const;
    /// The next millisecond as interleaved stereo, 16-bit little-endian; at most `room` bytes.
    Bytes packet(size_t room);

  private:
    std::optional<Bytes> volume_request(uint8_t request, ByteView block);
    std::optional<Bytes> mute_request(uint8_t request, ByteView block);
    int16_t sample() const;
    double gain() const;

    uint32_t tone_hz_;
    uint32_t rate_ = 16000;
    int16_t volume_ = kDefaultVolume;
    bool muted_ = false;
    uint64_t frames_ = 0;  ///< stereo frames since restart()
};

}  // namespace virtcam::model
