// The programs that are compared, each with its consumer. All streams may be open at once; the
// bus sends on one of them at a time.
#pragma once

#include <memory>
#include <string>

#include "bench/compare/consumer.h"

namespace bench {

class StreamSide {
  public:
    explicit StreamSide(Side side) : consumer_(side) {}
    virtual ~StreamSide() = default;
    StreamSide(const StreamSide&) = delete;
    StreamSide& operator=(const StreamSide&) = delete;

    /// Starts and stops the stream; the payload size is that of the bus at the start. Throw
    /// std::runtime_error.
    virtual void start() = 0;
    virtual void stop() = 0;

    Consumer& consumer() { return consumer_; }

  protected:
    Consumer consumer_;
};

/// The plug-in's shared library, loaded and brought up as a host does; needs the television's
/// folders (scripts/sandbox). Takes the pauses of the bring-up out of it.
std::unique_ptr<StreamSide> make_plugin_side(const std::string& library);
/// Debian's libuvc.
std::unique_ptr<StreamSide> make_libuvc_side();
/// The least that a client of libusb can do: bounds the other two.
std::unique_ptr<StreamSide> make_bare_side();

}  // namespace bench
