#include "virtcam/line/device.h"

#include <algorithm>
#include <utility>

namespace virtcam::line {
namespace {

using faults::Status;

constexpr uint8_t kNumberMask = 0x0F;  // of an endpoint's address

Ending delivered(model::Bytes data, size_t room) {
    Ending ending;
    ending.data = std::move(data);
    ending.data.resize(std::min(ending.data.size(), room));
    ending.room = room;
    ending.count = ending.data.size();
    return ending;
}

Ending accepted(size_t count) {
    Ending ending;
    ending.count = count;
    return ending;
}

Ending answer_control(model::Camera& camera, const Request& request) {
    model::ControlReply reply = camera.control(request.setup, request.out);
    if (reply.stall) {
        return ended(Status::kStall);
    }
    return request.setup.device_to_host() ? delivered(std::move(reply.data), request.setup.length)
                                          : accepted(request.out.size());
}

Ending answer_iso(model::Camera& camera, const Request& request) {
    if (!request.to_host()) {
        return ended(Status::kStall);  // the camera hears nothing
    }
    Ending ending;
    for (const size_t room : request.packets) {
        model::Bytes data = camera.iso_in(request.endpoint, room);
        data.resize(std::min(data.size(), room));
        const size_t count = data.size();
        ending.packets.push_back({Status::kCompleted, std::move(data), count});
    }
    return ending;
}

Ending answer_out(model::Camera& camera, const Request& request) {
    const bool taken = camera.bulk_out(request.endpoint & kNumberMask, request.out);
    return taken ? accepted(request.out.size()) : ended(Status::kStall);
}

}  // namespace

std::optional<Ending> Device::answer(const Request& request, model::TimePoint now) {
    if (request.is_control()) {
        return answer_control(camera(), request);
    }
    if (request.is_iso()) {
        return answer_iso(camera(), request);
    }
    if (camera().halted(request.endpoint)) {
        return ended(Status::kStall);
    }
    if (!request.to_host()) {
        return answer_out(camera(), request);
    }
    auto payload = camera().bulk_in(request.endpoint, request.room, now);
    if (!payload) {
        return std::nullopt;
    }
    return delivered(std::move(*payload), request.room);
}

}  // namespace virtcam::line
