#include "host/base/console.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "host/base/text.h"

namespace camhost {

namespace {
constexpr int kBarWidth = 30;
constexpr const char* kClearLine = "\r\x1b[K";
}  // namespace

Console::Console(int fd) : fd_(fd), terminal_(isatty(fd) == 1) {}

void Console::write_all(const std::string& text) {
    size_t done = silent_ ? text.size() : 0;
    while (done < text.size()) {
        const ssize_t written = write(fd_, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR) {
            return;  // A reader that left is no reason to stop recording.
        }
        done += written > 0 ? static_cast<size_t>(written) : 0;
    }
}

void Console::clear_bar() {
    if (bar_shown_) {
        write_all(kClearLine);
        bar_shown_ = false;
    }
}

void Console::line(const std::string& text) {
    clear_bar();
    lines_drawn_ = 0;
    write_all(text + "\n");
}

void Console::redraw(const std::vector<std::string>& lines) {
    clear_bar();
    std::string text;
    if (terminal_ && lines_drawn_ > 0) {
        text = format("\x1b[%zuA\x1b[J", lines_drawn_);  // up, and clear what is below
    }
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    write_all(text);
    lines_drawn_ = lines.size();
}

void Console::progress(double fraction, const std::string& text) {
    const double part = std::clamp(fraction, 0.0, 1.0);
    if (terminal_) {
        const auto full = static_cast<size_t>(std::lround(part * kBarWidth));
        write_all(kClearLine +
                  format("[%s%s] %3.0f%%  ", std::string(full, '#').c_str(),
                         std::string(kBarWidth - full, '.').c_str(), part * 100) +
                  text);
        bar_shown_ = true;
        return;
    }
    const int quarter = static_cast<int>(part * 4);
    if (quarter > last_quarter_) {
        last_quarter_ = quarter;
        write_all(format("  %3.0f%%  ", part * 100) + text + "\n");
    }
}

void Console::waiting(const std::string& text, double seconds) {
    if (terminal_) {
        write_all(kClearLine + text + format(" (%.0f s)", seconds));
        bar_shown_ = true;
    } else if (text != last_waiting_) {
        last_waiting_ = text;
        write_all(text + "\n");
    }
}

void Console::progress_done() {
    clear_bar();
    last_quarter_ = 0;
    last_waiting_.clear();
}

}  // namespace camhost
