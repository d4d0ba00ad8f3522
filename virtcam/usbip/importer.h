// Brings a camera that is served elsewhere to this machine, and again after each of its
// re-enumerations. What Debian's usbip tool does once, by hand.
#pragma once

#include "virtcam/usbip/socket_address.h"
#include "virtcam/usbip/vhci_port.h"

namespace virtcam::usbip {

class Importer {
  public:
    Importer(SocketAddress server, VhciPort port)
        : server_(std::move(server)), port_(std::move(port)) {}

    /// Keeps the camera attached whenever the server offers it, until `stop_fd` becomes readable;
    /// then detaches it. Throws when this machine has no such port.
    void run(int stop_fd);

  private:
    /// A connection on which the camera has been imported, or none when it is not to be had now.
    UniqueFd import() const;
    /// Hands the connection over; false when asked to stop before the port was free.
    bool hand_over(int socket, int stop_fd) const;

    SocketAddress server_;
    VhciPort port_;
};

}  // namespace virtcam::usbip
