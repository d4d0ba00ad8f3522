// Synchronous transfers: an asynchronous one and event handling until it is done.
#pragma once

#include "virtcam/bus/event_loop.h"
#include "virtcam/bus/handle_table.h"

namespace virtcam::bus {

/// All functions without the lock (shared.h).
class SynchronousCalls {
  public:
    SynchronousCalls(Shared& shared, HandleTable& handles, Transfers& transfers, EventLoop& events)
        : shared_(shared), handles_(handles), transfers_(transfers), events_(events) {}

    /// Parameters of libusb_control_transfer; result as documented there.
    int control(libusb_device_handle* handle, const model::Setup& setup, uint8_t* data,
                unsigned timeout_ms);
    /// libusb_bulk_transfer and libusb_interrupt_transfer.
    int stream(libusb_device_handle* handle, libusb_transfer_type type, uint8_t endpoint,
               uint8_t* data, int length, int* transferred, unsigned timeout_ms);

  private:
    class OwnTransfer;

    /// @return 0 or the libusb error that stands for the ending.
    int run(libusb_transfer* transfer);
    bool ended(libusb_transfer* transfer);
    int result(libusb_transfer* transfer);

    Shared& shared_;
    HandleTable& handles_;
    Transfers& transfers_;
    EventLoop& events_;
};

}  // namespace virtcam::bus
