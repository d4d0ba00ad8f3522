#include "virtcam/bus/synchronous_calls.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "virtcam/bus/status_codes.h"

namespace virtcam::bus {

/// A transfer of the bus's own, freed at the end of the call.
class SynchronousCalls::OwnTransfer {
  public:
    explicit OwnTransfer(SynchronousCalls& calls) : calls_(calls) {
        const Hold hold(calls_.shared_.lock);
        transfer_ = calls_.transfers_.allocate(0, /*internal=*/true);
    }
    ~OwnTransfer() {
        const Hold hold(calls_.shared_.lock);
        calls_.transfers_.take(transfer_);
    }
    OwnTransfer(const OwnTransfer&) = delete;
    OwnTransfer& operator=(const OwnTransfer&) = delete;

    libusb_transfer* get() const { return transfer_; }
    explicit operator bool() const { return transfer_ != nullptr; }

  private:
    SynchronousCalls& calls_;
    libusb_transfer* transfer_ = nullptr;
};

bool SynchronousCalls::ended(libusb_transfer* transfer) {
    const Hold hold(shared_.lock);
    return transfers_.find(transfer)->state == Urb::State::kIdle;
}

int SynchronousCalls::result(libusb_transfer* transfer) {
    const Hold hold(shared_.lock);
    const auto& forced = transfers_.find(transfer)->ending.code;
    return forced ? *forced : error_for(transfer->status);
}

int SynchronousCalls::run(libusb_transfer* transfer) {
    libusb_context* context = nullptr;
    {
        const Hold hold(shared_.lock);
        if (!handles_.usable(transfer->dev_handle, "synchronous transfer")) {
            return LIBUSB_ERROR_INVALID_PARAM;
        }
        context = transfer->dev_handle->context;
    }
    if (events_.refused_in_callback(context)) {
        return LIBUSB_ERROR_BUSY;
    }
    {
        const Hold hold(shared_.lock);
        if (const int refused = transfers_.submit(transfer); refused != LIBUSB_SUCCESS) {
            return refused;
        }
    }
    const auto finished = [&] { return ended(transfer); };
    constexpr auto kRound = std::chrono::seconds(60);
    while (!finished()) {
        events_.handle_events(context, model::Clock::now() + kRound, finished);
    }
    return result(transfer);
}

int SynchronousCalls::control(libusb_device_handle* handle, const model::Setup& setup,
                              uint8_t* data, unsigned timeout_ms) {
    if (data == nullptr && setup.length != 0) {
        shared_.complaints.raise(
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
    const int failed = run(transfer.get());
    if (failed != LIBUSB_SUCCESS) {
        return failed;
    }
    const int moved = transfer.get()->actual_length;
    if (setup.device_to_host() && moved > 0) {
        std::memcpy(data, stage, std::min<size_t>(static_cast<size_t>(moved), setup.length));
    }
    return moved;
}

int SynchronousCalls::stream(libusb_device_handle* handle, libusb_transfer_type type,
                             uint8_t endpoint, uint8_t* data, int length, int* transferred,
                             unsigned timeout_ms) {
    const OwnTransfer transfer(*this);
    if (!transfer) {
        return LIBUSB_ERROR_NO_MEM;
    }
    libusb_fill_bulk_transfer(transfer.get(), handle, endpoint, data, length, nullptr, nullptr,
                              timeout_ms);
    transfer.get()->type = static_cast<unsigned char>(type);
    const int failed = run(transfer.get());
    if (transferred != nullptr) {
        *transferred = transfer.get()->actual_length;
    }
    return failed;
}

}  // namespace virtcam::bus
