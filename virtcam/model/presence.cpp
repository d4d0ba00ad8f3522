#include "virtcam/model/presence.h"

#include <algorithm>

namespace virtcam::model {
namespace {

Personality start_personality(const CameraConfig& config) {
    if (config.identity == CameraConfig::Identity::kRunTime) {
        return Personality::kRunTime;
    }
    return config.boot_code == CameraConfig::BootCode::kOlder ? Personality::kBootOlder
                                                              : Personality::kBootNewer;
}

}  // namespace

Presence::Presence(const CameraConfig& config)
    : departure_(config.departure_ms),
      reenumeration_(config.reenumerate_ms),
      returns_(config.returns),
      start_(start_personality(config)),
      personality_(start_) {}

bool Presence::power_cycle() {
    if (!plugged_) {
        return false;
    }
    cancel_restart();
    arrive(start_);
    return true;
}

bool Presence::unplug() {
    if (!plugged_) {
        return false;
    }
    cancel_restart();
    plugged_ = false;
    attached_ = false;
    return true;
}

bool Presence::plug() {
    if (plugged_) {
        return false;
    }
    plugged_ = true;
    arrive(start_);
    return true;
}

void Presence::restart_after_burn() {
    burned_ = true;
}

Presence::Change Presence::advance(TimePoint now) {
    Change change;
    if (burned_) {
        burned_ = false;
        departs_ = now + departure_;
    }
    if (departs_ && *departs_ <= now) {
        if (returns_) {
            arrives_ = *departs_ + reenumeration_;
        }
        departs_.reset();
        attached_ = false;
        change.departed = true;
    }
    if (arrives_ && *arrives_ <= now) {
        arrives_.reset();
        arrive(Personality::kRunTime);
        change.arrived = true;
    }
    return change;
}

TimePoint Presence::next(TimePoint now) const {
    if (burned_) {
        return now;
    }
    return std::min(departs_.value_or(TimePoint::max()), arrives_.value_or(TimePoint::max()));
}

void Presence::arrive(Personality personality) {
    personality_ = personality;
    attached_ = true;
    ++attachment_;
}

void Presence::cancel_restart() {
    burned_ = false;
    departs_.reset();
    arrives_.reset();
}

}  // namespace virtcam::model
