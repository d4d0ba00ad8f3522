// One finished video frame on its way to the host, cut into UVC payloads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "virtcam/model/bytes.h"

namespace virtcam::model {

/// Source clock reference of a payload: both clocks at the moment when it leaves.
struct SourceClock {
    uint32_t device = 0;        ///< 48 MHz device clock, that of presentation times
    uint16_t frame_number = 0;  ///< of the bus
};

/// Holds at most one frame: what the host does not take in time is not stored up.
class PayloadQueue {
  public:
    static constexpr size_t kHeaderLength = 12;  ///< with presentation time and source clock

    PayloadQueue(uint32_t max_payload, bool header_only_eof)
        : max_payload_(max_payload), header_only_eof_(header_only_eof) {}

    /// A stream starts: nothing waits, the frame ID is 0 for the first frame.
    void restart();
    bool busy() const { return busy_; }
    /// Takes a frame; only when not busy(). `pts` is in ticks of the 48 MHz device clock.
    void put(Bytes frame, uint32_t pts);
    /// Next payload of at most `room` bytes, nothing when no frame waits or no header fits.
    std::optional<Bytes> take(size_t room, SourceClock clock);

  private:
    uint32_t max_payload_;
    bool header_only_eof_;
    Bytes frame_;
    size_t sent_ = 0;
    uint32_t pts_ = 0;
    bool busy_ = false;
    bool frame_id_ = true;  // toggled by each put()
};

}  // namespace virtcam::model
