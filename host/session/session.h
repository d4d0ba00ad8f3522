// One camera object from creation to destruction, driven as the framework drives it.
#pragma once

#include <optional>
#include <string>

#include "host/base/wake_event.h"
#include "host/properties/combination.h"
#include "host/session/plugin.h"

namespace camhost {

/// The state in words, such as "ready".
const char* words_for(CAM_STATE state);

/// All calls on the controlling thread.
class Session {
  public:
    /// Creates the camera object; blocks for about a second. `plugin` and `wake` are borrowed.
    Session(const Plugin& plugin, WakeEvent& wake);
    /// Stops recording when it runs and destroys the camera object.
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Calls Init, whose report will wake `wake`.
    void begin();
    /// True once Init has reported. Then asks, as the framework does, whether the camera is driven
    /// by signal type, if it is usable.
    bool reported();
    /// What Init reported; false before.
    bool usable() const { return usable_; }

    /// True when the camera was usable and went away.
    bool lost() const;
    /// Once lost(): how it is known, "Init's callback reported false; it is disconnected".
    std::string loss() const;
    bool playing() const { return camera_->GetState() == CAM_STATE_PLAYING; }
    CAM_STATE state() const { return camera_->GetState(); }

    /// Starts recording. False when the plug-in refuses, or says yes without starting.
    bool start();
    /// Stops recording; also cleans up after a start that failed halfway.
    bool stop();

    /// True: streams are chosen with CAM_PROPERTY_SIGNAL_TYPE; false: with CAM_PROPERTY_VIDEO_MODE.
    bool by_signal_type() const { return by_signal_type_; }
    Selector selector() const {
        return by_signal_type_ ? Selector::kSignalType : Selector::kVideoMode;
    }

    std::optional<CAM_PROP_VALUE> get(CAM_PROPERTY property) const;
    /// `value` is written back by the plug-in for some properties.
    bool set(CAM_PROPERTY property, CAM_PROP_VALUE* value);

    ICameraSubject& camera() { return *camera_; }

  private:
    const Plugin& plugin_;
    ICameraSubject* camera_;
    bool usable_ = false;
    bool started_ = false;
    bool by_signal_type_ = false;
};

}  // namespace camhost
