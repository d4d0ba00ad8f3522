#include "virtcam/usbip/socket_address.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace virtcam::usbip {
namespace {

using AddressList = std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)>;

AddressList resolve(const SocketAddress& address, int flags) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo* list = nullptr;
    const std::string port = std::to_string(address.port);
    const int error = ::getaddrinfo(address.host.c_str(), port.c_str(), &hints, &list);
    if (error != 0) {
        throw std::runtime_error(address.host + ": " + ::gai_strerror(error));
    }
    return {list, &::freeaddrinfo};
}

[[noreturn]] void fail(const SocketAddress& address, const char* what) {
    throw std::runtime_error(std::string(what) + " " + address.host + ":" +
                             std::to_string(address.port) + ": " + std::strerror(errno));
}

}  // namespace

SocketAddress SocketAddress::parse(const std::string& text) {
    const size_t colon = text.rfind(':');
    SocketAddress address;
    if (colon != std::string::npos && colon > 0) {
        address.host = text.substr(0, colon);
        if (address.host.size() > 2 && address.host.front() == '[' && address.host.back() == ']') {
            address.host = address.host.substr(1, address.host.size() - 2);
        }
        const char* end = text.data() + text.size();
        const auto [rest, error] = std::from_chars(text.data() + colon + 1, end, address.port);
        if (error == std::errc{} && rest == end) {
            return address;
        }
    }
    throw std::invalid_argument("\"" + text + "\" is not of the form HOST:PORT");
}

UniqueFd listen_at(const SocketAddress& address) {
    const AddressList list = resolve(address, AI_PASSIVE);
    UniqueFd fd(::socket(list->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    if (!fd || ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::bind(fd.get(), list->ai_addr, list->ai_addrlen) != 0 || ::listen(fd.get(), 8) != 0) {
        fail(address, "cannot listen at");
    }
    return fd;
}

uint16_t local_port(int fd) {
    sockaddr_storage storage{};
    socklen_t size = sizeof storage;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &size) != 0) {
        return 0;
    }
    return ntohs(storage.ss_family == AF_INET6
                     ? reinterpret_cast<const sockaddr_in6&>(storage).sin6_port
                     : reinterpret_cast<const sockaddr_in&>(storage).sin_port);
}

UniqueFd connect_to(const SocketAddress& address) {
    const AddressList list = resolve(address, 0);
    for (const addrinfo* entry = list.get(); entry != nullptr; entry = entry->ai_next) {
        UniqueFd fd(::socket(entry->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (fd && ::connect(fd.get(), entry->ai_addr, entry->ai_addrlen) == 0) {
            send_at_once(fd.get());
            return fd;
        }
    }
    fail(address, "cannot connect to");
}

void send_at_once(int fd) {
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

}  // namespace virtcam::usbip
