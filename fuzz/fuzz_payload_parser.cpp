// A frame as the device sends it, through the parser and what looks into its sub-streams.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>

#include "H264ErrorDetector.h"
#include "PayloadParser.h"

namespace {

/// Frame buffers own this many bytes behind the frame.
constexpr size_t kSpareBytes = 64;

/// What the capture thread does with an H.264 sub-stream that lies inside its buffer.
void look_into(uint8_t* data, uint32_t size, uint32_t sequence, const uint8_t* frame,
               size_t frame_size) {
    const auto begin = reinterpret_cast<uintptr_t>(frame);
    const auto at = reinterpret_cast<uintptr_t>(data);
    if (data == nullptr || at < begin || at - begin > frame_size ||
        size > frame_size - (at - begin)) {
        return;
    }
    CH264_ErrorDetector detector;
    detector.CheckFrame(data, size, sequence);
    H264KeyFrame key_frame;
    if (ParseH264KeyFrame(data, static_cast<int>(size), &key_frame) == 1 &&
        (key_frame.sps_size < 1 || key_frame.pps_offset != key_frame.sps_size)) {
        __builtin_trap();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > std::numeric_limits<uint16_t>::max()) {
        return 0;
    }
    const auto frame = std::make_unique<uint8_t[]>(size + kSpareBytes);
    std::memcpy(frame.get(), data, size);
    AitH264_MediaSample sample;
    if (H264Parser_tmk_mode(frame.get(), static_cast<unsigned>(size), &sample) != 0) {
        __builtin_trap();
    }
    look_into(sample.h264, sample.h264_size, sample.h264_frame_seq, frame.get(), size);
    look_into(sample.h264_2, sample.h264_2_size, sample.h264_2_frame_seq, frame.get(), size);
    return 0;
}
