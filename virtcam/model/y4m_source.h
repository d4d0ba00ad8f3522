// Pictures from a YUV4MPEG2 file that the user names, repeated from the start at its end.
#pragma once

#include <fstream>
#include <string>

#include "virtcam/model/picture.h"

namespace virtcam::model {

class Y4mSource final : public PictureSource {
  public:
    static constexpr int kMaxSide = 4096;

    /// Opens a file of 4:2:0 pictures with 8 bits, of even width and height from 16 to kMaxSide.
    /// Throws std::runtime_error that names the file and what is wrong with it.
    explicit Y4mSource(const std::string& path);

    const Picture& at(uint64_t tick) override;
    Region base_view() const override;

  private:
    bool read_picture();

    std::ifstream file_;
    std::streamoff first_ = 0;  ///< position of the first picture
    Picture picture_;
    uint64_t next_tick_ = 0;  ///< tick of the picture that the file stands at
};

}  // namespace virtcam::model
