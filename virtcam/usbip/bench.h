// The camera in service: the model, the scripted failures that act on it, and the thread that makes
// its pictures.
#pragma once

#include <memory>
#include <mutex>
#include <nlohmann/json_fwd.hpp>

#include "virtcam/line/config.h"
#include "virtcam/line/device.h"
#include "virtcam/line/ticker.h"
#include "virtcam/usbip/descriptor_io.h"

namespace virtcam::usbip {

/// All functions on the thread of the poll loop. The picture thread touches the camera only.
class Bench final : public line::Device {
  public:
    /// Throws std::invalid_argument when a rule is malformed.
    explicit Bench(const line::Config& config);
    ~Bench() override;
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    /// Replaces the camera by a new one and the rules by `config`'s.
    /// Throws like the constructor, and then nothing has changed.
    void reset(const line::Config& config);

    model::Camera& camera() override { return *camera_; }
    faults::RuleSet& rules() override { return rules_; }
    bool iso_paced() const override { return iso_paced_; }

    /// Names one attachment of one camera; 0 while none is on the bus.
    uint64_t presence() const;

    void run(faults::DeviceAction action) override;
    /// Does what timed rules ask for, and departures and returns. Returns when the next one is due.
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
    line::Ticker picture_ticker_;
};

}  // namespace virtcam::usbip
