// The device on its bus: plugged, restarting after a burn, back with another identity.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "virtcam/model/camera_config.h"
#include "virtcam/model/clock.h"
#include "virtcam/model/descriptors.h"

namespace virtcam::model {

/// Times come in through advance() only. Not thread-safe; the camera's state lock protects it.
class Presence {
  public:
    explicit Presence(const CameraConfig& config);

    bool attached() const { return attached_; }
    uint64_t attachment() const { return attachment_; }
    /// Between the acknowledged burn and the new arrival.
    bool restarting() const { return burned_ || departs_ || arrives_; }
    Personality personality() const { return personality_; }

    /// A new attachment with the start identity. Each returns false when it has no effect.
    bool power_cycle();
    bool unplug();
    bool plug();

    /// A burn was acknowledged: the departure counts from the next advance().
    void restart_after_burn();

    /// What happened at or before `now`.
    struct Change {
        bool departed = false;
        bool arrived = false;
    };
    Change advance(TimePoint now);
    /// When advance() has something to do next; TimePoint::max() when nothing is planned.
    TimePoint next(TimePoint now) const;

  private:
    void arrive(Personality personality);
    void cancel_restart();

    std::chrono::milliseconds departure_;
    std::chrono::milliseconds reenumeration_;
    bool returns_;
    Personality start_;
    Personality personality_;
    bool plugged_ = true;
    bool attached_ = true;
    uint64_t attachment_ = 1;
    bool burned_ = false;  ///< a burn whose time is not known yet
    std::optional<TimePoint> departs_;
    std::optional<TimePoint> arrives_;
};

}  // namespace virtcam::model
