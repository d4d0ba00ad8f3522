// The life of a transfer: allocation, submission, cancellation, completion.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "virtcam/bus/bus.h"
#include "virtcam/model/usb.h"

namespace virtcam::bus {
namespace {

constexpr int kMaxControlLength = 4096;  // libusb's MAX_CTRL_BUFFER_LENGTH

std::string endpoint_text(uint8_t endpoint) {
    char text[24];
    std::snprintf(text, sizeof text, "endpoint 0x%02x", endpoint);
    return text;
}

int type_of(const libusb_endpoint_descriptor& endpoint) {
    return endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK;
}

/// Of a control transfer whose buffer is long enough.
model::Setup setup_of(const libusb_transfer& transfer) {
    return line::read_setup({transfer.buffer, LIBUSB_CONTROL_SETUP_SIZE});
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

/// What a checked transfer asks of the camera.
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

}  // namespace

Urb::~Urb() {
    std::free(transfer);
}

libusb_transfer* Bus::allocate(int packets, bool internal) {
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
    libusb_transfer* const key = urb->transfer;
    const std::lock_guard lock(mutex_);
    urb->generation = generation_;
    urbs_.emplace(key, std::move(urb));
    return key;
}

Urb* Bus::find(libusb_transfer* transfer) {
    const auto found = urbs_.find(transfer);
    return found == urbs_.end() ? nullptr : found->second.get();
}

void Bus::free(libusb_transfer* transfer) {
    if (transfer == nullptr) {
        return;
    }
    std::unique_ptr<Urb> freed;
    {
        const std::lock_guard lock(mutex_);
        Urb* const urb = find(transfer);
        if (urb == nullptr) {
            complaints_.raise("unknown_transfer",
                              "libusb_free_transfer: not a transfer, or freed already");
            return;
        }
        if (urb->state != Urb::State::kIdle) {
            complaints_.raise("free_in_flight", "libusb_free_transfer: transfer on " +
                                                    endpoint_text(urb->endpoint) + " is in flight");
            return;
        }
        freed = std::move(urbs_.extract(transfer).mapped());
    }
    if ((transfer->flags & LIBUSB_TRANSFER_FREE_BUFFER) != 0) {
        std::free(transfer->buffer);
    }
}

int Bus::submit(libusb_transfer* transfer) {
    const std::lock_guard lock(mutex_);
    Urb* const urb = find(transfer);
    if (urb == nullptr) {
        complaints_.raise("unknown_transfer", "libusb_submit_transfer: not a transfer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (urb->state != Urb::State::kIdle) {
        complaints_.raise("double_submit", "libusb_submit_transfer: transfer on " +
                                               endpoint_text(urb->endpoint) +
                                               " is already in flight");
        return LIBUSB_ERROR_BUSY;
    }
    if (!usable(transfer->dev_handle, "libusb_submit_transfer")) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!transfer->dev_handle->device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (const int refused = check(*transfer, *urb); refused != LIBUSB_SUCCESS) {
        return refused;
    }
    enqueue(*urb);
    return LIBUSB_SUCCESS;
}

int Bus::check(const libusb_transfer& transfer, const Urb& urb) {
    if (transfer.buffer == nullptr && transfer.length > 0) {
        complaints_.raise("null_buffer", "libusb_submit_transfer: transfer of " +
                                             std::to_string(transfer.length) +
                                             " bytes without a buffer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (transfer.length < 0) {
        complaints_.raise("bad_length", "libusb_submit_transfer: negative length");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return transfer.type == LIBUSB_TRANSFER_TYPE_CONTROL ? check_control(transfer)
                                                         : check_stream(transfer, urb);
}

int Bus::check_control(const libusb_transfer& transfer) {
    if (transfer.length < static_cast<int>(LIBUSB_CONTROL_SETUP_SIZE) ||
        transfer.length - static_cast<int>(LIBUSB_CONTROL_SETUP_SIZE) > kMaxControlLength) {
        complaints_.raise("bad_length", "libusb_submit_transfer: control transfer of " +
                                            std::to_string(transfer.length) + " bytes");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    const model::Setup setup = setup_of(transfer);
    if (setup.length > transfer.length - static_cast<int>(LIBUSB_CONTROL_SETUP_SIZE)) {
        complaints_.raise("bad_length",
                          "libusb_submit_transfer: wLength goes beyond the control transfer");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return check_recipient(transfer.dev_handle, setup);
}

int Bus::check_recipient(libusb_device_handle* handle, const model::Setup& setup) {
    if ((setup.request_type & model::usb::kTypeMask) == LIBUSB_REQUEST_TYPE_VENDOR) {
        return LIBUSB_SUCCESS;  // usbfs asks for no claim then
    }
    int interface = -1;
    switch (setup.request_type & model::usb::kRecipientMask) {
        case LIBUSB_RECIPIENT_INTERFACE:
            interface = setup.index & 0xFF;
            break;
        case LIBUSB_RECIPIENT_ENDPOINT:
            interface = interfaces_.interface_of(static_cast<uint8_t>(setup.index));
            break;
        default:
            return LIBUSB_SUCCESS;
    }
    if (!interfaces_.exists(interface)) {
        return LIBUSB_ERROR_IO;
    }
    if (interfaces_.claimed_by(interface, handle)) {
        return LIBUSB_SUCCESS;
    }
    complaints_.raise(
        "control_unclaimed",
        "control transfer to interface " + std::to_string(interface) + ", which is not claimed");
    // usbfs takes the interface by itself when nobody else has it.
    const bool taken = interfaces_.driver_name(interface) != "(none)";
    return taken ? LIBUSB_ERROR_IO : LIBUSB_SUCCESS;
}

int Bus::check_stream(const libusb_transfer& transfer, const Urb& urb) {
    const int interface = interfaces_.interface_of(transfer.endpoint);
    if (interface >= 0 && !interfaces_.claimed_by(interface, transfer.dev_handle)) {
        complaints_.raise("transfer_unclaimed", "transfer on " + endpoint_text(transfer.endpoint) +
                                                    ", whose interface " +
                                                    std::to_string(interface) + " is not claimed");
        return LIBUSB_ERROR_IO;
    }
    const auto* endpoint = interfaces_.active_endpoint(transfer.endpoint);
    if (endpoint == nullptr || type_of(*endpoint) != transfer.type) {
        return LIBUSB_ERROR_IO;
    }
    if (transfer.type != LIBUSB_TRANSFER_TYPE_ISOCHRONOUS) {
        return LIBUSB_SUCCESS;
    }
    if (transfer.num_iso_packets < 1 || transfer.num_iso_packets > urb.packet_capacity) {
        complaints_.raise("bad_packets",
                          "libusb_submit_transfer: " + std::to_string(transfer.num_iso_packets) +
                              " packets in a transfer allocated for " +
                              std::to_string(urb.packet_capacity));
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    uint64_t sum = 0;
    for (int i = 0; i < transfer.num_iso_packets; ++i) {
        sum += transfer.iso_packet_desc[i].length;
    }
    if (sum > static_cast<uint64_t>(transfer.length)) {
        complaints_.raise("bad_packets", "libusb_submit_transfer: packets of " +
                                             std::to_string(sum) + " bytes in a transfer of " +
                                             std::to_string(transfer.length));
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return LIBUSB_SUCCESS;
}

void Bus::enqueue(Urb& urb) {
    const libusb_transfer& transfer = *urb.transfer;
    static_cast<line::Request&>(urb) = request_of(transfer);
    urb.state = Urb::State::kPending;
    urb.handle = transfer.dev_handle;
    urb.expires.reset();
    if (transfer.timeout != 0) {
        urb.expires = model::Clock::now() + std::chrono::milliseconds(transfer.timeout);
    }
    urb.control_record.reset();
    if (urb.is_control()) {
        log_control(urb);
    }
    Channel& queue = channel(urb.endpoint);
    queue.last_timeout = transfer.timeout;
    queue.endpoint.submit(urb);
    serve(queue);
    urb.handle->context->wake.notify_all();  // its time-out may be the next one
    changed();
}

int Bus::cancel(libusb_transfer* transfer) {
    const std::lock_guard lock(mutex_);
    Urb* const urb = find(transfer);
    if (urb == nullptr) {
        complaints_.raise("unknown_transfer", "libusb_cancel_transfer: not a transfer");
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (urb->state != Urb::State::kPending) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    finish(*urb, line::ended(faults::Status::kCancelled));
    serve(channel(urb->endpoint));
    return LIBUSB_SUCCESS;
}

void Bus::finish(Urb& urb, line::Ending ending) {
    Channel& queue = channel(urb.endpoint);
    queue.endpoint.withdraw(urb, model::Clock::now());
    urb.state = Urb::State::kDone;
    urb.ending = std::move(ending);
    ++transfer_counts_[{urb.transfer->type, static_cast<int>(urb.ending.status)}];
    log_result(urb);
    if (queue.hold) {
        queue.held.push_back(&urb);
    } else {
        publish(urb);
    }
    changed();
}

void Bus::finish_all(Channel& channel, faults::Status status) {
    while (!channel.endpoint.waiting().empty()) {
        finish(static_cast<Urb&>(*channel.endpoint.waiting().front()), line::ended(status));
    }
    channel.endpoint.stop_clock();
}

void Bus::publish(Urb& urb) {
    libusb_context& context = *urb.handle->context;
    context.completed.push_back(&urb);
    context.wake.notify_all();
}

}  // namespace virtcam::bus
