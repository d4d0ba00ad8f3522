// The multiplexed frame: sub-streams one after another, each behind a 32-byte header.
#pragma once

#include <cstdint>
#include <string_view>

#include "virtcam/model/bytes.h"
#include "virtcam/model/video_formats.h"

namespace virtcam::model {

/// Format ID of a sub-stream.
enum class StreamId : uint16_t {
    kYuy2 = 0x29,
    kNv12 = 0x2A,
    kMainH264 = 0x2B,
    kJpeg = 0x2C,
    kGray = 0x2D,
    kNv21 = 0x2F,
    kSecondH264 = 0x35,
};

/// Short name for status and traces: "h264", "h264-2", "jpeg", "gray", "yuy2", "nv12", "nv21".
std::string_view stream_name(StreamId id);

struct SubStreamHeader {
    StreamId id;
    FrameSize size;
    uint16_t frame_rate = 0;  ///< gray and NV12 carry their crop flag here
    uint32_t sequence = 0;
    uint32_t timestamp = 0;  ///< 90 kHz since the commit
};

inline constexpr size_t kSubStreamHeaderLength = 32;

/// Appends header, data and padding to a multiple of 32 bytes. The padding is not zero, so that a
/// host that must zero it can be seen to do so.
void append_sub_stream(Bytes& frame, const SubStreamHeader& header, ByteView data);

}  // namespace virtcam::model
