// The text file that lists the devices of the bus, as the kernel's usbfs keeps it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "virtcam/bus/objects.h"

namespace virtcam::bus {

/// Name of the driver that holds an interface, for the "I:" lines.
using DriverName = std::function<std::string(const DeviceInfo&, int interface)>;

class Listing {
  public:
    /// @param path file to keep from now on; empty, or in a folder that does not exist: none is
    /// kept.
    void move_to(std::string path) { path_ = std::move(path); }

    /// Replaces the file at once (readers see the old or the new text, never a mixture). Its size
    /// differs from that of the texts before, since readers compare sizes when the status-change
    /// time has not advanced by a second.
    void write(const std::vector<std::shared_ptr<const DeviceInfo>>& devices,
               const DriverName& driver);

    const std::string& path() const { return path_; }
    /// "kept", "off", or why the file could not be written.
    const std::string& state() const { return state_; }

  private:
    /// Says on the error output why the file could not be written, once per reason.
    void fail(const char* reason);

    std::string path_;
    std::string state_ = "off";
    unsigned generation_ = 0;
};

}  // namespace virtcam::bus
