#include "host/pictures/annexb.h"

#include <cstddef>

namespace camhost {

namespace {

constexpr size_t kStartCode = 3;  // 00 00 01; a fourth zero belongs to what precedes it

/// Position of the next start code at or after `from`, or the size when there is none.
size_t find_start_code(std::span<const uint8_t> stream, size_t from) {
    for (size_t i = from; i + kStartCode <= stream.size(); ++i) {
        if (stream[i] == 0 && stream[i + 1] == 0 && stream[i + 2] == 1) {
            return i;
        }
    }
    return stream.size();
}

}  // namespace

void for_each_nal(std::span<const uint8_t> stream,
                  const std::function<void(std::span<const uint8_t>)>& visit) {
    size_t code = find_start_code(stream, 0);
    while (code < stream.size()) {
        const size_t begin = code + kStartCode;
        code = find_start_code(stream, begin);
        if (begin < code) {
            visit(stream.subspan(begin, code - begin));
        }
    }
}

AccessUnitParts parts_of(std::span<const uint8_t> record) {
    AccessUnitParts parts;
    for_each_nal(record, [&](std::span<const uint8_t> nal) {
        switch (static_cast<NalType>(nal[0] & 0x1F)) {
            case NalType::kIdr:
                parts.idr = true;
                [[fallthrough]];
            case NalType::kSlice:
                ++parts.slices;
                break;
            case NalType::kSps:
                parts.sps = true;
                break;
            case NalType::kPps:
                parts.pps = true;
                break;
        }
    });
    return parts;
}

}  // namespace camhost
