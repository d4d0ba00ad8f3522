// The device's part of the status dump.
#include <nlohmann/json.hpp>
#include <string>

#include "virtcam/model/device.h"
#include "virtcam/model/usb.h"

namespace virtcam::model {
namespace {

using nlohmann::json;

json rate_report(const StreamRate& rate) {
    return {{"kbps", rate.kbps}, {"fps", rate.fps}};
}

json crop_report(const std::optional<CropOrigin>& crop) {
    return crop ? json{{"x", crop->x}, {"y", crop->y}} : json(nullptr);
}

json option_report(uint32_t options) {
    return {{"word", options},
            {"mirror", (options & kOptionMirror) != 0},
            {"flip", (options & kOptionFlip) != 0},
            {"face_detection", (options & kOptionFaceDetection) != 0},
            {"local_mirror", (options & kOptionLocalMirror) != 0},
            {"gray_mirror", (options & kOptionGrayMirror) != 0}};
}

json settings_report(const Settings& settings) {
    const StreamSettings& stream = settings.stream;
    return {{"combination", stream.combination},
            {"nv12_mode", stream.nv12_mode},
            {"nv12_wide", stream.nv12_wide},
            {"local_size", stream.local_size},
            {"options", option_report(stream.options)},
            {"main_rate", rate_report(stream.rates[0])},
            {"second_rate", rate_report(stream.rates[1])},
            {"rate_target", settings.rate_target},
            {"crop", crop_report(stream.crop)},
            {"gray_crop", crop_report(stream.gray_crop)},
            {"image_effect", stream.image_effect},
            {"colour_effect", stream.colour_effect},
            {"face_tracking", settings.face_tracking},
            {"preview_mode", settings.preview_mode},
            {"wide_dynamic_range", settings.wide_dynamic_range},
            {"three_a", settings.three_a},
            {"flash_unlocked", settings.write_protect_step == 2},
            {"self_tests", settings.self_tests}};
}

json control_report(const UvcControls& controls) {
    json report = json::object();
    for (const ControlField& field : control_fields()) {
        report[std::string(field.name)] = controls.value(field.id);
    }
    return report;
}

json microphone_report(const Microphone& microphone, uint8_t alternate) {
    return {{"rate", microphone.rate()},
            {"volume", microphone.volume()},
            {"muted", microphone.muted()},
            {"streaming", alternate != 0}};
}

const char* identity_name(Personality personality) {
    switch (personality) {
        case Personality::kBootNewer:
            return "boot-code";
        case Personality::kBootOlder:
            return "boot-code-older";
        case Personality::kRunTime:
            break;
    }
    return "run-time";
}

}  // namespace

void Device::report(json& status) const {
    status["identity"] = identity_name(personality_);
    status["vendor_id"] = config_.vendor_id;
    status["product_id"] =
        personality_ == Personality::kRunTime ? usb::kProductRunTime : usb::kProductBootCode;
    status["version"] = facts_.version;
    status["light"] = settings_.led;
    status["anti_flicker"] = controls_.value(Control::kPowerLine);
    status["self_test"] = facts_.self_test_result;
    status["lux"] = facts_.lux;
    status["settings"] = settings_report(settings_);
    status["controls"] = control_report(controls_);
    status["microphone"] = microphone_report(microphone_, audio_alternate_);
    status["video"] = {{"streaming", streaming_},        {"commits", generation_},
                       {"format", stream_.format_index}, {"frame", stream_.frame_index},
                       {"width", stream_.size.width},    {"height", stream_.size.height},
                       {"interval", stream_.interval}};
}

}  // namespace virtcam::model
