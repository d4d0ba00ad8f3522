// The machine-readable counter that every picture carries, drawn after all picture effects.
//
// Geometry: a band at the top of the picture, two rows of 20 blocks each; the row height is
// max(8, height / 24) pixels, block i of a row covers the columns i*width/20 to (i+1)*width/20.
// A white block (luma 220) is 1, a black one (luma 32) is 0. In reading order, 40 blocks:
//
//   row 0: 1 0, bits 31 to 16 of the counter, 1 0
//   row 1: bits 15 to 0 of the counter, four check bits (CRC-4, polynomial x^4 + x + 1)
//
// The two "1 0" pairs give the reader its threshold. Averages over a block's inner half survive
// H.264 and JPEG at the lowest rates that the camera offers.
#pragma once

#include <cstdint>
#include <optional>

namespace virtcam::model {

/// Height in pixels of the band in a picture of `height`; always even.
int counter_band_height(int height);

/// Draws `counter` into a luma plane. Width at least 160, height at least 90.
void draw_counter(uint8_t* luma, int width, int height, int stride, uint32_t counter);

/// Reads the counter of a luma plane; nothing when the marks or the check bits do not fit.
std::optional<uint32_t> read_counter(const uint8_t* luma, int width, int height, int stride);

}  // namespace virtcam::model
