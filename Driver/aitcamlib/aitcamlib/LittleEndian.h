// Little-endian numbers as they lie on the wire and in files.
#pragma once

#include <stdint.h>

inline void PutLe16(unsigned char* to, uint16_t value) {
    to[0] = static_cast<unsigned char>(value);
    to[1] = static_cast<unsigned char>(value >> 8);
}

inline void PutLe32(unsigned char* to, uint32_t value) {
    PutLe16(to, static_cast<uint16_t>(value));
    PutLe16(to + 2, static_cast<uint16_t>(value >> 16));
}

inline uint16_t GetLe16(const unsigned char* from) {
    return static_cast<uint16_t>(from[0] | (from[1] << 8));
}

inline uint32_t GetLe32(const unsigned char* from) {
    return GetLe16(from) | (static_cast<uint32_t>(GetLe16(from + 2)) << 16);
}
