#include "virtcam/usbip/server.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

#include "virtcam/usbip/handshake.h"

namespace virtcam::usbip {
namespace {

using model::Clock;
using model::TimePoint;
using std::chrono::milliseconds;

constexpr size_t kMostPeers = 16;
constexpr size_t kMostLineBytes = 1 << 20;
constexpr milliseconds kRetryAttach{50};
constexpr milliseconds kLongestWait{10'000};

UniqueFd listen_if(const std::optional<SocketAddress>& address) {
    return address ? listen_at(*address) : UniqueFd();
}

/// Milliseconds for poll(), rounded up so that it does not spin just before the time.
int poll_time(TimePoint until) {
    const TimePoint now = Clock::now();
    if (until <= now) {
        return 0;
    }
    if (until - now > kLongestWait) {
        return static_cast<int>(kLongestWait.count());
    }
    return static_cast<int>(std::chrono::ceil<milliseconds>(until - now).count());
}

}  // namespace

Server::Server(Bench& bench, ServerOptions options)
    : bench_(bench),
      options_(std::move(options)),
      listener_(listen_if(options_.listen)),
      commands_(listen_if(options_.commands)) {}

void Server::run(int stop_fd) {
    stop_ = false;
    while (!stop_) {
        wait(stop_fd, work(Clock::now()));
    }
    close_link("the server ends");
}

void Server::adopt(UniqueFd socket) {
    send_at_once(socket.get());
    link_.emplace(Link{std::move(socket), bench_.presence(), {}, {}, UrbStream(bench_), {}});
}

void Server::mute() {
    if (link_) {
        link_->urbs.mute();
    }
}

void Server::answer_before_unlink() {
    if (link_) {
        link_->urbs.answer_before_unlink();
    }
}

void Server::freeze(milliseconds time) {
    if (link_) {
        link_->frozen_until = Clock::now() + time;
    }
}

/// Does everything that is due. Returns when there is more to do, news aside.
TimePoint Server::work(TimePoint now) {
    TimePoint next = bench_.run_due(now);
    if (link_) {
        next = std::min(next, serve_link(now));
    }
    if (link_ && link_->presence != bench_.presence()) {
        close_link("the camera has left the bus");
    }
    if (!link_ && options_.vhci && bench_.presence() != 0) {
        next = std::min(next, offer_to_kernel(now));
    }
    return next;
}

TimePoint Server::serve_link(TimePoint now) {
    if (link_->frozen_until) {
        if (*link_->frozen_until <= now) {
            close_link("frozen long enough");
            return now;
        }
        return *link_->frozen_until;
    }
    if (link_->presence != bench_.presence()) {
        return now;
    }
    const TimePoint next = link_->urbs.serve(now, link_->out.bytes());
    if (!link_->out.flush(link_->fd.get())) {
        close_link("the connection failed");
    }
    return next;
}

/// Gives the kernel one end of a socket pair; the other one is the connection.
TimePoint Server::offer_to_kernel(TimePoint now) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw_errno("socketpair");
    }
    UniqueFd ours(ends[0]);
    // Closed at once: the kernel holds its own reference, and ours would hide the end of the
    // connection.
    const UniqueFd kernels(ends[1]);
    if (!options_.vhci->attach(kernels.get(), kDeviceId)) {
        return now + kRetryAttach;
    }
    adopt(std::move(ours));
    return now;
}

void Server::close_link(const char* why) {
    if (!link_) {
        return;
    }
    std::fprintf(stderr, "virtcam: connection closed: %s\n", why);
    ::shutdown(link_->fd.get(), SHUT_RDWR);
    link_.reset();
}

void Server::read_link() {
    Bytes received;
    const bool open = receive(link_->fd.get(), received);
    take_commands(received);
    if (!open) {
        close_link("the host has let go of it");
    }
}

void Server::take_commands(ByteView received) {
    try {
        link_->reader.feed(received);
        while (auto command = link_->reader.next()) {
            if (const auto* unlink = std::get_if<Unlink>(&*command)) {
                link_->urbs.unlink(*unlink, link_->out.bytes());
            } else {
                link_->urbs.submit(std::get<Submit>(std::move(*command)));
            }
        }
    } catch (const ProtocolError& error) {
        close_link(error.what());
    }
}

