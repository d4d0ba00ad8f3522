#include "virtcam/model/command_status.h"

#include <nlohmann/json.hpp>

namespace virtcam::model::shown {
namespace {

using nlohmann::json;

json& settings_of(json& status) {
    return status["settings"];
}

json rate(const StreamRate& rate) {
    return {{"kbps", rate.kbps}, {"fps", rate.fps}};
}

json origin(const std::optional<CropOrigin>& origin) {
    return origin ? json{{"x", origin->x}, {"y", origin->y}} : json(nullptr);
}

}  // namespace

void rates(const Settings& settings, json& status) {
    settings_of(status)["main_rate"] = rate(settings.stream.rates[0]);
    settings_of(status)["second_rate"] = rate(settings.stream.rates[1]);
}

void rate_target(const Settings& settings, json& status) {
    settings_of(status)["rate_target"] = settings.rate_target;
}

void wide_dynamic_range(const Settings& settings, json& status) {
    settings_of(status)["wide_dynamic_range"] = settings.wide_dynamic_range;
}

void image_effect(const Settings& settings, json& status) {
    settings_of(status)["image_effect"] = settings.stream.image_effect;
}

void three_a(const Settings& settings, json& status) {
    settings_of(status)["three_a"] = settings.three_a;
}

void colour_effect(const Settings& settings, json& status) {
    settings_of(status)["colour_effect"] = settings.stream.colour_effect;
}

void light(const Settings& settings, json& status) {
    status["light"] = settings.led;
}

void local_size(const Settings& settings, json& status) {
    settings_of(status)["local_size"] = settings.stream.local_size;
}

void combination(const Settings& settings, json& status) {
    settings_of(status)["combination"] = settings.stream.combination;
}

void face_tracking(const Settings& settings, json& status) {
    settings_of(status)["face_tracking"] = settings.face_tracking;
}

void crop(const Settings& settings, json& status) {
    settings_of(status)["crop"] = origin(settings.stream.crop);
}

void options(const Settings& settings, json& status) {
    const uint32_t word = settings.stream.options;
    settings_of(status)["options"] = {{"word", word},
                                      {"mirror", (word & kOptionMirror) != 0},
                                      {"flip", (word & kOptionFlip) != 0},
                                      {"face_detection", (word & kOptionFaceDetection) != 0},
                                      {"local_mirror", (word & kOptionLocalMirror) != 0},
                                      {"gray_mirror", (word & kOptionGrayMirror) != 0}};
}

void nv12_mode(const Settings& settings, json& status) {
    settings_of(status)["nv12_mode"] = settings.stream.nv12_mode;
}

void flash_unlocked(const Settings& settings, json& status) {
    settings_of(status)["flash_unlocked"] = settings.write_protect_step == 2;
}

void self_tests(const Settings& settings, json& status) {
    settings_of(status)["self_tests"] = settings.self_tests;
}

void gray_crop(const Settings& settings, json& status) {
    settings_of(status)["gray_crop"] = origin(settings.stream.gray_crop);
}

void preview_mode(const Settings& settings, json& status) {
    settings_of(status)["preview_mode"] = settings.preview_mode;
}

void nv12_size(const Settings& settings, json& status) {
    settings_of(status)["nv12_wide"] = settings.stream.nv12_wide;
}

}  // namespace virtcam::model::shown
