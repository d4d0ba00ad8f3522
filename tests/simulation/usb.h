// A libusb in virtual time (world.h): one cable with one device at its end. It keeps libusb's own
// promises (a transfer that was submitted comes back, nothing longer than was asked for, completions
// run on whatever thread is in a call of their context) and leaves the device every freedom. A use
// that libusb forbids ends the program.
#pragma once

#include <libusb-1.0/libusb.h>

#include <string>

#include "tests/simulation/world.h"

namespace sim {

struct Setup {
    uint8_t type;
    uint8_t request;
    uint16_t value;
    uint16_t index;
    uint16_t length;
    unsigned int timeout_ms;
};

/// How a synchronous transfer ends. What takes longer than its time-out is cut by that.
struct Answer {
    int result;  ///< bytes, at most as many as were asked for, or a negative libusb error
    Time after{};
};

/// How a submitted transfer ends.
struct Ending {
    libusb_transfer_status status;
    Time at;  ///< virtual time; kForever: when it is cancelled or times out
};

/// What stands at the end of the cable. Called on any thread of the World.
class Device {
  public:
    virtual ~Device() = default;

    virtual uint16_t product() const = 0;
    /// `data`: what the host sends, or room for `setup.length` bytes of an answer.
    virtual Answer control(const Setup& setup, unsigned char* data) = 0;
    virtual Answer bulk_out(const unsigned char* data, int length) = 0;
    /// Results of the calls that set things up (open, claim, alternate setting ...), by the name of
    /// libusb's function; `interface` is -1 where it has none.
    virtual int call(const std::string& /*name*/, int /*interface*/) { return 0; }
    virtual int iso_packet_size() const { return 100; }

    virtual Ending submitted(const libusb_transfer& transfer) = 0;
    /// The transfer completes or times out: its data and lengths.
    virtual void fill(libusb_transfer& transfer) = 0;
};

/// The cable. One at a time, within a World.
class Bus {
  public:
    /// Plugged in, unless null. `device` is borrowed.
    explicit Bus(Device* device);
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    /// Also on a device that restarts with another identity: its handles are lost.
    static void plug(Device* device);
    static void unplug();
    /// How often that happened; the number of the current listing.
    static unsigned changes();

    /// What the host has not given back.
    struct Leavings {
        size_t contexts;
        size_t handles;
        size_t transfers;
        size_t in_flight;
    };
    static Leavings leavings();

    /// From now on each change writes /proc/bus/usb/devices anew, which then has another
    /// status-change time.
    static void publish_listing();
};

}  // namespace sim
