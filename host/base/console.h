// What camhost prints: lines, and a progress bar that the lines do not tear.
#pragma once

#include <string>
#include <vector>

namespace camhost {

/// Not thread-safe: the controlling thread prints.
class Console {
  public:
    /// `fd` is borrowed and outlives the console.
    explicit Console(int fd);

    int fd() const { return fd_; }
    bool terminal() const { return terminal_; }

    /// Prints `text` and a line end. A progress bar is cleared first and drawn again by the next
    /// progress().
    void line(const std::string& text = "");

    /// Shows how far something is, 0 to 1, with a short text. On a terminal a bar that is redrawn
    /// in place; elsewhere a plain line each time another quarter is full.
    void progress(double fraction, const std::string& text);
    /// Shows something of unknown length: redrawn on a terminal, printed once elsewhere.
    void waiting(const std::string& text, double seconds);
    /// Shows lines that take the place of those of the last call, on a terminal; elsewhere they are
    /// printed one after the other.
    void redraw(const std::vector<std::string>& lines);
    /// Silent, it prints nothing.
    void set_silent(bool silent) { silent_ = silent; }
    /// Ends the progress or waiting line.
    void progress_done();

  private:
    void write_all(const std::string& text);
    void clear_bar();

    int fd_;
    bool terminal_;
    bool silent_ = false;
    bool bar_shown_ = false;
    size_t lines_drawn_ = 0;
    int last_quarter_ = 0;
    std::string last_waiting_;
};

}  // namespace camhost
