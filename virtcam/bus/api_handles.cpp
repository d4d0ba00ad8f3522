// Exported functions: open devices.
#include <libusb-1.0/libusb.h>

#include "virtcam/bus/call.h"

using virtcam::bus::bus;
using virtcam::bus::Call;

int LIBUSB_CALL libusb_open(libusb_device* device, libusb_device_handle** handle) {
    return Call("libusb_open").run([&] { return bus().open(device, handle); });
}

libusb_device_handle* LIBUSB_CALL libusb_open_device_with_vid_pid(libusb_context* context,
                                                                  uint16_t vendor_id,
                                                                  uint16_t product_id) {
    constexpr const char* kName = "libusb_open_device_with_vid_pid";
    return Call(kName, product_id).run_pointer([&]() -> libusb_device_handle* {
        libusb_context* const meant = bus().resolve(context, kName);
        return meant == nullptr ? nullptr : bus().open_by_id(meant, vendor_id, product_id);
    });
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle) {
    Call("libusb_close").run([&] {
        bus().close(handle);
        return 0;
    });
}

libusb_device* LIBUSB_CALL libusb_get_device(libusb_device_handle* handle) {
    return bus().device_of(handle);
}

int LIBUSB_CALL libusb_get_configuration(libusb_device_handle* handle, int* config) {
    return Call("libusb_get_configuration").run([&] {
        return bus().configuration(handle, config);
    });
}

int LIBUSB_CALL libusb_set_configuration(libusb_device_handle* handle, int configuration) {
    return Call("libusb_set_configuration", configuration).run([&] {
        return bus().set_configuration(handle, configuration);
    });
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int interface_number) {
    return Call("libusb_claim_interface", interface_number).run([&] {
        return bus().claim(handle, interface_number);
    });
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle* handle, int interface_number) {
    return Call("libusb_release_interface", interface_number).run([&] {
        return bus().release(handle, interface_number);
    });
}

int LIBUSB_CALL libusb_set_interface_alt_setting(libusb_device_handle* handle, int interface_number,
                                                 int alternate_setting) {
    return Call("libusb_set_interface_alt_setting", interface_number).run([&] {
        return bus().set_alt_setting(handle, interface_number, alternate_setting);
    });
}

int LIBUSB_CALL libusb_clear_halt(libusb_device_handle* handle, unsigned char endpoint) {
    return Call("libusb_clear_halt", endpoint).run([&] {
        return bus().clear_halt(handle, endpoint);
    });
}

int LIBUSB_CALL libusb_reset_device(libusb_device_handle* handle) {
    return Call("libusb_reset_device").run([&] { return bus().reset_device(handle); });
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle* handle, int interface_number) {
    return Call("libusb_kernel_driver_active", interface_number).run([&] {
        return bus().driver_active(handle, interface_number);
    });
}

int LIBUSB_CALL libusb_detach_kernel_driver(libusb_device_handle* handle, int interface_number) {
    return Call("libusb_detach_kernel_driver", interface_number).run([&] {
        return bus().detach_driver(handle, interface_number);
    });
}

int LIBUSB_CALL libusb_attach_kernel_driver(libusb_device_handle* handle, int interface_number) {
    return Call("libusb_attach_kernel_driver", interface_number).run([&] {
        return bus().attach_driver(handle, interface_number);
    });
}

int LIBUSB_CALL libusb_set_auto_detach_kernel_driver(libusb_device_handle* handle, int enable) {
    return Call("libusb_set_auto_detach_kernel_driver", enable).run([&] {
        return bus().set_auto_detach(handle, enable != 0);
    });
}
