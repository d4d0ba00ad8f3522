// Baseline JPEG, 4:2:0, by libjpeg-turbo.
#pragma once

#include <memory>

#include "virtcam/model/bytes.h"
#include "virtcam/model/picture.h"

namespace virtcam::model {

class JpegEncoder {
  public:
    JpegEncoder();
    ~JpegEncoder();

    /// A picture of limited range, expanded to the full range that JFIF has, as a complete JPEG
    /// file image of at most `limit` bytes: the quality is lowered until it fits. Throws std::runtime_error when the library fails.
    Bytes encode(const Picture& picture, size_t limit);

  private:
    struct Handle;
    std::unique_ptr<Handle> handle_;
    Picture expanded_;  ///< kept for its memory
};

}  // namespace virtcam::model
