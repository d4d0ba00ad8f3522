// H.264 pictures, through OpenH264.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "host/pictures/picture.h"

class ISVCDecoder;

namespace camhost {

/// One decoder is one stream from a key frame on. Not thread-safe.
class H264Decoder {
  public:
    /// Throws Failure (kFailed) when the library gives no decoder.
    H264Decoder();

    /// Decodes one NAL unit without its start code. True when it gave a picture, which is then
    /// stored. Undecodable data only gives no picture, see errors().
    bool decode(std::span<const uint8_t> nal, PlanarPicture* picture);
    /// The picture that the decoder still holds, if any.
    bool flush(PlanarPicture* picture);
    /// NAL units that the library reported as broken.
    unsigned errors() const { return errors_; }

  private:
    struct Destroyer {
        void operator()(ISVCDecoder* decoder) const;
    };
    std::unique_ptr<ISVCDecoder, Destroyer> decoder_;
    unsigned errors_ = 0;
};

}  // namespace camhost
