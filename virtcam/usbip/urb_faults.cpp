#include "virtcam/usbip/urb_faults.h"

#include <algorithm>
#include <cerrno>

namespace virtcam::usbip {
namespace {

using faults::Status;

void change_packet(const faults::PacketChange& change, const Submit& submit, Result& result) {
    if (change.index >= result.packets.size() || change.index >= submit.packets.size()) {
        return;
    }
    IsoResult& packet = result.packets[change.index];
    if (change.status) {
        // -EILSEQ is what a host controller reports for a damaged packet, which has no data.
        packet.status = *change.status == Status::kCompleted ? 0 : -EILSEQ;
        packet.data.resize(packet.status == 0 ? packet.data.size() : 0);
    }
    if (change.length) {
        packet.data.resize(std::min<size_t>(*change.length, submit.packets[change.index].length));
    }
}

void corrupt(const faults::Corruption& change, Bytes& data) {
    if (change.offset < data.size()) {
        data[change.offset] ^= change.mask;
    }
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

int to_errno(int libusb_code) {
    switch (libusb_code) {
        case -4:  // LIBUSB_ERROR_NO_DEVICE
            return -ESHUTDOWN;
        case -7:  // LIBUSB_ERROR_TIMEOUT
            return -ETIMEDOUT;
        case -8:  // LIBUSB_ERROR_OVERFLOW
            return -EOVERFLOW;
        case -9:  // LIBUSB_ERROR_PIPE
            return -EPIPE;
        default:
            return libusb_code < 0 ? -EPROTO : 0;
    }
}

void apply(const faults::Action& action, const Submit& submit, Result& result) {
    if (action.result) {
        result.status = to_errno(*action.result);
    }
    if (action.stall) {
        result.status = -EPIPE;
    }
    if (action.status) {
        result.status = to_errno(*action.status);
    }
    if (action.reply) {
        result.data = *action.reply;
    }
    for (const auto& change : action.corruptions) {
        corrupt(change, result.data);
    }
    if (action.short_to) {
        result.data.resize(std::min(result.data.size(), *action.short_to));
        result.accepted =
            static_cast<uint32_t>(std::min<size_t>(result.accepted, *action.short_to));
    }
    if (action.actual_length) {
        const size_t length = std::min<size_t>(*action.actual_length, submit.length);
        result.data.resize(length);
        result.accepted = static_cast<uint32_t>(length);
    }
    for (const auto& change : action.packets) {
        change_packet(change, submit, result);
    }
}

}  // namespace virtcam::usbip
