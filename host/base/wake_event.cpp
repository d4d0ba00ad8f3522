#include "host/base/wake_event.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

#include "host/base/exit_code.h"

namespace camhost {

WakeEvent::WakeEvent() : fd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (fd_ < 0) {
        throw Failure(ExitCode::kFailed, "no file descriptor left for the wake-up event");
    }
}

WakeEvent::~WakeEvent() {
    close(fd_);
}

void WakeEvent::signal() {
    const uint64_t one = 1;
    // A full counter is already a pending signal, so the result does not matter.
    [[maybe_unused]] const ssize_t written = write(fd_, &one, sizeof(one));
}

void WakeEvent::clear() {
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = read(fd_, &count, sizeof(count));
}

void WakeEvent::wait_until(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd entry{fd_, POLLIN, 0};
    constexpr int64_t kLongestMs = 60'000;
    poll(&entry, 1, static_cast<int>(std::clamp<int64_t>(left.count(), 0, kLongestMs)));
    clear();
}

}  // namespace camhost
