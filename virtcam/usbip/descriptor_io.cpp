#include "virtcam/usbip/descriptor_io.h"

#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace virtcam::usbip {
namespace {

bool would_block() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

}  // namespace

void throw_errno(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

WakeUp::WakeUp() : fd_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (!fd_) {
        throw_errno("eventfd");
    }
}

void WakeUp::raise() const {
    // A full counter wakes as well, so the result does not matter.
    [[maybe_unused]] const int result = ::eventfd_write(fd_.get(), 1);
}

void WakeUp::clear() const {
    eventfd_t value = 0;
    [[maybe_unused]] const int result = ::eventfd_read(fd_.get(), &value);
}

bool receive(int fd, Bytes& bytes) {
    std::array<uint8_t, 1 << 16> block;
    for (int i = 0; i < 4; ++i) {
        const ssize_t size = ::recv(fd, block.data(), block.size(), MSG_DONTWAIT);
        if (size < 0) {
            return would_block();
        }
        if (size == 0) {
            return false;
        }
        bytes.insert(bytes.end(), block.begin(), block.begin() + size);
        if (static_cast<size_t>(size) < block.size()) {
            break;
        }
    }
    return true;
}

bool SendBuffer::flush(int fd) {
    while (sent_ < bytes_.size()) {
        const ssize_t size =
            ::send(fd, bytes_.data() + sent_, bytes_.size() - sent_, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (size < 0) {
            return would_block();
        }
        sent_ += static_cast<size_t>(size);
    }
    bytes_.clear();
    sent_ = 0;
    return true;
}

}  // namespace virtcam::usbip
