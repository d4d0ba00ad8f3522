#include "host/pictures/png_file.h"

#include <png.h>

#include "host/base/exit_code.h"

namespace camhost {

void write_png(const std::filesystem::path& path, const RgbPicture& picture) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.size.width);
    image.height = static_cast<png_uint_32>(picture.size.height);
    image.format = PNG_FORMAT_RGB;
    if (png_image_write_to_file(&image, path.c_str(), 0, picture.rgb.data(), 0, nullptr) == 0) {
        throw Failure(ExitCode::kFailed, "cannot write " + path.string() + ": " + image.message);
    }
}

}  // namespace camhost
