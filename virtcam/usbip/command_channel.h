// What a test or a person at the desk tells the running server, a line at a time.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "virtcam/usbip/bench.h"

namespace virtcam::usbip {

/// What commands do to the connection with the host rather than to the camera.
class LinkControl {
  public:
    virtual ~LinkControl() = default;
    /// Requests get no answer any more; giving one up does.
    virtual void mute() = 0;
    /// Requests that are given up are answered just before.
    virtual void answer_before_unlink() = 0;
    /// Nothing is read or answered for so long; then the connection is closed.
    virtual void freeze(std::chrono::milliseconds time) = 0;
};

/// Runs one command (docs/virtual-camera.md lists them) and returns the one-line answer: "ok",
/// JSON, or "error: " and a sentence. Never throws for what the line says.
std::string run_command(std::string_view line, Bench& bench, LinkControl& link);

}  // namespace virtcam::usbip
