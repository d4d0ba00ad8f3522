#include "host/pictures/jpeg_decoder.h"

#include <turbojpeg.h>

#include <memory>
#include <type_traits>

namespace camhost {

namespace {

struct Destroyer {
    void operator()(void* decompressor) const { tjDestroy(decompressor); }
};

}  // namespace

RgbPicture decode_jpeg(std::span<const uint8_t> bytes) {
    const std::unique_ptr<std::remove_pointer_t<tjhandle>, Destroyer> decompressor(
        tjInitDecompress());
    constexpr int kLongestSide = 4096;
    Size size;
    int subsampling = 0;
    int colour_space = 0;
    if (decompressor == nullptr ||
        tjDecompressHeader3(decompressor.get(), bytes.data(), bytes.size(), &size.width,
                            &size.height, &subsampling, &colour_space) != 0 ||
        size.width > kLongestSide || size.height > kLongestSide) {
        return {};
    }
    RgbPicture picture(size, 0);
    // Stopping at warnings makes a truncated picture a failed one.
    if (tjDecompress2(decompressor.get(), bytes.data(), bytes.size(), picture.rgb.data(),
                      size.width, 0, size.height, TJPF_RGB, TJFLAG_STOPONWARNING) != 0) {
        return {};
    }
    return picture;
}

}  // namespace camhost
