// A camera at the end of a line, with no front end before it.
#pragma once

#include "virtcam/line/device.h"

namespace virtcam::line::test {

class LoneCamera : public virtcam::line::Device {
  public:
    explicit LoneCamera(const virtcam::model::CameraConfig& config) : camera_(config) {}

    virtcam::model::Camera& camera() override { return camera_; }
    virtcam::faults::RuleSet& rules() override { return rules_; }
    void run(virtcam::faults::DeviceAction action) override {
        virtcam::faults::perform(action, camera_);
    }
    bool iso_paced() const override { return paced_; }
    void set_paced(bool paced) { paced_ = paced; }

    /// What comes out of the box: no time passes for it by itself.
    static virtcam::model::CameraConfig run_time() {
        virtcam::model::CameraConfig config;
        config.identity = virtcam::model::CameraConfig::Identity::kRunTime;
        return config;
    }

  private:
    virtcam::model::Camera camera_;
    virtcam::faults::RuleSet rules_;
    bool paced_ = true;
};

}  // namespace virtcam::line::test
