// One camera, from the loading of the plug-in to its unloading, on a thread kept for it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include "gst/bus_watch.h"
#include "host/base/wake_event.h"
#include "host/properties/property_catalog.h"
#include "host/session/session.h"

namespace gstcam {

/// What went wrong, as a user tells it apart.
enum class Trouble {
    kNoPlugin,     ///< the plug-in cannot be loaded, or its log not be diverted
    kBusy,         ///< somebody else of this process has the camera
    kNoCamera,     ///< it is not on the bus
    kFirmware,     ///< it is, and does not come back with its firmware
    kNotUsable,    ///< it came back, and cannot be opened
    kCombination,  ///< the streams that are wanted do not go together
    kNotStarted,   ///< recording cannot be started
    kGone,         ///< it was usable and went away
};

/// What the records of the time to come are like.
struct StreamSettings {
    int sample_rate = 16000;  ///< Hz
    int main_rate = 30;       ///< pictures per second of the main H.264 stream

    bool operator==(const StreamSettings&) const = default;
};

/// Steps of the way to a usable camera.
enum class Progress { kSearching, kLoadingFirmware, kReady, kGivenUp };

/// Told on the control thread, which holds no lock: a property may be set from inside.
class CameraListener {
  public:
    virtual ~CameraListener() = default;
    virtual void progress(Progress progress) = 0;
    /// Nothing more comes until the control is made anew, or, after kCombination and kNotStarted,
    /// until something else is wanted.
    virtual void failed(Trouble trouble, const std::string& sentence) = 0;
    virtual void warned(const std::string& sentence) = 0;
};

/// Takes the records. All but settings() are called by the plug-in, with its locks held: they must
/// not wait, nor call the camera.
class RecordSink {
  public:
    virtual ~RecordSink() = default;
    /// True: a key frame would help, and may be asked for.
    virtual bool take(camhost::Stream stream, const CCameraData& record) = 0;
    /// The records that follow belong to another recording.
    virtual void recording_ended() = 0;
    /// Control thread; valid at once, or (`after_restart`) from the next recording on.
    virtual void settings(const StreamSettings& settings, bool after_restart) = 0;
};

/// The functions are for any thread unless they say otherwise.
class CameraControl {
  public:
    struct Options {
        std::filesystem::path plugin;
        std::filesystem::path
            log;  ///< the plug-in's, in place of standard output; empty: left there
        std::chrono::milliseconds init_timeout{60'000};
        std::vector<camhost::Assignment> assignments;  ///< made as soon as the camera is usable
    };
    /// What is wanted of the camera while it is usable.
    struct Wish {
        bool record = false;
        camhost::StreamSet streams;
        std::string combination;                    ///< as choose_streams() takes it
        std::chrono::milliseconds jpeg_interval{};  ///< between requests for a JPEG; 0: none

        bool operator==(const Wish&) const = default;
    };

    /// Begins to bring the camera up and returns. Both objects are borrowed.
    CameraControl(Options options, RecordSink& sink, CameraListener& listener);
    /// Stops, destroys the camera object and unloads the plug-in, however far it came; takes as
    /// long as the step that the plug-in is in. Not on the control thread.
    ~CameraControl();
    CameraControl(const CameraControl&) = delete;
    CameraControl& operator=(const CameraControl&) = delete;

    void wish(Wish wish);
    /// Sets a property and waits for that; while the camera is brought up, leaves it for later.
    void set(const camhost::Assignment& assignment);
    /// Sets a property some time soon.
    void post(const camhost::Assignment& assignment);
    /// The value that the plug-in reads; nothing while there is no usable camera.
    std::optional<CAM_PROP_VALUE> get(CAM_PROPERTY property) const;

  private:
    class Observer;
    using Job = std::function<void()>;

    void run();
    void load_and_serve();
    void bring_up(const camhost::Plugin& plugin);
    bool wait_for_report();
    void look_at_the_bus();
    void explain_failure();
    void serve();
    void apply(const camhost::Assignment& assignment);
    void follow_wish();
    void have_combination(const Wish& wish);
    void select(int combination);
    void start();
    void stop();
    void add_nv12(bool on);
    void announce_settings(bool after_restart, int sample_rate = 0);
    void trigger_due_jpeg();
    bool read_register(const camhost::Assignment& assignment);
    void do_jobs();
    void check_presence();
    camhost::Clock::time_point next_due() const;
    bool triggers_jpegs() const;
    bool quits() const;
    void fail(Trouble trouble, const std::string& sentence);
    void register_observers();

    const Options options_;
    RecordSink& sink_;
    CameraListener& listener_;
    std::vector<std::unique_ptr<Observer>> observers_;

    mutable std::mutex mutex_;
    std::condition_variable job_done_;
    std::vector<Job> jobs_;  // under mutex_, as the next four
    uint64_t jobs_taken_ = 0;
    uint64_t jobs_posted_ = 0;
    Wish wish_;
    bool quit_ = false;

    camhost::WakeEvent wake_;
    BusWatch bus_;
    /// Shared: uses the session; exclusive: makes or destroys it (control thread).
    mutable std::shared_mutex session_mutex_;
    std::optional<camhost::Session> session_;
    std::atomic<bool> serving_{false};
    std::atomic<int> register_answer_{0};

    // The control thread's own.
    Wish followed_;
    bool dead_end_ = false;  ///< followed_ cannot be had
    bool found_without_firmware_ = false;
    bool found_ = false;
    bool gone_ = false;
    bool nv12_added_ = false;
    bool nv12_by_host_ = false;  ///< the mode was set as a property: it is left alone
    int combination_ = -1;
    camhost::Clock::time_point next_jpeg_;

    std::thread thread_;
};

}  // namespace gstcam
