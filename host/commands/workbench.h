// The surroundings in which camhost drives a camera, put up in the order in which they depend on
// each other.
#pragma once

#include <optional>

#include "host/base/log_diversion.h"
#include "host/commands/options.h"
#include "host/session/controls.h"
#include "host/session/plugin.h"
#include "host/session/session.h"

namespace camhost {

class Workbench {
  public:
    /// Diverts the plug-in's log to `log` and loads the plug-in. Throws Failure.
    Workbench(const CommonOptions& options, const std::filesystem::path& log);
    ~Workbench();
    Workbench(const Workbench&) = delete;
    Workbench& operator=(const Workbench&) = delete;

    /// Creates the camera object and brings the camera up, or throws Failure: kNoCamera when it
    /// does not become usable in time, kInterrupted on Ctrl-C. Says on the console what happens.
    Session& bring_up();
    /// After each step of a command: prints the requests that it made, and throws Failure when the
    /// camera went away (kCameraLost) or Ctrl-C was pressed (kInterrupted).
    void step_done();
    /// Destroys the camera object and prints its last requests.
    void close();

    Controls controls() { return {console_, wake_, interrupt_, trace_}; }
    Console& console() { return console_; }
    const Plugin& plugin() const { return *plugin_; }

  private:
    enum class BringUp { kUsable, kNotUsable, kTimedOut, kInterrupted };

    BringUp wait_for_report();
    void show_waiting(double seconds);
    void tell_download();
    [[noreturn]] void give_up(BringUp result);

    WakeEvent wake_;
    InterruptWatcher interrupt_;
    LogDiversion diversion_;
    Console console_;
    UsbTrace trace_;
    std::chrono::milliseconds init_timeout_;
    std::filesystem::path log_;
    std::optional<Plugin> plugin_;
    std::optional<Session> session_;
};

}  // namespace camhost
