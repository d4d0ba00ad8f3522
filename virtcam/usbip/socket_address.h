// TCP end points as people write them.
#pragma once

#include <cstdint>
#include <string>

#include "virtcam/usbip/unique_fd.h"

namespace virtcam::usbip {

struct SocketAddress {
    std::string host;
    uint16_t port = 0;  ///< 0: any free one, for listening

    /// Reads HOST:PORT, [IPV6]:PORT. Throws std::invalid_argument with a sentence.
    static SocketAddress parse(const std::string& text);
};

/// A listening socket that does not block. Throws std::runtime_error.
UniqueFd listen_at(const SocketAddress& address);
/// Port that a socket is bound to.
uint16_t local_port(int fd);
/// A connected, blocking socket without delay of small messages. Throws std::runtime_error.
UniqueFd connect_to(const SocketAddress& address);
/// Switches the collecting of small messages off; no effect on sockets that are not TCP.
void send_at_once(int fd);

}  // namespace virtcam::usbip
