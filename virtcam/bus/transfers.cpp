#include "virtcam/bus/transfers.h"

#include <cstdlib>
#include <utility>

#include "virtcam/bus/submission.h"

namespace virtcam::bus {

Urb::~Urb() {
    std::free(transfer);
}

libusb_transfer* Transfers::allocate(int packets, bool internal) {
    if (packets < 0) {
        return nullptr;
    }
    const size_t size = sizeof(libusb_transfer) +
                        static_cast<size_t>(packets) * sizeof(libusb_iso_packet_descriptor);
    auto urb = std::make_unique<Urb>();
    urb->transfer = static_cast<libusb_transfer*>(std::calloc(1, size));
    if (urb->transfer == nullptr) {
        return nullptr;
    }
    urb->packet_capacity = packets;
    urb->internal = internal;
    urb->generation = shared_.generation;
    libusb_transfer* const key = urb->transfer;
    urbs_.emplace(key, std::move(urb));
    return key;
}

Urb* Transfers::find(libusb_transfer* transfer) const {
    const auto found = urbs_.find(transfer);
    return found == urbs_.end() ? nullptr : found->second.get();
}

std::unique_ptr<Urb> Transfers::take(libusb_transfer* transfer) {
    if (transfer == nullptr) {
        return nullptr;
    }
    Urb* const urb = find(transfer);
    if (urb == nullptr) {
        shared_.complaints.raise("unknown_transfer",
                                 "libusb_free_transfer: not a transfer, or freed already");
        return nullptr;
    }
    if (urb->state != Urb::State::kIdle) {
        shared_.complaints.raise(
            "free_in_flight",
            "libusb_free_transfer: transfer on " + endpoint_text(urb->endpoint) + " is in flight");
        return nullptr;
    }
    std::unique_ptr<Urb> taken;
    urbs_.extract(transfer).mapped().swap(taken);
    return taken;
}

std::optional<int> Transfers::endpoint_of(libusb_transfer* transfer) const {
    if (find(transfer) == nullptr) {
        return std::nullopt;
    }
    return transfer->type == LIBUSB_TRANSFER_TYPE_CONTROL ? 0 : transfer->endpoint;
}

int Transfers::submit(libusb_transfer* transfer) {
    Urb* const urb = find(transfer);
    if (urb == nullptr) {
        shared_.complaints.raise("unknown_transfer", "libusb_submit_transfer: not a transfer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (urb->state != Urb::State::kIdle) {
        shared_.complaints.raise("double_submit", "libusb_submit_transfer: transfer on " +
                                                      endpoint_text(urb->endpoint) +
                                                      " is already in flight");
        return LIBUSB_ERROR_BUSY;
    }
    if (!handles_.usable(transfer->dev_handle, "libusb_submit_transfer")) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!transfer->dev_handle->device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (const int refused =
            check(*transfer, urb->packet_capacity, port_.interfaces(), shared_.complaints);
        refused != LIBUSB_SUCCESS) {
        return refused;
    }
    start(*urb);
    return LIBUSB_SUCCESS;
}

void Transfers::start(Urb& urb) {
    static_cast<line::Request&>(urb) = request_of(*urb.transfer);
    urb.state = Urb::State::kPending;
    urb.handle = urb.transfer->dev_handle;
    urb.expires.reset();
    if (urb.transfer->timeout != 0) {
        urb.expires = model::Clock::now() + std::chrono::milliseconds(urb.transfer->timeout);
    }
    urb.control_record.reset();
    channels_.submit(urb);
}

int Transfers::cancel(libusb_transfer* transfer) {
    Urb* const urb = find(transfer);
    if (urb == nullptr) {
        shared_.complaints.raise("unknown_transfer", "libusb_cancel_transfer: not a transfer");
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (urb->state != Urb::State::kPending) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    channels_.end(*urb, faults::Status::kCancelled);
    return LIBUSB_SUCCESS;
}

void Transfers::abandon(libusb_device_handle* handle) {
    size_t abandoned = 0;
    for (auto& [key, urb] : urbs_) {
        if (urb->handle != handle) {
            continue;
        }
        if (urb->state != Urb::State::kIdle) {
            ++abandoned;
            channels_.abandon(*urb);
        }
        urb->handle = nullptr;
    }
    if (abandoned != 0) {
        shared_.complaints.raise(
            "close_with_transfers",
            "libusb_close: transfers still in flight: " + std::to_string(abandoned));
    }
}

void Transfers::tell_leaks(std::vector<Complaint>& leaks) const {
    for (const auto& [key, urb] : urbs_) {
        if (urb->generation == shared_.generation && !urb->internal) {
            leaks.push_back({"leaked_transfer", "a transfer was never freed"});
        }
    }
}

void release(std::unique_ptr<Urb> urb) {
    if (urb != nullptr && (urb->transfer->flags & LIBUSB_TRANSFER_FREE_BUFFER) != 0) {
        std::free(urb->transfer->buffer);
    }
}

}  // namespace virtcam::bus
