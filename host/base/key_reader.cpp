#include "host/base/key_reader.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>

namespace camhost {

KeyReader::KeyReader() : terminal_(tcgetattr(STDIN_FILENO, &before_) == 0) {
    if (terminal_) {
        termios raw = before_;
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);  // Ctrl-C still interrupts
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
}

KeyReader::~KeyReader() {
    if (terminal_) {
        tcsetattr(STDIN_FILENO, TCSANOW, &before_);
    }
}

std::optional<char> KeyReader::wait(WakeEvent& wake, Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd entries[2] = {{wake.fd(), POLLIN, 0}, {terminal_ ? STDIN_FILENO : -1, POLLIN, 0}};
    poll(entries, 2, static_cast<int>(std::max<decltype(left)>(left, 0)));
    if (entries[0].revents != 0) {
        wake.clear();
    }
    char key = 0;
    if ((entries[1].revents & POLLIN) != 0 && read(STDIN_FILENO, &key, 1) == 1) {
        return key;
    }
    if (entries[1].revents != 0) {
        terminal_ = false;  // it has gone; there is nothing more to give back to it
    }
    return std::nullopt;
}

}  // namespace camhost
