// The camera as a USB device: everything behind its connector, nothing of the bus before it.
//
// One Camera is driven by one front end (virtual bus, USB/IP server). The front end owns the thread
// that calls advance() and carries setup packets and endpoint data between its host and the model.
//
// All functions may be called from any thread. None blocks for longer than a short critical
// section, except advance(), which makes pictures.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "virtcam/model/camera_config.h"
#include "virtcam/model/clock.h"
#include "virtcam/model/setup.h"

namespace virtcam::model {

class Camera {
  public:
    explicit Camera(const CameraConfig& config);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    // --- power and presence -------------------------------------------------------------------
    // A camera is constructed powered and plugged, with the identity that the configuration names.

    /// Removes power and restores it: every volatile setting is lost, the identity is the
    /// configuration's start identity again. Flash content stays in the record, see flash().
    void power_cycle();
    /// Takes the camera off the bus, as pulling the cable does (power is lost).
    void unplug();
    /// Puts it back after unplug(); a new attachment begins. No effect while plugged.
    void plug();

    /// Reset signalled by the host: the stream ends, alternate settings return to 0, no
    /// configuration is selected. Settings and attachment stay.
    void bus_reset();

    /// True while a host sees the device on the bus.
    bool attached() const;
    /// True between an acknowledged burn and the new arrival.
    bool restarting() const;
    /// Number of the current (or last) attachment, 1 for the first: it grows at each arrival, so a
    /// front end knows that a handle of an earlier attachment is dead.
    uint64_t attachment() const;

    /// Called without locks held, from whichever thread caused it, whenever presence changed or
    /// advance() may have something to do sooner than it said last. One listener; set it before
    /// use.
    void set_listener(std::function<void()> listener);

    /// Called without locks held, on the thread of advance(), when pictures cannot be made, with the
    /// reason: a sentence that names the encoder and its version. Once for each reason; status()
    /// keeps the last one. One listener; set it before use.
    void set_failure_listener(std::function<void(const std::string& why)> listener);

    /// Does all work that is due at `now`: re-enumeration after a burn, departure, the next
    /// picture. Returns when it wants to be called again at the latest (TimePoint::max() when
    /// idle).
    TimePoint advance(TimePoint now);
    /// Departure and re-enumeration alone, for another thread than that of advance(): never waits
    /// for a picture, which a slow machine may take seconds to make. Returns when it wants to be
    /// called again at the latest, as advance() does.
    TimePoint advance_presence(TimePoint now);

    // --- the wire -----------------------------------------------------------------------------
    // With the device detached, control() stalls, bulk_out() is false and the IN functions have no
    // data; front ends check attached() first and answer 'no device' themselves.

    /// Runs one control transfer, standard requests included (descriptors, SET_CONFIGURATION,
    /// SET_INTERFACE, CLEAR_FEATURE). `out` is the OUT data stage, empty for IN.
    ControlReply control(const Setup& setup, std::span<const uint8_t> out);

    /// One OUT transfer on a bulk endpoint (address without direction bit). False: STALL.
    bool bulk_out(uint8_t endpoint, std::span<const uint8_t> data);

    /// Next UVC payload of bulk IN endpoint 0x81, at most `room` bytes, or nothing (NAK) when none
    /// is due. A payload is one transfer: it ends with a short packet or at `room` bytes. `now` is
    /// what its source clock reference tells.
    std::optional<std::vector<uint8_t>> bulk_in(uint8_t endpoint, size_t room, TimePoint now);

    /// Halts a bulk endpoint (address with direction bit), as the device does when it refuses a
    /// transfer: until CLEAR_FEATURE, SET_INTERFACE of its interface, SET_CONFIGURATION or a reset
    /// the front end is to answer each transfer on it with a stall.
    void halt(uint8_t endpoint);
    bool halted(uint8_t endpoint) const;

    /// Data of the next isochronous packet (one service interval of 1 ms) of endpoint 0x82; empty
    /// when the alternate setting is 0. The caller keeps the clock: one call per millisecond.
    std::vector<uint8_t> iso_in(uint8_t endpoint, size_t room);

    /// Descriptors of the present identity, exactly as GET_DESCRIPTOR answers them.
    std::vector<uint8_t> device_descriptor() const;
    std::vector<uint8_t> configuration_descriptor() const;
    /// UTF-8 text of string descriptor `index` (1 maker, 2 product, 3 serial); empty when none.
    std::string string(uint8_t index) const;

    // --- for people and tests -----------------------------------------------------------------
    /// Bytes that the last successful burn put into flash; empty before any.
    std::vector<uint8_t> flash() const;
    /// Vendor and class commands since construction, oldest first.
    std::vector<CommandRecord> commands() const;
    /// Identity, flash digest, options, controls, light, commands, frames and sequence numbers per
    /// stream. The keys are documented in docs/virtual-camera.md.
    nlohmann::json status() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace virtcam::model
