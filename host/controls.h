// What the controlling thread works with besides the camera.
#pragma once

#include "host/console.h"
#include "host/interrupt.h"
#include "host/wake_event.h"

namespace camhost {

struct Controls {
    Console& console;
    WakeEvent& wake;
    InterruptWatcher& interrupt;
};

}  // namespace camhost
