#include "virtcam/usbip/pdu_reader.h"

#include <algorithm>
#include <string>

namespace virtcam::usbip {
namespace {

constexpr uint32_t kCmdSubmit = 1;
constexpr uint32_t kCmdUnlink = 2;
constexpr uint32_t kNoPackets = 0xFFFFFFFF;  // what the protocol's text says; kernels send 0
constexpr size_t kCompactAt = 1 << 16;

uint32_t packet_count(ByteView header) {
    const uint32_t count = load_be32(header, 32);
    return count == kNoPackets ? 0 : count;
}

/// Fills everything that the header alone says.
Submit read_header(ByteView header) {
    const uint32_t direction = load_be32(header, 12);
    const uint32_t endpoint = load_be32(header, 16);
    Submit submit;
    submit.seqnum = load_be32(header, 4);
    submit.length = load_be32(header, 24);
    if (direction > 1) {
        throw ProtocolError("direction " + std::to_string(direction));
    }
    if (endpoint > 15) {
        throw ProtocolError("endpoint " + std::to_string(endpoint));
    }
    if (submit.length > PduReader::kMostBytes) {
        throw ProtocolError("transfer of " + std::to_string(submit.length) + " bytes");
    }
    if (packet_count(header) > PduReader::kMostPackets) {
        throw ProtocolError(std::to_string(packet_count(header)) + " packets");
    }
    submit.endpoint = static_cast<uint8_t>(endpoint | direction << 7);
    std::copy_n(header.begin() + 40, submit.setup.size(), submit.setup.begin());
    return submit;
}

IsoPacket read_packet(ByteView descriptor, uint32_t transfer_length) {
    const IsoPacket packet{load_be32(descriptor, 0), load_be32(descriptor, 4)};
    if (packet.offset > transfer_length || packet.length > transfer_length - packet.offset) {
        throw ProtocolError("packet of " + std::to_string(packet.length) + " bytes at " +
                            std::to_string(packet.offset) + " of " +
                            std::to_string(transfer_length));
    }
    return packet;
}

}  // namespace

std::optional<Command> PduReader::next() {
    const ByteView bytes = unread();
    if (bytes.size() < kHeaderBytes) {
        return std::nullopt;
    }
    const ByteView header = bytes.first(kHeaderBytes);
    const uint32_t command = load_be32(header, 0);
    if (command == kCmdUnlink) {
        const Unlink unlink{load_be32(header, 4), load_be32(header, 20)};
        consume(kHeaderBytes);
        return unlink;
    }
    if (command != kCmdSubmit) {
        throw ProtocolError("command " + std::to_string(command));
    }
    Submit submit = read_header(header);
    const size_t out_size = submit.device_to_host() ? 0 : submit.length;
    const size_t count = packet_count(header);
    const size_t total = kHeaderBytes + out_size + count * kIsoDescriptorBytes;
    if (bytes.size() < total) {
        return std::nullopt;
    }
    const ByteView out = bytes.subspan(kHeaderBytes, out_size);
    submit.out.assign(out.begin(), out.end());
    for (size_t i = 0; i < count; ++i) {
        const size_t at = kHeaderBytes + out_size + i * kIsoDescriptorBytes;
        submit.packets.push_back(
            read_packet(bytes.subspan(at, kIsoDescriptorBytes), submit.length));
    }
    consume(total);
    return submit;
}

void PduReader::consume(size_t size) {
    read_ += size;
    if (read_ == buffer_.size()) {
        buffer_.clear();
        read_ = 0;
    } else if (read_ >= kCompactAt) {
        buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(read_));
        read_ = 0;
    }
}

}  // namespace virtcam::usbip
