// Small but real stream content for the fake plug-in and the writers' tests.
#pragma once

#include <cstdint>
#include <vector>

namespace fake {

constexpr int kWidth = 64;
constexpr int kHeight = 48;

/// Access units of a 64x48 H.264 stream: the first is a key frame (SPS, PPS, IDR), the others are
/// P-frames. Encoded once.
const std::vector<std::vector<uint8_t>>& h264_units();
/// The first unit cut as call mode delivers it: SPS, PPS, IDR.
std::vector<std::vector<uint8_t>> split_key_frame();
/// A 64x48 JPEG.
const std::vector<uint8_t>& jpeg();

}  // namespace fake
