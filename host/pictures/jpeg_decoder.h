// JPEG pictures, through libjpeg-turbo.
#pragma once

#include <cstdint>
#include <span>

#include "host/pictures/picture.h"

namespace camhost {

/// The picture, or an empty one when the bytes are no complete JPEG of at most 4096 x 4096.
RgbPicture decode_jpeg(std::span<const uint8_t> bytes);

}  // namespace camhost
