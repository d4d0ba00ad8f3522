// Endings in the kernel's terms.
#pragma once

#include "virtcam/line/ending.h"
#include "virtcam/usbip/pdu.h"

namespace virtcam::usbip {

/// The negative errno with which a kernel reports this ending; 0 for a good one.
int to_errno(faults::Status status);

/// The answer to `submit`. Counts that the wire cannot express (more than arrived, more than the
/// host has room for) become what comes nearest to them.
Result to_result(const Submit& submit, line::Ending ending);

}  // namespace virtcam::usbip
