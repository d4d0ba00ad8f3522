#include "virtcam/usbip/urb_result.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace virtcam::usbip {
namespace {

using faults::Status;

/// On this wire as many bytes arrive as are counted.
Bytes counted(Bytes data, size_t count, size_t room) {
    data.resize(std::min(count, room));
    return data;
}

IsoResult to_result(line::PacketEnding packet, size_t room) {
    // -EILSEQ is what a host controller reports for a damaged packet.
    return {counted(std::move(packet.data), packet.count, room),
            packet.status == Status::kCompleted ? 0 : -EILSEQ};
}

}  // namespace

int to_errno(Status status) {
    switch (status) {
        case Status::kCompleted:
            return 0;
        case Status::kTimedOut:
            return -ETIMEDOUT;
        case Status::kCancelled:
            return -ECONNRESET;
        case Status::kStall:
            return -EPIPE;
        case Status::kNoDevice:
            return -ESHUTDOWN;
        case Status::kOverflow:
            return -EOVERFLOW;
        case Status::kError:
            break;
    }
    return -EPROTO;
}

Result to_result(const Submit& submit, line::Ending ending) {
    Result result;
    result.status = to_errno(ending.status);
    result.accepted = static_cast<uint32_t>(std::min<size_t>(ending.count, submit.length));
    if (submit.device_to_host()) {
        result.data = counted(std::move(ending.data), ending.count, submit.length);
    }
    for (size_t i = 0; i < std::min(ending.packets.size(), submit.packets.size()); ++i) {
        result.packets.push_back(to_result(std::move(ending.packets[i]), submit.packets[i].length));
    }
    return result;
}

}  // namespace virtcam::usbip
