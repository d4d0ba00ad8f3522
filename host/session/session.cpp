#include "host/session/session.h"

#include "host/base/exit_code.h"
#include "host/session/init_report.h"

namespace camhost {

const char* words_for(CAM_STATE state) {
    switch (state) {
        case CAM_STATE_DISCONNECTED:
            return "disconnected";
        case CAM_STATE_CONNECTING:
            return "connecting";
        case CAM_STATE_READY:
            return "ready";
        case CAM_STATE_PLAYING:
            return "recording";
        case CAM_STATE_SLEEP:
            return "asleep";
        case CAM_STATE_WAKEUP:
            return "waking up";
        default:
            return "in a state without a name";
    }
}

Session::Session(const Plugin& plugin, WakeEvent& wake) : plugin_(plugin) {
    InitReport::instance().listen(&wake);
    camera_ = plugin.create();
    if (camera_ == nullptr) {
        throw Failure(ExitCode::kNoPlugin, "the plug-in makes no camera object");
    }
}

Session::~Session() {
    if (started_) {
        stop();
    }
    plugin_.destroy(camera_);
    InitReport::instance().listen(nullptr);
}

void Session::begin() {
    camera_->Init(&InitReport::on_init_done, 0);
}

bool Session::reported() {
    const InitReport::Answer answer = InitReport::instance().answer();
    if (answer.calls == 0) {
        return false;
    }
    usable_ = answer.usable;
    by_signal_type_ = usable_ && camera_->GetCapability(CAM_CAPABILITY_SIGNAL_TYPE);
    return true;
}

bool Session::lost() const {
    return usable_ && (!InitReport::instance().answer().usable ||
                       camera_->GetState() == CAM_STATE_DISCONNECTED);
}

std::string Session::loss() const {
    const bool told = !InitReport::instance().answer().usable;
    return std::string(told ? "Init's callback reported false"
                            : "Init's callback has not said so") +
           "; it is " + words_for(state());
}

bool Session::start() {
    started_ = true;
    // The plug-in answers true in any state but ready, without starting.
    return camera_->StartRecording() && playing();
}

bool Session::stop() {
    started_ = false;
    return camera_->StopRecording();
}

std::optional<CAM_PROP_VALUE> Session::get(CAM_PROPERTY property) const {
    CAM_PROP_VALUE value{};
    if (!camera_->GetProperty(property, &value)) {
        return std::nullopt;
    }
    return value;
}

bool Session::set(CAM_PROPERTY property, CAM_PROP_VALUE* value) {
    return camera_->SetProperty(property, value);
}

}  // namespace camhost
