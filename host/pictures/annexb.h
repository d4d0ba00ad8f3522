// H.264 byte stream format (ITU-T H.264, Annex B), as far as a recorder looks into it.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

namespace camhost {

/// NAL unit types (H.264, table 7-1) that camhost tells apart.
enum class NalType : uint8_t { kSlice = 1, kIdr = 5, kSps = 7, kPps = 8 };

/// What one record of an H.264 stream holds.
struct AccessUnitParts {
    unsigned slices = 0;  ///< coded slices, IDR ones included
    bool idr = false;
    bool sps = false;
    bool pps = false;
};

/// Calls `visit` with each NAL unit, start code excluded, in order.
void for_each_nal(std::span<const uint8_t> stream,
                  const std::function<void(std::span<const uint8_t>)>& visit);

AccessUnitParts parts_of(std::span<const uint8_t> record);

}  // namespace camhost
