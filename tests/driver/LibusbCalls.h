// What the engines pass to libusb beyond what the virtual bus records, and what the bus cannot
// play: link-wrapped, see CMakeLists.txt.
#pragma once

#include <libusb-1.0/libusb.h>
#include <stdint.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace test {

/// One libusb_submit_transfer, as the transfer was then.
struct SubmitCall {
    libusb_transfer* transfer;
    libusb_transfer contents;  ///< without packets
    std::vector<unsigned int> packet_lengths;
    int result;
};

class LibusbCalls {
  public:
    static LibusbCalls& instance();
    void reset();

    /// Vendor and product of each open, in order.
    std::vector<std::pair<int, int>> opens() const;
    /// Interface and setting of each alternate-setting call, in order.
    std::vector<std::pair<int, int>> alternate_settings() const;
    std::vector<SubmitCall> submits() const;
    /// Time-outs of the event rounds in microseconds, in order.
    std::vector<long> event_timeouts() const;

    /// The camera answers to this product ID instead of its own.
    void set_product(int product);
    /// libusb says that it is 1.0.`micro`.
    void set_version(int major, int minor, int micro);

    /// Called before each alternate-setting call, on its thread.
    void on_alternate_setting(std::function<void()> hook);

    // For the wrappers.
    struct State;
    static State& state();

  private:
    LibusbCalls() = default;
};

}  // namespace test
