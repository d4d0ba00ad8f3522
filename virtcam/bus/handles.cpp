#include "virtcam/bus/handles.h"

#include <algorithm>

#include "virtcam/model/usb.h"

namespace virtcam::bus {

/// What all calls with a handle refuse first.
int Handles::check(libusb_device_handle* handle, const char* call) {
    if (!handles_.usable(handle, call)) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return handle->device->attached ? LIBUSB_SUCCESS : LIBUSB_ERROR_NO_DEVICE;
}

int Handles::open(libusb_device* device, libusb_device_handle** handle) {
    if (!devices_.known(device) || device->context == nullptr) {
        shared_.complaints.raise("unknown_device", "libusb_open: not a device of an open context");
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (!device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (device->info->kind != DeviceInfo::Kind::kCamera) {
        return LIBUSB_ERROR_ACCESS;
    }
    *handle = handles_.add(device);
    return LIBUSB_SUCCESS;
}

libusb_device_handle* Handles::open_by_id(libusb_context* context, uint16_t vendor,
                                          uint16_t product) {
    for (libusb_device* device : context->devices) {
        libusb_device_descriptor descriptor{};
        if (!parse_device_descriptor(device->info->device_bytes, descriptor) ||
            descriptor.idVendor != vendor || descriptor.idProduct != product) {
            continue;
        }
        libusb_device_handle* handle = nullptr;
        return open(device, &handle) == LIBUSB_SUCCESS ? handle : nullptr;
    }
    return nullptr;
}

void Handles::close(libusb_device_handle* handle) {
    if (handle == nullptr) {
        return;
    }
    libusb_context* context = nullptr;
    {
        const Hold hold(shared_.lock);
        if (!handles_.usable(handle, "libusb_close")) {
            return;
        }
        context = handle->context;
    }
    events_.exclude(context, [&] { end(handle); });
}

void Handles::end(libusb_device_handle* handle) {
    transfers_.abandon(handle);
    claims_.release_all(handle);
    if (handle->poisoned) {
        shared_.complaints.raise("poisoned_handle",
                                 "libusb_close: libusb 1.0.26 aborts here, because an alternate "
                                 "setting was selected after the device had gone");
    }
    libusb_device* const device = handle->device;
    handles_.remove(handle);
    devices_.drop_reference(device);
    shared_.changed();
}

libusb_device* Handles::device_of(libusb_device_handle* handle) {
    return handles_.usable(handle, "libusb_get_device") ? handle->device : nullptr;
}

int Handles::configuration(libusb_device_handle* handle, int* value) {
    if (const int refused = check(handle, "libusb_get_configuration"); refused != 0) {
        return refused;
    }
    if (port_.configuration() == nullptr) {
        return LIBUSB_ERROR_IO;
    }
    *value = (*port_.configuration())->bConfigurationValue;
    return LIBUSB_SUCCESS;
}

int Handles::set_configuration(libusb_device_handle* handle, int value) {
    const int refused = check(handle, "libusb_set_configuration");
    if (refused == LIBUSB_ERROR_INVALID_PARAM || value < -1 || value > 0xFF) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    if (refused != 0) {
        return refused;
    }
    if (port_.interfaces().anything_claimed()) {
        return LIBUSB_ERROR_BUSY;
    }
    const auto wanted = static_cast<uint16_t>(std::max(value, 0));  // -1 asks for 'unconfigured'
    if (!port_.kernel_request(
            {model::usb::kRecipientDevice, model::usb::kSetConfiguration, wanted, 0, 0})) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    port_.interfaces().reset_settings();
    return LIBUSB_SUCCESS;
}

int Handles::clear_halt(libusb_device_handle* handle, uint8_t endpoint) {
    if (const int refused = check(handle, "libusb_clear_halt"); refused != 0) {
        return refused;
    }
    const int interface = port_.interfaces().interface_of(endpoint);
    if (interface < 0) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    if (!port_.interfaces().claimed_by(interface, handle)) {
        shared_.complaints.raise(
            "halt_unclaimed",
            "libusb_clear_halt: interface " + std::to_string(interface) + " is not claimed");
        // usbfs takes the interface by itself when nobody else has it.
        if (port_.interfaces().driver_name(interface) != "(none)") {
            return LIBUSB_ERROR_OTHER;
        }
    }
    const bool done =
        port_.kernel_request({model::usb::kRecipientEndpoint, model::usb::kClearFeature,
                              model::usb::kFeatureEndpointHalt, endpoint, 0});
    if (!handle->device->attached) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    return done ? LIBUSB_SUCCESS : LIBUSB_ERROR_OTHER;
}

int Handles::reset_device(libusb_device_handle* handle) {
    if (const int refused = check(handle, "libusb_reset_device"); refused != 0) {
        return refused;
    }
    if (port_.configuration() == nullptr) {
        return LIBUSB_ERROR_IO;
    }
    for (const int interface : port_.interfaces().claims_of(handle)) {
        claims_.flush(interface);
    }
    port_.reset_camera();
    return LIBUSB_SUCCESS;
}

int Handles::set_auto_detach(libusb_device_handle* handle, bool enable) {
    if (!handles_.usable(handle, "libusb_set_auto_detach_kernel_driver")) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    handle->auto_detach = enable;
    return LIBUSB_SUCCESS;
}

void Handles::tell_leaks(std::vector<Complaint>& leaks) const {
    for (const auto* handle : handles_.leaked()) {
        leaks.push_back({"leaked_handle", "a handle of " + id_text(*handle->device->info) +
                                              " was never closed" + claims_.text(handle)});
    }
}

}  // namespace virtcam::bus
