// What the controlling thread works with besides the camera.
#pragma once

#include "host/console.h"
#include "host/interrupt.h"
#include "host/usb_trace.h"
#include "host/wake_event.h"

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
