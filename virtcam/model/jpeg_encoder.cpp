#include "virtcam/model/jpeg_encoder.h"

#include <turbojpeg.h>

#include <array>
#include <stdexcept>

namespace virtcam::model {
namespace {

// The last step fits any picture that the camera makes into any limit that it sets.
constexpr std::array<int, 4> kQualities{80, 60, 30, 5};

}  // namespace

struct JpegEncoder::Handle {
    tjhandle compressor = tjInitCompress();
    unsigned char* buffer = nullptr;
    unsigned long size = 0;

    Handle() = default;
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        tjFree(buffer);
        tjDestroy(compressor);
    }
};

JpegEncoder::JpegEncoder() : handle_(std::make_unique<Handle>()) {
    if (handle_->compressor == nullptr) {
        throw std::runtime_error("JPEG encoder: cannot be created");
    }
}

JpegEncoder::~JpegEncoder() = default;

Bytes JpegEncoder::encode(const Picture& picture, size_t limit) {
    const unsigned char* planes[3] = {picture.y.data(), picture.u.data(), picture.v.data()};
    for (const int quality : kQualities) {
        if (tjCompressFromYUVPlanes(handle_->compressor, planes, picture.width, nullptr,
                                    picture.height, TJSAMP_420, &handle_->buffer, &handle_->size,
                                    quality, 0) != 0) {
            throw std::runtime_error(std::string("JPEG encoder: ") +
                                     tjGetErrorStr2(handle_->compressor));
        }
        if (handle_->size <= limit) {
            break;
        }
    }
    return {handle_->buffer, handle_->buffer + handle_->size};
}

}  // namespace virtcam::model
