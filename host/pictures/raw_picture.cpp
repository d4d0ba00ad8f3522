#include "host/pictures/raw_picture.h"

#include <vector>

namespace camhost {

namespace {

size_t byte_size(Stream stream, Size size) {
    switch (stream) {
        case Stream::kGray:
            return size.area();
        case Stream::kYuy2:
            return size.area() * 2;
        default:
            return size.area() * 3 / 2;
    }
}

const std::vector<Size>& known_sizes(Stream stream) {
    static const std::vector<Size> gray{{320, 240}};
    static const std::vector<Size> nv12{{640, 480}, {864, 486}};
    static const std::vector<Size> local_view{{640, 480}, {640, 360}, {800, 450}};
    if (stream == Stream::kGray) {
        return gray;
    }
    return stream == Stream::kNv12 ? nv12 : local_view;
}

void split_yuy2(std::span<const uint8_t> bytes, PlanarPicture* picture) {
    for (size_t i = 0; i + 4 <= bytes.size(); i += 4) {
        picture->y.push_back(bytes[i]);
        picture->u.push_back(bytes[i + 1]);
        picture->y.push_back(bytes[i + 2]);
        picture->v.push_back(bytes[i + 3]);
    }
}

/// NV12 holds U before V in each pair, NV21 V before U.
void split_semi_planar(Stream stream, std::span<const uint8_t> bytes, PlanarPicture* picture) {
    const size_t luma = picture->size.area();
    picture->y.assign(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(luma));
    auto& first = stream == Stream::kNv12 ? picture->u : picture->v;
    auto& second = stream == Stream::kNv12 ? picture->v : picture->u;
    for (size_t i = luma; i + 2 <= bytes.size(); i += 2) {
        first.push_back(bytes[i]);
        second.push_back(bytes[i + 1]);
    }
}

}  // namespace

bool is_raw(Stream stream) {
    return stream == Stream::kGray || stream == Stream::kYuy2 || stream == Stream::kNv12 ||
           stream == Stream::kNv21;
}

std::optional<Size> deduce_size(Stream stream, size_t bytes) {
    for (const Size& size : known_sizes(stream)) {
        if (byte_size(stream, size) == bytes) {
            return size;
        }
    }
    return std::nullopt;
}

std::optional<PlanarPicture> to_planar(Stream stream, Size size, std::span<const uint8_t> bytes) {
    if (!is_raw(stream) || bytes.size() != byte_size(stream, size)) {
        return std::nullopt;
    }
    PlanarPicture picture;
    picture.size = size;
    picture.y.reserve(size.area());
    if (stream == Stream::kGray) {
        picture.y.assign(bytes.begin(), bytes.end());
        return picture;
    }
    const bool packed = stream == Stream::kYuy2;
    picture.chroma = packed ? PlanarPicture::Chroma::k422 : PlanarPicture::Chroma::k420;
    picture.u.reserve(picture.chroma_size().area());
    picture.v.reserve(picture.chroma_size().area());
    if (packed) {
        split_yuy2(bytes, &picture);
    } else {
        split_semi_planar(stream, bytes, &picture);
    }
    return picture;
}

}  // namespace camhost
