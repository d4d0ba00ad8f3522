// One decoded line per control transfer, for people.
#pragma once

#include <chrono>
#include <cstdint>
#include <fstream>
#include <optional>
#include <span>
#include <string>

#include "virtcam/model/setup.h"

namespace virtcam::bus {

/// Writes to the file of VIRTBUS_TRACE; does nothing when that is not set. Not thread-safe.
class Trace {
  public:
    /// @param path file to create; empty: no trace.
    explicit Trace(const std::string& path);

    bool enabled() const { return file_.is_open(); }
    /// @param who "" for the program, "kernel" for what the host's own USB core sends.
    /// @param result bytes moved, or a libusb error code.
    /// @param took from submission to end; nothing where that is not known.
    void control(std::chrono::milliseconds when, const char* who, const model::Setup& setup,
                 std::span<const uint8_t> data, unsigned timeout_ms, int result,
                 std::optional<std::chrono::microseconds> took);

  private:
    std::ofstream file_;
};

}  // namespace virtcam::bus
