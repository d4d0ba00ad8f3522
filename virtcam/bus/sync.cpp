// Synchronous transfers: an asynchronous one and event handling until it is done.
#include <algorithm>
#include <cstring>
#include <vector>

#include "virtcam/bus/bus.h"
#include "virtcam/bus/status_codes.h"

namespace virtcam::bus {
namespace {

/// A transfer of the bus's own, freed at the end of the call.
class OwnTransfer {
  public:
    explicit OwnTransfer(Bus& bus) : bus_(bus), transfer_(bus.allocate(0, /*internal=*/true)) {}
    ~OwnTransfer() { bus_.free(transfer_); }
    OwnTransfer(const OwnTransfer&) = delete;
    OwnTransfer& operator=(const OwnTransfer&) = delete;

    libusb_transfer* get() const { return transfer_; }
    explicit operator bool() const { return transfer_ != nullptr; }

  private:
    Bus& bus_;
    libusb_transfer* transfer_;
};

}  // namespace

int Bus::run_synchronously(libusb_transfer* transfer) {
    libusb_context* context = nullptr;
    {
        const std::lock_guard lock(mutex_);
        if (!usable(transfer->dev_handle, "synchronous transfer")) {
            return LIBUSB_ERROR_INVALID_PARAM;
        }
        context = transfer->dev_handle->context;
    }
    if (in_callback_of(context)) {
        refuse_in_callback();
        return LIBUSB_ERROR_BUSY;
    }
    if (const int refused = submit(transfer); refused != LIBUSB_SUCCESS) {
        return refused;
    }
    const auto finished = [&] {
        const std::lock_guard lock(mutex_);
        return find(transfer)->state == Urb::State::kIdle;
    };
    constexpr auto kRound = std::chrono::seconds(60);
    while (!finished()) {
        handle_events(context, std::chrono::steady_clock::now() + kRound, finished);
    }
    const std::lock_guard lock(mutex_);
    const auto& forced = find(transfer)->ending.code;
    return forced ? *forced : error_for(transfer->status);
}

int Bus::control(libusb_device_handle* handle, const model::Setup& setup, uint8_t* data,
                 unsigned timeout_ms) {
    if (data == nullptr && setup.length != 0) {
        complaints_.raise(
            "null_buffer",
            "libusb_control_transfer: " + std::to_string(setup.length) + " bytes without a buffer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const OwnTransfer transfer(*this);
    if (!transfer) {
        return LIBUSB_ERROR_NO_MEM;
    }
    std::vector<uint8_t> buffer(LIBUSB_CONTROL_SETUP_SIZE + setup.length);
    libusb_fill_control_setup(buffer.data(), setup.request_type, setup.request, setup.value,
                              setup.index, setup.length);
    uint8_t* const stage = buffer.data() + LIBUSB_CONTROL_SETUP_SIZE;
    if (!setup.device_to_host() && setup.length != 0) {
        std::memcpy(stage, data, setup.length);
    }
    libusb_fill_control_transfer(transfer.get(), handle, buffer.data(), nullptr, nullptr,
                                 timeout_ms);
    const int result = run_synchronously(transfer.get());
    if (result != LIBUSB_SUCCESS) {
        return result;
    }
    const int moved = transfer.get()->actual_length;
    if (setup.device_to_host() && moved > 0) {
        std::memcpy(data, stage, std::min<size_t>(static_cast<size_t>(moved), setup.length));
    }
    return moved;
}

int Bus::stream(libusb_device_handle* handle, libusb_transfer_type type, uint8_t endpoint,
                uint8_t* data, int length, int* transferred, unsigned timeout_ms) {
    const OwnTransfer transfer(*this);
    if (!transfer) {
        return LIBUSB_ERROR_NO_MEM;
    }
    libusb_fill_bulk_transfer(transfer.get(), handle, endpoint, data, length, nullptr, nullptr,
                              timeout_ms);
    transfer.get()->type = static_cast<unsigned char>(type);
    const int result = run_synchronously(transfer.get());
    if (transferred != nullptr) {
        *transferred = transfer.get()->actual_length;
    }
    return result;
}

}  // namespace virtcam::bus
