#include "virtcam/model/multiplexer.h"

namespace virtcam::model {
namespace {

constexpr uint16_t kVersion = 1;
constexpr uint16_t kLengthAfterFour = 28;  // wHeaderLen leaves out the first four bytes
constexpr size_t kAlignment = 32;
constexpr uint8_t kPadding = 0xA5;

}  // namespace

std::string_view stream_name(StreamId id) {
    switch (id) {
        case StreamId::kYuy2:
            return "yuy2";
        case StreamId::kNv12:
            return "nv12";
        case StreamId::kMainH264:
            return "h264";
        case StreamId::kJpeg:
            return "jpeg";
        case StreamId::kGray:
            return "gray";
        case StreamId::kNv21:
            return "nv21";
        case StreamId::kSecondH264:
            return "h264-2";
    }
    return "unknown";
}

void append_sub_stream(Bytes& frame, const SubStreamHeader& header, ByteView data) {
    const size_t room = (data.size() + kAlignment - 1) / kAlignment * kAlignment;
    frame.reserve(frame.size() + kSubStreamHeaderLength + room);
    append_le(frame, 2, kVersion);
    append_le(frame, 2, kLengthAfterFour);
    append_le(frame, 2, static_cast<uint16_t>(header.id));
    append_le(frame, 2, header.size.width);
    append_le(frame, 2, header.size.height);
    append_le(frame, 2, header.frame_rate);
    append_le(frame, 4, header.sequence);
    append_le(frame, 4, header.timestamp);
    append_le(frame, 4, 0);  // dwFlag
    append_le(frame, 4, static_cast<uint32_t>(data.size()));
    append_le(frame, 4, static_cast<uint32_t>(room));
    frame.insert(frame.end(), data.begin(), data.end());
    frame.insert(frame.end(), room - data.size(), kPadding);
}

}  // namespace virtcam::model
