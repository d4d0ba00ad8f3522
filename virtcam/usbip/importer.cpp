#include "virtcam/usbip/importer.h"

#include <poll.h>
#include <sys/socket.h>

#include <exception>

#include "virtcam/usbip/handshake.h"

namespace virtcam::usbip {
namespace {

constexpr int kRetryMilliseconds = 50;
constexpr int kForever = -1;

/// Waits until the connection ends, or `limit` ms. True when asked to stop.
bool wait(int connection, int limit, int stop_fd) {
    pollfd waits[] = {{stop_fd, POLLIN, 0}, {connection, POLLRDHUP, 0}};
    ::poll(waits, connection >= 0 ? 2 : 1, limit);
    return waits[0].revents != 0;
}

bool read_all(int socket, Bytes& bytes) {
    return ::recv(socket, bytes.data(), bytes.size(), MSG_WAITALL) ==
           static_cast<ssize_t>(bytes.size());
}

}  // namespace

void Importer::run(int stop_fd) {
    for (bool stop = false; !stop;) {
        const UniqueFd connection = import();
        if (!connection) {
            stop = wait(-1, kRetryMilliseconds, stop_fd);
            continue;
        }
        stop = !hand_over(connection.get(), stop_fd) || wait(connection.get(), kForever, stop_fd);
    }
    port_.detach();
}

UniqueFd Importer::import() const {
    UniqueFd connection;
    try {
        connection = connect_to(server_);
    } catch (const std::exception&) {
        return {};  // not there yet
    }
    const Bytes request = import_request();
    Bytes header(kOpHeaderBytes);
    Bytes record(kDeviceRecordBytes);
    if (::send(connection.get(), request.data(), request.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(request.size()) ||
        !read_all(connection.get(), header) || import_reply_status(header) != 0 ||
        !read_all(connection.get(), record)) {
        return {};
    }
    return connection;
}

bool Importer::hand_over(int socket, int stop_fd) const {
    while (!port_.attach(socket, kDeviceId)) {
        if (wait(-1, kRetryMilliseconds, stop_fd)) {
            return false;
        }
    }
    return true;
}

}  // namespace virtcam::usbip
