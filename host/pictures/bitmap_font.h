// Labels in pictures.
#pragma once

#include <string_view>

#include "host/pictures/picture.h"

namespace camhost {

/// Size in pixels of one character cell at scale 1, spacing included.
inline constexpr Size kCharacterCell{6, 9};

/// Draws the text in white at the given corner, letters in upper case, each font pixel `scale`
/// picture pixels wide. What leaves the picture is cut off; unknown characters are blank.
void draw_text(RgbPicture* picture, int left, int top, int scale, std::string_view text);

}  // namespace camhost
