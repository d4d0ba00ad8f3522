// The life of a transfer in the program's hands: allocation, submission, cancellation, release.
#pragma once

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "virtcam/bus/channels.h"
#include "virtcam/bus/handle_table.h"

namespace virtcam::bus {

class Transfers {
  public:
    Transfers(Shared& shared, HandleTable& handles, Port& port, Channels& channels)
        : shared_(shared), handles_(handles), port_(port), channels_(channels) {}

    /// @param internal made by a synchronous call.
    libusb_transfer* allocate(int packets, bool internal);
    /// The transfer's memory, for the caller to release without the lock; null when it must stay.
    std::unique_ptr<Urb> take(libusb_transfer* transfer);
    /// Endpoint of a transfer, 0 for control; nothing when it is none: then it must not be read.
    std::optional<int> endpoint_of(libusb_transfer* transfer) const;
    int submit(libusb_transfer* transfer);
    int cancel(libusb_transfer* transfer);
    /// The bus's side of a transfer, or null when it is none.
    Urb* find(libusb_transfer* transfer) const;
    /// Takes the transfers from a handle that is being closed.
    void abandon(libusb_device_handle* handle);

    /// Adds what this generation has not freed.
    void tell_leaks(std::vector<Complaint>& leaks) const;

  private:
    void start(Urb& urb);

    Shared& shared_;
    HandleTable& handles_;
    Port& port_;
    Channels& channels_;
    std::unordered_map<libusb_transfer*, std::unique_ptr<Urb>> urbs_;
};

/// What libusb_free_transfer does to memory that nobody uses any more.
void release(std::unique_ptr<Urb> urb);

}  // namespace virtcam::bus
