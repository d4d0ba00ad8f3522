#include "virtcam/model/probe_commit.h"

#include <algorithm>
#include <utility>

#include "virtcam/model/usb.h"

namespace virtcam::model {
namespace {

constexpr uint16_t kHintFixedInterval = 1;
constexpr uint32_t kDeviceClock = 48'000'000;  // Hz
constexpr uint8_t kFramingByIdAndEnd = 3;      // bmFramingInfo

uint8_t nearest_index(uint8_t wanted, size_t count) {
    return static_cast<uint8_t>(std::clamp<size_t>(wanted, 1, count));
}

uint32_t nearest_interval(uint32_t wanted, std::span<const uint32_t> offered) {
    const auto distance = [wanted](uint32_t value) {
        return value > wanted ? value - wanted : wanted - value;
    };
    return *std::min_element(offered.begin(), offered.end(),
                             [&](uint32_t a, uint32_t b) { return distance(a) < distance(b); });
}

StreamParameters nearest(uint8_t format_index, uint8_t frame_index, uint32_t interval) {
    const auto formats = video_formats();
    StreamParameters parameters;
    parameters.format_index = nearest_index(format_index, formats.size());
    const VideoFormat& format = formats[parameters.format_index - 1U];
    parameters.frame_index = nearest_index(frame_index, format.frames.size());
    parameters.interval =
        interval == 0 ? format.default_interval : nearest_interval(interval, format.intervals);
    parameters.kind = format.kind;
    parameters.size = format.frames[parameters.frame_index - 1U];
    return parameters;
}

}  // namespace

ProbeCommit::ProbeCommit(uint32_t max_payload)
    : max_payload_(max_payload), current_(nearest(1, 1, 0)), committed_(current_) {}

bool ProbeCommit::probe(ByteView block) {
    if (!is_probe_length(block.size())) {
        return false;
    }
    current_ = nearest(block[2], block[3], load_u32(block, 4));
    probed_ = true;
    return true;
}

std::optional<StreamParameters> ProbeCommit::commit(ByteView block) {
    if (!probed_ || !is_probe_length(block.size()) || block[2] != current_.format_index ||
        block[3] != current_.frame_index || load_u32(block, 4) != current_.interval) {
        return std::nullopt;
    }
    committed_ = current_;
    return committed_;
}

std::optional<Bytes> ProbeCommit::get(uint8_t request, uint8_t selector) const {
    if (selector != usb::kVsProbe && selector != usb::kVsCommit) {
        return std::nullopt;
    }
    const bool probe = selector == usb::kVsProbe;
    Bytes answer;
    switch (request) {
        case usb::kGetCur:
            answer = block(probe ? current_ : committed_);
            break;
        case usb::kGetMin:
            answer = probe ? block(bounded(Bound::kLowest)) : Bytes{};
            break;
        case usb::kGetMax:
            answer = probe ? block(bounded(Bound::kHighest)) : Bytes{};
            break;
        case usb::kGetDef:
            answer = probe ? block(bounded(Bound::kDefault)) : Bytes{};
            break;
        case usb::kGetLen:
            append_le(answer, 2, kProbeLength);
            break;
        case usb::kGetInfo:
            answer.push_back(usb::kInfoGet | usb::kInfoSet);
            break;
        default:
            break;
    }
    return answer.empty() ? std::nullopt : std::optional<Bytes>{std::move(answer)};
}

StreamParameters ProbeCommit::bounded(Bound bound) const {
    // Hosts read limits after a SET_CUR and may go on with the block: the format and frame asked
    // for stay, only the interval runs to its bound.
    const VideoFormat& format = video_formats()[current_.format_index - 1U];
    switch (bound) {
        case Bound::kLowest:
            return nearest(current_.format_index, current_.frame_index, format.intervals.front());
        case Bound::kHighest:
            return nearest(current_.format_index, current_.frame_index, format.intervals.back());
        case Bound::kDefault:
            break;
    }
    return nearest(1, 1, 0);
}

Bytes ProbeCommit::block(const StreamParameters& parameters) const {
    const VideoFormat& format = video_formats()[parameters.format_index - 1U];
    Bytes bytes(kProbeLength, 0);
    store_le(bytes, 0, 2, kHintFixedInterval);
    bytes[2] = parameters.format_index;
    bytes[3] = parameters.frame_index;
    store_le(bytes, 4, 4, parameters.interval);
    store_le(bytes, 18, 4, max_frame_bytes(format, parameters.size));
    store_le(bytes, 22, 4, max_payload_);
    store_le(bytes, 26, 4, kDeviceClock);
    bytes[30] = kFramingByIdAndEnd;  // the versions of the format that follow: none
    return bytes;
}

}  // namespace virtcam::model
