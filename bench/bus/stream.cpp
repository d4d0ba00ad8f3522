#include <sched.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "bench/bus/device.h"

namespace bench {
namespace {

constexpr uint64_t kNanoseconds = 1'000'000'000;
constexpr uint8_t kFrameId = 0x01, kEndOfFrame = 0x02, kError = 0x40, kEndOfHeader = 0x80;
constexpr uint8_t kBadHeaderBytes = 16;
/// Format IDs of the multiplexed frame; YUY2 first, which the comparison uses alone.
constexpr uint16_t kFormats[] = {0x29, 0x2B, 0x2C, 0x2D, 0x35, 0x2A, 0x2F};

std::atomic<uint32_t> g_payload_bytes{16384};
std::atomic<unsigned> g_iso_packet_bytes{0};
std::atomic<bool> g_iso_paced{true};
std::array<Stream, kSides> g_streams;

void put16(uint8_t* to, uint16_t value) {
    std::memcpy(to, &value, sizeof value);
}
void put32(uint8_t* to, uint32_t value) {
    std::memcpy(to, &value, sizeof value);
}

void pin(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<unsigned>(cpu), &set);
    sched_setaffinity(0, sizeof set, &set);
}

void put_header(uint8_t* to, uint8_t flags) {
    std::memset(to, 0, kPayloadHeader);
    to[0] = kPayloadHeader;
    to[1] = flags | kEndOfHeader;
}

/// The multiplexed header of a sub-stream with `room` bytes of data.
void put_frame_header(uint8_t* to, uint16_t format, uint64_t number, uint32_t room) {
    std::memset(to, 0, kFrameHeader);
    put16(to + 2, kFrameHeader - 4);
    put16(to + 4, format);
    put32(to + kSequenceOffset, static_cast<uint32_t>(number));
    put32(to + 24, room);
    put32(to + 28, room);
}

}  // namespace

uint64_t now_ns() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * kNanoseconds + static_cast<uint64_t>(now.tv_nsec);
}

void Stream::start(const Traffic& traffic) {
    stop();
    {
        std::lock_guard lock(sending_);
        traffic_ = traffic;
        delivered_ = 0;
        sent_ = 0;
        number_ = 0;
        offset_ = 0;
        held_ = false;
        begin_ns_ = now_ns();
        ++generation_;
        active_ = true;
    }
    bell_.ring();
}

void Stream::stop() {
    active_ = false;
    std::lock_guard lock(sending_);
}

bool Stream::at_end() const {
    return offset_ >= traffic_.frame_bytes ||
           (!traffic_.header_only_end &&
            offset_ + (payload_bytes() - kPayloadHeader) >= traffic_.frame_bytes);
}

uint64_t Stream::due() {
    if (number_ >= traffic_.frames) {
        return UINT64_MAX;
    }
    if (traffic_.frames_per_second > 0 && offset_ == 0) {
        const uint64_t at =
            begin_ns_ + static_cast<uint64_t>(static_cast<double>(number_ + 1) *
                                              (kNanoseconds / traffic_.frames_per_second));
        return now_ns() < at ? at : 0;
    }
    if (traffic_.window == 0 || !at_end()) {
        return 0;
    }
    const uint64_t outstanding = number_ - delivered_.load();
    held_ = outstanding >= traffic_.window || (held_ && outstanding != 0);
    return held_ ? UINT64_MAX : 0;
}

/// Once for each thread and traffic: where it runs, and what its CPU clock is.
void Stream::enter_thread() {
    static thread_local unsigned entered[kSides] = {};
    unsigned& mine = entered[this - g_streams.data()];
    if (mine == generation_.load()) {
        return;
    }
    mine = generation_.load();
    clockid_t clock;
    if (pthread_getcpuclockid(pthread_self(), &clock) == 0) {
        event_clock_ = clock;
    }
    if (traffic_.event_cpu >= 0) {
        pin(traffic_.event_cpu);
    }
}

void Stream::fill(libusb_transfer* transfer) {
    transfer->status = LIBUSB_TRANSFER_COMPLETED;
    if (traffic_.kind != PayloadKind::kFrames) {
        fill_special(transfer);
        return;
    }
    uint8_t* const bytes = transfer->buffer;
    const uint32_t room = static_cast<uint32_t>(transfer->length) - kPayloadHeader;
    const uint32_t count = std::min(room, traffic_.frame_bytes - offset_);
    const bool end = at_end();
    put_header(bytes, frame_id_ | (end ? kEndOfFrame : 0));
    uint8_t* const data = bytes + kPayloadHeader;
    if (offset_ == 0) {
        // All but the last sub-stream are bare headers: their number is what costs.
        const uint32_t headers = static_cast<uint32_t>(traffic_.substreams) * kFrameHeader;
        for (int i = 0; i < traffic_.substreams; ++i) {
            const bool last = i == traffic_.substreams - 1;
            put_frame_header(data + static_cast<uint32_t>(i) * kFrameHeader,
                             kFormats[traffic_.substreams - 1 - i], number_,
                             last ? traffic_.frame_bytes - headers : 0);
        }
    }
    offset_ += count;
    if (count >= sizeof number_ && offset_ == traffic_.frame_bytes) {
        std::memcpy(data + count - sizeof number_, &number_, sizeof number_);
    }
    transfer->actual_length = static_cast<int>(kPayloadHeader + count);
    if (end) {
        end_frame();
    }
}

void Stream::end_frame() {
    ends_[number_ % kEnds] = now_ns();
    ++number_;
    offset_ = 0;
    frame_id_ ^= kFrameId;
    sent_.store(number_);
}

void Stream::fill_special(libusb_transfer* transfer) {
    uint8_t* const bytes = transfer->buffer;
    put_header(bytes, frame_id_);
    transfer->actual_length = transfer->length;
    switch (traffic_.kind) {
        case PayloadKind::kHeaderOnly:
            transfer->actual_length = kPayloadHeader;
            break;
        case PayloadKind::kErrorBit:
            bytes[1] |= kError;
            break;
        default:
            bytes[0] = kBadHeaderBytes;
            bytes[1] |= kEndOfFrame;
    }
    sent_.fetch_add(1);
}

Stream& stream(Side side) {
    return g_streams[static_cast<size_t>(side)];
}
uint32_t payload_bytes() {
    return g_payload_bytes;
}
unsigned iso_packet_bytes() {
    return g_iso_packet_bytes;
}

void set_payload_bytes(uint32_t bytes) {
    g_payload_bytes = bytes;
}
bool iso_paced() {
    return g_iso_paced;
}
void set_sound(unsigned length, bool paced) {
    g_iso_packet_bytes = length;
    g_iso_paced = paced;
}
void send(Side side, const Traffic& traffic) {
    stream(side).start(traffic);
}
void pause(Side side) {
    stream(side).stop();
}
void delivered(Side side) {
    stream(side).deliver();
}
uint64_t delivered_count(Side side) {
    return stream(side).delivered_frames();
}
uint64_t sent_count(Side side) {
    return stream(side).sent_frames();
}
uint64_t ended_at(Side side, uint64_t number) {
    return stream(side).ended_at(number);
}
clockid_t event_clock(Side side) {
    return stream(side).event_clock();
}

}  // namespace bench
