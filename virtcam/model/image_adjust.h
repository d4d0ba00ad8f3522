// Picture controls as arithmetic on samples: brightness, contrast, gamma, gain, backlight, hue,
// saturation, white balance, sharpness and the two effects.
#pragma once

#include <array>
#include <cstdint>

#include "virtcam/model/picture.h"
#include "virtcam/model/settings.h"
#include "virtcam/model/uvc_controls.h"

namespace virtcam::model {

class ImageAdjust {
  public:
    ImageAdjust(const UvcControls& controls, const StreamSettings& settings);

    /// Applies everything to `picture` in place. Luma only when `luma_only`.
    void apply(Picture& picture, bool luma_only) const;

  private:
    void build_luma(const UvcControls& controls, const StreamSettings& settings);
    void build_chroma(const UvcControls& controls, const StreamSettings& settings);
    void apply_chroma(Picture& picture) const;
    void sharpen(Picture& picture) const;

    std::array<uint8_t, 256> luma_;
    bool luma_neutral_ = true;
    // u' = 128 + uu*(u-128) + uv*(v-128) + u0, likewise v'; in 1/256.
    int uu_ = 256, uv_ = 0, vu_ = 0, vv_ = 256;
    int u0_ = 0, v0_ = 0;
    bool chroma_neutral_ = true;
    int sharpness_ = 0;  ///< in 1/16: above 0 sharpens, below 0 softens
};

}  // namespace virtcam::model
