#include "virtcam/bus/submission.h"

#include <cstdio>
#include <optional>
#include <string>

#include "virtcam/bus/status_codes.h"
#include "virtcam/model/usb.h"

namespace virtcam::bus {
namespace {

constexpr int kMaxControlLength = 4096;  // libusb's MAX_CTRL_BUFFER_LENGTH
constexpr int kSetupLength = LIBUSB_CONTROL_SETUP_SIZE;

/// Of a control transfer whose buffer is long enough.
model::Setup setup_of(const libusb_transfer& transfer) {
    return line::read_setup({transfer.buffer, LIBUSB_CONTROL_SETUP_SIZE});
}

std::string recipient_text(const model::Setup& setup) {
    const auto target = static_cast<uint8_t>(setup.index);
    return (setup.request_type & model::usb::kRecipientMask) == model::usb::kRecipientEndpoint
               ? endpoint_text(target)
               : "interface " + std::to_string(target);
}

int check_recipient(libusb_device_handle* handle, const model::Setup& setup,
                    const InterfaceTable& interfaces, ComplaintLog& complaints) {
    if ((setup.request_type & model::usb::kTypeMask) == model::usb::kTypeVendor) {
        return LIBUSB_SUCCESS;  // usbfs asks for no claim then
    }
    int interface = -1;
    switch (setup.request_type & model::usb::kRecipientMask) {
        case model::usb::kRecipientInterface:
            interface = setup.index & 0xFF;
            break;
        case model::usb::kRecipientEndpoint:
            interface = interfaces.interface_of(static_cast<uint8_t>(setup.index));
            break;
        default:
            return LIBUSB_SUCCESS;
    }
    if (!interfaces.exists(interface)) {
        complaints.raise("control_nowhere",
                         "control transfer to " + recipient_text(setup) + ", which does not exist");
        return LIBUSB_ERROR_IO;
    }
    if (interfaces.claimed_by(interface, handle)) {
        return LIBUSB_SUCCESS;
    }
    complaints.raise("control_unclaimed", "control transfer to interface " +
                                              std::to_string(interface) + ", which is not claimed");
    // usbfs takes the interface by itself when nobody else has it.
    const bool taken = interfaces.driver_name(interface) != "(none)";
    return taken ? LIBUSB_ERROR_IO : LIBUSB_SUCCESS;
}

int check_control(const libusb_transfer& transfer, const InterfaceTable& interfaces,
                  ComplaintLog& complaints) {
    if (transfer.length < kSetupLength || transfer.length - kSetupLength > kMaxControlLength) {
        complaints.raise("bad_length", "libusb_submit_transfer: control transfer of " +
                                           std::to_string(transfer.length) + " bytes");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const model::Setup setup = setup_of(transfer);
    if (setup.length > transfer.length - kSetupLength) {
        complaints.raise("bad_length",
                         "libusb_submit_transfer: wLength goes beyond the control transfer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return check_recipient(transfer.dev_handle, setup, interfaces, complaints);
}

int check_packets(const libusb_transfer& transfer, int packets, ComplaintLog& complaints) {
    if (transfer.num_iso_packets < 1 || transfer.num_iso_packets > packets) {
        complaints.raise("bad_packets",
                         "libusb_submit_transfer: " + std::to_string(transfer.num_iso_packets) +
                             " packets in a transfer allocated for " + std::to_string(packets));
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    uint64_t sum = 0;
    for (int i = 0; i < transfer.num_iso_packets; ++i) {
        sum += transfer.iso_packet_desc[i].length;
    }
    if (sum > static_cast<uint64_t>(transfer.length)) {
        complaints.raise("bad_packets", "libusb_submit_transfer: packets of " +
                                            std::to_string(sum) + " bytes in a transfer of " +
                                            std::to_string(transfer.length));
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return LIBUSB_SUCCESS;
}

/// Why no endpoint answers to an address in the present settings.
std::string absence_text(int interface, const InterfaceTable& interfaces) {
    if (interface < 0) {
        return ", which does not exist";
    }
    return ", which alternate setting " + std::to_string(interfaces.setting(interface)) +
           " of interface " + std::to_string(interface) + " does not have";
}

int check_stream(const libusb_transfer& transfer, int packets, const InterfaceTable& interfaces,
                 ComplaintLog& complaints) {
    const int interface = interfaces.interface_of(transfer.endpoint);
    if (interface >= 0 && !interfaces.claimed_by(interface, transfer.dev_handle)) {
        complaints.raise("transfer_unclaimed", "transfer on " + endpoint_text(transfer.endpoint) +
                                                   ", whose interface " +
                                                   std::to_string(interface) + " is not claimed");
        return LIBUSB_ERROR_IO;
    }
    const auto* endpoint = interfaces.active_endpoint(transfer.endpoint);
    if (endpoint == nullptr) {
        complaints.raise(interface < 0 ? "no_endpoint" : "endpoint_not_selected",
                         "transfer on " + endpoint_text(transfer.endpoint) +
                             absence_text(interface, interfaces));
        return LIBUSB_ERROR_IO;
    }
    if (const int type = endpoint->bmAttributes & LIBUSB_TRANSFER_TYPE_MASK;
        type != transfer.type) {
        complaints.raise("wrong_type", std::string(type_name(transfer.type)) + " transfer on " +
                                           endpoint_text(transfer.endpoint) + ", which is " +
                                           type_name(type));
        return LIBUSB_ERROR_IO;
    }
    return transfer.type == LIBUSB_TRANSFER_TYPE_ISOCHRONOUS
               ? check_packets(transfer, packets, complaints)
               : LIBUSB_SUCCESS;
}

std::optional<faults::TransferKind> kind_of(const libusb_transfer& transfer) {
    switch (transfer.type) {
        case LIBUSB_TRANSFER_TYPE_CONTROL:
            return std::nullopt;
        case LIBUSB_TRANSFER_TYPE_ISOCHRONOUS:
            return faults::TransferKind::kIsochronous;
        case LIBUSB_TRANSFER_TYPE_INTERRUPT:
            return faults::TransferKind::kInterrupt;
        default:
            return faults::TransferKind::kBulk;
    }
}

}  // namespace

std::string endpoint_text(uint8_t endpoint) {
    char text[24];
    std::snprintf(text, sizeof text, "endpoint 0x%02x", endpoint);
    return text;
}

int check(const libusb_transfer& transfer, int packets, const InterfaceTable& interfaces,
          ComplaintLog& complaints) {
    if (transfer.buffer == nullptr && transfer.length > 0) {
        complaints.raise("null_buffer", "libusb_submit_transfer: transfer of " +
                                            std::to_string(transfer.length) +
                                            " bytes without a buffer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (transfer.length < 0) {
        complaints.raise("bad_length", "libusb_submit_transfer: negative length");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return transfer.type == LIBUSB_TRANSFER_TYPE_CONTROL
               ? check_control(transfer, interfaces, complaints)
               : check_stream(transfer, packets, interfaces, complaints);
}

line::Request request_of(const libusb_transfer& transfer) {
    line::Request request;
    request.kind = kind_of(transfer);
    if (request.is_control()) {
        request.setup = setup_of(transfer);
        if (!request.setup.device_to_host()) {
            request.out = {transfer.buffer + LIBUSB_CONTROL_SETUP_SIZE, request.setup.length};
        }
        return request;
    }
    request.endpoint = transfer.endpoint;
    const auto length = static_cast<size_t>(transfer.length);
    if (request.to_host()) {
        request.room = length;
    } else {
        request.out = {transfer.buffer, length};
    }
    for (int i = 0; request.is_iso() && i < transfer.num_iso_packets; ++i) {
        request.packets.push_back(transfer.iso_packet_desc[i].length);
    }
    return request;
}

}  // namespace virtcam::bus
