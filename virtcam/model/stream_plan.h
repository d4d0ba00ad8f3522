// Which sub-streams a stream combination carries, and how large their pictures are.
#pragma once

#include <array>
#include <cstdint>

#include "virtcam/model/multiplexer.h"
#include "virtcam/model/settings.h"
#include "virtcam/model/video_formats.h"

namespace virtcam::model {

/// Sub-streams in the order in which a frame carries them.
inline constexpr std::array<StreamId, 7> kStreamOrder{
    StreamId::kMainH264, StreamId::kSecondH264, StreamId::kJpeg, StreamId::kGray,
    StreamId::kYuy2,     StreamId::kNv12,       StreamId::kNv21};

/// The clock of multiplexed frames, pictures per second: no sub-stream runs faster.
inline constexpr uint32_t kClockRate = 30;

/// Pictures per second of the raw sub-streams: a frame stays below 2 MiB, the stream below 12 MB/s.
inline constexpr uint32_t kRawRate = 10;
/// Pictures per second of the continuous JPEG sub-stream.
inline constexpr uint32_t kJpegRate = 15;
/// Most bytes of a JPEG picture in a multiplexed frame.
inline constexpr uint32_t kJpegLimit = 700000;
/// What the H.264 encoders are asked for at least and at most, bit/s.
inline constexpr uint32_t kLeastH264Rate = 32000;
inline constexpr uint32_t kMostH264Rate = 20000000;

/// Stream-combination codes are 0 to 8.
inline constexpr uint8_t kCombinationCount = 9;

/// Codes of the size of the local pictures; 0: 640 x 480.
inline constexpr uint8_t kLocal640x360 = 5;
inline constexpr uint8_t kLocal800x450 = 11;

bool is_local_size(uint8_t code);

/// True when the combination of `settings` carries `id` all the time; stills do not count.
bool carries(const StreamSettings& settings, StreamId id);

/// True when the combination has JPEG pictures after a trigger only.
bool takes_stills(const StreamSettings& settings);

/// Picture size of a sub-stream when the main picture has size `main`.
FrameSize stream_size(const StreamSettings& settings, StreamId id, FrameSize main);

/// Pictures per second of a sub-stream, 1 to kClockRate.
uint32_t stream_rate(const StreamSettings& settings, StreamId id);

struct BitRates {
    uint32_t least, most;  ///< bit/s
};

/// Bounds of the multiplexed stream over all combinations and settings, main pictures being of
/// size `main`.
BitRates multiplexed_bit_rates(FrameSize main);

}  // namespace virtcam::model
