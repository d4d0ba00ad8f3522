// Measures of decoded pictures: what a setting does to a picture, in numbers.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "virtcam/model/picture.h"

namespace virtcam::model::test {

/// The machine-readable counter; nothing when it cannot be read.
std::optional<uint32_t> counter_of(const Picture& picture);

/// Mean absolute luma difference of two pictures of one size, in levels, of the lower three
/// quarters, where no overlay is drawn.
double difference(const Picture& a, const Picture& b);
/// As difference(), of the middle half only: free of overlays after a flip too.
double middle_difference(const Picture& a, const Picture& b);

double mean(const std::vector<uint8_t>& plane);
/// Standard deviation of the lower three quarters of a plane.
double deviation(const std::vector<uint8_t>& plane);
/// Mean absolute difference of two chroma planes' distances from neutral, after turning `b`'s by
/// half a circle: 0 when each colour of `b` is the opposite of `a`'s.
double distance_from_opposite(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b);

/// The luma turned left to right; chroma is kept as it is.
Picture mirrored(const Picture& picture);
/// The luma turned upside down; chroma is kept as it is.
Picture flipped(const Picture& picture);

/// A part of a picture, in pixels.
struct Window {
    int x, y, width, height;
};
/// Mean absolute luma difference between the lower three quarters of `picture` and the `window` of
/// `whole` that is enlarged to its size.
double difference_from_window(const Picture& picture, const Picture& whole, const Window& window);

/// The shift in pixels, at most `most` either way, that fits `b`'s luma to `a`'s best: along the
/// rows, and along the columns.
int best_shift(const Picture& a, const Picture& b, int most);
int best_vertical_shift(const Picture& a, const Picture& b, int most);

}  // namespace virtcam::model::test
