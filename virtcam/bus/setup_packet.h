// The setup packet at the beginning of a control transfer's buffer.
#pragma once

#include <libusb-1.0/libusb.h>

#include <cstdint>
#include <span>

#include "virtcam/model/setup.h"

namespace virtcam::bus {

/// @param buffer at least LIBUSB_CONTROL_SETUP_SIZE bytes, wire order.
inline model::Setup read_setup(const uint8_t* buffer) {
    const auto word = [&](int at) {
        return static_cast<uint16_t>(buffer[at] | buffer[at + 1] << 8);
    };
    return {buffer[0], buffer[1], word(2), word(4), word(6)};
}

/// OUT data stage of a checked control transfer; empty for IN.
inline std::span<const uint8_t> out_data(const libusb_transfer& transfer,
                                         const model::Setup& setup) {
    if (setup.device_to_host()) {
        return {};
    }
    return {transfer.buffer + LIBUSB_CONTROL_SETUP_SIZE, setup.length};
}

}  // namespace virtcam::bus
