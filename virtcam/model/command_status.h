// Where the status dump shows what a command has set: one function for each thing, named by the
// rows of the table in commands.cpp. Each writes its members into the dump's root.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "virtcam/model/settings.h"

namespace virtcam::model::shown {

void rates(const Settings& settings, nlohmann::json& status);
void rate_target(const Settings& settings, nlohmann::json& status);
void wide_dynamic_range(const Settings& settings, nlohmann::json& status);
void image_effect(const Settings& settings, nlohmann::json& status);
void three_a(const Settings& settings, nlohmann::json& status);
void colour_effect(const Settings& settings, nlohmann::json& status);
void light(const Settings& settings, nlohmann::json& status);
void local_size(const Settings& settings, nlohmann::json& status);
void combination(const Settings& settings, nlohmann::json& status);
void face_tracking(const Settings& settings, nlohmann::json& status);
void crop(const Settings& settings, nlohmann::json& status);
void options(const Settings& settings, nlohmann::json& status);
void nv12_mode(const Settings& settings, nlohmann::json& status);
void flash_unlocked(const Settings& settings, nlohmann::json& status);
void self_tests(const Settings& settings, nlohmann::json& status);
void gray_crop(const Settings& settings, nlohmann::json& status);
void preview_mode(const Settings& settings, nlohmann::json& status);
void nv12_size(const Settings& settings, nlohmann::json& status);

}  // namespace virtcam::model::shown
