// What is wrong with a transfer that a program submits, and what a good one asks of the camera.
#pragma once

#include <libusb-1.0/libusb.h>

#include "virtcam/bus/complaint_log.h"
#include "virtcam/bus/interface_table.h"
#include "virtcam/line/request.h"

namespace virtcam::bus {

/// "endpoint 0x81", for complaints.
std::string endpoint_text(uint8_t endpoint);

/// @param transfer of an open handle of the camera on the bus.
/// @param packets it was allocated for so many.
/// @return 0, or a libusb error, with a complaint where the program is to blame.
int check(const libusb_transfer& transfer, int packets, const InterfaceTable& interfaces,
          ComplaintLog& complaints);

/// What a checked transfer asks.
line::Request request_of(const libusb_transfer& transfer);

}  // namespace virtcam::bus
