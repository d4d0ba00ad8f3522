#include "virtcam/bus/capture.h"

#include <sys/types.h>

#include <cerrno>
#include <chrono>
#include <ctime>

#include "virtcam/model/usb.h"

namespace virtcam::bus {
namespace {

static_assert(sizeof(off_t) == 8, "a capture may be longer than 2 GiB");

using model::append_le;
using model::Bytes;
using model::ByteView;

constexpr uint8_t kSubmission = 'S';
constexpr uint8_t kCompletion = 'C';
constexpr uint8_t kIso = 0;  // transfer types as usbmon counts them
constexpr uint8_t kInterrupt = 1;
constexpr uint8_t kControl = 2;
constexpr uint8_t kBulk = 3;
constexpr uint8_t kIn = 0x80;

void append_u64(Bytes& bytes, uint64_t value) {
    append_le(bytes, 4, static_cast<uint32_t>(value));
    append_le(bytes, 4, static_cast<uint32_t>(value >> 32));
}

void append_signed(Bytes& bytes, int value) {
    append_le(bytes, 4, static_cast<uint32_t>(value));
}

Bytes file_header() {
    constexpr uint32_t kMagic = 0xA1B2C3D4;  // microseconds
    constexpr uint32_t kUsbLinuxMmapped = 220;
    constexpr uint32_t kLongest = 1 << 24;
    Bytes bytes;
    append_le(bytes, 4, kMagic);
    append_le(bytes, 2, 2);  // version 2.4
    append_le(bytes, 2, 4);
    append_u64(bytes, 0);  // time zone, accuracy
    append_le(bytes, 4, kLongest);
    append_le(bytes, 4, kUsbLinuxMmapped);
    return bytes;
}

int error_number(faults::Status status) {
    switch (status) {
        case faults::Status::kCompleted:
            return 0;
        case faults::Status::kTimedOut:
        case faults::Status::kCancelled:
            return -ECONNRESET;
        case faults::Status::kStall:
            return -EPIPE;
        case faults::Status::kNoDevice:
            return -ESHUTDOWN;
        case faults::Status::kOverflow:
            return -EOVERFLOW;
        case faults::Status::kError:
            break;
    }
    return -EPROTO;
}

uint8_t type_of(const Urb& urb) {
    if (urb.is_control()) {
        return kControl;
    }
    switch (*urb.kind) {
        case faults::TransferKind::kIsochronous:
            return kIso;
        case faults::TransferKind::kInterrupt:
            return kInterrupt;
        case faults::TransferKind::kBulk:
            break;
    }
    return kBulk;
}

Bytes setup_bytes(const model::Setup& setup) {
    Bytes bytes{setup.request_type, setup.request};
    append_le(bytes, 2, setup.value);
    append_le(bytes, 2, setup.index);
    append_le(bytes, 2, setup.length);
    return bytes;
}

struct IsoDescriptor {
    int status = 0;
    size_t offset = 0;
    size_t length = 0;
};

}  // namespace

struct Capture::Packet {
    uint64_t id = 0;
    uint8_t event = kSubmission;
    uint8_t type = kControl;
    uint8_t endpoint = 0;  ///< with the direction bit
    uint8_t address = 0;
    int status = 0;
    size_t length = 0;                  ///< asked for, or moved
    std::optional<model::Setup> setup;  ///< of a control transfer's submission
    Bytes data;
    bool has_data = false;
    std::vector<IsoDescriptor> iso;
};

Capture::Capture(const std::string& path, bool payloads) : payloads_(payloads) {
    if (path.empty()) {
        return;
    }
    file_.reset(std::fopen(path.c_str(), "wb"));
    if (file_ == nullptr) {
        std::fprintf(stderr, "virtbus: cannot write the capture \"%s\"\n", path.c_str());
        return;
    }
    const Bytes header = file_header();
    std::fwrite(header.data(), 1, header.size(), file_.get());
    std::fflush(file_.get());
}

void Capture::write(const Packet& packet) {
    timespec now{};
    std::timespec_get(&now, TIME_UTC);
    const auto microseconds = static_cast<uint32_t>(now.tv_nsec / 1000);
    Bytes body;
    append_u64(body, packet.id);
    body.insert(body.end(), {packet.event, packet.type, packet.endpoint, packet.address});
    append_le(body, 2, kBusNumber);
    body.push_back(packet.setup ? 0 : '-');
    const bool in = (packet.endpoint & kIn) != 0;
    body.push_back(packet.has_data ? 0 : static_cast<uint8_t>(in ? '<' : '>'));
    append_u64(body, static_cast<uint64_t>(now.tv_sec));
    append_le(body, 4, microseconds);
    append_signed(body, packet.status);
    append_le(body, 4, static_cast<uint32_t>(packet.length));
    append_le(body, 4, static_cast<uint32_t>(packet.data.size()));
    if (packet.setup) {
        const Bytes setup = setup_bytes(*packet.setup);
        body.insert(body.end(), setup.begin(), setup.end());
    } else {
        append_le(body, 4, 0);  // isochronous: packets in error
        append_le(body, 4, static_cast<uint32_t>(packet.iso.size()));
    }
    append_le(body, 4, packet.type == kIso ? 8 : 0);  // interval: microframes
    append_le(body, 4, 0);                            // first frame
    append_le(body, 4, 0);                            // flags
    append_le(body, 4, static_cast<uint32_t>(packet.iso.size()));
    for (const IsoDescriptor& each : packet.iso) {
        append_signed(body, each.status);
        append_le(body, 4, static_cast<uint32_t>(each.offset));
        append_le(body, 4, static_cast<uint32_t>(each.length));
        append_le(body, 4, 0);
    }
    body.insert(body.end(), packet.data.begin(), packet.data.end());

    Bytes record;
    append_le(record, 4, static_cast<uint32_t>(now.tv_sec));
    append_le(record, 4, microseconds);
    append_le(record, 4, static_cast<uint32_t>(body.size()));
    append_le(record, 4, static_cast<uint32_t>(body.size()));
    record.insert(record.end(), body.begin(), body.end());
    std::fwrite(record.data(), 1, record.size(), file_.get());
    std::fflush(file_.get());  // so that the capture of a program that crashes is complete
}

void Capture::submitted(const Urb& urb) {
    if (!enabled()) {
        return;
    }
    Packet packet;
    packet.id = reinterpret_cast<uintptr_t>(&urb);
    packet.type = type_of(urb);
    packet.address = urb.handle->device->info->address;
    packet.status = -EINPROGRESS;
    packet.endpoint = urb.endpoint;
    if (urb.is_control()) {
        packet.setup = urb.setup;
        packet.endpoint = urb.setup.device_to_host() ? kIn : 0;
        packet.length = urb.setup.length;
    } else {
        packet.length = urb.to_host() ? urb.room : urb.out.size();
    }
    packet.has_data = !urb.out.empty() && (urb.is_control() || payloads_);
    if (packet.has_data) {
        packet.data.assign(urb.out.begin(), urb.out.end());
    }
    size_t offset = 0;
    for (const size_t room : urb.packets) {
        packet.iso.push_back({-EXDEV, offset, room});
        offset += room;
    }
    write(packet);
}

void Capture::ended(const Urb& urb) {
    if (!enabled() || urb.handle == nullptr) {
        return;
    }
    Packet packet;
    packet.id = reinterpret_cast<uintptr_t>(&urb);
    packet.event = kCompletion;
    packet.type = type_of(urb);
    packet.address = urb.handle->device->info->address;
    packet.status = error_number(urb.ending.status);
    packet.endpoint = urb.is_control() && urb.setup.device_to_host() ? kIn : urb.endpoint;
    packet.length = urb.ending.count;
    packet.data = urb.ending.data;
    for (const line::PacketEnding& each : urb.ending.packets) {
        packet.iso.push_back({each.status == faults::Status::kCompleted ? 0 : -EILSEQ,
                              packet.data.size(), each.data.size()});
        packet.data.insert(packet.data.end(), each.data.begin(), each.data.end());
    }
    packet.length += urb.is_iso() ? packet.data.size() : 0;
    packet.has_data = !packet.data.empty() && (urb.is_control() || payloads_);
    if (!packet.has_data) {
        packet.data.clear();
    }
    write(packet);
}

void Capture::kernel_request(uint8_t address, const model::Setup& setup, ByteView data, bool done) {
    if (!enabled()) {
        return;
    }
    Packet packet;
    packet.id = ++kernel_requests_;
    packet.address = address;
    packet.endpoint = setup.device_to_host() ? kIn : 0;
    packet.status = -EINPROGRESS;
    packet.length = setup.length;
    packet.setup = setup;
    write(packet);
    packet.setup.reset();
    packet.event = kCompletion;
    packet.status = done ? 0 : -EPIPE;
    packet.data.assign(data.begin(), data.end());
    packet.has_data = !data.empty();
    packet.length = data.size();
    write(packet);
}

}  // namespace virtcam::bus
