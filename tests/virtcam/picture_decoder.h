// Decoders for the pictures that the model sends: what a test sees is what a host would see.
#pragma once

#include <memory>
#include <optional>

#include "virtcam/model/bytes.h"
#include "virtcam/model/picture.h"

namespace virtcam::model::test {

/// H.264 by OpenH264's decoder, one access unit at a time.
class H264Decoder {
  public:
    H264Decoder();
    ~H264Decoder();
    /// The picture of this access unit; nothing when it cannot be decoded.
    std::optional<Picture> decode(ByteView access_unit);

  private:
    struct Handle;
    std::unique_ptr<Handle> handle_;
};

std::optional<Picture> decode_jpeg(ByteView data);
Picture unpack_yuy2(ByteView data, int width, int height);
/// `u_first`: NV12, else NV21.
Picture unpack_semi_planar(ByteView data, int width, int height, bool u_first);
/// Chroma is neutral.
Picture unpack_gray(ByteView data, int width, int height);

}  // namespace virtcam::model::test
