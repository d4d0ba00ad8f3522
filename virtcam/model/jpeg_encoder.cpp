#include "virtcam/model/jpeg_encoder.h"

#include <turbojpeg.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

namespace virtcam::model {
namespace {

// The last step fits any picture that the camera makes into any limit that it sets.
constexpr std::array<int, 4> kQualities{80, 60, 30, 5};

using Levels = std::array<uint8_t, 256>;

/// Levels of the limited range (luma 16 to 235, chroma 128 +- 112) as those of the full range.
Levels full_range(int zero, int to_zero, int span) {
    Levels levels{};
    for (int level = 0; level < 256; ++level) {
        const long value = std::lround((level - zero) * 255.0 / span) + to_zero;
        levels[static_cast<size_t>(level)] = static_cast<uint8_t>(std::clamp(value, 0L, 255L));
    }
    return levels;
}

void map(const std::vector<uint8_t>& from, const Levels& levels, std::vector<uint8_t>& to) {
    std::transform(from.begin(), from.end(), to.begin(),
                   [&levels](uint8_t level) { return levels[level]; });
}

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
    static const Levels luma = full_range(16, 0, 219);
    static const Levels chroma = full_range(128, 128, 224);
    expanded_.resize(picture.width, picture.height);
    map(picture.y, luma, expanded_.y);
    map(picture.u, chroma, expanded_.u);
    map(picture.v, chroma, expanded_.v);
    const unsigned char* planes[3] = {expanded_.y.data(), expanded_.u.data(), expanded_.v.data()};
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
