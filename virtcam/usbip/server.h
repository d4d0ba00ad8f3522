// The USB/IP server: one thread, one poll loop, one camera.
#pragma once

#include <poll.h>

#include <list>
#include <memory>
#include <optional>
#include <vector>

#include "virtcam/usbip/bench.h"
#include "virtcam/usbip/command_channel.h"
#include "virtcam/usbip/descriptor_io.h"
#include "virtcam/usbip/pdu_reader.h"
#include "virtcam/usbip/socket_address.h"
#include "virtcam/usbip/urb_stream.h"
#include "virtcam/usbip/vhci_port.h"

namespace virtcam::usbip {

struct ServerOptions {
    std::optional<SocketAddress> listen;    ///< for hosts
    std::optional<SocketAddress> commands;  ///< for run_command() lines
    std::optional<VhciPort> vhci;           ///< attach to this machine's kernel, without a network
};

/// Offers the camera to one host at a time and follows its comings and goings: when it leaves the
/// bus the connection is closed; the host imports it again (or, with `vhci`, gets it again) when it
/// is back. Not thread-safe.
class Server : private LinkControl {
  public:
    /// Opens the sockets. `bench` is borrowed. Throws std::runtime_error.
    Server(Bench& bench, ServerOptions options);

    /// Ports that were bound, 0 without.
    uint16_t port() const { return listener_ ? local_port(listener_.get()) : 0; }
    uint16_t command_port() const { return commands_ ? local_port(commands_.get()) : 0; }
    /// True while a host has the camera.
    bool imported() const { return link_.has_value(); }

    /// Serves until `stop_fd` becomes readable. Throws std::system_error when the kernel refuses
    /// the camera for good.
    void run(int stop_fd);
    /// Takes a connected socket on which the camera counts as imported.
    void adopt(UniqueFd socket);

  private:
    /// A connection that is no imported device (yet).
    struct Peer {
        UniqueFd fd;
        bool sends_commands = false;
        Bytes received;
        SendBuffer out;
        bool closing = false;  ///< when all is sent
    };
    /// The connection with the host that has imported the camera.
    struct Link {
        UniqueFd fd;
        uint64_t presence = 0;  ///< of the camera when it was imported
        PduReader reader;
        SendBuffer out;
        UrbStream urbs;
        std::optional<model::TimePoint> frozen_until;
    };

    void mute() override;
    void answer_before_unlink() override;
    void freeze(std::chrono::milliseconds time) override;

    model::TimePoint work(model::TimePoint now);
    model::TimePoint serve_link(model::TimePoint now);
    model::TimePoint offer_to_kernel(model::TimePoint now);
    void close_link(const char* why);
    void read_link();
    void take_commands(ByteView received);
    short link_events() const;

    void wait(int stop_fd, model::TimePoint until);
    void accept_peer(int listener, bool sends_commands);
    bool advance_peer(Peer& peer, short events);
    bool answer_peer(Peer& peer);
    void answer_host(Peer& peer);
    void answer_lines(Peer& peer);

    Bench& bench_;
    ServerOptions options_;
    UniqueFd listener_;
    UniqueFd commands_;
    std::list<Peer> peers_;
    std::optional<Link> link_;
    std::vector<pollfd> waits_;
    bool stop_ = false;
};

}  // namespace virtcam::usbip
