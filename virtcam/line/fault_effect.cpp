#include "virtcam/line/fault_effect.h"

#include <algorithm>

#include "virtcam/faults/libusb_codes.h"

namespace virtcam::line {
namespace {

using faults::Action;
using faults::Status;
using faults::TimeOut;

/// Ending of a transfer whose synchronous call reports `code`.
Status status_for(int code) {
    switch (code) {
        case faults::kErrorTimeout:
            return Status::kTimedOut;
        case faults::kErrorPipe:
            return Status::kStall;
        case faults::kErrorNoDevice:
            return Status::kNoDevice;
        case faults::kErrorOverflow:
            return Status::kOverflow;
        default:
            return code < 0 ? Status::kError : Status::kCompleted;
    }
}

void set_moment(const Action& action, Ending& ending) {
    ending.late = action.late.value_or(ending.late);
    ending.never = action.time_out == TimeOut::kWait;
}

void force(int code, Ending& ending) {
    ending.code = code;
    ending.status = status_for(code);
    ending.count = static_cast<size_t>(std::max(code, 0));
}

void set_verdict(const Action& action, Ending& ending) {
    if (action.time_out == TimeOut::kNow) {
        ending.status = Status::kTimedOut;
    } else if (action.result) {
        force(*action.result, ending);
    } else if (action.stall) {
        ending.status = Status::kStall;
    } else if (action.status) {
        ending.status = *action.status;
    }
}

void replace(const model::Bytes& reply, Ending& ending) {
    if (ending.room == 0) {
        return;  // nothing goes to the host
    }
    ending.data = reply;
    ending.data.resize(std::min(reply.size(), ending.room));
    ending.count = ending.data.size();
}

/// The offset counts through the packets as if they were one.
void corrupt(const faults::Corruption& change, Ending& ending) {
    if (change.offset < ending.data.size()) {
        ending.data[change.offset] ^= change.mask;
    }
    size_t at = change.offset;
    for (PacketEnding& packet : ending.packets) {
        if (at < packet.data.size()) {
            packet.data[at] ^= change.mask;
            return;
        }
        at -= packet.data.size();
    }
}

void change_header(const faults::HeaderChange& change, model::Bytes& payload) {
    if (payload.size() < 2) {
        return;
    }
    payload[0] = change.length.value_or(payload[0]);
    payload[1] = static_cast<uint8_t>(((payload[1] & ~change.clear) | change.set) ^ change.toggle);
}

void overwrite(const faults::Overwriting& change, model::Bytes& data) {
    for (size_t i = 0; i < change.bytes.size() && change.offset + i < data.size(); ++i) {
        data[change.offset + i] = change.bytes[i];
    }
}

/// Within the host's room: a device that sends more ends the transfer as an overflow.
void append(size_t length, Ending& ending) {
    constexpr uint8_t kFiller = 0x5A;
    if (ending.room == 0 || length == 0) {
        return;
    }
    ending.data.resize(std::min(ending.data.size() + length, ending.room), kFiller);
    ending.count = ending.data.size();
}

/// Of isochronous requests so many bytes arrive in all packets together.
void shorten(size_t length, Ending& ending) {
    ending.data.resize(std::min(ending.data.size(), length));
    ending.count = std::min(ending.count, length);
    for (PacketEnding& packet : ending.packets) {
        packet.data.resize(std::min(packet.data.size(), length));
        packet.count = std::min(packet.count, length);
        length -= packet.data.size();
    }
}

void change_packet(const faults::PacketChange& change, Ending& ending) {
    if (change.index >= ending.packets.size()) {
        return;
    }
    PacketEnding& packet = ending.packets[change.index];
    packet.status = change.status.value_or(packet.status);
    if (packet.status != Status::kCompleted) {
        packet.data.clear();  // what a host controller finds damaged it does not pass on
        packet.count = 0;
    }
    packet.count = change.length.value_or(packet.count);
}

}  // namespace

std::optional<Ending> refusal(const Action& action) {
    const bool refuses = action.time_out != TimeOut::kNone || action.result || action.stall ||
                         action.status.value_or(Status::kCompleted) != Status::kCompleted;
    if (!refuses) {
        return std::nullopt;
    }
    Ending ending;
    set_moment(action, ending);
    set_verdict(action, ending);
    return ending;
}

void apply(const Action& action, Ending& ending) {
    set_moment(action, ending);
    if (ending.status != Status::kCompleted) {
        return;
    }
    set_verdict(action, ending);
    if (action.reply) {
        replace(*action.reply, ending);
    }
    for (const auto& change : action.headers) {
        change_header(change, ending.data);
    }
    for (const auto& change : action.overwritings) {
        overwrite(change, ending.data);
    }
    for (const auto& change : action.corruptions) {
        corrupt(change, ending);
    }
    append(action.appended, ending);
    if (action.short_to) {
        shorten(*action.short_to, ending);
    }
    ending.count = action.actual_length.value_or(ending.count);
    for (const auto& change : action.packets) {
        change_packet(change, ending);
    }
}

void apply(const std::vector<faults::FieldChange>& fields, std::span<uint8_t> part, size_t before) {
    for (const faults::FieldChange& field : fields) {
        if (field.offset < before || field.offset + field.width > before + part.size()) {
            continue;
        }
        const size_t offset = field.offset - before;
        const uint32_t old = field.add ? model::load_le(part, offset, field.width) : 0;
        model::store_le(part, offset, field.width, old + field.value);
    }
}

}  // namespace virtcam::line
