// The endpoints of the camera, and what stands in for it while a test scripts the streams.
#include <algorithm>
#include <utility>

#include "virtcam/bus/bus.h"

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

std::optional<line::Ending> Bus::FarEnd::answer(const line::Request& request) {
    const bool scripted = request.is_iso() || request.kind == faults::TransferKind::kBulk;
    if (!bus_.scripted_ || !scripted || !request.to_host()) {
        return Device::answer(request);
    }
    auto& pushed = bus_.channel(request.endpoint).scripted;
    if (pushed.empty()) {
        return std::nullopt;
    }
    line::Ending ending = fitted(std::move(pushed.front()), request);
    pushed.pop_front();
    return ending;
}

bool Bus::FarEnd::iso_paced() const {
    return bus_.config_.iso_paced && !bus_.scripted_;
}

Bus::Channel& Bus::channel(uint8_t address) {
    return channels_.try_emplace(address, far_end_).first->second;
}

void Bus::serve_all() {
    // By address: what an action does to the map's values must not disturb the walk.
    for (auto& [address, channel] : channels_) {
        serve(channel);
    }
}

void Bus::serve(Channel& channel) {
    while (auto answer = channel.endpoint.serve(model::Clock::now())) {
        finish(static_cast<Urb&>(answer->request), std::move(answer->ending));
        run_actions(answer->afterwards);
    }
    if (const auto due = channel.endpoint.due(); due && *due < clocks_wake_) {
        clock_ticker_->poke();
    }
}

}  // namespace virtcam::bus