short Server::link_events() const {
    if (link_->frozen_until) {
        return 0;
    }
    const size_t unsent = link_->out.size();
    short events = unsent > 0 ? POLLOUT : 0;
    if (unsent < UrbStream::kMostUnsent) {
        events |= POLLIN;
    }
    return events;
}

void Server::wait(int stop_fd, TimePoint until) {
    enum Slot : size_t { kStop, kNews, kListener, kCommands, kLink, kPeers };
    // A negative descriptor is one that poll() passes over.
    waits_ = {{stop_fd, POLLIN, 0},
              {bench_.news().fd(), POLLIN, 0},
              {listener_.get(), POLLIN, 0},
              {commands_.get(), POLLIN, 0},
              {link_ && link_events() != 0 ? link_->fd.get() : -1,
               static_cast<short>(link_ ? link_events() : 0), 0}};
    for (const Peer& peer : peers_) {
        const short events = peer.out.size() > 0 ? POLLIN | POLLOUT : POLLIN;
        waits_.push_back({peer.fd.get(), events, 0});
    }
    if (::poll(waits_.data(), waits_.size(), poll_time(until)) <= 0) {
        return;
    }
    stop_ = waits_[kStop].revents != 0;
    if (waits_[kNews].revents != 0) {
        bench_.news().clear();
    }
    if (link_ && (waits_[kLink].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
        read_link();
    }
    size_t slot = kPeers;
    for (auto peer = peers_.begin(); peer != peers_.end();) {
        peer = advance_peer(*peer, waits_[slot++].revents) ? std::next(peer) : peers_.erase(peer);
    }
    if (waits_[kListener].revents != 0) {
        accept_peer(listener_.get(), false);
    }
    if (waits_[kCommands].revents != 0) {
        accept_peer(commands_.get(), true);
    }
}

void Server::accept_peer(int listener, bool sends_commands) {
    UniqueFd fd(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    if (!fd) {
        return;
    }
    if (peers_.size() >= kMostPeers) {
        peers_.pop_front();  // the oldest has had its time
    }
    Peer peer;
    peer.fd = std::move(fd);
    peer.sends_commands = sends_commands;
    peers_.push_back(std::move(peer));
}

/// Returns false when the connection is over, or has become the imported camera's.
bool Server::advance_peer(Peer& peer, short events) {
    if ((events & (POLLIN | POLLHUP | POLLERR)) != 0) {
        if (!receive(peer.fd.get(), peer.received)) {
            return false;
        }
        if (!answer_peer(peer)) {
            return false;
        }
    }
    if (!peer.fd) {
        return false;
    }
    return peer.out.flush(peer.fd.get()) && !(peer.closing && peer.out.size() == 0);
}

bool Server::answer_peer(Peer& peer) {
    if (peer.closing) {
        peer.received.clear();
        return true;
    }
    if (peer.sends_commands) {
        answer_lines(peer);
        return peer.received.size() <= kMostLineBytes;
    }
    try {
        answer_host(peer);
    } catch (const ProtocolError&) {
        return false;
    }
    return true;
}

void Server::answer_host(Peer& peer) {
    const auto request = take_request(peer.received);
    if (!request) {
        return;
    }
    if (request->kind == OpRequest::Kind::kDeviceList) {
        peer.out.bytes() = device_list_reply(bench_.camera());
        peer.closing = true;
        return;
    }
    ImportStatus status = ImportStatus::kOk;
    if (!request->our_camera || bench_.presence() == 0) {
        status = ImportStatus::kNoDevice;
    } else if (link_) {
        status = ImportStatus::kBusy;
    }
    peer.out.bytes() = import_reply(bench_.camera(), status);
    if (status != ImportStatus::kOk) {
        peer.closing = true;
        return;
    }
    adopt(std::move(peer.fd));
    link_->out = std::exchange(peer.out, SendBuffer());
    take_commands(peer.received);
}

void Server::answer_lines(Peer& peer) {
    for (;;) {
        const auto end = std::find(peer.received.begin(), peer.received.end(), '\n');
        if (end == peer.received.end()) {
            return;
        }
        const std::string line(peer.received.begin(), end);
        peer.received.erase(peer.received.begin(), end + 1);
        const std::string answer = run_command(line, bench_, *this) + "\n";
        peer.out.bytes().insert(peer.out.bytes().end(), answer.begin(), answer.end());
    }
}

}  // namespace virtcam::usbip
