// Where the sub-streams of the multiplexed video stream begin.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "virtcam/model/bytes.h"

namespace virtcam::line {

/// Follows the chain of headers through the payloads of one bulk endpoint, each 32 bytes before its
/// data. Not thread-safe.
class SubStreams {
  public:
    /// A header, or what lies of it in one payload.
    struct Part {
        size_t offset;  ///< of its first byte, in the payload
        uint16_t id;    ///< the sub-stream's format ID
        size_t before;  ///< bytes of the header that the payloads before had
        bool goes_on;   ///< the part before was reported, too: it had the ID
    };

    /// A stream begins anew.
    void restart();
    /// The headers in the next payload. Of one that payloads share the part that has the end of the
    /// ID is the first to be reported. What is no multiplexed frame has none.
    std::vector<Part> find(model::ByteView payload);

  private:
    void begin_frame();
    void read_header();

    std::optional<uint64_t> frame_;  ///< what its payloads have in common
    uint64_t position_ = 0;          ///< bytes of the frame before the present payload
    uint64_t next_ = 0;              ///< where in the frame the next header begins
    model::Bytes partial_;           ///< what came of that header so far
};

}  // namespace virtcam::line
