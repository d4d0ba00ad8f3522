// Owner of a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace virtcam::usbip {

class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    void reset() {
        if (fd_ >= 0) {
            ::close(std::exchange(fd_, -1));
        }
    }

  private:
    int fd_ = -1;
};

}  // namespace virtcam::usbip
