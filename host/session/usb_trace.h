// camhost --trace-usb: the control transfers that the virtual bus saw, decoded.
#pragma once

#include <memory>
#include <string>

#include "host/base/console.h"

namespace camhost {

/// The virtual bus writes one line per control transfer to a file without a name that camhost made
/// before it started itself anew.
class UsbTrace {
  public:
    /// Makes the file and tells the virtual bus of it through the environment.
    static void prepare();

    /// The trace that prepare() began in the process before this one, or none.
    UsbTrace();

    /// Prints the lines that came since the last call.
    void print_new(Console& console);

  private:
    int fd_ = -1;
    long position_ = 0;
    std::string partial_;
};

}  // namespace camhost
