#include "virtcam/bus/claims.h"

#include <string>
#include <vector>

#include "virtcam/model/usb.h"

namespace virtcam::bus {
namespace {

constexpr int kMaxInterfaces = 32;  // libusb's limit: claims are bits of a word

std::string interface_text(int interface) {
    return "interface " + std::to_string(interface);
}

model::Setup set_interface(int interface, int setting) {
    return {model::usb::kRecipientInterface, model::usb::kSetInterface,
            static_cast<uint16_t>(setting), static_cast<uint16_t>(interface), 0};
}

}  // namespace

/// What all calls with an interface refuse first.
int Claims::check(libusb_device_handle* handle, const char* call, int interface) {
    if (!handles_.usable(handle, call) || interface < 0 || interface >= kMaxInterfaces) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return handle->device->attached ? LIBUSB_SUCCESS : LIBUSB_ERROR_NO_DEVICE;
}

int Claims::claim(libusb_device_handle* handle, int interface) {
    if (const int refused = check(handle, "libusb_claim_interface", interface); refused != 0) {
        return refused;
    }
    if (handle->auto_detach) {
        port_.interfaces().detach_driver(interface);
    }
    return port_.interfaces().claim(interface, handle);
}

int Claims::release(libusb_device_handle* handle, int interface) {
    if (const int refused = check(handle, "libusb_release_interface", interface); refused != 0) {
        return refused;
    }
    if (!port_.interfaces().claimed_by(interface, handle)) {
        shared_.complaints.raise(
            "release_unclaimed",
            "libusb_release_interface: " + interface_text(interface) + " was not claimed");
        return LIBUSB_ERROR_NOT_FOUND;
    }
    release(interface);
    if (handle->auto_detach) {
        port_.interfaces().attach_driver(interface);
    }
    shared_.changed();
    return LIBUSB_SUCCESS;
}

void Claims::release(int interface) {
    flush(interface);
    if (port_.interfaces().setting(interface) != 0) {
        // The kernel leaves no interface streaming without an owner.
        port_.kernel_request(set_interface(interface, 0));
        port_.interfaces().select(interface, 0);
    }
    port_.interfaces().release(interface);
}

void Claims::release_all(libusb_device_handle* handle) {
    const std::vector<int> claims = port_.interfaces().claims_of(handle);
    if (claims.empty()) {
        return;
    }
    std::string list;
    for (const int interface : claims) {
        list += (list.empty() ? "" : ", ") + std::to_string(interface);
    }
    shared_.complaints.raise("close_with_claims",
                             "libusb_close: claimed and not released: interface " + list);
    for (const int interface : claims) {
        release(interface);
    }
}

int Claims::set_alt_setting(libusb_device_handle* handle, int interface, int setting) {
    const int refused = check(handle, "libusb_set_interface_alt_setting", interface);
    if (refused == LIBUSB_ERROR_INVALID_PARAM || setting < 0 || setting > 0xFF) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (refused == LIBUSB_ERROR_NO_DEVICE) {
        // libusb 1.0.26 unlocks a mutex here that it does not hold and aborts when it destroys it.
        handle->poisoned = true;
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (!port_.interfaces().claimed_by(interface, handle)) {
        shared_.complaints.raise(
            "setting_unclaimed",
            "libusb_set_interface_alt_setting: " + interface_text(interface) + " is not claimed");
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (!port_.interfaces().has_setting(interface, setting)) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    flush(interface);
    const bool done = port_.kernel_request(set_interface(interface, setting));
    if (!handle->device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (!done) {
        return LIBUSB_ERROR_OTHER;
    }
    port_.interfaces().select(interface, setting);
    shared_.changed();
    return LIBUSB_SUCCESS;
}

int Claims::driver_active(libusb_device_handle* handle, int interface) {
    const int refused = check(handle, "libusb_kernel_driver_active", interface);
    return refused != 0 ? refused : port_.interfaces().driver_active(interface);
}

int Claims::detach_driver(libusb_device_handle* handle, int interface) {
    const int refused = check(handle, "libusb_detach_kernel_driver", interface);
    return refused != 0 ? refused : port_.interfaces().detach_driver(interface);
}

int Claims::attach_driver(libusb_device_handle* handle, int interface) {
    const int refused = check(handle, "libusb_attach_kernel_driver", interface);
    return refused != 0 ? refused : port_.interfaces().attach_driver(interface);
}

void Claims::flush(int interface) {
    for (const uint8_t endpoint : port_.interfaces().endpoints_of(interface)) {
        // libusb reports what usbfs unlinks by itself as complete and empty.
        channels_.flush(endpoint, faults::Status::kCompleted);
    }
}

std::string Claims::text(const libusb_device_handle* handle) const {
    std::string text;
    for (const int interface : port_.interfaces().claims_of(handle)) {
        text += ", " + interface_text(interface) + " is claimed";
    }
    return text;
}

}  // namespace virtcam::bus
