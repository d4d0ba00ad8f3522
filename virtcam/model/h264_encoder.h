// H.264 by OpenH264, normalised to the exact shape of the camera's access units.
#pragma once

#include <cstdint>
#include <memory>

#include "virtcam/model/bytes.h"
#include "virtcam/model/picture.h"
#include "virtcam/model/settings.h"

namespace virtcam::model {

/// Brings an access unit in Annex B form into the camera's shape:
///   key frame: SPS, PPS of 8 bytes with its start code, one IDR slice (NAL header 0x65);
///   other:     one slice with NAL header 0x41;
/// each with a four-byte start code and nothing else (no SEI, no delimiter), and without a byte
/// 0x68 inside the SPS, since hosts find the PPS by it: an SPS that has one (OpenH264 since 2.6) is
/// written anew. Throws std::runtime_error, with the encoder's version in it, when the input cannot
/// be brought into this shape.
Bytes normalise_access_unit(ByteView annex_b);

/// True when a normalised access unit is a key frame.
bool is_key_frame(ByteView access_unit);

class H264Encoder {
  public:
    H264Encoder(FrameSize size, StreamRate rate);
    ~H264Encoder();

    FrameSize size() const { return size_; }
    /// New rates from the next picture on; no key frame follows from it.
    void set_rate(StreamRate rate);
    /// One normalised access unit. The first is a key frame, so is one with `key`; others follow
    /// every kKeyFrameInterval pictures.
    Bytes encode(const Picture& picture, bool key);

    static constexpr uint32_t kKeyFrameInterval = 30;

  private:
    struct Handle;
    FrameSize size_;
    StreamRate rate_;
    double timestamp_ms_ = 0;
    std::unique_ptr<Handle> handle_;
};

}  // namespace virtcam::model
