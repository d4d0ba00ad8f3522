// PNG files, through libpng.
#pragma once

#include <filesystem>

#include "host/pictures/picture.h"

namespace camhost {

/// Throws Failure (kFailed) when the file cannot be written.
void write_png(const std::filesystem::path& path, const RgbPicture& picture);

}  // namespace camhost
