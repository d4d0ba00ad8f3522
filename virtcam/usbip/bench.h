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

namespace virtusbip {

/// All functions on the thread of the poll loop. The picture thread touches the camera only.
class Bench {
  public:
    /// Throws std::invalid_argument when a rule is malformed.
    explicit Bench(const usbsim::Config& config);
    ~Bench();
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    /// Replaces the camera by a new one and the rules by `config`'s.
    /// Throws like the constructor, and then nothing has changed.
    void reset(const usbsim::Config& config);

    virtcam::Camera& camera() { return *camera_; }
    virtfaults::RuleSet& rules() { return rules_; }
    bool iso_paced() const { return iso_paced_; }

    /// Names one attachment of one camera; 0 while none is on the bus.
    uint64_t presence() const;

    void run(virtfaults::DeviceAction action);
    /// Does what timed rules ask for. Returns when the next one is due.
    virtcam::TimePoint run_due(virtcam::TimePoint now);

    /// Raised when the camera has come, gone, or has made a picture.
    const WakeUp& news() const { return news_; }

    nlohmann::json status() const;

  private:
    std::shared_ptr<virtcam::Camera> current() const;
    virtcam::TimePoint make_pictures();

    WakeUp news_;
    mutable std::mutex mutex_;  // protects the pointer, not the camera
    std::shared_ptr<virtcam::Camera> camera_;
    uint64_t generation_ = 0;  ///< cameras in service so far
    virtfaults::RuleSet rules_;
    bool iso_paced_ = true;
    virtcam::TimePoint started_;
    usbsim::Ticker picture_ticker_;
};

}  // namespace virtusbip
