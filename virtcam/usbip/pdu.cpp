#include "virtcam/usbip/pdu.h"

#include <algorithm>

namespace virtcam::usbip {
namespace {

constexpr uint32_t kRetSubmit = 3;
constexpr uint32_t kRetUnlink = 4;

void append_header(uint32_t command, uint32_t seqnum, Bytes& wire) {
    append_be32(wire, command);
    append_be32(wire, seqnum);
    wire.insert(wire.end(), 12, 0);  // devid, direction and endpoint stay 0 in replies
}

/// The packets' data back to back without gaps, and the descriptors that say how much each got.
struct Packed {
    Bytes data;
    Bytes descriptors;
    uint32_t errors = 0;
};

Packed pack(const Submit& submit, const Result& result) {
    Packed packed;
    for (size_t i = 0; i < submit.packets.size(); ++i) {
        const IsoPacket& packet = submit.packets[i];
        const IsoResult outcome = i < result.packets.size() ? result.packets[i] : IsoResult{};
        const size_t size = std::min<size_t>(outcome.data.size(), packet.length);
        packed.data.insert(packed.data.end(), outcome.data.begin(),
                           outcome.data.begin() + static_cast<std::ptrdiff_t>(size));
        packed.errors += outcome.status != 0 ? 1 : 0;
        append_be32(packed.descriptors, packet.offset);
        append_be32(packed.descriptors, packet.length);
        append_be32(packed.descriptors, static_cast<uint32_t>(size));
        append_be32(packed.descriptors, static_cast<uint32_t>(outcome.status));
    }
    // Overlapping packets could add up to more than the host's buffer.
    if (packed.data.size() > submit.length) {
        packed = {};
        for (const IsoPacket& packet : submit.packets) {
            append_be32(packed.descriptors, packet.offset);
            append_be32(packed.descriptors, packet.length);
            append_be32(packed.descriptors, 0);
            append_be32(packed.descriptors, 0);
        }
    }
    return packed;
}

}  // namespace

void append_reply(const Submit& submit, const Result& result, uint32_t frame_number, Bytes& wire) {
    Packed packed = pack(submit, result);
    if (!submit.is_iso() && submit.device_to_host()) {
        packed.data = result.data;
        packed.data.resize(std::min<size_t>(packed.data.size(), submit.length));
    }
    const uint32_t actual = submit.device_to_host() ? static_cast<uint32_t>(packed.data.size())
                                                    : std::min(result.accepted, submit.length);
    append_header(kRetSubmit, submit.seqnum, wire);
    append_be32(wire, static_cast<uint32_t>(result.status));
    append_be32(wire, actual);
    append_be32(wire, frame_number);
    append_be32(wire, static_cast<uint32_t>(submit.packets.size()));
    append_be32(wire, packed.errors);
    wire.insert(wire.end(), 8, 0);
    if (submit.device_to_host()) {
        wire.insert(wire.end(), packed.data.begin(), packed.data.end());
    }
    wire.insert(wire.end(), packed.descriptors.begin(), packed.descriptors.end());
}

void append_reply(const Unlink& unlink, int status, Bytes& wire) {
    append_header(kRetUnlink, unlink.seqnum, wire);
    append_be32(wire, static_cast<uint32_t>(status));
    wire.insert(wire.end(), 24, 0);
}

}  // namespace virtcam::usbip
