// A port of the kernel's virtual host controller (vhci_hcd), through sysfs. Root only.
#pragma once

#include <cstdint>
#include <string>

namespace virtcam::usbip {

class VhciPort {
  public:
    static constexpr char kSysfs[] = "/sys/devices/platform/vhci_hcd.0";

    /// `folder` is the controller's in sysfs.
    explicit VhciPort(unsigned number, std::string folder = kSysfs)
        : number_(number), folder_(std::move(folder)) {}

    /// Hands a connected stream socket of this process to the kernel, which keeps a reference. The
    /// device appears at high speed. False while the port is still in use.
    /// Throws std::system_error when there is no such port, or no right to it.
    bool attach(int socket, uint32_t device_id) const;
    /// Pulls the cable. Does nothing when the port is free.
    void detach() const;

  private:
    unsigned number_;
    std::string folder_;
};

}  // namespace virtcam::usbip
