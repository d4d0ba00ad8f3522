// Cuts the byte stream of an imported device into commands.
#pragma once

#include <optional>
#include <stdexcept>

#include "virtcam/usbip/pdu.h"

namespace virtcam::usbip {

/// The peer broke the protocol; the connection cannot be continued.
class ProtocolError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Nothing is believed: every count is bounded before room is made for what it announces. Not
/// thread-safe.
class PduReader {
  public:
    static constexpr uint32_t kMostBytes = 16 << 20;  ///< of one request, as usbfs has it
    static constexpr uint32_t kMostPackets = 1024;    ///< of one request, as the kernel has it

    /// Adds bytes as they arrived, cut anywhere.
    void feed(ByteView bytes) { buffer_.insert(buffer_.end(), bytes.begin(), bytes.end()); }
    /// The next complete command, nothing when more bytes are needed.
    /// Throws ProtocolError; the reader is of no use afterwards.
    std::optional<Command> next();
    /// Bytes that wait for the rest of their command.
    size_t pending() const { return buffer_.size() - read_; }

  private:
    ByteView unread() const { return ByteView(buffer_).subspan(read_); }
    void consume(size_t size);

    Bytes buffer_;
    size_t read_ = 0;  ///< bytes at the front of the buffer that are done with
};

}  // namespace virtcam::usbip
