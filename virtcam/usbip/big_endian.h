// Big-endian access to byte blocks, as USB/IP headers use it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "virtcam/model/bytes.h"

namespace virtcam::usbip {

using model::Bytes;
using model::ByteView;

/// The caller has checked that `width` (1 to 4) bytes lie at `at`.
inline uint32_t load_be(ByteView bytes, size_t at, size_t width) {
    uint32_t value = 0;
    for (size_t i = 0; i < width; ++i) {
        value = value << 8 | bytes[at + i];
    }
    return value;
}

inline uint32_t load_be32(ByteView bytes, size_t at) {
    return load_be(bytes, at, 4);
}

/// Appends the low `width` (1 to 4) bytes of `value`.
inline void append_be(Bytes& bytes, size_t width, uint32_t value) {
    for (size_t i = width; i-- > 0;) {
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

inline void append_be32(Bytes& bytes, uint32_t value) {
    append_be(bytes, 4, value);
}

}  // namespace virtcam::usbip
