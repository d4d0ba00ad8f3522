#include "virtcam/usbip/handshake.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "virtcam/usbip/pdu_reader.h"

namespace virtcam::usbip {
namespace {

constexpr uint16_t kVersion = 0x0111;
constexpr uint16_t kRequestImport = 0x8003;
constexpr uint16_t kRequestDeviceList = 0x8005;
constexpr uint16_t kReplyImport = 0x0003;
constexpr uint16_t kReplyDeviceList = 0x0005;
constexpr size_t kPathBytes = 256;
constexpr size_t kBusIdBytes = 32;
constexpr char kPath[] = "/sys/devices/virtual/virtcam/usb1/1-1";

// Descriptor types and sizes (USB 2.0, 9.5 and 9.6).
constexpr uint8_t kInterfaceDescriptor = 4;
constexpr size_t kInterfaceDescriptorBytes = 9;

void append_op_header(uint16_t code, uint32_t status, Bytes& wire) {
    append_be(wire, 2, kVersion);
    append_be(wire, 2, code);
    append_be32(wire, status);
}

void append_text(std::string_view text, size_t field, Bytes& wire) {
    wire.insert(wire.end(), text.begin(), text.end());
    wire.insert(wire.end(), field - text.size(), 0);
}

/// Class, subclass and protocol of each interface, of its first alternate setting.
Bytes interface_records(ByteView configuration) {
    Bytes records;
    for (size_t at = 0; at + 2 <= configuration.size();) {
        const size_t size = configuration[at];
        if (size < 2 || size > configuration.size() - at) {
            break;
        }
        if (configuration[at + 1] == kInterfaceDescriptor && size >= kInterfaceDescriptorBytes &&
            configuration[at + 3] == 0) {
            records.insert(records.end(), {configuration[at + 5], configuration[at + 6],
                                           configuration[at + 7], 0});
        }
        at += size;
    }
    return records;
}

void append_device_record(const model::Camera& camera, Bytes& wire) {
    const Bytes device = camera.device_descriptor();
    const Bytes configuration = camera.configuration_descriptor();
    const size_t interfaces = interface_records(configuration).size() / 4;
    append_text(kPath, kPathBytes, wire);
    append_text(kBusId, kBusIdBytes, wire);
    append_be32(wire, kBusNumber);
    append_be32(wire, kDeviceNumber);
    append_be32(wire, kHighSpeed);
    append_be(wire, 2, model::load_u16(device, 8));   // idVendor
    append_be(wire, 2, model::load_u16(device, 10));  // idProduct
    append_be(wire, 2, model::load_u16(device, 12));  // bcdDevice
    append_be(wire, 1, device[4]);                    // bDeviceClass
    append_be(wire, 1, device[5]);                    // bDeviceSubClass
    append_be(wire, 1, device[6]);                    // bDeviceProtocol
    append_be(wire, 1, configuration[5]);             // bConfigurationValue
    append_be(wire, 1, device[17]);                   // bNumConfigurations
    append_be(wire, 1, static_cast<uint32_t>(interfaces));
}

}  // namespace

std::optional<OpRequest> take_request(Bytes& received) {
    if (received.size() < kOpHeaderBytes) {
        return std::nullopt;
    }
    const uint32_t code = load_be(received, 2, 2);
    if (load_be(received, 0, 2) != kVersion ||
        (code != kRequestImport && code != kRequestDeviceList)) {
        throw ProtocolError("not a request of this protocol version");
    }
    OpRequest request;
    size_t size = kOpHeaderBytes;
    if (code == kRequestImport) {
        size += kBusIdBytes;
        if (received.size() < size) {
            return std::nullopt;
        }
        const ByteView name = ByteView(received).subspan(kOpHeaderBytes, kBusIdBytes);
        // Compared with its terminator: "1-10" is another device.
        request.our_camera = std::equal(std::begin(kBusId), std::end(kBusId), name.begin());
        request.kind = OpRequest::Kind::kImport;
    }
    received.erase(received.begin(), received.begin() + static_cast<std::ptrdiff_t>(size));
    return request;
}

Bytes device_list_reply(const model::Camera& camera) {
    Bytes wire;
    const bool attached = camera.attached();
    append_op_header(kReplyDeviceList, 0, wire);
    append_be32(wire, attached ? 1 : 0);
    if (attached) {
        append_device_record(camera, wire);
        const Bytes interfaces = interface_records(camera.configuration_descriptor());
        wire.insert(wire.end(), interfaces.begin(), interfaces.end());
    }
    return wire;
}

Bytes import_reply(const model::Camera& camera, ImportStatus status) {
    Bytes wire;
    append_op_header(kReplyImport, static_cast<uint32_t>(status), wire);
    if (status == ImportStatus::kOk) {
        append_device_record(camera, wire);
    }
    return wire;
}

Bytes import_request() {
    Bytes wire;
    append_op_header(kRequestImport, 0, wire);
    append_text(kBusId, kBusIdBytes, wire);
    return wire;
}

uint32_t import_reply_status(ByteView header) {
    if (header.size() < kOpHeaderBytes || load_be(header, 0, 2) != kVersion ||
        load_be(header, 2, 2) != kReplyImport) {
        throw ProtocolError("not an answer to an import");
    }
    return load_be32(header, 4);
}

}  // namespace virtcam::usbip
