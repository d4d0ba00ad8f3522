#include "virtcam/model/raw_formats.h"

#include <algorithm>

namespace virtcam::model {
namespace {

Bytes pack_semi_planar(const Picture& picture, const std::vector<uint8_t>& first,
                       const std::vector<uint8_t>& second) {
    Bytes bytes(picture.y.size() * 3 / 2);
    uint8_t* out = std::copy(picture.y.begin(), picture.y.end(), bytes.data());
    for (size_t i = 0; i < first.size(); ++i) {
        out[2 * i] = first[i];
        out[2 * i + 1] = second[i];
    }
    return bytes;
}

}  // namespace

Bytes pack_yuy2(const Picture& picture) {
    Bytes bytes(picture.y.size() * 2);
    uint8_t* out = bytes.data();
    for (int row = 0; row < picture.height; ++row) {
        const uint8_t* y = picture.row_y(row);
        const uint8_t* u = picture.row_u(row / 2);
        const uint8_t* v = picture.row_v(row / 2);
        for (int x = 0; x < picture.chroma_width(); ++x) {
            *out++ = *y++;
            *out++ = u[x];
            *out++ = *y++;
            *out++ = v[x];
        }
    }
    return bytes;
}

Bytes pack_nv12(const Picture& picture) {
    return pack_semi_planar(picture, picture.u, picture.v);
}

Bytes pack_nv21(const Picture& picture) {
    return pack_semi_planar(picture, picture.v, picture.u);
}

Bytes pack_gray(const Picture& picture) {
    return picture.y;
}

}  // namespace virtcam::model
