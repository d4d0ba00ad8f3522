// The device handles that are open.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "virtcam/bus/objects.h"
#include "virtcam/bus/shared.h"

namespace virtcam::bus {

class HandleTable {
  public:
    explicit HandleTable(Shared& shared) : shared_(shared) {}

    /// A new handle, which references its device.
    libusb_device_handle* add(libusb_device* device);
    /// The caller drops the reference of the device.
    void remove(libusb_device_handle* handle) { handles_.erase(handle); }
    /// True, or false with a complaint, when `handle` is open.
    bool usable(libusb_device_handle* handle, const char* call);

    size_t open_in(const libusb_context* context) const;
    int open_on(const libusb_device* device) const;
    /// The handles of this generation.
    std::vector<const libusb_device_handle*> leaked() const;

  private:
    Shared& shared_;
    std::map<libusb_device_handle*, std::unique_ptr<libusb_device_handle>> handles_;
};

}  // namespace virtcam::bus
