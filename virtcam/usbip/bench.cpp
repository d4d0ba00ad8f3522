#include "virtcam/usbip/bench.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "virtcam/line/equipment.h"

namespace virtcam::usbip {

using model::Camera;
using model::Clock;
using model::TimePoint;

Bench::Bench(const line::Config& config) : picture_ticker_([this] { return make_pictures(); }) {
    reset(config);
    picture_ticker_.start();
}

Bench::~Bench() {
    picture_ticker_.stop();
}

void Bench::reset(const line::Config& config) {
    line::Equipment equipment = line::equip(config, "virtcam", [this] {
        picture_ticker_.poke();
        news_.raise();
    });
    rules_ = std::move(equipment.rules);
    iso_paced_ = config.iso_paced;
    ++generation_;
    started_ = Clock::now();
    {
        const std::lock_guard lock(mutex_);
        std::swap(camera_, equipment.camera);
    }
    picture_ticker_.poke();
    news_.raise();
}

uint64_t Bench::presence() const {
    constexpr int kGenerationShift = 32;
    return camera_->attached() ? generation_ << kGenerationShift | camera_->attachment() : 0;
}

void Bench::run(faults::DeviceAction action) {
    faults::perform(action, *camera_);
}

TimePoint Bench::run_due(TimePoint now) {
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - started_);
    for (const faults::DeviceAction action : rules_.take_due(elapsed)) {
        run(action);
    }
    const auto next = rules_.next_due();
    return std::min(camera_->advance_presence(now), next ? started_ + *next : TimePoint::max());
}

nlohmann::json Bench::status() const {
    return camera_->status();
}

std::shared_ptr<Camera> Bench::current() const {
    const std::lock_guard lock(mutex_);
    return camera_;
}

TimePoint Bench::make_pictures() {
    const TimePoint next = current()->advance(Clock::now());
    news_.raise();
    return next;
}

}  // namespace virtcam::usbip
