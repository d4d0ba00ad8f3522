#include "host/commands/workbench.h"

#include <algorithm>
#include <fstream>

#include "host/base/exit_code.h"
#include "host/base/text.h"
#include "host/commands/virtual_camera.h"
#include "host/session/absence.h"
#include "host/session/cures.h"
#include "host/session/firmware_download.h"

namespace camhost {

namespace {

std::filesystem::path plugin_path(const CommonOptions& options) {
    if (!options.plugin.empty()) {
        return std::filesystem::absolute(options.plugin);
    }
    const auto found = Plugin::find_default();
    if (!found) {
        throw Failure(ExitCode::kNoPlugin,
                      "there is no libaitorixcamera.so near this program; name it with --plugin");
    }
    return *found;
}

/// The plug-in finds the camera through the kernel's bus listing of old, which today's kernels no
/// longer show; without it the search must end in vain, so say it beforehand.
void advise_on_bus_listing(Console& console) {
    const char* needed = on_virtual_bus() ? "/proc/bus/usb" : "/proc/bus/usb/devices";
    std::error_code error;
    if (!std::filesystem::exists(needed, error)) {
        console.line(std::string("note: ") + needed +
                     " is missing, and the plug-in looks for the camera there; " +
                     (on_virtual_bus() ? "run camhost in the television's surroundings: "
                                         "scripts/sandbox -- camhost ..."
                                       : "keep it with: sudo scripts/publish-bus-listing &"));
    }
}

}  // namespace

Workbench::Workbench(const CommonOptions& options, const std::filesystem::path& log)
    : interrupt_(wake_),
      diversion_(log),
      console_(diversion_.console_fd()),
      init_timeout_(options.init_timeout),
      log_(log) {
    plugin_.emplace(plugin_path(options));
}

Workbench::~Workbench() {
    close();
}

Session& Workbench::bring_up() {
    advise_on_bus_listing(console_);
    session_.emplace(*plugin_, wake_);
    const auto begin = Clock::now();
    const BringUp result = wait_for_report();
    console_.progress_done();
    tell_download();
    controls().show_requests();
    if (result != BringUp::kUsable) {
        give_up(result);
    }
    console_.line(format(
        "the camera is usable (Init reported true after %.1f s); it is %s; this television "
        "selects streams by %s",
        std::chrono::duration<double>(Clock::now() - begin).count(), words_for(session_->state()),
        session_->by_signal_type() ? "signal type" : "video mode"));
    return *session_;
}

/// Calls Init and waits for its report, telling on the console what it waits for.
Workbench::BringUp Workbench::wait_for_report() {
    const auto begin = Clock::now();
    const auto deadline = begin + init_timeout_;
    session_->begin();
    while (!session_->reported()) {
        if (interrupt_.requested()) {
            return BringUp::kInterrupted;
        }
        const auto now = Clock::now();
        if (now >= deadline) {
            return BringUp::kTimedOut;
        }
        show_waiting(std::chrono::duration<double>(now - begin).count());
        wake_.wait_until(std::min(deadline, now + std::chrono::milliseconds(250)));
    }
    return session_->usable() ? BringUp::kUsable : BringUp::kNotUsable;
}

void Workbench::show_waiting(double seconds) {
    const FirmwareDownload download = firmware_download();
    if (download.size > 0 && download.sent < download.size) {
        const double part = static_cast<double>(download.sent) / static_cast<double>(download.size);
        console_.progress(part, format("firmware, %llu of %llu bytes",
                                       static_cast<unsigned long long>(download.sent),
                                       static_cast<unsigned long long>(download.size)));
        return;
    }
    console_.waiting(
        "waiting for the camera: the plug-in looks for it on the bus and loads its firmware",
        seconds);
}

/// Also of one that was over before it could be shown.
void Workbench::tell_download() {
    const FirmwareDownload download = firmware_download();
    if (download.sent == 0) {
        return;
    }
    const auto sent = static_cast<unsigned long long>(download.sent);
    console_.line(download.size == 0 ? format("firmware: %llu bytes sent", sent)
                                     : format("firmware: %llu of %llu bytes sent (%.0f %%)", sent,
                                              static_cast<unsigned long long>(download.size),
                                              100 * static_cast<double>(sent) /
                                                  static_cast<double>(download.size)));
}

void Workbench::give_up(BringUp result) {
    const std::string state = words_for(session_->state());
    const std::string see = "; the plug-in's log is in " + log_.string();
    // Destroying the camera object may take as long as one step of the plug-in's search.
    if (result == BringUp::kInterrupted) {
        console_.line(
            "interrupted; waiting for the plug-in to end its search (Ctrl-C again leaves at once)");
        throw Failure(ExitCode::kInterrupted, "interrupted while waiting for the camera");
    }
    if (result == BringUp::kTimedOut) {
        throw Failure(ExitCode::kNoCamera,
                      format("the plug-in did not report within %g s; the camera is %s",
                             std::chrono::duration<double>(init_timeout_).count(), state.c_str()) +
                          see);
    }
    if (!on_virtual_bus()) {
        for (const std::string& cure : cures()) {
            console_.line("note: " + cure);
        }
    }
    std::ifstream listing(kBusListing);
    const std::string why = absence(firmware_download(), listing);
    throw Failure(ExitCode::kNoCamera, "the camera is not usable: Init reported false, it is " +
                                           state + (why.empty() ? "" : "; " + why) + see);
}

void Workbench::step_done() {
    controls().show_requests();
    if (session_ && session_->lost()) {
        throw Failure(ExitCode::kCameraLost, "the camera went away: " + session_->loss());
    }
    if (interrupt_.requested()) {
        throw Failure(ExitCode::kInterrupted, "interrupted");
    }
}

void Workbench::close() {
    session_.reset();
    controls().show_requests();
}

}  // namespace camhost
