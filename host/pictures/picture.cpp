#include "host/pictures/picture.h"

#include <algorithm>
#include <cmath>

namespace camhost {

namespace {

uint8_t clamp_byte(double value) {
    return static_cast<uint8_t>(std::clamp(std::lround(value), 0L, 255L));
}

}  // namespace

Size PlanarPicture::chroma_size() const {
    switch (chroma) {
        case Chroma::k420:
            return {(size.width + 1) / 2, (size.height + 1) / 2};
        case Chroma::k422:
            return {(size.width + 1) / 2, size.height};
        case Chroma::kNone:
            break;
    }
    return {};
}

RgbPicture::RgbPicture(Size picture_size, uint8_t gray)
    : size(picture_size), rgb(picture_size.area() * 3, gray) {}

RgbPicture to_rgb(const PlanarPicture& picture) {
    RgbPicture result(picture.size, 0);
    const bool colour = picture.chroma != PlanarPicture::Chroma::kNone;
    const int vertical = picture.chroma == PlanarPicture::Chroma::k420 ? 2 : 1;
    const auto chroma_width = static_cast<size_t>(picture.chroma_size().width);
    for (int y = 0; y < picture.size.height; ++y) {
        for (int x = 0; x < picture.size.width; ++x) {
            const size_t at = static_cast<size_t>(y) * static_cast<size_t>(picture.size.width) +
                              static_cast<size_t>(x);
            const size_t chroma_at =
                static_cast<size_t>(y / vertical) * chroma_width + static_cast<size_t>(x / 2);
            const double luma = 1.164 * (picture.y[at] - 16);
            const double u = colour ? picture.u[chroma_at] - 128 : 0;
            const double v = colour ? picture.v[chroma_at] - 128 : 0;
            uint8_t* pixel = result.pixel(x, y);
            pixel[0] = clamp_byte(luma + 1.596 * v);
            pixel[1] = clamp_byte(luma - 0.392 * u - 0.813 * v);
            pixel[2] = clamp_byte(luma + 2.017 * u);
        }
    }
    return result;
}

RgbPicture shrink_to_fit(const RgbPicture& picture, Size box) {
    if (picture.empty()) {
        return {};
    }
    const double scale = std::min({1.0, static_cast<double>(box.width) / picture.size.width,
                                   static_cast<double>(box.height) / picture.size.height});
    const Size size{std::max(1, static_cast<int>(picture.size.width * scale)),
                    std::max(1, static_cast<int>(picture.size.height * scale))};
    RgbPicture result(size, 0);
    for (int y = 0; y < size.height; ++y) {
        const int top = y * picture.size.height / size.height;
        const int bottom = std::max(top + 1, (y + 1) * picture.size.height / size.height);
        for (int x = 0; x < size.width; ++x) {
            const int left = x * picture.size.width / size.width;
            const int right = std::max(left + 1, (x + 1) * picture.size.width / size.width);
            const int count = (bottom - top) * (right - left);
            for (int c = 0; c < 3; ++c) {
                int sum = 0;
                for (int sy = top; sy < bottom; ++sy) {
                    for (int sx = left; sx < right; ++sx) {
                        sum += picture.pixel(sx, sy)[c];
                    }
                }
                result.pixel(x, y)[c] = static_cast<uint8_t>(sum / count);
            }
        }
    }
    return result;
}

}  // namespace camhost
