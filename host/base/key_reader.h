// Single keys from a terminal.
#pragma once

#include <termios.h>

#include <chrono>
#include <optional>

#include "host/base/wake_event.h"

namespace camhost {

/// While it lives, the terminal at standard input hands over keys one by one and shows none of
/// them. Where standard input is no terminal there are no keys. The controlling thread.
class KeyReader {
  public:
    KeyReader();
    ~KeyReader();
    KeyReader(const KeyReader&) = delete;
    KeyReader& operator=(const KeyReader&) = delete;

    /// Waits for a key, for `wake` (which is consumed) or until `deadline`.
    std::optional<char> wait(WakeEvent& wake, Clock::time_point deadline);

  private:
    termios before_{};
    bool terminal_;  // after what its beginning fills
};

}  // namespace camhost
