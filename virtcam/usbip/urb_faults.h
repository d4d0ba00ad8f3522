// Scripted failures, as the kernel's side of the wire sees them.
#pragma once

#include "virtcam/faults/action.h"
#include "virtcam/usbip/pdu.h"

namespace virtcam::usbip {

/// The negative errno with which a kernel reports this ending; 0 for a good one.
int to_errno(faults::Status status);
/// The same for the code that a call of libusb is to report.
int to_errno(int libusb_code);

/// Changes an answer as `action` says. Counts that the wire cannot express (more than arrived, more
/// than the host has room for) become what comes nearest to them.
void apply(const faults::Action& action, const Submit& submit, Result& result);

}  // namespace virtcam::usbip
