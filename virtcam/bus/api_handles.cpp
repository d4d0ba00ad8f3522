// Exported functions: open devices.
#include <libusb-1.0/libusb.h>

#include "virtcam/bus/call.h"

using virtcam::bus::Bus;
using virtcam::bus::bus;
using virtcam::bus::Call;
using virtcam::bus::locked;

int LIBUSB_CALL libusb_open(libusb_device* device, libusb_device_handle** handle) {
    return Call("libusb_open").locked([&](Bus& bus) { return bus.handles().open(device, handle); });
}

libusb_device_handle* LIBUSB_CALL libusb_open_device_with_vid_pid(libusb_context* context,
                                                                  uint16_t vendor_id,
                                                                  uint16_t product_id) {
    constexpr const char* kName = "libusb_open_device_with_vid_pid";
    return Call(kName, product_id).locked_pointer([&](Bus& bus) -> libusb_device_handle* {
        libusb_context* const meant = bus.contexts().resolve(context, kName);
        return meant == nullptr ? nullptr : bus.handles().open_by_id(meant, vendor_id, product_id);
    });
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle) {
    Call("libusb_close").run([&] {
        bus().handles().close(handle);
        return 0;
    });
}

libusb_device* LIBUSB_CALL libusb_get_device(libusb_device_handle* handle) {
    return locked([&](Bus& bus) { return bus.handles().device_of(handle); });
}

int LIBUSB_CALL libusb_get_configuration(libusb_device_handle* handle, int* config) {
    return Call("libusb_get_configuration").locked([&](Bus& bus) {
        return bus.handles().configuration(handle, config);
    });
}

int LIBUSB_CALL libusb_set_configuration(libusb_device_handle* handle, int configuration) {
    return Call("libusb_set_configuration", configuration).locked([&](Bus& bus) {
        return bus.handles().set_configuration(handle, configuration);
    });
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int interface_number) {
    return Call("libusb_claim_interface", interface_number).locked([&](Bus& bus) {
        return bus.claims().claim(handle, interface_number);
    });
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle* handle, int interface_number) {
    return Call("libusb_release_interface", interface_number).locked([&](Bus& bus) {
        return bus.claims().release(handle, interface_number);
    });
}

int LIBUSB_CALL libusb_set_interface_alt_setting(libusb_device_handle* handle, int interface_number,
                                                 int alternate_setting) {
    return Call("libusb_set_interface_alt_setting", interface_number).locked([&](Bus& bus) {
        return bus.claims().set_alt_setting(handle, interface_number, alternate_setting);
    });
}

int LIBUSB_CALL libusb_clear_halt(libusb_device_handle* handle, unsigned char endpoint) {
    return Call("libusb_clear_halt", endpoint).locked([&](Bus& bus) {
        return bus.handles().clear_halt(handle, endpoint);
    });
}

int LIBUSB_CALL libusb_reset_device(libusb_device_handle* handle) {
    return Call("libusb_reset_device").locked([&](Bus& bus) {
        return bus.handles().reset_device(handle);
    });
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle* handle, int interface_number) {
    return Call("libusb_kernel_driver_active", interface_number).locked([&](Bus& bus) {
        return bus.claims().driver_active(handle, interface_number);
    });
}

int LIBUSB_CALL libusb_detach_kernel_driver(libusb_device_handle* handle, int interface_number) {
    return Call("libusb_detach_kernel_driver", interface_number).locked([&](Bus& bus) {
        return bus.claims().detach_driver(handle, interface_number);
    });
}

int LIBUSB_CALL libusb_attach_kernel_driver(libusb_device_handle* handle, int interface_number) {
    return Call("libusb_attach_kernel_driver", interface_number).locked([&](Bus& bus) {
        return bus.claims().attach_driver(handle, interface_number);
    });
}

int LIBUSB_CALL libusb_set_auto_detach_kernel_driver(libusb_device_handle* handle, int enable) {
    return Call("libusb_set_auto_detach_kernel_driver", enable).locked([&](Bus& bus) {
        return bus.handles().set_auto_detach(handle, enable != 0);
    });
}
