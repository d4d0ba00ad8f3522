// Which part of the sensor a picture shows, and the resampling of that part to the picture's size.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "virtcam/model/picture.h"
#include "virtcam/model/settings.h"
#include "virtcam/model/uvc_controls.h"

namespace virtcam::model {

/// A crop window's size in sensor pixels; its origin comes from the host.
inline constexpr int kCropWidth = 640;
inline constexpr int kCropHeight = 480;

/// The part of `base` (coordinates of the source) that a picture of `size` shows: the crop window
/// if there is one, else pan and tilt applied to the whole, narrowed to the picture's aspect, and
/// magnified by zoom (a fifth for each step) about its centre.
Region view_region(const Region& base, FrameSize size, const UvcControls& controls,
                   const std::optional<CropOrigin>& crop);

struct Orientation {
    bool mirror = false;  ///< left and right exchanged
    bool flip = false;    ///< top and bottom exchanged
};

/// Nearest-neighbour resampler. Keeps its index tables between calls, so each thread has its own.
class Resampler {
  public:
    /// Fills `target` (its size is the picture's) from `region` of `source`; samples outside the
    /// source repeat its border.
    void run(const Picture& source, const Region& region, Orientation orientation, bool luma_only,
             Picture& target);

  private:
    std::vector<int> columns_;
};

}  // namespace virtcam::model
