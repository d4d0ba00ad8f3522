#include "virtcam/usbip/vhci_port.h"

#include <fcntl.h>

#include <cerrno>
#include <system_error>

#include "virtcam/usbip/handshake.h"
#include "virtcam/usbip/unique_fd.h"

namespace virtcam::usbip {
namespace {

/// Writes all of `text` in one call, as sysfs wants it. Returns 0 or errno.
int write_attribute(const std::string& path, const std::string& text) {
    const UniqueFd file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!file || ::write(file.get(), text.data(), text.size()) < 0) {
        return errno;
    }
    return 0;
}

}  // namespace

bool VhciPort::attach(int socket, uint32_t device_id) const {
    const std::string path = folder_ + "/attach";
    const int error =
        write_attribute(path, std::to_string(number_) + " " + std::to_string(socket) + " " +
                                  std::to_string(device_id) + " " + std::to_string(kHighSpeed));
    if (error != 0 && error != EBUSY) {
        throw std::system_error(error, std::generic_category(), path);
    }
    return error == 0;
}

void VhciPort::detach() const {
    // A free port refuses; there is nothing to do then.
    [[maybe_unused]] const int error =
        write_attribute(folder_ + "/detach", std::to_string(number_));
}

}  // namespace virtcam::usbip
