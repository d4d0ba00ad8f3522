#include "host/base/interrupt.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "host/base/exit_code.h"

namespace camhost {

InterruptWatcher::InterruptWatcher(WakeEvent& wake) : wake_(wake) {
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGINT);
    sigaddset(&mask, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &mask, &previous_mask_);
    signals_ = signalfd(-1, &mask, SFD_NONBLOCK | SFD_CLOEXEC);
    if (signals_ < 0) {
        throw Failure(ExitCode::kFailed, "no file descriptor left for signals");
    }
    thread_ = std::thread([this] { run(); });
}

InterruptWatcher::~InterruptWatcher() {
    stop_.signal();
    thread_.join();
    close(signals_);
    pthread_sigmask(SIG_SETMASK, &previous_mask_, nullptr);
}

void InterruptWatcher::run() {
    while (true) {
        pollfd entries[2] = {{signals_, POLLIN, 0}, {stop_.fd(), POLLIN, 0}};
        poll(entries, 2, -1);
        signalfd_siginfo info;
        while (read(signals_, &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info))) {
            on_signal();
        }
        if (entries[1].revents != 0) {
            return;
        }
    }
}

void InterruptWatcher::on_signal() {
    if (requested_.exchange(true)) {
        // Not exit(): the camera object may be in use on other threads, and the point of the
        // second Ctrl-C is not to wait for them.
        _exit(static_cast<int>(ExitCode::kInterrupted));
    }
    wake_.signal();
}

}  // namespace camhost
