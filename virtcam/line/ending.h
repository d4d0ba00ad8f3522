// How a request ended, in nobody's dialect: libusb's words and the kernel's come with the front end.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

#include "virtcam/faults/action.h"
#include "virtcam/model/bytes.h"

namespace virtcam::line {

/// One packet of an isochronous request.
struct PacketEnding {
    faults::Status status = faults::Status::kCompleted;
    model::Bytes data;
    size_t count = 0;  ///< bytes that are reported, whatever arrived
};

struct Ending {
    faults::Status status = faults::Status::kCompleted;
    model::Bytes data;                  ///< that arrives at the host, packets aside
    size_t room = 0;                    ///< of the host for that data; 0: an OUT request
    size_t count = 0;                   ///< bytes that are reported as moved, whatever arrived
    std::vector<PacketEnding> packets;  ///< isochronous requests only
    std::optional<int> code;            ///< what a call of libusb reports instead
    std::chrono::milliseconds late{0};  ///< so long after the device's answer
    bool never = false;                 ///< not at all: the host waits until it gives up
};

/// An ending without data.
inline Ending ended(faults::Status status) {
    Ending ending;
    ending.status = status;
    return ending;
}

}  // namespace virtcam::line
