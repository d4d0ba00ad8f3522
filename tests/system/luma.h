// Brightness of pictures.
#pragma once

#include <cstdint>
#include <span>

namespace system_test {

inline constexpr size_t kYuyvBytes = 640 * 480 * 2;

/// Mean luma of one YUYV picture, 0 to 255.
inline double mean_luma(std::span<const uint8_t> yuyv) {
    uint64_t sum = 0;
    for (size_t i = 0; i < yuyv.size(); i += 2) {
        sum += yuyv[i];
    }
    return yuyv.empty() ? 0 : static_cast<double>(sum) / static_cast<double>(yuyv.size() / 2);
}

}  // namespace system_test
