// How libusb names the ways in which a transfer can end.
#pragma once

#include <libusb-1.0/libusb.h>

#include "virtcam/faults/action.h"

namespace virtcam::bus {

inline libusb_transfer_status to_libusb(faults::Status status) {
    return static_cast<libusb_transfer_status>(status);
}

/// What the synchronous call reports for a transfer that ended so; 0 for a good one.
int error_for(libusb_transfer_status status);

/// "control", "iso", "bulk" or "interrupt", of a libusb_transfer_type.
const char* type_name(int type);

}  // namespace virtcam::bus
