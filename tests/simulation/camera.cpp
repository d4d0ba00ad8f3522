#include "tests/simulation/camera.h"

#include <string.h>

#include <algorithm>

namespace sim {

namespace {

constexpr uint16_t kProbe = 0x0100, kCommit = 0x0200;
constexpr uint16_t kMainH264 = 0x2B;
constexpr size_t kPayloadHeader = 12;
constexpr Time kSoundTransfer = std::chrono::milliseconds(10);
constexpr unsigned int kSoundPacket = 64;  // bytes: 1 ms of two channels at 16 kHz

bool is_to_extension_unit(const Setup& setup, uint8_t selector) {
    return setup.index == 0x0600 && setup.value == selector << 8;
}

}  // namespace

Answer Camera::control(const Setup& setup, unsigned char* data) {
    const bool to_host = (setup.type & 0x80) != 0;
    const bool of_stream = setup.index == 1 && (setup.value == kProbe || setup.value == kCommit);
    if (!to_host) {
        if (of_stream) {
            probe_.assign(data, data + setup.length);
            next_video_ = World::now();
            frame_.clear();
            sent_ = 0;
        }
        if (is_to_extension_unit(setup, 3)) {
            firmware_.insert(firmware_.end(), data, data + setup.length);
        }
        const bool burns = (is_to_extension_unit(setup, 4) && data[0] == 1 && data[1] == 1) ||
                           (setup.type == 0x40 && setup.request == 8);
        if (burns && product_ == kBootCode) {
            burn();
        }
        return {setup.length};
    }
    memset(data, 0, setup.length);
    if (of_stream && probe_.size() == setup.length) {
        std::copy(probe_.begin(), probe_.end(), data);
    } else if (setup.index == 0x0503) {  // the volume's range: 0 to 255
        data[0] = setup.request == 0x83 ? 0xFF : 0;
    } else if (is_to_extension_unit(setup, 2)) {
        constexpr uint8_t kAnswer[] = {0, 0, 0, 1, 0, 2, 0, 3};  // good; version 1.2.3
        std::copy_n(kAnswer, std::min<size_t>(setup.length, sizeof kAnswer), data);
    }
    return {setup.length};
}

Answer Camera::bulk_out(const unsigned char* data, int length) {
    firmware_.insert(firmware_.end(), data, data + length);
    return {length};
}

/// It is away as soon as it has taken the request, and back at once.
void Camera::burn() {
    product_ = kRunTime;
    Bus::plug(this);
}

Ending Camera::submitted(const libusb_transfer& transfer) {
    const bool video = transfer.type == LIBUSB_TRANSFER_TYPE_BULK;
    Time& next = video ? next_video_ : next_sound_;
    next = std::max(next, World::now()) + (video ? half_frame_ : kSoundTransfer);
    return {LIBUSB_TRANSFER_COMPLETED, next};
}

void Camera::fill(libusb_transfer& transfer) {
    if (transfer.type == LIBUSB_TRANSFER_TYPE_BULK) {
        fill_video(transfer);
        return;
    }
    for (int i = 0; i < transfer.num_iso_packets; ++i) {
        libusb_iso_packet_descriptor& packet = transfer.iso_packet_desc[i];
        packet.actual_length = std::min(kSoundPacket, packet.length);
    }
    memset(transfer.buffer, 0, static_cast<size_t>(transfer.length));
}

/// A frame in payloads as large as they may be, then one without data that ends it.
void Camera::fill_video(libusb_transfer& transfer) {
    if (sent_ == 0 && frame_.empty()) {
        frame_ = next_frame();
    }
    const size_t count =
        std::min(static_cast<size_t>(transfer.length) - kPayloadHeader, frame_.size() - sent_);
    memset(transfer.buffer, 0, kPayloadHeader);
    transfer.buffer[0] = kPayloadHeader;
    transfer.buffer[1] = static_cast<uint8_t>(frame_id_ | (count == 0 ? 2 : 0));
    std::copy_n(frame_.data() + sent_, count, transfer.buffer + kPayloadHeader);
    transfer.actual_length = static_cast<int>(kPayloadHeader + count);
    sent_ += count;
    if (count == 0) {
        frame_.clear();
        sent_ = 0;
        frame_id_ ^= 1;
    }
}

std::vector<uint8_t> Camera::next_frame() {
    constexpr uint8_t kKeyFrame[] = {0,    0, 0, 1, 0x67, 1, 2, 3, 0,    0, 0, 1,
                                     0x68, 1, 2, 3, 0,    0, 0, 1, 0x65, 1, 2, 3};
    std::vector<uint8_t> frame;
    append(frame, kMainH264, ++sequence_, kKeyFrame, sizeof kKeyFrame);
    return frame;
}

void Camera::append(std::vector<uint8_t>& frame, uint16_t format, uint32_t sequence,
                    const uint8_t* data, uint32_t size) {
    const uint32_t fields[] = {28u << 16 | 1u,  // version 1, 28 bytes more
                               640u << 16 | format, 30u << 16 | 480u, sequence, 0, 0, size, size};
    for (const uint32_t field : fields) {
        for (int shift = 0; shift < 32; shift += 8) {
            frame.push_back(static_cast<uint8_t>(field >> shift));
        }
    }
    frame.insert(frame.end(), data, data + size);
}

}  // namespace sim
