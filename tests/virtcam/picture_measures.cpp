#include "picture_measures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <numeric>

#include "virtcam/model/counter_code.h"

namespace virtcam::model::test {
namespace {

/// Mean absolute difference of the elements from `from` to `to`.
double plane_difference(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b, size_t from,
                        size_t to) {
    double sum = 0;
    for (size_t i = from; i < to; ++i) {
        sum += std::abs(int{a[i]} - int{b[i]});
    }
    return sum / static_cast<double>(to - from);
}

/// True, or a failure of the running test and false.
bool same_size(const Picture& a, const Picture& b) {
    EXPECT_EQ(a.width, b.width);
    EXPECT_EQ(a.height, b.height);
    return a.width == b.width && a.height == b.height;
}

/// Argument from -most to most at which `misfit` is least.
template <typename Misfit>
int least_at(int most, Misfit misfit) {
    int best = 0;
    double least = std::numeric_limits<double>::max();
    for (int shift = -most; shift <= most; ++shift) {
        const double sum = misfit(shift);
        if (sum < least) {
            least = sum;
            best = shift;
        }
    }
    return best;
}

}  // namespace

std::optional<uint32_t> counter_of(const Picture& picture) {
    return read_counter(picture.y.data(), picture.width, picture.height, picture.width);
}

double difference(const Picture& a, const Picture& b) {
    if (!same_size(a, b)) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    return plane_difference(a.y, b.y, a.y.size() / 4, a.y.size());
}

double middle_difference(const Picture& a, const Picture& b) {
    if (!same_size(a, b)) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    return plane_difference(a.y, b.y, a.y.size() / 4, a.y.size() * 3 / 4);
}

double mean(const std::vector<uint8_t>& plane) {
    return std::accumulate(plane.begin(), plane.end(), 0.0) / static_cast<double>(plane.size());
}

double deviation(const std::vector<uint8_t>& plane) {
    const std::vector<uint8_t> lower(plane.begin() + static_cast<std::ptrdiff_t>(plane.size() / 4),
                                     plane.end());
    const double centre = mean(lower);
    double sum = 0;
    for (const uint8_t sample : lower) {
        sum += (sample - centre) * (sample - centre);
    }
    return std::sqrt(sum / static_cast<double>(lower.size()));
}

double distance_from_opposite(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    std::vector<uint8_t> opposite(b.size());
    std::transform(b.begin(), b.end(), opposite.begin(), [](uint8_t sample) {
        return static_cast<uint8_t>(std::min(256 - sample, 255));
    });
    return plane_difference(a, opposite, a.size() / 4, a.size());
}

Picture mirrored(const Picture& picture) {
    Picture result = picture;
    for (int y = 0; y < picture.height; ++y) {
        std::reverse(result.row_y(y), result.row_y(y) + picture.width);
    }
    return result;
}

Picture flipped(const Picture& picture) {
    Picture result = picture;
    for (int y = 0; y < picture.height; ++y) {
        std::copy_n(picture.row_y(picture.height - 1 - y), picture.width, result.row_y(y));
    }
    return result;
}

double difference_from_window(const Picture& picture, const Picture& whole, const Window& window) {
    Picture enlarged(picture.width, picture.height);
    for (int y = 0; y < picture.height; ++y) {
        const uint8_t* row = whole.row_y(window.y + y * window.height / picture.height);
        for (int x = 0; x < picture.width; ++x) {
            enlarged.row_y(y)[x] = row[window.x + x * window.width / picture.width];
        }
    }
    return difference(picture, enlarged);
}

int best_shift(const Picture& a, const Picture& b, int most) {
    return least_at(most, [&](int shift) {
        double sum = 0;
        for (int y = a.height / 2; y < a.height * 3 / 4; y += 4) {
            for (int x = most; x < a.width - most; ++x) {
                sum += std::abs(int{a.row_y(y)[x + shift]} - int{b.row_y(y)[x]});
            }
        }
        return sum;
    });
}

int best_vertical_shift(const Picture& a, const Picture& b, int most) {
    return least_at(most, [&](int shift) {
        double sum = 0;
        for (int y = a.height / 2; y < a.height - most; y += 4) {
            for (int x = 0; x < a.width; ++x) {
                sum += std::abs(int{a.row_y(y + shift)[x]} - int{b.row_y(y)[x]});
            }
        }
        return sum;
    });
}

}  // namespace virtcam::model::test
