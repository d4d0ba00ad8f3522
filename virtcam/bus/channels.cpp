#include "virtcam/bus/channels.h"

#include <algorithm>
#include <utility>

namespace virtcam::bus {
namespace {

/// Cuts what was pushed to what the transfer has room for; a count that the test chose stays.
line::Ending fitted(line::Ending pushed, const line::Request& request) {
    if (request.is_iso()) {
        pushed.packets.resize(request.packets.size());
    } else if (pushed.count == pushed.data.size()) {
        pushed.data.resize(std::min(pushed.data.size(), request.room));
        pushed.count = pushed.data.size();
    }
    pushed.room = request.room;
    return pushed;
}

}  // namespace

std::optional<line::Ending> Channels::FarEnd::answer(const line::Request& request, TimePoint now) {
    const bool stream = request.is_iso() || request.kind == faults::TransferKind::kBulk;
    if (!channels_.scripted_ || !stream || !request.to_host()) {
        return Device::answer(request, now);
    }
    auto& pushed = channels_.at(request.endpoint).scripted;
    if (pushed.empty()) {
        return std::nullopt;
    }
    line::Ending ending = fitted(std::move(pushed.front()), request);
    pushed.pop_front();
    return ending;
}

void Channels::submit(Urb& urb) {
    Channel& channel = at(urb.endpoint);
    journal_.note_submission(urb);
    channel.last_timeout = urb.transfer->timeout;
    channel.endpoint.submit(urb);
    serve(channel);
    urb.handle->context->wake.notify_all();  // its time-out may be the next one
    shared_.changed();
}

void Channels::end(Urb& urb, faults::Status status) {
    finish(urb, line::ended(status));
    serve(at(urb.endpoint));
}

void Channels::flush(uint8_t address, faults::Status status) {
    flush(at(address), status);
}

void Channels::flush_all(faults::Status status) {
    for (auto& [address, channel] : channels_) {
        flush(channel, status);
    }
}

void Channels::flush(Channel& channel, faults::Status status) {
    while (!channel.endpoint.waiting().empty()) {
        finish(static_cast<Urb&>(*channel.endpoint.waiting().front()), line::ended(status));
    }
    channel.endpoint.end_stream();
}

void Channels::abandon(Urb& urb) {
    Channel& channel = at(urb.endpoint);
    channel.endpoint.withdraw(urb, model::Clock::now());
    std::erase(channel.held, &urb);
    std::erase(urb.handle->context->completed, &urb);
    urb.state = Urb::State::kIdle;
}

std::vector<Urb*> Channels::expiring(const libusb_context* context) const {
    std::vector<Urb*> urbs;
    for (const auto& [address, channel] : channels_) {
        for (line::Request* const request : channel.endpoint.waiting()) {
            auto* const urb = static_cast<Urb*>(request);
            if (urb->handle->context == context && urb->expires) {
                urbs.push_back(urb);
            }
        }
    }
    std::stable_sort(urbs.begin(), urbs.end(),
                     [](const Urb* a, const Urb* b) { return *a->expires < *b->expires; });
    return urbs;
}

std::optional<TimePoint> Channels::next_expiry(const libusb_context* context) const {
    const auto urbs = expiring(context);
    return urbs.empty() ? std::nullopt : urbs.front()->expires;
}

void Channels::expire(const libusb_context* context, TimePoint now) {
    std::vector<Urb*> late = expiring(context);
    std::erase_if(late, [&](const Urb* urb) { return *urb->expires > now; });
    for (Urb* urb : late) {
        finish(*urb, line::ended(faults::Status::kTimedOut));
    }
    for (Urb* urb : late) {
        serve(at(urb->endpoint));  // what was queued behind it
    }
}

void Channels::serve_all() {
    // By address: what an action does to the map's values must not disturb the walk.
    for (auto& [address, channel] : channels_) {
        serve(channel);
    }
}

void Channels::serve(Channel& channel) {
    while (auto answer = channel.endpoint.serve(model::Clock::now())) {
        finish(static_cast<Urb&>(answer->request), std::move(answer->ending));
        for (const faults::DeviceAction action : answer->afterwards) {
            far_end_.run(action);
        }
    }
    if (const auto due = channel.endpoint.due()) {
        clock_.wake_by(*due);
    }
}

TimePoint Channels::due() const {
    TimePoint next = TimePoint::max();
    for (const auto& [address, channel] : channels_) {
        next = std::min(next, channel.endpoint.due().value_or(next));
    }
    return next;
}

void Channels::finish(Urb& urb, line::Ending ending) {
    Channel& channel = at(urb.endpoint);
    channel.endpoint.withdraw(urb, model::Clock::now());
    urb.state = Urb::State::kDone;
    urb.ending = std::move(ending);
    journal_.note_ending(urb);
    if (channel.hold) {
        channel.held.push_back(&urb);
    } else {
        publish(urb);
    }
    shared_.changed();
}

void Channels::publish(Urb& urb) {
    libusb_context& context = *urb.handle->context;
    context.completed.push_back(&urb);
    context.wake.notify_all();
}

size_t Channels::pending(uint8_t address) const {
    const auto found = channels_.find(address);
    return found == channels_.end() ? 0 : found->second.endpoint.waiting().size();
}

std::optional<unsigned> Channels::last_timeout(uint8_t address) const {
    const auto found = channels_.find(address);
    return found == channels_.end() ? std::nullopt : found->second.last_timeout;
}

void Channels::script(bool on) {
    scripted_ = on;
    for (auto& [address, channel] : channels_) {
        channel.scripted.clear();
        channel.endpoint.end_stream();
    }
    serve_all();
}

void Channels::push(uint8_t address, line::Ending ending) {
    Channel& channel = at(address);
    channel.scripted.push_back(std::move(ending));
    serve(channel);
}

void Channels::release(uint8_t address) {
    Channel& channel = at(address);
    channel.hold = false;
    for (Urb* urb : std::exchange(channel.held, {})) {
        publish(*urb);
    }
}

void Channels::reset() {
    scripted_ = false;
    for (auto& [address, channel] : channels_) {
        release(address);
    }
    channels_.clear();
}

}  // namespace virtcam::bus
