// When each record of a stream belongs, on one scale for all streams.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "host/streams/record.h"

namespace camhost {

/// Begins with the arrival of the stream's first record and goes on by its 90 kHz time stamps, which
/// are steadier. Wraps, jumps of the plug-in's clock and restarts of recording are bridged. One
/// thread.
class PresentationTimes {
  public:
    /// Microseconds on the host's steady clock; never less than the one before.
    int64_t next(const Record& record, bool restarted);

  private:
    std::optional<int64_t> last_;
    uint32_t last_time_stamp_ = 0;
    Clock::time_point last_arrival_;
};

}  // namespace camhost
