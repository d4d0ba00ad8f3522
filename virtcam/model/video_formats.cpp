#include "virtcam/model/video_formats.h"

#include <array>

namespace virtcam::model {
namespace {

constexpr std::array<FrameSize, 1> kVga{{{640, 480}}};
constexpr std::array<FrameSize, 1> kWideNv12{{{864, 486}}};
constexpr std::array<FrameSize, 5> kMultiplexedSizes{
    {{640, 480}, {160, 120}, {320, 240}, {1280, 720}, {1920, 1080}}};

constexpr std::array<uint32_t, 2> kFast{333333, 1000000};
constexpr std::array<uint32_t, 1> kTenPerSecond{1000000};  // 30 of these would be 19 MB/s
constexpr std::array<uint32_t, 1> kThirtyPerSecond{333333};

constexpr std::array<VideoFormat, 4> kFormats{{
    {FormatKind::kYuy2, kVga, kFast, 1000000},
    {FormatKind::kNv12, kWideNv12, kTenPerSecond, 1000000},
    {FormatKind::kMjpeg, kVga, kFast, 333333},
    {FormatKind::kMultiplexed, kMultiplexedSizes, kThirtyPerSecond, 333333},
}};

}  // namespace

std::span<const VideoFormat> video_formats() {
    return kFormats;
}

uint32_t max_frame_bytes(const VideoFormat& format, FrameSize size) {
    const uint32_t pixels = uint32_t{size.width} * size.height;
    switch (format.kind) {
        case FormatKind::kNv12:
            return pixels * 3 / 2;
        case FormatKind::kYuy2:
        case FormatKind::kMjpeg:
            return pixels * 2;
        case FormatKind::kMultiplexed:
            break;
    }
    return kMaxMultiplexedFrame;
}

}  // namespace virtcam::model
