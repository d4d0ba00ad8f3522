// The device's side of the endpoints: when a transfer is answered, with what, and what the scripted
// failures make of it.
#include <algorithm>
#include <utility>

#include "virtcam/bus/bus.h"
#include "virtcam/bus/setup_packet.h"

namespace virtcam::bus {
namespace {

using std::chrono::milliseconds;

bool is_iso(const Urb& urb) {
    return urb.transfer->type == LIBUSB_TRANSFER_TYPE_ISOCHRONOUS;
}

libusb_transfer_status to_libusb(faults::Status status) {
    return static_cast<libusb_transfer_status>(status);
}

faults::TransferKind kind_of(const Urb& urb) {
    switch (urb.transfer->type) {
        case LIBUSB_TRANSFER_TYPE_ISOCHRONOUS:
            return faults::TransferKind::kIsochronous;
        case LIBUSB_TRANSFER_TYPE_INTERRUPT:
            return faults::TransferKind::kInterrupt;
        default:
            return faults::TransferKind::kBulk;
    }
}

Outcome ended(libusb_transfer_status status) {
    Outcome outcome;
    outcome.status = status;
    return outcome;
}

/// Ending of a transfer whose synchronous call reports `result`.
libusb_transfer_status status_for(int result) {
    switch (result) {
        case LIBUSB_ERROR_TIMEOUT:
            return LIBUSB_TRANSFER_TIMED_OUT;
        case LIBUSB_ERROR_PIPE:
            return LIBUSB_TRANSFER_STALL;
        case LIBUSB_ERROR_NO_DEVICE:
            return LIBUSB_TRANSFER_NO_DEVICE;
        case LIBUSB_ERROR_OVERFLOW:
            return LIBUSB_TRANSFER_OVERFLOW;
        default:
            return result < 0 ? LIBUSB_TRANSFER_ERROR : LIBUSB_TRANSFER_COMPLETED;
    }
}

void shorten(Outcome& outcome, size_t length) {
    outcome.data.resize(std::min(outcome.data.size(), length));
    outcome.actual_length = std::min(outcome.actual_length, static_cast<int>(length));
}

void apply_packet_change(const faults::PacketChange& change, Outcome& outcome) {
    if (change.index >= outcome.packets.size()) {
        return;
    }
    PacketOutcome& packet = outcome.packets[change.index];
    if (change.status) {
        packet.status = to_libusb(*change.status);
    }
    if (change.length) {
        packet.actual_length = static_cast<unsigned>(*change.length);
    }
}

void corrupt(const faults::Corruption& change, std::vector<uint8_t>& data) {
    if (change.offset < data.size()) {
        data[change.offset] ^= change.mask;
    }
}

}  // namespace

std::optional<TimePoint> Bus::next_due(const EndpointQueue& queue) const {
    if (queue.urbs.empty() || queue.urbs.front()->stuck) {
        return std::nullopt;
    }
    const Urb& head = *queue.urbs.front();
    if (head.prepared) {
        return head.prepared_due;
    }
    if (is_iso(head) && config_.iso_paced && !scripted_) {
        return queue.iso_due + milliseconds(head.transfer->num_iso_packets);
    }
    return std::nullopt;
}

void Bus::serve_all() {
    // By address: what an action does to the map's values must not disturb the walk.
    for (auto& [endpoint, queue] : queues_) {
        serve(endpoint);
    }
}

void Bus::serve(uint8_t endpoint) {
    auto& queue = queues_[endpoint];
    while (!queue.urbs.empty() && advance_urb(queue, *queue.urbs.front())) {
    }
}

/// Returns true when the head of the queue has changed.
bool Bus::advance_urb(EndpointQueue& queue, Urb& urb) {
    if (urb.stuck) {
        return false;
    }
    const TimePoint now = std::chrono::steady_clock::now();
    if (!urb.prepared) {
        if (const auto due = next_due(queue); due && *due > now) {
            return false;
        }
        urb.prepared_due = now;
        auto answer = ask(queue, urb);
        if (urb.state != Urb::State::kPending) {
            return true;  // a scripted departure has ended it
        }
        if (!answer) {
            return false;
        }
        urb.afterwards = apply_transfer_faults(urb, *answer);
        urb.prepared = std::move(answer);
        if (urb.prepared_due > now) {
            clock_ticker_->poke();
        }
    }
    if (urb.prepared_due > now) {
        return false;
    }
    Outcome outcome = std::move(*urb.prepared);
    urb.prepared.reset();
    const auto actions = std::exchange(urb.afterwards, {});
    finish(urb, std::move(outcome));
    run_actions(actions);
    return true;
}

std::optional<Outcome> Bus::ask(EndpointQueue& queue, Urb& urb) {
    const libusb_transfer& transfer = *urb.transfer;
    switch (transfer.type) {
        case LIBUSB_TRANSFER_TYPE_CONTROL:
            return ask_control(urb);
        case LIBUSB_TRANSFER_TYPE_ISOCHRONOUS:
            return ask_iso_in(queue, urb);
        default:
            break;
    }
    if ((urb.endpoint & LIBUSB_ENDPOINT_IN) == 0) {
        return ask_out(urb);
    }
    if (transfer.type == LIBUSB_TRANSFER_TYPE_BULK) {
        return ask_bulk_in(queue, urb);
    }
    return std::nullopt;  // the camera never has news on its status endpoint
}

std::optional<Outcome> Bus::ask_control(Urb& urb) {
    const model::Setup setup = read_setup(urb.transfer->buffer);
    const auto out = out_data(*urb.transfer, setup);
    faults::Action action;
    if (!rules_.empty()) {
        action = rules_.on_control(setup, out);
        run_actions(action.device);
    }
    if (attachment_ == 0 || urb.state != Urb::State::kPending) {
        return std::nullopt;
    }
    if (action.late) {
        urb.prepared_due += *action.late;
    }
    if (action.time_out == faults::TimeOut::kNow) {
        return ended(LIBUSB_TRANSFER_TIMED_OUT);
    }
    if (action.time_out == faults::TimeOut::kWait) {
        urb.stuck = true;
        return std::nullopt;
    }
    if (action.result) {
        Outcome forced = ended(status_for(*action.result));
        forced.result = action.result;
        return forced;
    }
    if (action.stall) {
        return ended(LIBUSB_TRANSFER_STALL);
    }
    if (action.status && *action.status != faults::Status::kCompleted) {
        return ended(to_libusb(*action.status));
    }
    model::ControlReply reply = camera_->control(setup, out);
    if (reply.stall) {
        return ended(LIBUSB_TRANSFER_STALL);
    }
    Outcome outcome;
    if (setup.device_to_host()) {
        outcome.data = action.reply ? std::move(*action.reply) : std::move(reply.data);
        outcome.data.resize(std::min<size_t>(outcome.data.size(), setup.length));
        outcome.actual_length = static_cast<int>(outcome.data.size());
    } else {
        outcome.actual_length = setup.length;
    }
    if (action.short_to) {
        shorten(outcome, *action.short_to);
    }
    if (action.actual_length) {
        outcome.actual_length = static_cast<int>(*action.actual_length);
    }
    return outcome;
}

std::optional<Outcome> Bus::ask_bulk_in(EndpointQueue& queue, const Urb& urb) {
    const auto room = static_cast<size_t>(urb.transfer->length);
    if (scripted_) {
        if (queue.scripted.empty()) {
            return std::nullopt;
        }
        Outcome outcome = std::move(queue.scripted.front());
        queue.scripted.pop_front();
        if (outcome.actual_length == static_cast<int>(outcome.data.size())) {
            shorten(outcome, room);  // a count that the test chose itself stays
        }
        return outcome;
    }
    auto payload = camera_->bulk_in(urb.endpoint, room);
    if (!payload) {
        return std::nullopt;
    }
    Outcome outcome;
    outcome.data = std::move(*payload);
    outcome.data.resize(std::min(outcome.data.size(), room));
    outcome.actual_length = static_cast<int>(outcome.data.size());
    return outcome;
}

std::optional<Outcome> Bus::ask_iso_in(EndpointQueue& queue, const Urb& urb) {
    const libusb_transfer& transfer = *urb.transfer;
    const auto packets = static_cast<size_t>(transfer.num_iso_packets);
    if (scripted_) {
        if (queue.scripted.empty()) {
            return std::nullopt;
        }
        Outcome outcome = std::move(queue.scripted.front());
        queue.scripted.pop_front();
        outcome.packets.resize(packets);
        return outcome;
    }
    queue.iso_due += milliseconds(packets);
    Outcome outcome;
    for (size_t i = 0; i < packets; ++i) {
        const size_t room = transfer.iso_packet_desc[i].length;
        PacketOutcome packet;
        packet.data = camera_->iso_in(urb.endpoint, room);
        packet.data.resize(std::min(packet.data.size(), room));
        packet.actual_length = static_cast<unsigned>(packet.data.size());
        outcome.packets.push_back(std::move(packet));
    }
    return outcome;
}

Outcome Bus::ask_out(const Urb& urb) {
    const libusb_transfer& transfer = *urb.transfer;
    const auto length = static_cast<size_t>(transfer.length);
    const auto endpoint = static_cast<uint8_t>(urb.endpoint & LIBUSB_ENDPOINT_ADDRESS_MASK);
    if (!camera_->bulk_out(endpoint, {transfer.buffer, length})) {
        return ended(LIBUSB_TRANSFER_STALL);
    }
    Outcome outcome;
    outcome.actual_length = transfer.length;
    return outcome;
}

std::vector<faults::DeviceAction> Bus::apply_transfer_faults(Urb& urb, Outcome& outcome) {
    if (rules_.empty() || urb.transfer->type == LIBUSB_TRANSFER_TYPE_CONTROL) {
        return {};
    }
    faults::Action action = rules_.on_transfer(kind_of(urb), urb.endpoint, outcome.data);
    if (action.stall) {
        outcome.status = LIBUSB_TRANSFER_STALL;
    }
    if (action.status) {
        outcome.status = to_libusb(*action.status);
    }
    if (action.reply) {
        outcome.data = std::move(*action.reply);
        outcome.data.resize(
            std::min(outcome.data.size(), static_cast<size_t>(urb.transfer->length)));
        outcome.actual_length = static_cast<int>(outcome.data.size());
    }
    for (const auto& change : action.corruptions) {
        corrupt(change, outcome.data);
    }
    if (action.short_to) {
        shorten(outcome, *action.short_to);
    }
    if (action.actual_length) {
        outcome.actual_length = static_cast<int>(*action.actual_length);
    }
    for (const auto& change : action.packets) {
        apply_packet_change(change, outcome);
    }
    if (action.late) {
        urb.prepared_due += *action.late;
    }
    return std::move(action.device);
}

}  // namespace virtcam::bus
