// The words of a control transfer, which the camera and everything that carries requests to it use.
#pragma once

#include <cstdint>
#include <vector>

#include "virtcam/model/clock.h"

namespace virtcam::model {

/// SETUP packet of a control transfer (USB 2.0, table 9-2), fields in host byte order.
struct Setup {
    uint8_t request_type = 0;  ///< bmRequestType
    uint8_t request = 0;       ///< bRequest
    uint16_t value = 0;        ///< wValue
    uint16_t index = 0;        ///< wIndex
    uint16_t length = 0;       ///< wLength

    bool device_to_host() const { return (request_type & 0x80) != 0; }
};

/// Answer of the device to a control transfer.
struct ControlReply {
    bool stall = false;         ///< request refused (protocol STALL); data is empty then
    std::vector<uint8_t> data;  ///< IN data, never more than Setup::length; empty for OUT
};

/// One vendor or class command that reached the device, as recorded for tests and status dump.
struct CommandRecord {
    TimePoint when;
    Setup setup;
    std::vector<uint8_t> data;  ///< OUT data, or the IN data of the reply
    bool stalled = false;
};

}  // namespace virtcam::model
