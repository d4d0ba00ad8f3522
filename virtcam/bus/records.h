// What the bus records about its use, and the words with which a test scripts a stream.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "virtcam/model/setup.h"

namespace virtcam::bus {

/// One misuse of the library.
struct Complaint {
    std::string code;       ///< kind, as listed in docs/virtual-bus.md
    std::string text;       ///< the whole line, without prefix and line end
    bool expected = false;  ///< announced by the configuration, so it was not printed

    bool operator==(const Complaint&) const = default;
};

/// One control transfer that a program sent, requests that libusb makes for it excluded.
struct ControlRecord {
    std::chrono::steady_clock::time_point when;  ///< submission
    model::Setup setup;
    std::vector<uint8_t> data;  ///< OUT data as sent, or IN data as delivered
    unsigned timeout_ms = 0;    ///< as the caller gave it; 0: none
    std::optional<int> result;  ///< bytes or libusb error; nothing while in flight
    std::thread::id thread;     ///< submitter
};

/// One call of the library. Event handling, reference counting and pure look-ups are not recorded.
struct CallRecord {
    std::string name;
    std::optional<int> argument;  ///< interface, endpoint or alike
    int result = 0;               ///< return code; for pointers 0, or -1 when null
    std::thread::id thread;
};

/// Transfer endings; the values are those of libusb_transfer_status.
enum class TransferStatus {
    kCompleted,
    kError,
    kTimedOut,
    kCancelled,
    kStall,
    kNoDevice,
    kOverflow
};

/// One packet of a scripted isochronous transfer.
struct IsoPacket {
    TransferStatus status = TransferStatus::kCompleted;
    std::vector<uint8_t> bytes;             ///< cut to the packet's length
    std::optional<unsigned> actual_length;  ///< reported in place of the byte count
};

}  // namespace virtcam::bus
