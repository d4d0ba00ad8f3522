// The camera in service: the model, the scripted failures that act on it, and the thread that makes
// its pictures.
#pragma once

#include <memory>
#include <mutex>
#include <nlohmann/json_fwd.hpp>

#include "virtcam/bus/config.h"
#include "virtcam/bus/ticker.h"
#include "virtcam/faults/rule_set.h"
#include "virtcam/model/camera.h"
#include "virtcam/usbip/descriptor_io.h"

namespace virtcam::usbip {

/// All functions on the thread of the poll loop. The picture thread touches the camera only.
class Bench {
  public:
    /// Throws std::invalid_argument when a rule is malformed.
    explicit Bench(const bus::Config& config);
    ~Bench();
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    /// Replaces the camera by a new one and the rules by `config`'s.
    /// Throws like the constructor, and then nothing has changed.
    void reset(const bus::Config& config);

    model::Camera& camera() { return *camera_; }
    faults::RuleSet& rules() { return rules_; }
    bool iso_paced() const { return iso_paced_; }

    /// Names one attachment of one camera; 0 while none is on the bus.
    uint64_t presence() const;

    void run(faults::DeviceAction action);
    /// Does what timed rules ask for. Returns when the next one is due.
    model::TimePoint run_due(model::TimePoint now);

    /// Raised when the camera has come, gone, or has made a picture.
    const WakeUp& news() const { return news_; }

    nlohmann::json status() const;

  private:
    std::shared_ptr<model::Camera> current() const;
    model::TimePoint make_pictures();

    WakeUp news_;
    mutable std::mutex mutex_;  // protects the pointer, not the camera
    std::shared_ptr<model::Camera> camera_;
    uint64_t generation_ = 0;  ///< cameras in service so far
    faults::RuleSet rules_;
    bool iso_paced_ = true;
    model::TimePoint started_;
    bus::Ticker picture_ticker_;
};

}  // namespace virtcam::usbip
