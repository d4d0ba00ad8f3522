// Interfaces in the hands of open handles: claims, alternate settings, kernel drivers.
#pragma once

#include "virtcam/bus/channels.h"
#include "virtcam/bus/handle_table.h"

namespace virtcam::bus {

class Claims {
  public:
    Claims(Shared& shared, HandleTable& handles, Port& port, Channels& channels)
        : shared_(shared), handles_(handles), port_(port), channels_(channels) {}

    int claim(libusb_device_handle* handle, int interface);
    int release(libusb_device_handle* handle, int interface);
    /// Takes the claims from a handle that is being closed.
    void release_all(libusb_device_handle* handle);
    int set_alt_setting(libusb_device_handle* handle, int interface, int setting);
    int driver_active(libusb_device_handle* handle, int interface);
    int detach_driver(libusb_device_handle* handle, int interface);
    int attach_driver(libusb_device_handle* handle, int interface);

    /// Ends the transfers on an interface as usbfs does when their endpoints go.
    void flush(int interface);
    /// ", interface 1 is claimed" for each claim.
    std::string text(const libusb_device_handle* handle) const;

  private:
    int check(libusb_device_handle* handle, const char* call, int interface);
    void release(int interface);

    Shared& shared_;
    HandleTable& handles_;
    Port& port_;
    Channels& channels_;
};

}  // namespace virtcam::bus
