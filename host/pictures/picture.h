// Pictures in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace camhost {

struct Size {
    int width = 0;
    int height = 0;
    bool operator==(const Size&) const = default;
    size_t area() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
};

/// Planar luma and chroma, BT.601 limited range, planes packed without padding.
struct PlanarPicture {
    enum class Chroma { kNone, k420, k422 };
    Size size;
    Chroma chroma = Chroma::kNone;
    std::vector<uint8_t> y, u, v;  ///< u and v empty without chroma

    Size chroma_size() const;
};

/// Interleaved red, green, blue.
struct RgbPicture {
    Size size;
    std::vector<uint8_t> rgb;

    RgbPicture() = default;
    RgbPicture(Size picture_size, uint8_t gray);
    bool empty() const { return rgb.empty(); }
    uint8_t* pixel(int x, int y) {
        return rgb.data() + 3 * (static_cast<size_t>(y) * static_cast<size_t>(size.width) +
                                 static_cast<size_t>(x));
    }
    const uint8_t* pixel(int x, int y) const { return const_cast<RgbPicture*>(this)->pixel(x, y); }
};

RgbPicture to_rgb(const PlanarPicture& picture);

/// The picture made to fit into `box` with its aspect kept; each new pixel is the mean of those it
/// stands for. Never enlarges.
RgbPicture shrink_to_fit(const RgbPicture& picture, Size box);

}  // namespace camhost
