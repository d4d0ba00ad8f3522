#include "EngineThread.h"

#include "aitdbg.h"
#include "ptasking.h"

void RunEngineEvents(UsbStreamEngine& engine, const std::atomic<bool>& shutdown) {
    AIT_LOG_AS("Run");
    if (!RaiseThreadPriority()) {
        AIT_LOG(1, "setpriority error!");
    }
    while (!shutdown) {
        engine.handle_libusb_event();
    }
    // Both threads print the video engine's name; log readers know it so.
    AIT_LOG(4, "CAIT_CAM_LIB::run() Exit libusb thread.\n");
}
