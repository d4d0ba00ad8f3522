// Exported functions: transfers, asynchronous and synchronous.
#include <libusb-1.0/libusb.h>

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

#include "virtcam/bus/call.h"

using virtcam::bus::Bus;
using virtcam::bus::bus;
using virtcam::bus::Call;
using virtcam::bus::locked;

namespace {

/// Endpoint of a transfer for rules and log; nothing when it is none, or was freed.
std::optional<int> endpoint_of(libusb_transfer* transfer) {
    return locked([&](Bus& bus) { return bus.transfers().endpoint_of(transfer); });
}

}  // namespace

struct libusb_transfer* LIBUSB_CALL libusb_alloc_transfer(int iso_packets) {
    return Call("libusb_alloc_transfer", iso_packets).locked_pointer([&](Bus& bus) {
        return bus.transfers().allocate(iso_packets, /*internal=*/false);
    });
}

void LIBUSB_CALL libusb_free_transfer(struct libusb_transfer* transfer) {
    Call("libusb_free_transfer").run([&] {
        virtcam::bus::release(locked([&](Bus& bus) { return bus.transfers().take(transfer); }));
        return 0;
    });
}

int LIBUSB_CALL libusb_submit_transfer(struct libusb_transfer* transfer) {
    return Call("libusb_submit_transfer", endpoint_of(transfer)).locked([&](Bus& bus) {
        return bus.transfers().submit(transfer);
    });
}

int LIBUSB_CALL libusb_cancel_transfer(struct libusb_transfer* transfer) {
    return Call("libusb_cancel_transfer", endpoint_of(transfer)).locked([&](Bus& bus) {
        return bus.transfers().cancel(transfer);
    });
}

int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, uint8_t request_type,
                                        uint8_t bRequest, uint16_t wValue, uint16_t wIndex,
                                        unsigned char* data, uint16_t wLength,
                                        unsigned int timeout) {
    return Call("libusb_control_transfer", bRequest).run([&] {
        return bus().synchronous().control(
            handle, {request_type, bRequest, wValue, wIndex, wLength}, data, timeout);
    });
}

int LIBUSB_CALL libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint,
                                     unsigned char* data, int length, int* actual_length,
                                     unsigned int timeout) {
    return Call("libusb_bulk_transfer", endpoint).run([&] {
        return bus().synchronous().stream(handle, LIBUSB_TRANSFER_TYPE_BULK, endpoint, data, length,
                                          actual_length, timeout);
    });
}

int LIBUSB_CALL libusb_interrupt_transfer(libusb_device_handle* handle, unsigned char endpoint,
                                          unsigned char* data, int length, int* actual_length,
                                          unsigned int timeout) {
    return Call("libusb_interrupt_transfer", endpoint).run([&] {
        return bus().synchronous().stream(handle, LIBUSB_TRANSFER_TYPE_INTERRUPT, endpoint, data,
                                          length, actual_length, timeout);
    });
}

int LIBUSB_CALL libusb_get_string_descriptor_ascii(libusb_device_handle* handle, uint8_t desc_index,
                                                   unsigned char* data, int length) {
    if (desc_index == 0 || length <= 0) {
        return LIBUSB_ERROR_INVALID_PARAM;  // index 0 is the table of languages
    }
    std::array<unsigned char, 255> text{};
    int count = libusb_get_string_descriptor(handle, 0, 0, text.data(), text.size());
    if (count < 0) {
        return count;
    }
    if (count < 4) {
        return LIBUSB_ERROR_IO;
    }
    const auto language = static_cast<uint16_t>(text[2] | text[3] << 8);
    count = libusb_get_string_descriptor(handle, desc_index, language, text.data(), text.size());
    if (count < 0) {
        return count;
    }
    if (count < 2 || text[1] != LIBUSB_DT_STRING || text[0] > count) {
        return LIBUSB_ERROR_IO;
    }
    int used = 0;
    for (int at = 2; at + 1 < text[0] && used < length - 1; at += 2) {
        const auto index = static_cast<size_t>(at);
        const bool ascii = text[index] < 0x80 && text[index + 1] == 0;
        data[used++] = ascii ? text[index] : '?';
    }
    data[used] = 0;
    return used;
}
