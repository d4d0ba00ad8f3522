// Keeps the plug-in's log out of camhost's output.
#pragma once

#include <filesystem>

namespace camhost {

/// The plug-in prints its log to standard output, in colour. From construction to destruction file
/// descriptor 1 leads to `log`; camhost prints to console_fd(), which leads where standard output
/// led before. Construct before the plug-in is loaded, destroy after it is gone.
class LogDiversion {
  public:
    /// Throws Failure when the file cannot be opened for writing.
    explicit LogDiversion(const std::filesystem::path& log);
    ~LogDiversion();
    LogDiversion(const LogDiversion&) = delete;
    LogDiversion& operator=(const LogDiversion&) = delete;

    int console_fd() const { return console_fd_; }

  private:
    int console_fd_;
};

}  // namespace camhost
