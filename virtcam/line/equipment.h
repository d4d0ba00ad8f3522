// What a configuration brings: a camera that is switched on, and the failures scripted for it.
#pragma once

#include <functional>
#include <memory>

#include "virtcam/faults/rule_set.h"
#include "virtcam/line/config.h"
#include "virtcam/model/camera.h"

namespace virtcam::line {

struct Equipment {
    Config config;
    faults::RuleSet rules;
    std::shared_ptr<model::Camera> camera;
};

/// @param owner begins the line on standard error that says why pictures cannot be made.
/// @param listener see model::Camera::set_listener.
/// Throws std::invalid_argument when a rule is malformed.
Equipment equip(Config config, const char* owner, std::function<void()> listener);

}  // namespace virtcam::line
