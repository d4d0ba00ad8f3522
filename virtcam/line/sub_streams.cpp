#include "virtcam/line/sub_streams.h"

#include <algorithm>
#include <limits>

#include "virtcam/model/multiplexer.h"

namespace virtcam::line {
namespace {

constexpr size_t kLength = model::kSubStreamHeaderLength;
constexpr size_t kIdKnown = 6;  // bytes
constexpr uint8_t kEndOfFrame = 0x02;
constexpr uint64_t kNowhere = std::numeric_limits<uint64_t>::max();

/// Frame ID and presentation time: a new one begins a frame, whatever came of the one before.
uint64_t frame_of(model::ByteView payload) {
    constexpr uint8_t kFrameId = 0x01;
    const uint64_t time = payload.size() >= 6 ? model::load_u32(payload, 2) : 0;
    return time << 1 | (payload[1] & kFrameId);
}

bool is_header(model::ByteView bytes) {
    constexpr uint16_t kVersion = 1;
    constexpr uint16_t kLengthAfterFour = 28;
    return model::load_u16(bytes, 0) == kVersion && model::load_u16(bytes, 2) == kLengthAfterFour;
}

}  // namespace

void SubStreams::restart() {
    frame_.reset();
    begin_frame();
}

void SubStreams::begin_frame() {
    position_ = 0;
    next_ = 0;
    partial_.clear();
}

/// The header is complete in partial_.
void SubStreams::read_header() {
    if (!is_header(partial_)) {
        next_ = kNowhere;
        return;
    }
    next_ += kLength + model::load_u32(partial_, 28);
    partial_.clear();
}

std::vector<SubStreams::Part> SubStreams::find(model::ByteView payload) {
    std::vector<Part> found;
    if (payload.size() < 2 || payload[0] > payload.size()) {
        return found;
    }
    if (const uint64_t frame = frame_of(payload); frame_ != frame) {
        frame_ = frame;
        begin_frame();
    }
    const size_t begin = payload[0];
    const uint64_t end = position_ + payload.size() - begin;
    while (next_ != kNowhere && next_ + partial_.size() < end) {
        const uint64_t from = next_ + partial_.size();
        const size_t at = begin + static_cast<size_t>(from - position_);
        const size_t before = partial_.size();
        const size_t count = std::min(kLength - before, payload.size() - at);
        const auto first = payload.begin() + static_cast<std::ptrdiff_t>(at);
        partial_.insert(partial_.end(), first, first + static_cast<std::ptrdiff_t>(count));
        if (partial_.size() >= kIdKnown && is_header(partial_)) {
            found.push_back({at, model::load_u16(partial_, 4), before, before >= kIdKnown});
        }
        if (partial_.size() < kLength) {
            break;
        }
        read_header();
    }
    position_ = end;
    if ((payload[1] & kEndOfFrame) != 0) {
        begin_frame();
    }
    return found;
}

}  // namespace virtcam::line
