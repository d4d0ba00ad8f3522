// What the controlling thread works with besides the camera.
#pragma once

#include "host/base/console.h"
#include "host/base/interrupt.h"
#include "host/base/wake_event.h"
#include "host/session/usb_trace.h"

namespace camhost {

struct Controls {
    Console& console;
    WakeEvent& wake;
    InterruptWatcher& interrupt;
    UsbTrace& trace;

    /// Prints the requests that the bus saw since the last call (--trace-usb).
    void show_requests() const { trace.print_new(console); }
};

}  // namespace camhost
