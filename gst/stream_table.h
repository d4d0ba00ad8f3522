// The streams of the camera as pads.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "host/streams/stream.h"

namespace gstcam {

struct StreamRow {
    camhost::Stream stream;
    const char* pad;   ///< name of the pad
    const char* caps;  ///< of the pad's template
    /// Nominal pictures per second; 0: told by the camera (main), by request (JPEG), or no pictures.
    unsigned rate;
    bool fixed_size;                ///< all records of a picture size have as many bytes
    unsigned kilobytes_per_second;  ///< roughly, at default settings
};

inline constexpr const char* kH264Caps =
    "video/x-h264, stream-format=(string)byte-stream, alignment=(string)au, "
    "width=(int)[16,32767], height=(int)[16,32767], framerate=(fraction)[0/1,30/1]";

/// In the order of camhost::Stream. A link without a pad's name takes the first pad that fits.
inline constexpr std::array<StreamRow, camhost::kStreamCount> kStreamTable{{
    {camhost::Stream::kH264Main, "main", kH264Caps, 0, false, 250},
    {camhost::Stream::kH264Sub, "sub", kH264Caps, 15, false, 100},
    {camhost::Stream::kJpeg, "jpeg",
     "image/jpeg, width=(int)[16,32767], height=(int)[16,32767], framerate=(fraction)0/1", 0, false,
     400},
    {camhost::Stream::kGray, "gray",
     "video/x-raw, format=(string)GRAY8, width=(int)320, height=(int)240, "
     "framerate=(fraction)10/1",
     10, true, 768},
    {camhost::Stream::kYuy2, "yuy2",
     "video/x-raw, format=(string)YUY2, width=(int){640,800}, height=(int){480,360,450}, "
     "framerate=(fraction)10/1",
     10, true, 6144},
    {camhost::Stream::kNv12, "nv12",
     "video/x-raw, format=(string)NV12, width=(int){640,864}, height=(int){480,486}, "
     "framerate=(fraction)10/1",
     10, true, 4608},
    {camhost::Stream::kNv21, "nv21",
     "video/x-raw, format=(string)NV21, width=(int){640,800}, height=(int){480,360,450}, "
     "framerate=(fraction)10/1",
     10, true, 4608},
    {camhost::Stream::kPcm, "audio",
     "audio/x-raw, format=(string)S16LE, layout=(string)interleaved, rate=(int){16000,24000}, "
     "channels=(int)2",
     0, true, 64},
}};

inline const StreamRow& row_of(camhost::Stream stream) {
    return kStreamTable[static_cast<size_t>(stream)];
}

inline std::optional<camhost::Stream> stream_of_pad(std::string_view pad) {
    for (const StreamRow& row : kStreamTable) {
        if (pad == row.pad) {
            return row.stream;
        }
    }
    return std::nullopt;
}

inline bool is_h264(camhost::Stream stream) {
    return stream == camhost::Stream::kH264Main || stream == camhost::Stream::kH264Sub;
}

}  // namespace gstcam
