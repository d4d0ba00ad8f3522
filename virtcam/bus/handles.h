// Open devices: opening, closing, configuration, halts and resets.
#pragma once

#include <vector>

#include "virtcam/bus/claims.h"
#include "virtcam/bus/device_table.h"
#include "virtcam/bus/event_loop.h"
#include "virtcam/bus/transfers.h"

namespace virtcam::bus {

class Handles {
  public:
    Handles(Shared& shared, HandleTable& handles, DeviceTable& devices, Port& port,
            Transfers& transfers, Claims& claims, EventLoop& events)
        : shared_(shared),
          handles_(handles),
          devices_(devices),
          port_(port),
          transfers_(transfers),
          claims_(claims),
          events_(events) {}

    int open(libusb_device* device, libusb_device_handle** handle);
    libusb_device_handle* open_by_id(libusb_context* context, uint16_t vendor, uint16_t product);
    /// Without the lock: waits until nobody hands over completions of the handle's context.
    void close(libusb_device_handle* handle);
    libusb_device* device_of(libusb_device_handle* handle);
    int configuration(libusb_device_handle* handle, int* value);
    int set_configuration(libusb_device_handle* handle, int value);
    int clear_halt(libusb_device_handle* handle, uint8_t endpoint);
    int reset_device(libusb_device_handle* handle);
    int set_auto_detach(libusb_device_handle* handle, bool enable);

    /// Adds what this generation has not closed.
    void tell_leaks(std::vector<Complaint>& leaks) const;

  private:
    int check(libusb_device_handle* handle, const char* call);
    void end(libusb_device_handle* handle);

    Shared& shared_;
    HandleTable& handles_;
    DeviceTable& devices_;
    Port& port_;
    Transfers& transfers_;
    Claims& claims_;
    EventLoop& events_;
};

}  // namespace virtcam::bus
