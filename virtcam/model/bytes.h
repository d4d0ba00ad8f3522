// Little-endian access to byte blocks, as USB and the camera's own blocks use it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace virtcam::model {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

/// Unsigned value of `width` (1 to 4) bytes at `at`; the caller has checked the length.
inline uint32_t load_le(ByteView bytes, size_t at, size_t width) {
    uint32_t value = 0;
    for (size_t i = 0; i < width; ++i) {
        value |= uint32_t{bytes[at + i]} << (8 * i);
    }
    return value;
}

inline uint16_t load_u16(ByteView bytes, size_t at) {
    return static_cast<uint16_t>(load_le(bytes, at, 2));
}

inline uint32_t load_u32(ByteView bytes, size_t at) {
    return load_le(bytes, at, 4);
}

/// Writes the low `width` bytes of `value` at `at`.
inline void store_le(std::span<uint8_t> bytes, size_t at, size_t width, uint32_t value) {
    for (size_t i = 0; i < width; ++i) {
        bytes[at + i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

/// Appends the low `width` bytes of `value`.
inline void append_le(Bytes& bytes, size_t width, uint32_t value) {
    for (size_t i = 0; i < width; ++i) {
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

}  // namespace virtcam::model
