#include "virtcam/usbip/urb_stream.h"

#include <algorithm>
#include <string>
#include <utility>

#include "virtcam/usbip/pdu_reader.h"
#include "virtcam/usbip/urb_result.h"

namespace virtcam::usbip {
namespace {

using faults::TransferKind;
using model::Setup;
using model::TimePoint;

/// True when header and setup packet tell the same story.
bool is_consistent(const Submit& submit, const Setup& setup) {
    if (submit.is_iso()) {
        return false;
    }
    if (setup.length == 0) {
        return submit.length == 0;  // without a data stage the direction means nothing
    }
    return setup.device_to_host() == submit.device_to_host() &&
           (submit.device_to_host() || submit.length == setup.length);
}

}  // namespace

UrbStream::Urb::Urb(Submit given) : submit(std::move(given)) {
    out = submit.out;
    if (submit.is_control()) {
        setup = line::read_setup(submit.setup);
        malformed = !is_consistent(submit, setup);
        return;
    }
    // The wire does not tell bulk and interrupt apart.
    kind = submit.is_iso() ? TransferKind::kIsochronous : TransferKind::kBulk;
    endpoint = submit.endpoint;
    room = submit.length;
    for (const IsoPacket& packet : submit.packets) {
        packets.push_back(packet.length);
    }
}

UrbStream::UrbStream(line::Device& device)
    : device_(device), attachment_(device.camera().attachment()) {
    device_.camera().bus_reset();
}

line::Endpoint& UrbStream::endpoint_of(const Urb& urb) {
    return endpoints_.try_emplace(urb.endpoint, device_).first->second;
}

bool UrbStream::on_the_bus() const {
    return device_.camera().attached() && device_.camera().attachment() == attachment_;
}

void UrbStream::submit(Submit&& submit) {
    if (urbs_.size() >= kMostRequests) {
        throw ProtocolError("more than " + std::to_string(kMostRequests) + " requests wait");
    }
    const uint32_t seqnum = submit.seqnum;
    const auto [entry, is_new] = urbs_.try_emplace(seqnum, std::move(submit));
    if (!is_new) {
        throw ProtocolError("request " + std::to_string(seqnum) + " exists");
    }
    endpoint_of(entry->second).submit(entry->second);
}

void UrbStream::unlink(const Unlink& unlink, Bytes& wire) {
    const auto victim = urbs_.find(unlink.victim);
    if (victim == urbs_.end()) {
        append_reply(unlink, 0, wire);
        return;
    }
    const TimePoint now = model::Clock::now();
    if (answers_before_unlink_) {
        append_reply(victim->second.submit, Result{}, model::bus_frame_number(now), wire);
    }
    // Must never be answered from here on: the kernel would drop the connection.
    endpoint_of(victim->second).withdraw(victim->second, now);
    urbs_.erase(victim);
    append_reply(unlink, answers_before_unlink_ ? 0 : -ECONNRESET, wire);
}

TimePoint UrbStream::serve(TimePoint now, Bytes& wire) {
    TimePoint wake = TimePoint::max();
    if (muted_) {
        return wake;
    }
    for (auto& [address, endpoint] : endpoints_) {
        while (wire.size() < kMostUnsent && on_the_bus()) {
            auto answer = endpoint.serve(now);
            if (!answer) {
                wake = std::min(wake, endpoint.due().value_or(wake));
                break;
            }
            send(std::move(*answer), wire);
        }
    }
    return wake;
}

void UrbStream::send(line::Endpoint::Answer answer, Bytes& wire) {
    const Submit& submit = static_cast<const Urb&>(answer.request).submit;
    const uint32_t seqnum = submit.seqnum;
    append_reply(submit, to_result(submit, std::move(answer.ending)),
                 model::bus_frame_number(answer.due), wire);
    urbs_.erase(seqnum);
    for (const faults::DeviceAction action : answer.afterwards) {
        device_.run(action);
    }
}

}  // namespace virtcam::usbip
