#include "virtcam/model/payload_queue.h"

#include <algorithm>
#include <utility>

namespace virtcam::model {
namespace {

// bmHeaderInfo (UVC 1.00, 2.4.3.3).
constexpr uint8_t kFrameId = 0x01;
constexpr uint8_t kEndOfFrame = 0x02;
constexpr uint8_t kHasPts = 0x04;
constexpr uint8_t kHasScr = 0x08;
constexpr uint8_t kEndOfHeader = 0x80;

}  // namespace

void PayloadQueue::restart() {
    frame_.clear();
    sent_ = 0;
    busy_ = false;
    frame_id_ = true;
}

void PayloadQueue::put(Bytes frame, uint32_t pts) {
    frame_ = std::move(frame);
    pts_ = pts;
    sent_ = 0;
    busy_ = true;
    frame_id_ = !frame_id_;
}

std::optional<Bytes> PayloadQueue::take(size_t room, SourceClock clock) {
    const size_t limit = std::min<size_t>(room, max_payload_);
    if (!busy_ || limit <= kHeaderLength) {
        return std::nullopt;
    }
    const size_t data = std::min(limit - kHeaderLength, frame_.size() - sent_);
    const bool all_sent = sent_ + data == frame_.size();
    const bool last = all_sent && (data == 0 || !header_only_eof_);

    Bytes payload;
    payload.reserve(kHeaderLength + data);
    payload.push_back(kHeaderLength);
    payload.push_back(static_cast<uint8_t>(kEndOfHeader | kHasScr | kHasPts |
                                           (last ? kEndOfFrame : 0) | (frame_id_ ? kFrameId : 0)));
    append_le(payload, 4, pts_);
    append_le(payload, 4, clock.device);
    append_le(payload, 2, clock.frame_number);
    const auto from = frame_.begin() + static_cast<std::ptrdiff_t>(sent_);
    payload.insert(payload.end(), from, from + static_cast<std::ptrdiff_t>(data));
    sent_ += data;
    if (last) {
        busy_ = false;
        frame_.clear();
    }
    return payload;
}

}  // namespace virtcam::model
