#include "tests/usbip/wire.h"

#include <stdexcept>

namespace virtcam::usbip::test {

Bytes SubmitHeader::bytes() const {
    Bytes wire;
    for (const uint32_t word :
         {command, seqnum, 0x00010002u, direction, endpoint, 0x200u, length, 0u, packets, 0u}) {
        append_be32(wire, word);
    }
    wire.insert(wire.end(), setup.begin(), setup.end());
    return wire;
}

Bytes control_submit(uint32_t seqnum, const virtcam::model::Setup& setup, ByteView out) {
    SubmitHeader header;
    header.seqnum = seqnum;
    header.direction = setup.device_to_host() ? 1 : 0;
    header.length = setup.length;
    header.setup = {setup.request_type, setup.request};
    virtcam::model::append_le(header.setup, 2, setup.value);
    virtcam::model::append_le(header.setup, 2, setup.index);
    virtcam::model::append_le(header.setup, 2, setup.length);
    Bytes wire = header.bytes();
    wire.insert(wire.end(), out.begin(), out.end());
    return wire;
}

Bytes bulk_in_submit(uint32_t seqnum, uint32_t endpoint, uint32_t room) {
    SubmitHeader header;
    header.seqnum = seqnum;
    header.endpoint = endpoint;
    header.length = room;
    return header.bytes();
}

Bytes iso_in_submit(uint32_t seqnum, uint32_t endpoint, uint32_t packets, uint32_t length) {
    SubmitHeader header;
    header.seqnum = seqnum;
    header.endpoint = endpoint;
    header.length = packets * length;
    header.packets = packets;
    Bytes wire = header.bytes();
    for (uint32_t i = 0; i < packets; ++i) {
        for (const uint32_t word : {i * length, length, 0u, 0u}) {
            append_be32(wire, word);
        }
    }
    return wire;
}

Bytes unlink_command(uint32_t seqnum, uint32_t victim) {
    Bytes wire;
    for (const uint32_t word : {2u, seqnum, 0x00010002u, 0u, 0u, victim}) {
        append_be32(wire, word);
    }
    wire.resize(48);
    return wire;
}

Reply take_reply(Bytes& wire, bool data_in) {
    constexpr uint32_t kRetSubmit = 3;
    if (wire.size() < 48) {
        throw std::out_of_range("no whole header");
    }
    Reply reply;
    reply.command = load_be32(wire, 0);
    reply.seqnum = load_be32(wire, 4);
    reply.status = static_cast<int>(load_be32(wire, 20));
    size_t at = 48;
    if (reply.command == kRetSubmit) {
        reply.actual = load_be32(wire, 24);
        reply.packets = load_be32(wire, 32);
        const size_t size = data_in ? reply.actual : 0;
        if (wire.size() < at + size + reply.packets * 16) {
            throw std::out_of_range("no whole reply");
        }
        reply.data.assign(wire.begin() + 48, wire.begin() + 48 + static_cast<std::ptrdiff_t>(size));
        at += size;
        for (uint32_t i = 0; i < reply.packets; ++i, at += 16) {
            reply.iso.push_back({load_be32(wire, at), load_be32(wire, at + 4),
                                 load_be32(wire, at + 8),
                                 static_cast<int>(load_be32(wire, at + 12))});
        }
    }
    wire.erase(wire.begin(), wire.begin() + static_cast<std::ptrdiff_t>(at));
    return reply;
}

}  // namespace virtcam::usbip::test
