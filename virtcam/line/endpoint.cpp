#include "virtcam/line/endpoint.h"

#include <algorithm>
#include <utility>

#include "virtcam/line/fault_effect.h"

namespace virtcam::line {

using model::TimePoint;

void Endpoint::withdraw(const Request& request, TimePoint now) {
    const auto found = std::find(queue_.begin(), queue_.end(), &request);
    if (found == queue_.end()) {
        return;
    }
    if (found == queue_.begin()) {
        prepared_.reset();
        afterwards_.clear();
        stuck_ = false;
    }
    queue_.erase(found);
    if (queue_.empty()) {
        clock_.idle(now);
    }
}

std::optional<Endpoint::Answer> Endpoint::serve(TimePoint now) {
    if (queue_.empty() || stuck_ || (!prepared_ && !prepare(now)) || due_ > now) {
        return std::nullopt;
    }
    Request& request = *queue_.front();
    Answer answer{request, std::move(*prepared_), due_, std::move(afterwards_)};
    withdraw(request, now);
    return answer;
}

/// Returns true when the first request's answer is known.
bool Endpoint::prepare(TimePoint now) {
    const Request& request = *queue_.front();
    if (paced(request)) {
        clock_.resume(now);
        if (clock_.due(request.packets.size()) > now) {
            return false;
        }
    }
    auto ending = request.is_control() ? ask_control(request, now) : ask_transfer(request, now);
    if (!ending) {
        return false;
    }
    stuck_ = ending->never;
    due_ = now + ending->late;
    prepared_ = std::move(ending);
    return !stuck_;
}

std::optional<Ending> Endpoint::ask_control(const Request& request, TimePoint now) {
    if (request.malformed) {
        return ended(faults::Status::kStall);
    }
    const uint64_t attachment = device_->camera().attachment();
    const faults::Action action = device_->rules().on_control(request.setup, request.out);
    for (const faults::DeviceAction change : action.device) {
        device_->run(change);
    }
    const model::Camera& camera = device_->camera();
    if (!camera.attached() || camera.attachment() != attachment) {
        return std::nullopt;  // the cable was pulled: the front end ends what waits
    }
    if (auto refused = refusal(action)) {
        return refused;
    }
    auto ending = device_->answer(request, now);
    if (ending) {
        apply(action, *ending);
    }
    return ending;
}

std::optional<Ending> Endpoint::ask_transfer(const Request& request, TimePoint now) {
    if (!again_.empty()) {
        std::optional<Ending> kept = std::move(again_.front());
        again_.pop_front();
        return kept;
    }
    while (auto ending = ask_stream(request, now)) {
        switch (std::exchange(fate_, faults::Fate::kArrives)) {
            case faults::Fate::kLost:
                continue;
            case faults::Fate::kSwapped:
                held_ = std::move(ending);
                continue;
            case faults::Fate::kTwice:
                again_.push_back(*ending);
                break;
            case faults::Fate::kArrives:
                break;
        }
        if (held_) {
            again_.push_back(std::move(*held_));
            held_.reset();
        }
        return ending;
    }
    return std::nullopt;
}

/// The device's next answer with what the rules make of it; fate_ tells what is to become of it.
std::optional<Ending> Endpoint::ask_stream(const Request& request, TimePoint now) {
    auto ending = device_->answer(request, now);
    if (!ending) {
        return std::nullopt;
    }
    if (paced(request)) {
        clock_.answered(request.packets.size());
    }
    afterwards_.clear();
    faults::Action action =
        device_->rules().on_transfer(*request.kind, request.endpoint, ending->data);
    if (!request.is_iso() && request.to_host() && ending->status == faults::Status::kCompleted) {
        change_sub_streams(*ending);
        fate_ = action.fate;
    }
    apply(action, *ending);
    if (!request.is_iso() && ending->status == faults::Status::kStall) {
        device_->camera().halt(request.endpoint);
    }
    afterwards_.insert(afterwards_.end(), action.device.begin(), action.device.end());
    return ending;
}

void Endpoint::change_sub_streams(Ending& ending) {
    for (const SubStreams::Part& part : sub_streams_.find(ending.data)) {
        if (!part.goes_on) {
            const faults::Action action = device_->rules().on_sub_stream(part.id);
            fields_ = action.fields;
            afterwards_.insert(afterwards_.end(), action.device.begin(), action.device.end());
        }
        apply(fields_, std::span(ending.data).subspan(part.offset), part.before);
    }
}

void Endpoint::end_stream() {
    clock_.stop();
    sub_streams_.restart();
    held_.reset();
    again_.clear();
}

std::optional<TimePoint> Endpoint::due() const {
    if (queue_.empty() || stuck_) {
        return std::nullopt;
    }
    if (prepared_) {
        return due_;
    }
    if (paced(*queue_.front())) {
        return clock_.due(queue_.front()->packets.size());
    }
    return std::nullopt;
}

}  // namespace virtcam::line
