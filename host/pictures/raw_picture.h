// The uncompressed streams: their records hold pixels and nothing about them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "host/pictures/picture.h"
#include "host/streams/stream.h"

namespace camhost {

bool is_raw(Stream stream);

/// The picture size that a raw record of so many bytes has, among the sizes that the camera makes;
/// nothing when no known size fits.
std::optional<Size> deduce_size(Stream stream, size_t bytes);

/// The record's pixels in planes: packed YUY2 becomes 4:2:2, NV12 and NV21 become 4:2:0, gray has
/// no chroma. `bytes` must have the length that `size` implies; nothing otherwise.
std::optional<PlanarPicture> to_planar(Stream stream, Size size, std::span<const uint8_t> bytes);

}  // namespace camhost
