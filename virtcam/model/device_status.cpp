// The device's part of the status dump.
#include <nlohmann/json.hpp>
#include <string>

#include "virtcam/model/commands.h"
#include "virtcam/model/device.h"
#include "virtcam/model/usb.h"

namespace virtcam::model {
namespace {

using nlohmann::json;

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
        personality_ == Personality::kRunTime ? config_.product_id : usb::kProductBootCode;
    status["version"] = state_.facts.version;
    status["anti_flicker"] = controls_.value(Control::kPowerLine);
    status["self_test"] = state_.facts.self_test_result;
    status["halted"] = halted_;
    status["lux"] = state_.facts.lux;
    for (const Command& command : commands()) {
        if (command.shown != nullptr) {
            command.shown(state_.settings, status);
        }
    }
    status["controls"] = control_report(controls_);
    status["microphone"] = microphone_report(microphone_, audio_alternate_);
    status["video"] = {{"streaming", streaming_},        {"commits", generation_},
                       {"format", stream_.format_index}, {"frame", stream_.frame_index},
                       {"width", stream_.size.width},    {"height", stream_.size.height},
                       {"interval", stream_.interval}};
}

}  // namespace virtcam::model
