// One record of a stream, copied out of the observer call.
#pragma once

#include <cstdint>
#include <vector>

#include "host/base/wake_event.h"
#include "host/streams/stream.h"

namespace camhost {

struct Record {
    Stream stream = Stream::kPcm;
    Clock::time_point arrival;
    uint32_t time_stamp = 0;     ///< 90 kHz; meaningful for streams with StreamInfo::time_stamped
    bool end_of_stream = false;  ///< the empty record that tells gray and NV12 observers of the end
    std::vector<uint8_t> data;
};

}  // namespace camhost
