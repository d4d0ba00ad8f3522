// What the element does, apart from the object system around it.
#pragma once

#include <gst/gst.h>

#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

#include "gst/camera_control.h"
#include "gst/record_router.h"
#include "gst/stream_pad.h"

namespace gstcam {

/// The camera and the pads of one element. Any thread, unless a function says otherwise.
class CameraSource : public CameraListener {
  public:
    struct Settings {
        std::string plugin;          ///< path; empty: from the environment, or beside this library
        std::string log;             ///< file for the plug-in's log; empty: standard output
        std::string combination;     ///< empty: by the pads
        guint init_timeout = 60;     ///< s
        guint queue_time = 1000;     ///< ms
        guint jpeg_interval = 1000;  ///< ms; 0: none
    };

    /// `element` owns this object.
    explicit CameraSource(GstElement* element);
    ~CameraSource() override;

    Settings settings() const;
    void change_settings(const std::function<void(Settings&)>& change);

    /// Sets a property: now, if the camera is usable, and each time that it is brought up.
    void set(const camhost::Assignment& assignment);
    /// What the camera reads, or else what was set last, if it was.
    std::optional<CAM_PROP_VALUE> get(const camhost::Property& property) const;
    /// Asks for it soon; nothing happens while the camera is not usable.
    void trigger(CAM_PROPERTY property);

    /// State changes; the thread that changes the element's state.
    void bring_up();
    void activate_pads(bool active);
    void play();
    void pause();
    void put_away();

    GstPad* request_pad(GstPadTemplate* pad_template);
    void release_pad(GstPad* pad);
    /// Sends the end of stream after what is queued.
    void end_streams();
    GstStructure* stats() const;

    void progress(Progress progress) override;
    void failed(Trouble trouble, const std::string& sentence) override;
    void warned(const std::string& sentence) override;

  private:
    void tell_wish();
    void set_playing(bool playing);
    void remember(const camhost::Assignment& assignment);
    CameraControl::Options control_options() const;

    GstElement* const element_;
    PadHost host_;
    RecordRouter router_;

    mutable std::mutex mutex_;  ///< never held while the camera or downstream is called
    Settings settings_;
    std::vector<camhost::Assignment> assigned_;  ///< in the order in which they were made
    std::array<std::unique_ptr<StreamPad>, camhost::kStreamCount> pads_;
    bool pads_active_ = false;
    bool playing_ = false;

    /// Shared: uses the control; exclusive: puts it there or takes it away, no longer.
    mutable std::shared_mutex control_mutex_;
    std::unique_ptr<CameraControl> control_;
};

}  // namespace gstcam
