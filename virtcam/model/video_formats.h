// The formats and frame sizes of the VideoStreaming interface: one table for the descriptors and
// for probe and commit.
#pragma once

#include <cstdint>
#include <span>

namespace virtcam::model {

struct FrameSize {
    uint16_t width = 0;
    uint16_t height = 0;
    bool operator==(const FrameSize&) const = default;
};

enum class FormatKind { kYuy2, kNv12, kMjpeg, kMultiplexed };

struct VideoFormat {
    FormatKind kind;
    std::span<const FrameSize> frames;    ///< bFrameIndex 1 is the first
    std::span<const uint32_t> intervals;  ///< offered dwFrameInterval, 100 ns units, ascending
    uint32_t default_interval;            ///< one of `intervals`
};

/// Largest multiplexed frame, and the bound that format 4 reports.
inline constexpr uint32_t kMaxMultiplexedFrame = 2 * 1024 * 1024;

/// bFormatIndex 1 is the first.
std::span<const VideoFormat> video_formats();

/// dwMaxVideoFrameSize of one frame of a format, in bytes.
uint32_t max_frame_bytes(const VideoFormat& format, FrameSize size);

}  // namespace virtcam::model
