// Negotiation of the video stream: the probe and commit controls of UVC 1.10, 4.3.1.1.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "virtcam/model/bytes.h"
#include "virtcam/model/video_formats.h"

namespace virtcam::model {

inline constexpr uint16_t kProbeLength = 34;
/// Of a host that knows UVC 1.00 only.
inline constexpr uint16_t kShortProbeLength = 26;

inline constexpr bool is_probe_length(size_t length) {
    return length == kProbeLength || length == kShortProbeLength;
}

/// A negotiated stream.
struct StreamParameters {
    uint8_t format_index = 0;
    uint8_t frame_index = 0;
    uint32_t interval = 0;  ///< 100 ns units
    FormatKind kind = FormatKind::kMultiplexed;
    FrameSize size;
    bool operator==(const StreamParameters&) const = default;
};

class ProbeCommit {
  public:
    explicit ProbeCommit(uint32_t max_payload);

    /// SET_CUR of the probe: clamps format, frame and interval to the nearest offered and fills in
    /// the sizes. False (stall) for a wrong length.
    bool probe(ByteView block);

    /// SET_CUR of the commit: the stream to start, or nothing (stall) when the block's format,
    /// frame and interval are not those that the last probe produced.
    std::optional<StreamParameters> commit(ByteView block);

    /// GET requests of both selectors; nothing means stall.
    std::optional<Bytes> get(uint8_t request, uint8_t selector) const;

  private:
    enum class Bound { kLowest, kHighest, kDefault };

    Bytes block(const StreamParameters& parameters) const;
    StreamParameters bounded(Bound bound) const;

    uint32_t max_payload_;
    bool probed_ = false;
    StreamParameters current_;
    StreamParameters committed_;
};

}  // namespace virtcam::model
