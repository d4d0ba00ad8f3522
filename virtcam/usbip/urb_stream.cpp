#include "virtcam/usbip/urb_stream.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "virtcam/usbip/pdu_reader.h"
#include "virtcam/usbip/urb_faults.h"

namespace virtcam::usbip {
namespace {

using faults::TransferKind;
using model::Setup;
using model::TimePoint;

uint8_t queue_of(const Submit& submit) {
    return submit.is_control() ? 0 : submit.endpoint;
}

Setup read_setup(const Submit& submit) {
    const ByteView bytes(submit.setup);
    return {bytes[0], bytes[1], model::load_u16(bytes, 2), model::load_u16(bytes, 4),
            model::load_u16(bytes, 6)};
}

TransferKind kind_of(const Submit& submit) {
    return submit.is_iso() ? TransferKind::kIsochronous : TransferKind::kBulk;
}

Result ended(int status) {
    Result result;
    result.status = status;
    return result;
}

/// True when header and setup packet tell the same story.
bool is_consistent(const Submit& submit, const Setup& setup) {
    if (setup.length == 0) {
        return submit.length == 0;  // without a data stage the direction means nothing
    }
    return setup.device_to_host() == submit.device_to_host() &&
           (submit.device_to_host() || submit.length == setup.length);
}

}  // namespace

UrbStream::UrbStream(Device device) : device_(std::move(device)) {
    device_.camera.bus_reset();
}

void UrbStream::submit(Submit submit) {
    if (waiting_ >= kMostRequests) {
        throw ProtocolError("more than " + std::to_string(kMostRequests) + " requests wait");
    }
    for (const auto& [address, endpoint] : endpoints_) {
        for (const Request& request : endpoint.requests) {
            if (request.submit.seqnum == submit.seqnum) {
                throw ProtocolError("request " + std::to_string(submit.seqnum) + " exists");
            }
        }
    }
    ++waiting_;
    Endpoint& endpoint = endpoints_[queue_of(submit)];
    Request request;
    request.submit = std::move(submit);
    endpoint.requests.push_back(std::move(request));
}

void UrbStream::unlink(const Unlink& unlink, Bytes& wire) {
    for (auto& [address, endpoint] : endpoints_) {
        auto& requests = endpoint.requests;
        const auto victim = std::find_if(requests.begin(), requests.end(), [&](const auto& each) {
            return each.submit.seqnum == unlink.victim;
        });
        if (victim != requests.end() && answers_before_unlink_) {
            append_reply(victim->submit, Result{}, frame_number(model::Clock::now()), wire);
            requests.erase(victim);
            --waiting_;
            break;
        }
        if (victim != requests.end()) {
            // Must never be answered from here on: the kernel would drop the connection.
            requests.erase(victim);
            --waiting_;
            append_reply(unlink, -ECONNRESET, wire);
            return;
        }
    }
    append_reply(unlink, 0, wire);
}

TimePoint UrbStream::serve(TimePoint now, Bytes& wire) {
    TimePoint wake = TimePoint::max();
    if (muted_) {
        return wake;
    }
    for (auto& [address, endpoint] : endpoints_) {
        while (!endpoint.requests.empty() && wire.size() < kMostUnsent &&
               device_.camera.attached() && advance(endpoint, now, wake, wire)) {
        }
    }
    return wake;
}

/// Takes the endpoint's first request as far as it goes. Returns true when it has been answered.
bool UrbStream::advance(Endpoint& endpoint, TimePoint now, TimePoint& wake, Bytes& wire) {
    Request& request = endpoint.requests.front();
    if (!request.result && !prepare(endpoint, now, wake)) {
        return false;
    }
    if (request.due > now) {
        wake = std::min(wake, request.due);
        return false;
    }
    answer(endpoint, wire);
    return true;
}

bool UrbStream::prepare(Endpoint& endpoint, TimePoint now, TimePoint& wake) {
    Request& request = endpoint.requests.front();
    if (request.stuck) {
        return false;
    }
    const size_t packets = request.submit.packets.size();
    if (packets != 0 && device_.iso_paced) {
        const TimePoint due = endpoint.clock.due(packets, now);
        if (due > now) {
            wake = std::min(wake, due);
            return false;
        }
        endpoint.clock.answered(packets);
    }
    request.due = now;
    request.result = ask(request);
    if (!request.result) {
        return false;
    }
    if (!request.submit.is_control()) {
        apply_transfer_rules(request);
    }
    return !request.stuck;
}

void UrbStream::answer(Endpoint& endpoint, Bytes& wire) {
    const Request request = std::move(endpoint.requests.front());
    endpoint.requests.pop_front();
    --waiting_;
    append_reply(request.submit, *request.result, frame_number(request.due), wire);
    run(request.afterwards);
}

void UrbStream::run(const std::vector<faults::DeviceAction>& actions) {
    for (const faults::DeviceAction action : actions) {
        device_.run(action);
    }
}

std::optional<Result> UrbStream::ask(Request& request) {
    const Submit& submit = request.submit;
    if (submit.is_control()) {
        return ask_control(request);
    }
    if (submit.is_iso()) {
        return ask_iso(submit);
    }
    return submit.device_to_host() ? ask_bulk_in(submit) : ask_bulk_out(submit);
}

std::optional<Result> UrbStream::ask_control(Request& request) {
    const Submit& submit = request.submit;
    const Setup setup = read_setup(submit);
    if (submit.is_iso() || !is_consistent(submit, setup)) {
        return ended(-EPIPE);
    }
    const faults::Action action = device_.rules.on_control(setup, submit.out);
    run(action.device);
    if (!device_.camera.attached()) {
        return std::nullopt;  // the cable was pulled: the connection ends without an answer
    }
    if (action.late) {
        request.due += *action.late;
    }
    if (action.time_out == faults::TimeOut::kWait) {
        request.stuck = true;
        return std::nullopt;
    }
    if (action.time_out == faults::TimeOut::kNow) {
        return ended(-ETIMEDOUT);
    }
    Result result;
    apply(action, submit, result);
    if (result.status != 0) {
        return ended(result.status);  // refused: the device does not see the request
    }
    model::ControlReply reply = device_.camera.control(setup, submit.out);
    if (reply.stall) {
        return ended(-EPIPE);
    }
    result.data = std::move(reply.data);
    result.data.resize(std::min<size_t>(result.data.size(), setup.length));
    result.accepted = static_cast<uint32_t>(submit.out.size());
    apply(action, submit, result);
    return result;
}

std::optional<Result> UrbStream::ask_bulk_in(const Submit& submit) {
    auto payload = device_.camera.bulk_in(submit.endpoint, submit.length);
    if (!payload) {
        return std::nullopt;
    }
    Result result;
    result.data = std::move(*payload);
    return result;
}

Result UrbStream::ask_bulk_out(const Submit& submit) {
    if (!device_.camera.bulk_out(submit.number(), submit.out)) {
        return ended(-EPIPE);
    }
    Result result;
    result.accepted = submit.length;
    return result;
}

Result UrbStream::ask_iso(const Submit& submit) {
    if (!submit.device_to_host()) {
        return ended(-EPIPE);
    }
    Result result;
    for (const IsoPacket& packet : submit.packets) {
        result.packets.push_back({device_.camera.iso_in(submit.endpoint, packet.length), 0});
    }
    return result;
}

void UrbStream::apply_transfer_rules(Request& request) {
    const Submit& submit = request.submit;
    const Bytes& data = submit.device_to_host() ? request.result->data : submit.out;
    faults::Action action = device_.rules.on_transfer(kind_of(submit), submit.endpoint, data);
    apply(action, submit, *request.result);
    if (action.late) {
        request.due += *action.late;
    }
    request.stuck = action.time_out == faults::TimeOut::kWait;
    if (request.stuck) {
        request.result.reset();
    }
    request.afterwards = std::move(action.device);
}

uint32_t UrbStream::frame_number(TimePoint now) const {
    constexpr uint32_t kFrameNumbers = 2048;  // USB 2.0, 8.4.3.1: 11 bits
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - started_);
    return static_cast<uint32_t>(elapsed.count()) % kFrameNumbers;
}

}  // namespace virtcam::usbip
