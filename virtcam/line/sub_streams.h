// Where the sub-streams of the multiplexed video stream begin.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "virtcam/model/bytes.h"

namespace virtcam::line {

/// Follows the chain of headers through the payloads of one bulk endpoint, each 32 bytes before its
/// data. A header that two payloads share is followed, not reported. Not thread-safe.
class SubStreams {
  public:
    struct Header {
        size_t offset;  ///< in the payload
        uint16_t id;    ///< the sub-stream's format ID
    };

    /// A stream begins anew.
    void restart();
    /// The headers that lie in the next payload as a whole. What is no multiplexed frame has none.
    std::vector<Header> find(model::ByteView payload);

  private:
    void begin_frame();
    void read_header(std::vector<Header>& found, size_t offset);

    std::optional<uint64_t> frame_;  ///< what its payloads have in common
    uint64_t position_ = 0;          ///< bytes of the frame before the present payload
    uint64_t next_ = 0;              ///< where in the frame the next header begins
    model::Bytes partial_;           ///< what came of that header so far
};

}  // namespace virtcam::line
