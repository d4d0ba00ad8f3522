// Sockets and events of the poll loop: nothing here blocks.
#pragma once

#include "virtcam/usbip/big_endian.h"
#include "virtcam/usbip/unique_fd.h"

namespace virtcam::usbip {

[[noreturn]] void throw_errno(const char* what);

/// An event that any thread raises and one poll loop waits for.
class WakeUp {
  public:
    WakeUp();
    /// Any thread; never blocks.
    void raise() const;
    /// Forgets what was raised.
    void clear() const;
    int fd() const { return fd_.get(); }

  private:
    UniqueFd fd_;
};

/// Appends what has arrived, at most 256 KiB. False when the peer closed or the socket failed.
bool receive(int fd, Bytes& bytes);

/// Bytes on their way out of a socket that may not take them at once.
class SendBuffer {
  public:
    Bytes& bytes() { return bytes_; }
    size_t size() const { return bytes_.size() - sent_; }
    /// Sends what the socket takes. False when the connection failed.
    bool flush(int fd);

  private:
    Bytes bytes_;
    size_t sent_ = 0;
};

}  // namespace virtcam::usbip
