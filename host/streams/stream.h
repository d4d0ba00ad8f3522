// The kinds of stream that camhost records.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "Src/CameraInterface.h"

namespace camhost {

enum class Stream { kH264Main, kH264Sub, kJpeg, kGray, kYuy2, kNv12, kNv21, kPcm };
inline constexpr size_t kStreamCount = 8;

struct StreamInfo {
    Stream stream;
    CAM_STREAM_TYPE type;  ///< the type under which the plug-in delivers it
    const char* name;      ///< as users type it, and the stem of its files
    const char* label;     ///< as tables and pictures show it
    bool time_stamped;     ///< its records carry a 90 kHz time stamp
};

inline constexpr std::array<StreamInfo, kStreamCount> kStreams{{
    {Stream::kH264Main, CAM_STREAM_H264_MAIN, "main", "H.264 main", true},
    {Stream::kH264Sub, CAM_STREAM_H264_SUB, "sub", "H.264 sub", true},
    {Stream::kJpeg, CAM_STREAM_JPEG, "jpeg", "JPEG", false},
    {Stream::kGray, CAM_STREAM_GRAY, "gray", "gray", false},
    {Stream::kYuy2, CAM_STREAM_YUYV, "yuy2", "YUY2", false},
    {Stream::kNv12, CAM_STREAM_NV12, "nv12", "NV12", false},
    {Stream::kNv21, CAM_STREAM_NV21, "nv21", "NV21", false},
    {Stream::kPcm, CAM_STREAM_PCM, "pcm", "PCM", true},
}};

inline const StreamInfo& info(Stream stream) {
    return kStreams[static_cast<size_t>(stream)];
}

using StreamSet = std::set<Stream>;

StreamSet every_stream();

/// Reads "main,sub,pcm" or "all". Throws Failure (kUsage) that names an unknown stream.
StreamSet parse_streams(std::string_view list);

/// The labels of the streams, for a sentence.
std::string labels(const StreamSet& streams);

}  // namespace camhost
