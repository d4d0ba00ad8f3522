// What is drawn over every picture: the machine-readable counter and the same number for people.
#pragma once

#include <cstdint>

#include "virtcam/model/picture.h"

namespace virtcam::model {

/// Draws both. Chroma under them becomes neutral unless `luma_only`.
void draw_overlay(Picture& picture, uint32_t counter, bool luma_only);

}  // namespace virtcam::model
