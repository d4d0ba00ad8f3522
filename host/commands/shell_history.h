// The lines entered in earlier runs of camhost shell.
#pragma once

#include <filesystem>

namespace camhost {

/// Fills readline's history when it is made, and keeps it for the next run when it goes. The
/// controlling thread, one at a time. A history that cannot be read or written is no error.
class ShellHistory {
  public:
    /// In $XDG_STATE_HOME/camhost/history; by default that is ~/.local/state.
    ShellHistory();
    ~ShellHistory();
    ShellHistory(const ShellHistory&) = delete;
    ShellHistory& operator=(const ShellHistory&) = delete;

  private:
    std::filesystem::path file_;  ///< empty: nowhere to keep it
};

}  // namespace camhost
